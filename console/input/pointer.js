// Mouse, pen and touch input on the picture. The pointer is captured while a button is held, so that the
// end of a drag outside the picture is received too.
import * as input from './events.js';
import { toWire, WheelMeter } from './geometry.js';

/**
 * The machine's buttons, and the bits of `event.buttons`, both indexed by the browser's number of a button.
 */
const BUTTONS = [input.Button.left, input.Button.middle, input.Button.right];
const BUTTON_BITS = [1, 4, 2];

/**
 * @param {HTMLCanvasElement} canvas
 * @param {import('./sender.js').InputSender} sender
 * @param {{onEvent: (event: MouseEvent) => void, onPress: () => void}} listeners onEvent: called before each
 *   event is sent; onPress: called at each press, so that the keyboard's element takes the focus
 * @returns {{releaseAll: () => void}}
 */
export function attachPointer(canvas, sender, { onEvent, onPress }) {
  /** @type {Set<number>} */
  const held = new Set();
  let last = { x: 0, y: 0 };

  const locate = (/** @type {MouseEvent} */ event) => {
    onEvent(event);
    last = toWire({ x: event.clientX, y: event.clientY }, canvas.getBoundingClientRect(), canvas);
    return last;
  };
  const set = (/** @type {number | undefined} */ which, /** @type {boolean} */ pressed) => {
    if (!which || !sender.enabled || held.has(which) === pressed) return;
    if (pressed) held.add(which);
    else held.delete(which);
    sender.sendAt(last, [input.button(which, pressed)]);
  };
  const releaseAll = () => {
    for (const which of [...held]) set(which, false);
  };

  canvas.addEventListener('pointermove', (event) => {
    sender.move(locate(event));
    // Browsers report as a move that a button changes while another is held.
    if (event.button >= 0) set(BUTTONS[event.button], (event.buttons & BUTTON_BITS[event.button]) !== 0);
  });
  canvas.addEventListener('pointerdown', (event) => {
    event.preventDefault();
    onPress();
    locate(event);
    try {
      canvas.setPointerCapture(event.pointerId);
    } catch {
      // The pointer no longer exists; its end is reported without capture.
    }
    set(BUTTONS[event.button], true);
  });
  canvas.addEventListener('pointerup', (event) => {
    locate(event);
    set(BUTTONS[event.button], false);
  });
  canvas.addEventListener('pointercancel', releaseAll);
  canvas.addEventListener('lostpointercapture', releaseAll);
  for (const name of ['contextmenu', 'auxclick', 'dragstart', 'mousedown']) {
    canvas.addEventListener(name, (event) => event.preventDefault());
  }
  attachWheel(canvas, sender, locate);
  return { releaseAll };
}

/**
 * @param {HTMLCanvasElement} canvas
 * @param {import('./sender.js').InputSender} sender
 * @param {(event: MouseEvent) => import('./sender.js').Position} locate
 */
function attachWheel(canvas, sender, locate) {
  const meter = new WheelMeter();
  const turn = (/** @type {WheelEvent} */ event) => {
    event.preventDefault();
    if (!sender.enabled || event.ctrlKey) return;
    const delta = meter.take(event);
    if (delta) sender.sendAt(locate(event), [input.wheel(delta)]);
  };
  canvas.addEventListener('wheel', turn, { passive: false });
}
