// Reports to the relay which pictures were displayed, and when.

const INTERVAL_MS = 250;

/**
 * @param {object} parts
 * @param {import('../../../link/session_channel.js').SessionChannel} parts.channel
 * @param {import('../../../link/link.js').Link} parts.link
 * @param {import('../../../picture/picture_times.js').PictureTimes} parts.times
 */
export function reportShown({ channel, link, times }) {
  setInterval(() => {
    const pictures = times.take();
    if (channel.session === null || pictures.length === 0) return;
    link.sendControl(shownReport(channel.session, pictures, performance.now()));
  }, INTERVAL_MS);
}

/**
 * @param {number} session
 * @param {import('../../../picture/picture_times.js').ShownPicture[]} pictures
 * @param {number} now milliseconds of the page's clock
 */
export function shownReport(session, pictures, now) {
  return {
    type: 'shown',
    session,
    at: tenths(now),
    pictures: pictures.map(({ stamp, received, decoder, screen }) => [
      stamp,
      tenths(now - received),
      tenths(decoder),
      tenths(screen),
    ]),
  };
}

/** In milliseconds with one decimal. */
function tenths(/** @type {number} */ ms) {
  return Math.max(0, Math.round(ms * 10) / 10);
}
