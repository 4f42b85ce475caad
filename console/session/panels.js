// The panels beside the picture: at most one is open, and each has a button in the toolbar.
import { make } from '../base/dom.js';
import { texts } from '../base/texts.js';

/** @typedef {{element: HTMLElement, button: HTMLElement, onToggle: (open: boolean) => void}} Entry */

export class Panels {
  #place;
  #buttons;
  /** @type {Map<string, Entry>} */
  #panels = new Map();
  #open = '';

  /** @param {HTMLElement} place @param {HTMLElement} buttons */
  constructor(place, buttons) {
    this.#place = place;
    this.#buttons = buttons;
  }

  /**
   * Adds a panel, closed. Its element has the id panel-NAME, and its button panel-NAME-button.
   * @param {{name: string, title: string, onToggle?: (open: boolean) => void}} panel
   * @returns {{body: HTMLElement, isOpen: () => boolean, toggle: (open: boolean) => void}} body: for the
   *   panel's content
   */
  add({ name, title, onToggle = () => {} }) {
    const body = make('div', { className: 'panel-body' });
    const close = make('button', { type: 'button', className: 'quiet', title: texts.closePanel }, '×');
    close.ariaLabel = texts.closePanel;
    close.addEventListener('click', () => this.#toggle(name, false));
    const header = make('header', {}, make('h2', {}, title), close);
    const element = make('section', { id: `panel-${name}`, hidden: true, ariaLabel: title }, header, body);
    const properties = { id: `panel-${name}-button`, ariaPressed: 'false' };
    const button = make('button', { type: 'button', ...properties }, title);
    button.addEventListener('click', () => this.#toggle(name, this.#open !== name));
    this.#place.append(element);
    this.#buttons.append(button);
    this.#panels.set(name, { element, button, onToggle });
    return {
      body,
      isOpen: () => this.#open === name,
      toggle: (open) => this.#toggle(name, open),
    };
  }

  /** The name of the open panel; '' without one. */
  get open() {
    return this.#open;
  }

  /** Opens a panel, or closes the open one for ''. Does nothing for the name of no panel. */
  show(/** @type {string} */ name) {
    if (this.#panels.has(name)) this.#toggle(name, true);
    else if (name === '') this.#toggle(this.#open, false);
  }

  /** Opens or closes a panel. Opening one closes the panel that was open. */
  #toggle(/** @type {string} */ name, /** @type {boolean} */ open) {
    const before = this.#open;
    if (open) this.#open = name;
    else if (before === name) this.#open = '';
    if (this.#open === before) return;
    this.#place.hidden = this.#open === '';
    for (const [one, { element, button, onToggle }] of this.#panels) {
      const shown = one === this.#open;
      element.hidden = !shown;
      button.ariaPressed = String(shown);
      if (shown || one === before) onToggle(shown);
    }
  }
}
