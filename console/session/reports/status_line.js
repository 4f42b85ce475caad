// The status line: the picture's size and codec, its rates, and the round trip to the machine.
import { byId } from '../../base/dom.js';
import { texts } from '../../base/texts.js';
import { codecName } from './codec_report.js';

const UPDATE_INTERVAL_MS = 500;

/**
 * The round trip between representative and machine.
 * @param {number | null} browser milliseconds between browser and relay
 * @param {number | null} machine milliseconds between relay and machine
 * @returns {number | null} null until both parts are known
 */
export function wholeRoundTrip(browser, machine) {
  return browser === null || machine === null ? null : Math.round(browser + machine);
}

/**
 * Updates the status line at intervals. It is empty while no session is open.
 * @param {object} parts
 * @param {import('../../link/session_channel.js').SessionChannel} parts.channel
 * @param {import('../../link/link.js').Link} parts.link
 * @param {import('../stream.js').Stream} parts.stream
 */
export function attachStatusLine({ channel, link, stream }) {
  const update = () => {
    byId('status-line').textContent = channel.isOpen ? statusOf(link, stream) : '';
  };
  setInterval(update, UPDATE_INTERVAL_MS);
}

/** @param {import('../../link/link.js').Link} link @param {import('../stream.js').Stream} stream */
function statusOf(link, { size, codec, obstacle, rates: { framesPerSecond, kilobytesPerSecond } }) {
  const roundTrip = wholeRoundTrip(link.browserRoundTrip, link.machineRoundTrip);
  const parts = [texts.status(framesPerSecond, kilobytesPerSecond, roundTrip)];
  if (codec) parts.unshift(codecName(codec));
  if (size) parts.unshift(`${size.width} × ${size.height}`);
  if (obstacle) parts.push(texts.codecObstacles[obstacle]);
  if (link.unstable) parts.push(texts.unstable);
  return parts.join(' · ');
}
