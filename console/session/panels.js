// The place for panels beside the picture: one is open at a time, each has a button in the bar.
import { make } from '../base/dom.js';
import { texts } from '../base/texts.js';

export class Panels {
  /** @param {HTMLElement} place @param {HTMLElement} buttons */
  constructor(place, buttons) {
    this.place = place;
    this.buttons = buttons;
    /** @type {Map<string, {panel: HTMLElement, button: HTMLElement, onToggle: (open: boolean) => void}>} */
    this.all = new Map();
    this.open = '';
  }

  /**
   * @param {{name: string, title: string, onToggle?: (open: boolean) => void}} panel `name` gives the ids: panel-NAME and,
   *   of its button, panel-NAME-button
   * @returns {HTMLElement} what is the panel's own to fill
   */
  add({ name, title, onToggle = () => {} }) {
    const body = make('div', { className: 'panel-body' });
    const close = make(
      'button',
      {
        type: 'button',
        className: 'quiet',
        title: texts.closePanel,
        ariaLabel: texts.closePanel,
        onclick: () => this.toggle(name, false),
      },
      '×',
    );
    const panel = make(
      'section',
      { id: `panel-${name}`, hidden: true, ariaLabel: title },
      make('header', {}, make('h2', {}, title), close),
      body,
    );
    const button = make(
      'button',
      { type: 'button', id: `panel-${name}-button`, ariaPressed: 'false', onclick: () => this.toggle(name) },
      title,
    );
    this.place.append(panel);
    this.buttons.append(button);
    this.all.set(name, { panel, button, onToggle });
    return body;
  }

  /** Opens or closes a panel; an open one makes way. */
  toggle(/** @type {string} */ name, open = this.open !== name) {
    const before = this.open;
    if (open) this.open = name;
    else if (before === name) this.open = '';
    if (this.open === before) return;
    this.place.hidden = this.open === '';
    for (const [one, { panel, button, onToggle }] of this.all) {
      const shown = one === this.open;
      panel.hidden = !shown;
      button.ariaPressed = String(shown);
      if (shown || one === before) onToggle(shown);
    }
  }
}
