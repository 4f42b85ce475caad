// Says that the first picture of a session is late, and offers what may help.
import { onDetail } from '../../base/custom_events.js';
import { texts } from '../../base/texts.js';

const LATE_MS = 5000;
/** A key frame of usual size takes this long on the slowest lines. */
const LATE_ON_SLOW_LINE_MS = 15_000;

/** @typedef {'restartPicture' | 'nextDisplay' | 'wake' | 'useJpeg'} Remedy */

/**
 * @param {object} parts
 * @param {import('../session.js').Session} parts.session
 * @param {import('../stream.js').Stream} parts.stream
 * @param {() => boolean} parts.inputAllowed
 * @param {() => void} parts.wake sends the machine a key press that has no other effect
 */
export function attachFirstPicture({ session, stream, inputAllowed, wake }) {
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  let timer;
  session.addEventListener('starting', () => {
    clearTimeout(timer);
    const say = () =>
      session.note.pictureLate(stream.received ? texts.pictureNotShown : texts.pictureLate, offers());
    timer = setTimeout(say, stream.slowLine ? LATE_ON_SLOW_LINE_MS : LATE_MS);
  });
  session.addEventListener('ending', () => clearTimeout(timer));

  /** @returns {Remedy[]} */
  const offers = () => [
    'restartPicture',
    ...(stream.displayCount > 1 ? [/** @type {const} */ ('nextDisplay')] : []),
    ...(inputAllowed() ? [/** @type {const} */ ('wake')] : []),
    ...(stream.received && stream.codec === 'h264' ? [/** @type {const} */ ('useJpeg')] : []),
  ];
  /** @type {Record<Remedy, () => void>} */
  const remedies = {
    restartPicture: () => stream.start(),
    nextDisplay: () => stream.selectNextDisplay(),
    wake,
    useJpeg: () => stream.chooseCodec('mjpeg'),
  };
  onDetail(session, 'remedy', (/** @type {Remedy} */ remedy) => {
    remedies[remedy]();
    session.note.awaitPicture();
  });
}
