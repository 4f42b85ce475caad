// Reads from an H.264 byte stream (ITU-T H.264, annex B) what a browser's decoder needs: the access units,
// the codec's name, and whether a picture is missing.

const Unit = Object.freeze({
  slice: 1,
  keySlice: 5,
  supplement: 6,
  parameters: 7,
  pictureParameters: 8,
  delimiter: 9,
});

const isSlice = (/** @type {number} */ type) => type >= Unit.slice && type <= Unit.keySlice;
/** Whether a unit of this type begins a new picture when it follows a slice. */
const opensPicture = (/** @type {number} */ type) =>
  (type >= Unit.supplement && type <= Unit.delimiter) || (type >= 14 && type <= 18);

/** Profiles whose sequence parameter sets contain chroma_format_idc and the fields that belong to it. */
const HIGH_PROFILES = [100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135];

/**
 * Splits a stream into its units: `from` is the offset of the start code, `at` of the unit's header byte,
 * `to` of the first byte after the unit.
 * @param {Uint8Array} bytes
 */
export function units(bytes) {
  const found = [];
  for (let i = 2; i < bytes.length - 1; i++) {
    if (bytes[i] > 1) i += 2;
    else if (bytes[i] === 1 && bytes[i - 1] === 0 && bytes[i - 2] === 0) {
      const from = i > 2 && bytes[i - 3] === 0 ? i - 3 : i - 2;
      if (found.length) found[found.length - 1].to = from;
      found.push({ from, at: i + 1, to: bytes.length, type: bytes[i + 1] & 0x1f });
    }
  }
  return found;
}

/**
 * One picture with the units that belong to it. `parameters` is the picture's first sequence parameter set
 * and `slice` its first slice, both without start code.
 * @typedef {{data: Uint8Array<ArrayBuffer>, key: boolean, parameters: Uint8Array | null, slice: Uint8Array}}
 *   AccessUnit
 */

/**
 * Splits a stream into its pictures. Units after the last picture that contain no slice are left out.
 * @param {Uint8Array<ArrayBuffer>} bytes the stream of one message
 * @returns {AccessUnit[]}
 */
export function accessUnits(bytes) {
  /**
   * @typedef {{from: number, to: number, key: boolean, parameters: Uint8Array | null, slice: Uint8Array
   *   | null}} Open
   */
  /** @type {Open[]} */
  const pictures = [];
  /** @type {Open | null} */
  let current = null;
  for (const unit of units(bytes)) {
    const slice = isSlice(unit.type);
    // In the first slice of a picture, first_mb_in_slice is 0, which is encoded as the single bit 1.
    const first = slice && (bytes[unit.at + 1] & 0x80) !== 0;
    if (!current || (current.slice && (first || opensPicture(unit.type)))) {
      current = { from: unit.from, to: unit.to, key: false, parameters: null, slice: null };
      pictures.push(current);
    }
    current.to = unit.to;
    current.key ||= unit.type === Unit.keySlice;
    if (unit.type === Unit.parameters) current.parameters ??= bytes.subarray(unit.at, unit.to);
    if (slice) current.slice ??= bytes.subarray(unit.at, unit.to);
  }
  return pictures.flatMap(({ from, to, key, parameters, slice }) =>
    slice ? [{ data: bytes.subarray(from, to), key, parameters, slice }] : [],
  );
}

/**
 * Reads the bits of a unit, most significant first, without the emulation prevention bytes. Bits after the
 * end of the unit are read as 0.
 */
class BitReader {
  /** @type {number[]} */
  #bytes = [];
  #at = 0;

  /** @param {Uint8Array} unit @param {number} [longest] the largest number of bytes to read */
  constructor(unit, longest = 256) {
    for (let i = 0, zeros = 0; i < unit.length && this.#bytes.length < longest; i++) {
      if (zeros >= 2 && unit[i] === 3) {
        zeros = 0;
        continue;
      }
      zeros = unit[i] === 0 ? zeros + 1 : 0;
      this.#bytes.push(unit[i]);
    }
  }

