// Notices that nothing is heard on the link, so that an old picture is not taken for a current one.

/** The time without anything heard after which the link counts as standing still, in milliseconds. */
const STILL_MS = 3000;
/** On a slow line, the part of a picture that one message carries can take several seconds. */
const STILL_ON_SLOW_LINE_MS = 10_000;
const CHECK_MS = 250;

/**
 * @param {object} parts
 * @param {import('../../link/link.js').Link} parts.link
 * @param {import('../session.js').Session} parts.session
 * @param {import('../stream.js').Stream} parts.stream
 */
export function watchLink({ link, session, stream }) {
  setInterval(() => {
    if (link.silence > (stream.slowLine ? STILL_ON_SLOW_LINE_MS : STILL_MS)) session.note.linkStill(true);
  }, CHECK_MS);
  link.addEventListener('heard', () => session.note.linkStill(false));
}
