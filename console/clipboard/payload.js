// The payload of clipboard messages, the same in both directions: one byte for the kind, then UTF-8 text, a
// PNG file, or a list of files with their content (count u32, then for each: length of the name u32, name,
// size u64, bytes; big-endian).

const ClipKind = Object.freeze({ text: 1, image: 2, files: 3 });

const COUNT_BYTES = 4;
const RECORD_BYTES = 4 + 8;
const utf8 = new TextEncoder();
const utf8Reader = new TextDecoder('utf-8', { ignoreBOM: true });

/** @typedef {{name: string, bytes: Uint8Array<ArrayBuffer>}} ClipFile */
/**
 * @typedef {{kind: 'text', text: string} | {kind: 'image', png: Uint8Array<ArrayBuffer>} | {kind: 'files',
 *   files: ClipFile[]}} Clip
 */

function withKind(/** @type {number} */ kind, /** @type {Uint8Array} */ content) {
  const out = new Uint8Array(1 + content.length);
  out[0] = kind;
  out.set(content, 1);
  return out;
}

export function packText(/** @type {string} */ text) {
  return withKind(ClipKind.text, utf8.encode(text));
}

export function packImage(/** @type {Uint8Array} */ png) {
  return withKind(ClipKind.image, png);
}

/** The size of the payload for these files, in bytes. @param {{name: string, size: number}[]} files */
export function filesPayloadSize(files) {
  return files.reduce(
    (sum, { name, size }) => sum + RECORD_BYTES + utf8.encode(name).length + size,
    1 + COUNT_BYTES,
  );
}

/** @param {ClipFile[]} files */
export function packFiles(files) {
  const out = new Uint8Array(
    filesPayloadSize(files.map(({ name, bytes }) => ({ name, size: bytes.length }))),
  );
  const view = new DataView(out.buffer);
  out[0] = ClipKind.files;
  view.setUint32(1, files.length);
  let at = 1 + COUNT_BYTES;
  for (const { name, bytes } of files) {
    const encoded = utf8.encode(name);
    view.setUint32(at, encoded.length);
    out.set(encoded, at + 4);
    at += 4 + encoded.length;
    view.setBigUint64(at, BigInt(bytes.length));
    out.set(bytes, at + 8);
    at += 8 + bytes.length;
  }
  return out;
}

/** The part of a name after its last path separator; '' when that part is not usable as a name. */
export function safeFileName(/** @type {string} */ name) {
  const last = name.slice(Math.max(name.lastIndexOf('/'), name.lastIndexOf('\\')) + 1);
  return last === '.' || last === '..' ? '' : last;
}

/**
 * Parses a payload. The bytes of images and files are views of the payload, not copies. From a list that is
 * cut short, the complete files are returned.
 * @param {Uint8Array<ArrayBuffer>} payload
 * @returns {Clip | null} null for an empty payload and for an unknown kind
 */
export function parseClip(payload) {
  const content = payload.subarray(1);
  switch (payload[0]) {
    case ClipKind.text:
      return { kind: 'text', text: utf8Reader.decode(content) };
    case ClipKind.image:
      return { kind: 'image', png: content };
    case ClipKind.files:
      return { kind: 'files', files: parseFiles(content) };
    default:
      return null;
  }
}

function parseFiles(/** @type {Uint8Array<ArrayBuffer>} */ content) {
  /** @type {ClipFile[]} */
  const files = [];
  if (content.length < COUNT_BYTES) return files;
  const view = new DataView(content.buffer, content.byteOffset, content.length);
  const left = (/** @type {number} */ at) => content.length - at;
  let at = COUNT_BYTES;
  for (let count = view.getUint32(0); count > 0 && left(at) >= 4; count--) {
    const length = view.getUint32(at);
    at += 4;
    if (left(at) < length + 8) break;
    const name = safeFileName(utf8Reader.decode(content.subarray(at, at + length)));
    at += length;
    const size = view.getBigUint64(at);
    at += 8;
    if (BigInt(left(at)) < size) break;
    const end = at + Number(size);
    if (name) files.push({ name, bytes: content.subarray(at, end) });
    at = end;
  }
  return files;
}