  bits(/** @type {number} */ count) {
    let value = 0;
    for (let left = count; left > 0; left--, this.#at++) {
      value = value * 2 + (((this.#bytes[this.#at >> 3] ?? 0) >> (7 - (this.#at & 7))) & 1);
    }
    return value;
  }

  /** An Exp-Golomb number. */
  golomb() {
    let zeros = 0;
    while (zeros < 32 && this.bits(1) === 0) zeros++;
    return 2 ** zeros - 1 + this.bits(zeros);
  }

  /** Whether bits after the end of the unit were read. */
  get over() {
    return this.#at > this.#bytes.length * 8;
  }
}

function skipScalingLists(/** @type {BitReader} */ reader, /** @type {number} */ count) {
  for (let list = 0; list < count; list++) {
    if (!reader.bits(1)) continue;
    for (let i = 0, last = 8, next = 8; i < (list < 6 ? 16 : 64) && next !== 0; i++) {
      const code = reader.golomb();
      next = (((last + (code % 2 ? (code + 1) / 2 : -code / 2)) % 256) + 256) % 256;
      if (next) last = next;
    }
  }
}

/**
 * The fields of a sequence parameter set that the console needs. `planes`: slice headers contain a colour
 * plane; `gaps`: the encoder may skip frame numbers.
 * @typedef {{codec: string, frameNumberBits: number, planes: boolean, gaps: boolean}} Parameters
 */

/**
 * @param {Uint8Array} unit a sequence parameter set without start code
 * @returns {Parameters | null} null when the set is incomplete or invalid
 */
export function readParameters(unit) {
  const reader = new BitReader(unit);
  reader.bits(8);
  const profile = reader.bits(8);
  const rest = reader.bits(16);
  reader.golomb();
  let planes = false;
  if (HIGH_PROFILES.includes(profile)) {
    const chroma = reader.golomb();
    planes = chroma === 3 && reader.bits(1) === 1;
    reader.golomb();
    reader.golomb();
    reader.bits(1);
    if (reader.bits(1)) skipScalingLists(reader, chroma === 3 ? 12 : 8);
  }
  const frameNumberBits = reader.golomb() + 4;
  const order = reader.golomb();
  if (order === 0) reader.golomb();
  if (order === 1) {
    reader.bits(1);
    reader.golomb();
    reader.golomb();
    for (let i = Math.min(reader.golomb(), 255); i > 0; i--) reader.golomb();
  }
  reader.golomb();
  const gaps = reader.bits(1) === 1;
  if (reader.over || frameNumberBits > 16) return null;
  const hex = (/** @type {number} */ value, /** @type {number} */ digits) =>
    value.toString(16).padStart(digits, '0');
  return { codec: `avc1.${hex(profile, 2)}${hex(rest, 4)}`, frameNumberBits, planes, gaps };
}

/** Detects from the frame numbers of pictures that a reference picture is missing. */
export class PictureCounter {
  /** @type {Parameters | null} */
  #parameters = null;
  #last = 0;

  /**
   * @param {Parameters | null} parameters for the pictures that follow; with null, every picture is accepted
   */
  restart(parameters) {
    this.#parameters = parameters;
    this.#last = 0;
  }

  /** @returns {boolean} false when pictures are missing before this picture */
  follows(/** @type {Uint8Array} */ slice) {
    const parameters = this.#parameters;
    if (!parameters) return true;
    const reader = new BitReader(slice, 24);
    const header = reader.bits(8);
    const isReference = (header & 0x60) !== 0;
    if ((header & 0x1f) === Unit.keySlice) {
      this.#last = 0;
      return true;
    }
    for (let i = 0; i < 3; i++) reader.golomb();
    if (parameters.planes) reader.bits(2);
    const number = reader.bits(parameters.frameNumberBits);
    const next = (this.#last + 1) % 2 ** parameters.frameNumberBits;
    const complete = number === this.#last || number === next || parameters.gaps;
    if (isReference) this.#last = number;
    return complete;
  }
}
