// The status line: the picture's size and codec, its rates, the round trip to the machine, and a long queue there.
import { byId } from '../../base/dom.js';
import { texts } from '../../base/texts.js';
import { codecName } from './codec_report.js';
import { reportShown } from './stages/shown_reports.js';
import { StagesPanel } from './stages/stages.js';

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
 * Updates the status line at intervals, and connects it with what it opens. It is empty while no session is open.
 * @param {object} parts
 * @param {import('../../link/session_channel.js').SessionChannel} parts.channel
 * @param {import('../../link/link.js').Link} parts.link
 * @param {import('../stream.js').Stream} parts.stream
 * @param {import('../../picture/picture_times.js').PictureTimes} parts.times
 */
export function attachStatusLine({ channel, link, stream, times }) {
  const stages = new StagesPanel({ channel, link });
  reportShown({ channel, link, times });
  const line = byId('status-line');
  const update = () => {
    const text = channel.isOpen ? statusOf(link, stream, stages.remark) : '';
    if (line.textContent !== text) line.textContent = text;
  };
  setInterval(update, UPDATE_INTERVAL_MS);
}

/**
 * @param {import('../../link/link.js').Link} link
 * @param {import('../stream.js').Stream} stream
 * @param {string} remark about the way of the pictures, or ''
 */
function statusOf(link, { size, codec, obstacle, rates: { framesPerSecond, kilobytesPerSecond } }, remark) {
  const roundTrip = wholeRoundTrip(link.browserRoundTrip, link.machineRoundTrip);
  const parts = [texts.status(framesPerSecond, kilobytesPerSecond, roundTrip)];
  if (codec) parts.unshift(codecName(codec));
  if (size) parts.unshift(`${size.width} × ${size.height}`);
  if (obstacle) parts.push(texts.codecObstacles[obstacle]);
  if (remark) parts.push(remark);
  if (link.unstable) parts.push(texts.unstable);
  return parts.join(' · ');
}
