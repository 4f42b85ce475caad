// Joins the parts of long messages. The relay sends a long message as several binary WebSocket messages, each
// with a part of its bytes, so that this page sees progress on a slow connection and other messages can
// arrive in between.

/** Bytes before a part's content: PART, then flags. */
const HEADER_BYTES = 2;
/** The first byte of a part. An envelope never begins with it, because no message has this code. */
const PART = 0;
const FIRST = 1;
const LAST = 2;
const TEXT = 4;
/** The number of the message's lane is above the flags. Parts of messages in different lanes can alternate. */
const LANE_SHIFT = 4;

const utf8Reader = new TextDecoder();

export class PartJoiner {
  /**
   * The received parts of the unfinished message of each lane.
   * @type {Map<number, Uint8Array[]>}
   */
  #unfinished = new Map();

  /** Forgets the unfinished messages, when a connection has ended. */
  clear() {
    this.#unfinished.clear();
  }

  /**
   * Takes a binary WebSocket message.
   * @param {ArrayBuffer} buffer
   * @returns {ArrayBuffer | string | null} the whole message; null while parts of it are missing
   */
  join(buffer) {
    const bytes = new Uint8Array(buffer);
    if (bytes[0] !== PART) return buffer;
    const flags = bytes[1];
    const lane = flags >> LANE_SHIFT;
    // The relay gives up a message when its session has ended, so a first part can replace an unfinished message.
    if (flags & FIRST) this.#unfinished.set(lane, []);
    const parts = this.#unfinished.get(lane);
    if (!parts) return null;
    parts.push(bytes.subarray(HEADER_BYTES));
    if (!(flags & LAST)) return null;
    this.#unfinished.delete(lane);
    const whole = concatenated(parts);
    return flags & TEXT ? utf8Reader.decode(whole) : whole.buffer;
  }
}

function concatenated(/** @type {Uint8Array[]} */ parts) {
  const whole = new Uint8Array(parts.reduce((size, part) => size + part.length, 0));
  let offset = 0;
  for (const part of parts) {
    whole.set(part, offset);
    offset += part.length;
  }
  return whole;
}
