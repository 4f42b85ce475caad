// Shows only the controls of a session for which the representative has the right, and says when rights change.
import { onDetail } from '../../base/custom_events.js';
import { byId } from '../../base/dom.js';
import { texts } from '../../base/texts.js';
import { RIGHTS } from '../../link/rights.js';

/** @typedef {import('../../link/rights.js').Right} Right */
/** @typedef {Set<Right>} Rights */

/** The names of rights for a sentence. @param {Right[]} rights */
function named(rights) {
  return rights.map((right) => texts.rights[right]).join(', ');
}

/**
 * The style sheet hides controls by the rights that the view's data-rights names.
 * @param {object} parts
 * @param {import('../../link/session_channel.js').SessionChannel} parts.channel
 * @param {import('../reports/strips.js').Strips} parts.strips
 * @param {() => void} parts.onShown called after controls have appeared or disappeared
 */
export function attachRights({ channel, strips, onShown }) {
  const show = () => {
    byId('view-session').dataset.rights = [...channel.rights].join(' ');
    onShown();
  };
  show();
  channel.addEventListener('open', () => {
    strips.hide('rights');
    show();
  });
  channel.addEventListener('closed', () => strips.hide('rights'));
  onDetail(channel, 'rights', (/** @type {Rights} */ before) => {
    show();
    const gone = RIGHTS.filter((right) => before.has(right) && !channel.granted.has(right));
    const added = RIGHTS.filter((right) => !before.has(right) && channel.granted.has(right));
    const changes = [
      ...(gone.length ? [texts.rightsGone(named(gone))] : []),
      ...(added.length ? [texts.rightsAdded(named(added))] : []),
    ];
    if (changes.length) strips.show('rights', changes.join(' '));
  });
}
