// The keyboard's focus in a session. It belongs to the picture: each action elsewhere in the session's view gives
// it back, except in the panels beside the picture. Ctrl+Alt+Home moves it from the picture to the toolbar.
import { byId } from '../base/dom.js';

const TIP_MS = 8000;

export class Focus {
  #view = byId('view-session');
  #bar = byId('session-bar');
  #panels = byId('panels');
  #keyInput = byId('key-input');
  #tip = byId('leave-tip');
  #tipIsDue = true;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #tipTimer;
  /** Whether the last action came from the keyboard. */
  #byKeyboard = false;

  constructor() {
    const view = this.#view;
    view.addEventListener('keydown', (event) => this.#key(event), true);
    view.addEventListener('pointerdown', () => {
      this.#byKeyboard = false;
    });
    // These listeners run after those of the controls, whose effects they look at.
    view.addEventListener('click', (event) => this.#clicked(event));
    view.addEventListener('change', ({ target }) => this.#changed(target));
    // These events do not bubble.
    view.addEventListener('close', () => this.giveBack(), true);
    view.addEventListener('toggle', ({ target }) => this.#toggled(target), true);
    document.addEventListener('fullscreenchange', () => this.giveBack());
    document.addEventListener('keydown', ({ key }) => {
      if (document.activeElement === document.body && key !== 'Tab') this.giveBack();
    });
    this.#keyInput.addEventListener('focus', () => this.#showTip());
  }

  /** Prepares for another session, in which the tip about the way to the toolbar is shown again. */
  reset() {
    clearTimeout(this.#tipTimer);
    this.#tipIsDue = true;
    this.#tip.hidden = true;
  }

  /** Gives the focus to the picture, unless a dialog, a message or a panel has it. */
  giveBack() {
    const { hidden, dataset } = this.#view;
    if (hidden || dataset.state !== 'accepted' || document.querySelector('dialog[open]')) return;
    const active = document.activeElement;
    const keepsFocus = active?.closest('#panels, #session-note') && active.checkVisibility();
    if (!keepsFocus) this.#keyInput.focus({ preventScroll: true });
  }

  #clicked(/** @type {MouseEvent} */ event) {
    // The control may be gone from the page by now, so it is looked for in the event's path.
    const path = event.composedPath();
    const control = path.find((one) => one instanceof Element && one.matches(CONTROLS));
    if (control instanceof HTMLButtonElement) {
      if (!this.#hasOpened(control)) this.giveBack();
    } else if (!control && !path.includes(this.#panels)) this.giveBack();
  }

  /** Whether the click has opened something that the representative is going to use next. */
  #hasOpened(/** @type {HTMLButtonElement} */ button) {
    // What the status line opens has nothing to click.
    if (button.ariaExpanded === 'true') return this.#byKeyboard || button.id !== 'status-line';
    if (!this.#byKeyboard) return false;
    // Who uses a notice by keyboard may want its next button.
    if (button.closest('#clip-notices')) return true;
    return button.ariaPressed === 'true' && !!button.closest('#panel-buttons');
  }

  /** A selection that the arrow keys change is not final. */
  #changed(/** @type {EventTarget | null} */ target) {
    if (!(target instanceof Element) || !this.#bar.contains(target)) return;
    if (!(target instanceof HTMLSelectElement && this.#byKeyboard)) this.giveBack();
  }

  #toggled(/** @type {EventTarget | null} */ menu) {
    if (!(menu instanceof HTMLDetailsElement) || menu.open || this.#byKeyboard) return;
    const active = document.activeElement;
    if (active === document.body || menu.contains(active)) this.giveBack();
  }

  #key(/** @type {KeyboardEvent} */ event) {
    this.#byKeyboard = true;
    if (event.target === this.#keyInput) {
      this.#closeMenus();
      if (leavesPicture(event)) this.#leave(event);
    } else if (event.key === 'Escape' && event.target instanceof Node && this.#bar.contains(event.target)) {
      // Escape in an open menu closes the menu.
      if (this.#bar.querySelector('.menu[open], [aria-expanded="true"]')) return;
      event.stopPropagation();
      this.giveBack();
    }
  }

  /** Moves the focus to the first control of the toolbar. The picture then releases all keys on the machine. */
  #leave(/** @type {KeyboardEvent} */ event) {
    event.preventDefault();
    event.stopImmediatePropagation();
    const controls = /** @type {HTMLElement[]} */ ([...this.#bar.querySelectorAll(CONTROLS)]);
    controls.find(canTakeFocus)?.focus();
    this.#tip.hidden = true;
  }

  /** Closes the menus that are open while the representative types on the machine. */
  #closeMenus() {
    const menus = /** @type {NodeListOf<HTMLDetailsElement>} */ (this.#bar.querySelectorAll('.menu[open]'));
    for (const menu of menus) menu.open = false;
  }

  #showTip() {
    if (!this.#tipIsDue || this.#view.dataset.state !== 'accepted') return;
    this.#tipIsDue = false;
    this.#tip.hidden = false;
    this.#tipTimer = setTimeout(() => {
      this.#tip.hidden = true;
    }, TIP_MS);
  }
}

const CONTROLS = 'button, summary, select, input, textarea, label, a';

function canTakeFocus(/** @type {HTMLElement} */ control) {
  if (control.tagName === 'LABEL' || control.closest('[inert], :disabled')) return false;
  return control.checkVisibility({ visibilityProperty: true });
}

/** AltGr, which Windows reports as Ctrl and Alt, does not lead out of the picture. */
function leavesPicture(/** @type {KeyboardEvent} */ event) {
  if (event.key !== 'Home' || event.shiftKey || event.metaKey) return false;
  return event.ctrlKey && event.altKey && !event.getModifierState('AltGraph');
}
