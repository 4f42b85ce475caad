// Mouse, pen and touch on the picture. While a button is held the pointer is captured, so that a drag may leave
// the picture and still end.
import * as input from './events.js';
import { toWire, WheelMeter } from './geometry.js';

const BUTTONS = [input.Button.left, input.Button.middle, input.Button.right];

/**
 * @param {HTMLCanvasElement} canvas
 * @param {import('./sender.js').InputSender} sender
 * @param {() => void} onPress called on each press, for the keyboard's focus
 * @returns {{releaseAll: () => void}}
 */
export function attachPointer(canvas, sender, onPress) {
  const meter = new WheelMeter();
  /** @type {Set<number>} */
  const held = new Set();
  let last = { x: 0, y: 0 };

  const locate = (/** @type {MouseEvent} */ event) => {
    last = toWire({ x: event.clientX, y: event.clientY }, canvas.getBoundingClientRect(), canvas);
    return last;
  };
  const set = (/** @type {number | undefined} */ which, /** @type {boolean} */ pressed) => {
    if (!which || !sender.enabled || held.has(which) === pressed) return;
    if (pressed) held.add(which);
    else held.delete(which);
    sender.at(last, [input.button(which, pressed)]);
  };

  canvas.addEventListener('pointermove', (event) => {
    sender.move(locate(event));
    // A second button pressed or released while one is held comes as a move.
    if (event.button >= 0) set(BUTTONS[event.button], (event.buttons & [1, 4, 2][event.button]) !== 0);
  });
  canvas.addEventListener('pointerdown', (event) => {
    event.preventDefault();
    onPress();
    locate(event);
    try {
      canvas.setPointerCapture(event.pointerId);
    } catch {
      // The pointer is gone already; its end comes without capture.
    }
    set(BUTTONS[event.button], true);
  });
  canvas.addEventListener('pointerup', (event) => {
    locate(event);
    set(BUTTONS[event.button], false);
  });
  const releaseAll = () => [...held].forEach((which) => set(which, false));
  canvas.addEventListener('pointercancel', releaseAll);
  canvas.addEventListener('lostpointercapture', releaseAll);
  for (const name of ['contextmenu', 'auxclick', 'dragstart', 'mousedown']) {
    canvas.addEventListener(name, (event) => event.preventDefault());
  }
  canvas.addEventListener(
    'wheel',
    (event) => {
      event.preventDefault();
      if (!sender.enabled || event.ctrlKey) return;
      const delta = meter.take(event);
      if (delta) sender.at(locate(event), [input.wheel(delta)]);
    },
    { passive: false },
  );
  return { releaseAll };
}
