// Checks whether this browser plays H.264 by decoding a sample, because a browser's own statement about it is
// not reliable.
import { accessUnits, readParameters } from './h264.js';

/** One grey picture of 64 by 64 pixels, in Annex B format. */
const SAMPLE = 'AAAAAWdCwAqmERCbARAAAAMAEAAAAwMg8SJhGAAAAAFoyEIDksgAAAFliIIfk3fffXXXXXXXXXXXXg==';
const DEADLINE_MS = 10_000;

/** @type {Promise<boolean> | undefined} */
let answer;

/** Decodes the sample at the first call; later calls return the same answer. */
export function playsH264() {
  answer ??= play().catch(() => false);
  return answer;
}

async function play() {
  if (typeof VideoDecoder !== 'function') return false;
  const [picture] = accessUnits(Uint8Array.from(atob(SAMPLE), (character) => character.charCodeAt(0)));
  const codec = (picture.parameters && readParameters(picture.parameters)?.codec) ?? '';
  const config = { codec, optimizeForLatency: true };
  if (!(await VideoDecoder.isConfigSupported(config)).supported) return false;
  let drawn = false;
  const decoder = new VideoDecoder({
    output: (frame) => {
      drawn = frame.displayWidth === 64;
      frame.close();
    },
    error: () => {},
  });
  decoder.configure(config);
  decoder.decode(new EncodedVideoChunk({ type: 'key', timestamp: 0, data: picture.data }));
  await Promise.race([decoder.flush(), new Promise((_, late) => setTimeout(late, DEADLINE_MS))]);
  if (decoder.state !== 'closed') decoder.close();
  return drawn;
}
