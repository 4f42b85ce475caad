// The envelope: a 10-byte big-endian header (type, flags, session, length) and a payload. Each binary
// WebSocket message between browser and relay is one envelope, in the same form as between relay and agent.

export const HEADER_BYTES = 10;
/** The largest payload that the agent accepts in one envelope. */
export const MAX_SENT_PAYLOAD = 0x800000;
const FLAG_JSON = 1;

const utf8 = new TextEncoder();
const utf8Reader = new TextDecoder();

/**
 * @param {number} type one of Msg
 * @param {number} session u32
 * @param {Uint8Array} [payload]
 * @param {number} [flags] 1 for JSON text, 0 for raw bytes
 * @returns {Uint8Array<ArrayBuffer>}
 */
export function encodeEnvelope(type, session, payload = new Uint8Array(0), flags = 0) {
  if (payload.length > MAX_SENT_PAYLOAD) throw new RangeError('payload over 8 MiB');
  const out = new Uint8Array(HEADER_BYTES + payload.length);
  const view = new DataView(out.buffer);
  view.setUint8(0, type);
  view.setUint8(1, flags);
  view.setUint32(2, session);
  view.setUint32(6, payload.length);
  out.set(payload, HEADER_BYTES);
  return out;
}

/**
 * @param {number} type one of Msg
 * @param {number} session u32
 * @param {object} value an object of numbers and strings only, because the agent does not read booleans
 */
export function encodeJson(type, session, value) {
  return encodeEnvelope(type, session, utf8.encode(JSON.stringify(value)), FLAG_JSON);
}

/**
 * Reads an envelope. The payload is a view of the given bytes, not a copy. Bytes after the declared payload
 * are ignored.
 * @param {ArrayBuffer} buffer
 * @returns {{type: number, flags: number, session: number, payload: Uint8Array<ArrayBuffer>} | null} null
 *   when the header or the payload is incomplete
 */
export function decodeEnvelope(buffer) {
  if (buffer.byteLength < HEADER_BYTES) return null;
  const view = new DataView(buffer);
  const length = view.getUint32(6);
  if (buffer.byteLength < HEADER_BYTES + length) return null;
  return {
    type: view.getUint8(0),
    flags: view.getUint8(1),
    session: view.getUint32(2),
    payload: new Uint8Array(buffer, HEADER_BYTES, length),
  };
}

/**
 * @param {Uint8Array} payload
 * @returns {Record<string, unknown> | null} null when the payload is not a JSON object
 */
export function readJson(payload) {
  try {
    const value = JSON.parse(utf8Reader.decode(payload));
    return value !== null && typeof value === 'object' && !Array.isArray(value) ? value : null;
  } catch {
    return null;
  }
}
