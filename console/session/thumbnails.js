// The small pictures of the machine's monitors: the one way to learn how many there are.

/** @typedef {{monitor: number, count: number, width: number, height: number, jpeg: Uint8Array}} Thumbnail */

const HEADER_BYTES = 6;

/**
 * @param {Uint8Array} payload monitor u8, count u8, width and height u16 little-endian, one JPEG file
 * @returns {Thumbnail | null} null when it holds no picture
 */
export function parseThumbnail(payload) {
  if (payload.length <= HEADER_BYTES) return null;
  const view = new DataView(payload.buffer, payload.byteOffset);
  const [width, height] = [view.getUint16(2, true), view.getUint16(4, true)];
  if (width === 0 || height === 0) return null;
  return { monitor: payload[0], count: payload[1], width, height, jpeg: payload.subarray(HEADER_BYTES) };
}

/** The monitors known so far. Fewer pictures than `count` may ever come: a monitor without one still has a place. */
export class MonitorList {
  constructor() {
    /** @type {Map<number, Thumbnail>} */
    this.pictures = new Map();
    this.count = 1;
  }

  add(/** @type {Thumbnail} */ thumbnail) {
    this.count = Math.max(thumbnail.count, thumbnail.monitor + 1);
    this.pictures.set(thumbnail.monitor, thumbnail);
    for (const monitor of this.pictures.keys()) if (monitor >= this.count) this.pictures.delete(monitor);
  }

  /** @returns {{monitor: number, thumbnail: Thumbnail | undefined}[]} */
  entries() {
    return Array.from({ length: this.count }, (_, monitor) => ({
      monitor,
      thumbnail: this.pictures.get(monitor),
    }));
  }
}
