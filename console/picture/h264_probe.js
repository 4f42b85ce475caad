// Whether this browser plays H.264: found out by playing some, since a browser's own answer has been wrong.
import { accessUnits, readParameters } from './h264.js';

/** One grey picture of 64 by 64, Annex B. */
const SAMPLE = 'AAAAAWdCwAqmERCbARAAAAMAEAAAAwMg8SJhGAAAAAFoyEIDksgAAAFliIIfk3fffXXXXXXXXXXXXg==';
const PATIENCE_MS = 10_000;

/** @type {Promise<boolean> | undefined} */
let answer;

/** Asks once a page. */
export const playsH264 = () => (answer ??= play().catch(() => false));

async function play() {
  if (typeof VideoDecoder !== 'function') return false;
  const [picture] = accessUnits(Uint8Array.from(atob(SAMPLE), (character) => character.charCodeAt(0)));
  const codec = readParameters(/** @type {Uint8Array} */ (picture.parameters))?.codec ?? '';
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
  await Promise.race([decoder.flush(), new Promise((_, late) => setTimeout(late, PATIENCE_MS))]);
  if (decoder.state !== 'closed') decoder.close();
  return drawn;
}
