// Mouse, pen and touch input on the picture. The pointer is captured while a button is held, so that the
// end of a drag outside the picture is received too.
import * as input from './events.js';
import { toWire, WheelMeter } from './geometry.js';
import { BROWSER_TIMERS } from './keyboard.js';
import { TouchGestures } from './touch.js';

/**
 * The machine's buttons, and the bits of `event.buttons`, both indexed by the browser's number of a button.
 */
const BUTTONS = [input.Button.left, input.Button.middle, input.Button.right];
const BUTTON_BITS = [1, 4, 2];

/** Two fingers turn the wheel by a notch for 40 CSS pixels; a notch is worth 100 pixels. */
const WHEEL_PER_TOUCH = 2.5;

/** @typedef {import('./sender.js').InputSender} InputSender */
/** @typedef {import('./sender.js').Position} Position */

/** The buttons that are down on the machine. */
class Buttons {
  #sender;
  /** @type {Set<number>} */
  #held = new Set();
  /** @type {Position} where the pointer is */
  at = { x: 0, y: 0 };

  /** @param {InputSender} sender */
  constructor(sender) {
    this.#sender = sender;
  }

  set(/** @type {number | undefined} */ which, /** @type {boolean} */ pressed) {
    if (!which || !this.#sender.enabled || this.#held.has(which) === pressed) return;
    if (pressed) this.#held.add(which);
    else this.#held.delete(which);
    this.#sender.sendAt(this.at, [input.button(which, pressed)]);
  }

  releaseAll() {
    for (const which of [...this.#held]) this.set(which, false);
  }
}

/**
 * @param {object} parts
 * @param {HTMLElement} parts.area the canvas's surroundings, on which fingers may come down too
 * @param {HTMLCanvasElement} parts.canvas
 * @param {InputSender} parts.sender
 * @param {import('./touch.js').View} parts.view
 * @param {(event: MouseEvent) => void} parts.onEvent called before each event is sent
 * @param {() => void} parts.onPress called at each press, so that the keyboard's element takes the focus
 * @returns {{releaseAll: () => void}}
 */
export function attachPointer({ area, canvas, sender, view, onEvent, onPress }) {
  const buttons = new Buttons(sender);
  const pointAt = (/** @type {{x: number, y: number}} */ point) => {
    buttons.at = toWire(point, canvas.getBoundingClientRect(), canvas);
    return buttons.at;
  };
  const locate = (/** @type {MouseEvent} */ event) => {
    onEvent(event);
    return pointAt({ x: event.clientX, y: event.clientY });
  };
  attachMouse(canvas, { sender, buttons, locate, onPress });
  attachWheel(canvas, sender, locate);
  attachTouch(area, touchActions(sender, buttons, pointAt), { view, onEvent, onPress });
  for (const name of ['contextmenu', 'auxclick', 'dragstart', 'mousedown']) {
    canvas.addEventListener(name, (event) => event.preventDefault());
  }
  return { releaseAll: () => buttons.releaseAll() };
}

/**
 * @param {HTMLCanvasElement} canvas
 * @param {{sender: InputSender, buttons: Buttons, locate: (event: MouseEvent) => Position,
 *   onPress: () => void}} parts
 */
function attachMouse(canvas, { sender, buttons, locate, onPress }) {
  const on = (
    /** @type {'pointermove' | 'pointerdown' | 'pointerup'} */ name,
    /** @type {OnPointer} */ act,
  ) =>
    canvas.addEventListener(name, (event) => {
      if (event.pointerType !== 'touch') act(event);
    });
  on('pointermove', (event) => {
    sender.move(locate(event));
    // Browsers report as a move that a button changes while another is held.
    if (event.button >= 0)
      buttons.set(BUTTONS[event.button], (event.buttons & BUTTON_BITS[event.button]) !== 0);
  });
  on('pointerdown', (event) => {
    event.preventDefault();
    onPress();
    locate(event);
    try {
      canvas.setPointerCapture(event.pointerId);
    } catch {
      // The pointer no longer exists; its end is reported without capture.
    }
    buttons.set(BUTTONS[event.button], true);
  });
  on('pointerup', (event) => {
    locate(event);
    buttons.set(BUTTONS[event.button], false);
  });
  canvas.addEventListener('pointercancel', () => buttons.releaseAll());
  canvas.addEventListener('lostpointercapture', () => buttons.releaseAll());
}

/** @typedef {(event: PointerEvent) => void} OnPointer */

/**
 * @param {HTMLCanvasElement} canvas
 * @param {InputSender} sender
 * @param {(event: MouseEvent) => Position} locate
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

/**
 * @param {InputSender} sender
 * @param {Buttons} buttons
 * @param {(point: import('./touch.js').Point) => Position} pointAt
 * @returns {import('./touch.js').Actions}
 */
function touchActions(sender, buttons, pointAt) {
  const meter = new WheelMeter();
  const set = (/** @type {number} */ which, /** @type {boolean} */ pressed) => {
    return (/** @type {import('./touch.js').Point} */ at) => {
      pointAt(at);
      buttons.set(which, pressed);
    };
  };
  const click = (/** @type {number} */ which) => (/** @type {import('./touch.js').Point} */ at) => {
    set(which, true)(at);
    set(which, false)(at);
  };
  return {
    move: (at) => sender.move(pointAt(at)),
    click: click(input.Button.left),
    rightClick: click(input.Button.right),
    press: set(input.Button.left, true),
    release: set(input.Button.left, false),
    scroll: (at, deltaY) => {
      const delta = meter.take({ deltaY: deltaY * WHEEL_PER_TOUCH, deltaMode: 0 });
      if (delta) sender.sendAt(pointAt(at), [input.wheel(delta)]);
    },
  };
}

/**
 * @param {HTMLElement} area
 * @param {import('./touch.js').Actions} actions
 * @param {{view: import('./touch.js').View, onEvent: (event: MouseEvent) => void, onPress: () => void}} parts
 */
function attachTouch(area, actions, { view, onEvent, onPress }) {
  const gestures = new TouchGestures(actions, view, BROWSER_TIMERS);
  const on = (/** @type {string} */ name, /** @type {OnPointer} */ act) =>
    area.addEventListener(name, (event) => {
      const pointer = /** @type {PointerEvent} */ (event);
      if (pointer.pointerType !== 'touch') return;
      onEvent(pointer);
      act(pointer);
    });
  const pointOf = (/** @type {PointerEvent} */ { clientX, clientY }) => ({ x: clientX, y: clientY });
  on('pointerdown', (event) => {
    event.preventDefault();
    onPress();
    gestures.down(event.pointerId, pointOf(event), event.timeStamp);
  });
  on('pointermove', (event) => gestures.move(event.pointerId, pointOf(event)));
  on('pointerup', (event) => gestures.up(event.pointerId, pointOf(event), event.timeStamp));
  on('pointercancel', (event) => gestures.cancel(event.pointerId, pointOf(event)));
  area.addEventListener('contextmenu', (event) => event.preventDefault());
}
