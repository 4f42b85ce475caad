// Says that keys and clicks are not sent, while the relay drops them because the machine's line is interrupted.
import { onDetail } from '../../base/custom_events.js';
import { texts } from '../../base/texts.js';

/** The relay repeats its report each second while input is dropped, in milliseconds. */
const SHOWN_MS = 5000;

/**
 * @param {object} parts
 * @param {import('../../link/session_channel.js').SessionChannel} parts.channel
 * @param {import('../../link/link.js').Link} parts.link
 * @param {import('./strips.js').Strips} parts.strips
 */
export function attachDroppedInput({ channel, link, strips }) {
  /** @type {ReturnType<typeof setTimeout> | undefined} set while the strip is shown, or was dismissed */
  let timer;
  const end = () => {
    clearTimeout(timer);
    timer = undefined;
    strips.hide('dropped-input');
  };
  onDetail(link, 'control', (/** @type {import('../../link/link.js').ControlMessage} */ { type, code }) => {
    if (type !== 'error' || code !== 'input-dropped' || channel.session === null) return;
    if (timer === undefined) strips.show('dropped-input', texts.inputDropped);
    clearTimeout(timer);
    timer = setTimeout(end, SHOWN_MS);
  });
  channel.addEventListener('closed', end);
}
