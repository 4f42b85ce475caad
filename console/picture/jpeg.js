// Reads the size that a JPEG file declares, before anything tries to decode the file.

const MAX_SIDE = 16384;
const MAX_PIXELS = 1 << 26;

/**
 * @param {Uint8Array} bytes
 * @returns {{width: number, height: number} | null} null when there is no frame header (ITU-T T.81, B.2.2)
 */
export function jpegSize(bytes) {
  if (bytes.length < 4 || bytes[0] !== 0xff || bytes[1] !== 0xd8) return null;
  let at = 2;
  while (at + 9 <= bytes.length) {
    if (bytes[at] !== 0xff) return null;
    const marker = bytes[at + 1];
    if (marker === 0xff) {
      at += 1;
      continue;
    }
    const isFrame = marker >= 0xc0 && marker <= 0xcf && ![0xc4, 0xc8, 0xcc].includes(marker);
    if (isFrame) {
      return { height: (bytes[at + 5] << 8) | bytes[at + 6], width: (bytes[at + 7] << 8) | bytes[at + 8] };
    }
    if (marker === 0xd9 || marker === 0xda) return null;
    at += 2 + ((bytes[at + 2] << 8) | bytes[at + 3]);
  }
  return null;
}

/** Whether the file declares a size that a browser can be expected to decode. */
export function isDrawable(/** @type {Uint8Array} */ bytes) {
  const size = jpegSize(bytes);
  if (!size || size.width === 0 || size.height === 0) return false;
  return size.width <= MAX_SIDE && size.height <= MAX_SIDE && size.width * size.height <= MAX_PIXELS;
}
