// The thumbnails of the machine's monitors, from which the console learns how many monitors there are.

/**
 * @typedef {{monitor: number, count: number, width: number, height: number,
 *   jpeg: Uint8Array<ArrayBuffer>}} Thumbnail
 */

const HEADER_BYTES = 6;

/**
 * @param {Uint8Array<ArrayBuffer>} payload monitor u8, count u8, width and height u16 little-endian, one JPEG
 *   file
 * @returns {Thumbnail | null} null when it contains no picture
 */
export function parseThumbnail(payload) {
  if (payload.length <= HEADER_BYTES) return null;
  const view = new DataView(payload.buffer, payload.byteOffset);
  const [width, height] = [view.getUint16(2, true), view.getUint16(4, true)];
  if (width === 0 || height === 0) return null;
  return { monitor: payload[0], count: payload[1], width, height, jpeg: payload.subarray(HEADER_BYTES) };
}

/**
 * The monitors known so far. There may be fewer thumbnails than monitors; a monitor without a thumbnail is
 * listed too.
 */
export class MonitorList {
  /** @type {Map<number, Thumbnail>} */
  #thumbnails = new Map();
  #count = 1;

  add(/** @type {Thumbnail} */ thumbnail) {
    this.#count = Math.max(thumbnail.count, thumbnail.monitor + 1);
    this.#thumbnails.set(thumbnail.monitor, thumbnail);
    for (const monitor of this.#thumbnails.keys())
      if (monitor >= this.#count) this.#thumbnails.delete(monitor);
  }

  /** @returns {{monitor: number, thumbnail: Thumbnail | undefined}[]} */
  entries() {
    return Array.from({ length: this.#count }, (_, monitor) => ({
      monitor,
      thumbnail: this.#thumbnails.get(monitor),
    }));
  }
}
