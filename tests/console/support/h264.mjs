// H.264 streams of known pictures for the scripted machine, made with ffmpeg's x264.
import { spawnSync } from 'node:child_process';

export const CARD = [
  '#000000',
  '#ffffff',
  '#ff0000',
  '#00ff00',
  '#0000ff',
  '#ffff00',
  '#00ffff',
  '#ff00ff',
  '#808080',
  '#c08040',
  '#4080c0',
  '#203040',
  '#f0e0d0',
  '#10a070',
  '#a01050',
  '#60c020',
];

/** Red, green and blue of '#rrggbb'. */
export const rgb = (/** @type {string} */ colour) =>
  [1, 3, 5].map((at) => parseInt(colour.slice(at, at + 2), 16));

/**
 * A picture of four by four cells in these colours, as rows of red, green, blue. With a single colour, the
 * whole picture has that colour.
 * @param {number} width
 * @param {number} height
 * @param {string[]} [colours]
 */
export function card(width, height, colours = CARD) {
  const pixels = Buffer.alloc(width * height * 3);
  for (let y = 0; y < height; y++) {
    for (let x = 0; x < width; x++) {
      const field = Math.floor((y * 4) / height) * 4 + Math.floor((x * 4) / width);
      pixels.set(rgb(colours[field % colours.length]), (y * width + x) * 3);
    }
  }
  return pixels;
}

/** The point in the middle of each cell. */
export const middles = (/** @type {number} */ width, /** @type {number} */ height) =>
  CARD.map((_, field) => ({
    x: Math.floor(((field % 4) + 0.5) * (width / 4)),
    y: Math.floor((Math.floor(field / 4) + 0.5) * (height / 4)),
  }));

/** Settings with which the encoder does not delay frames and repeats the parameter sets. */
const X264 = [
  'aud=1',
  'bframes=0',
  'sync-lookahead=0',
  'rc-lookahead=0',
  'scenecut=0',
  'keyint=infinite',
  'repeat-headers=1',
];
/** A bitstream filter that changes only what the parameter sets declare. */
const BT709 =
  ',h264_metadata=colour_primaries=1:transfer_characteristics=1:matrix_coefficients=1:video_full_range_flag=0';
const DELIMITER = Buffer.from([0, 0, 0, 1, 9]);

/**
 * Encodes pictures as Windows encoders do for the agent: BT.601 in limited range, no B frames, a key frame
 * first and at the indices in `keys`, parameter sets without video usability information. With `bt709`, the
 * parameter sets declare BT.709's colours instead, although the pictures have BT.601's.
 * @param {Buffer[]} pictures made by card()
 * @param {{width: number, height: number, keys?: number[], bt709?: boolean}} how
 * @returns {Buffer[]} one access unit for each picture
 */
export function encode(pictures, { width, height, keys = [], bt709 = false }) {
  const keyTimes = keys.map((n) => `eq(n,${n})`).join('+') || 0;
  const options = [
    `-loglevel error -f rawvideo -pix_fmt rgb24 -s ${width}x${height} -r 15 -i -`,
    '-vf scale=out_color_matrix=bt601:out_range=tv,format=yuv420p',
    `-c:v libx264 -profile:v main -qp 12 -force_key_frames expr:${keyTimes}`,
    `-x264-params ${X264.join(':')}`,
    `-bsf:v filter_units=remove_types=6${bt709 ? BT709 : ''} -f h264 -`,
  ];
  const { status, stdout, stderr } = spawnSync('ffmpeg', options.join(' ').split(' '), {
    input: Buffer.concat(pictures),
    maxBuffer: 1 << 27,
  });
  if (status !== 0) throw new Error(`ffmpeg: ${stderr}`);
  const units = [];
  for (let at = stdout.indexOf(DELIMITER); at >= 0; ) {
    const next = stdout.indexOf(DELIMITER, at + 1);
    const unit = stdout.subarray(at, next < 0 ? stdout.length : next);
    units.push(bt709 ? unit : withoutUsability(unit));
    at = next;
  }
  return units;
}

/** Removes the video usability information from the access unit's parameter set (main profile only). */
function withoutUsability(/** @type {Buffer} */ unit) {
  const at = unit.indexOf(Buffer.from([0, 0, 1, 0x67]));
  if (at < 0) return unit;
  const from = at + 3;
  const to = unit.indexOf(Buffer.from([0, 0, 1]), from);
  const end = unit[to - 1] === 0 ? to - 1 : to;
  const bits = [...unit.subarray(from, end)].map((byte) => byte.toString(2).padStart(8, '0')).join('');
  let place = 32;
  const golomb = () => {
    const zeros = bits.indexOf('1', place) - place;
    place += 2 * zeros + 1;
    return parseInt(bits.slice(place - zeros - 1, place), 2) - 1;
  };
  golomb();
  golomb();
  if (golomb() === 0) golomb();
  golomb();
  place += 1;
  golomb();
  golomb();
  place += bits[place] === '1' ? 2 : 3;
  if (bits[place++] === '1') for (let i = 0; i < 4; i++) golomb();
  const cut = `${bits.slice(0, place)}01`;
  const padded = cut.padEnd(Math.ceil(cut.length / 8) * 8, '0');
  const bytes = Array.from({ length: padded.length / 8 }, (_, i) =>
    parseInt(padded.slice(8 * i, 8 * i + 8), 2),
  );
  return Buffer.concat([unit.subarray(0, from), Buffer.from(bytes), unit.subarray(end)]);
}
