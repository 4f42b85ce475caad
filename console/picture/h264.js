// What has to be known of an H.264 byte stream (ITU-T H.264, annex B) to feed a decoder with it: its access units, the
// codec's name in the browser, and whether a picture is missing.

const Unit = Object.freeze({
  slice: 1,
  keySlice: 5,
  enrichment: 6,
  parameters: 7,
  pictureParameters: 8,
  delimiter: 9,
});

const isSlice = (/** @type {number} */ type) => type >= Unit.slice && type <= Unit.keySlice;
/** Types that come before the slices of their picture. */
const opensPicture = (/** @type {number} */ type) =>
  (type >= Unit.enrichment && type <= Unit.delimiter) || (type >= 14 && type <= 18);

/** Profiles whose parameter sets have the chroma fields. */
const HIGH_PROFILES = [100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135];

/**
 * The units of a stream: `from` is at the start code, `at` at the unit's header byte, `to` behind its last byte.
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
 * The pictures of a stream, each with the units that belong to it.
 * @param {Uint8Array} bytes one message's
 * @returns {{data: Uint8Array, key: boolean, parameters: Uint8Array | null, slice: Uint8Array | null}[]} `parameters` and
 *   `slice` are the first such units, without start code
 */
export function accessUnits(bytes) {
  const pictures = [];
  let current = null;
  for (const unit of units(bytes)) {
    const slice = isSlice(unit.type);
    // first_mb_in_slice is 0, one bit, in the first slice of a picture.
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
  return pictures
    .filter(({ slice }) => slice)
    .map(({ from, to, ...picture }) => ({ data: bytes.subarray(from, to), ...picture }));
}

/** Bits of a unit, most significant first, its emulation bytes passed over. Past the end there are only zeros. */
class BitReader {
  constructor(/** @type {Uint8Array} */ unit, longest = 256) {
    this.bytes = [];
    for (let i = 0, zeros = 0; i < unit.length && this.bytes.length < longest; i++) {
      if (zeros >= 2 && unit[i] === 3) {
        zeros = 0;
        continue;
      }
      zeros = unit[i] === 0 ? zeros + 1 : 0;
      this.bytes.push(unit[i]);
    }
    this.at = 0;
  }

  bits(/** @type {number} */ count) {
    let value = 0;
    for (; count > 0; count--, this.at++) {
      value = value * 2 + (((this.bytes[this.at >> 3] ?? 0) >> (7 - (this.at & 7))) & 1);
    }
    return value;
  }

  /** An Exp-Golomb number. */
  golomb() {
    let zeros = 0;
    while (zeros < 32 && this.bits(1) === 0) zeros++;
    return 2 ** zeros - 1 + this.bits(zeros);
  }

  get over() {
    return this.at > this.bytes.length * 8;
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
 * @param {Uint8Array} unit a sequence parameter set without start code
 * @returns {{codec: string, frameNumberBits: number, planes: boolean, gaps: boolean} | null} `planes`: a slice names its
 *   colour plane; `gaps`: numbers may be left out on purpose; null when the set is cut short
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

/** Notices from the numbers that pictures carry when one of them that others refer to is missing. */
export class PictureCounter {
  constructor() {
    this.parameters = null;
    this.last = 0;
  }

  /** @param {ReturnType<typeof readParameters>} parameters of the stream from here on */
  restart(parameters) {
    this.parameters = parameters;
    this.last = 0;
  }

  /** @returns {boolean} false when pictures are missing before this one */
  follows(/** @type {Uint8Array} */ slice) {
    const { parameters } = this;
    if (!parameters) return true;
    const reader = new BitReader(slice, 24);
    const header = reader.bits(8);
    const isReference = (header & 0x60) !== 0;
    if ((header & 0x1f) === Unit.keySlice) {
      this.last = 0;
      return true;
    }
    for (let i = 0; i < 3; i++) reader.golomb();
    if (parameters.planes) reader.bits(2);
    const number = reader.bits(parameters.frameNumberBits);
    const next = (this.last + 1) % 2 ** parameters.frameNumberBits;
    const whole = number === this.last || number === next || parameters.gaps;
    if (isReference) this.last = number;
    return whole;
  }
}
