// Full screen: one state for the console's button and for the browser's own ways in and out. In full screen the
// toolbar is hidden and comes back at the screen's top edge.
import { byId } from '../../base/dom.js';
import { texts } from '../../base/texts.js';

/** The distance from the top edge within which the pointer shows the toolbar, in CSS pixels. */
const EDGE = 2;
/** The distance below the toolbar at which the pointer hides it again. */
const MARGIN = 24;

/** True also for the browser's own full screen, which `document.fullscreenElement` does not include. */
const wholeScreen = matchMedia('(display-mode: fullscreen)');
const { keyboard } = /** @type {{keyboard?: {lock?: () => Promise<void>}}} */ (navigator);

export function attachFullScreen() {
  const view = byId('view-session');
  const button = byId('full-screen', HTMLButtonElement);
  const show = () => {
    const own = document.fullscreenElement !== null;
    const on = own || wholeScreen.matches;
    view.classList.toggle('full', on);
    if (!on) view.classList.remove('bar-shown');
    // A script cannot leave the browser's own full screen.
    button.disabled = on && !own;
    button.textContent = labelOf(on, own);
    button.title = own ? escapeHint() : '';
  };
  document.addEventListener('fullscreenchange', show);
  wholeScreen.addEventListener('change', show);
  button.addEventListener('click', () => toggle(view));
  attachEdge(view);
}

function labelOf(/** @type {boolean} */ on, /** @type {boolean} */ own) {
  if (!on) return texts.fullScreen;
  return own ? texts.leaveFullScreen : texts.leaveByF11;
}

/** Where the browser passes Escape to the machine, it leaves full screen when Escape is held down. */
function escapeHint() {
  return keyboard?.lock ? texts.holdEscape : texts.escapeLeaves;
}

async function toggle(/** @type {HTMLElement} */ view) {
  try {
    if (document.fullscreenElement) {
      await document.exitFullscreen();
      return;
    }
    await view.requestFullscreen();
    // Where a browser can lock the keyboard, even Escape and Alt+Tab reach the machine.
    await keyboard?.lock?.();
  } catch {
    // The browser refused; the page stays as it is.
  }
}

/** Shows the toolbar while the pointer is at the top edge or on the toolbar, and after a touch on its handle. */
function attachEdge(/** @type {HTMLElement} */ view) {
  const bar = byId('session-bar');
  const show = (/** @type {boolean} */ on) => view.classList.toggle('bar-shown', on);
  const outside = (/** @type {PointerEvent} */ { target }) =>
    target instanceof Node && !bar.contains(target) && !byId('bar-handle').contains(target);
  addEventListener('pointermove', (event) => {
    if (!view.classList.contains('full') || event.pointerType === 'touch') return;
    // A pointer that drags something on the machine to its top edge does not show the toolbar.
    if (event.clientY <= EDGE && event.buttons === 0) show(true);
    else if (outside(event) && event.clientY > bar.getBoundingClientRect().bottom + MARGIN) show(false);
  });
  addEventListener('pointerdown', (event) => {
    if (event.pointerType === 'touch' && outside(event)) show(false);
  });
  byId('bar-handle').addEventListener('click', () => show(true));
}
