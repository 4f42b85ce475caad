// The buttons that select one of the machine's monitors, each with its thumbnail.
import { make } from '../../base/dom.js';
import { texts } from '../../base/texts.js';
import { MonitorList, parseThumbnail } from './thumbnails.js';

export class Displays {
  #place;
  #onSelect;
  #selected = 0;
  #monitors = new MonitorList();

  /** @param {HTMLElement} place @param {(monitor: number) => void} onSelect */
  constructor(place, onSelect) {
    this.#place = place;
    this.#onSelect = onSelect;
    this.#draw();
  }

  get selected() {
    return this.#selected;
  }

  get count() {
    return this.#monitors.entries().length;
  }

  /** Selects the monitor after the selected one, and after the last one the first. */
  selectNext() {
    this.#select((this.#selected + 1) % this.count);
  }

  /** Shows the monitor as selected, without selecting it on the machine. */
  restore(/** @type {number} */ monitor) {
    this.#selected = monitor;
    this.#draw();
  }

  /** Selects the first monitor and forgets the others, before a session with another machine. */
  reset() {
    this.#selected = 0;
    this.#monitors = new MonitorList();
    this.#draw();
  }

  /**
   * @param {Uint8Array<ArrayBuffer>} payload of a thumbnail message; a message without a picture is ignored
   */
  add(payload) {
    const thumbnail = parseThumbnail(payload);
    if (!thumbnail) return;
    this.#monitors.add(thumbnail);
    this.#draw();
  }

  #select(/** @type {number} */ monitor) {
    this.#selected = monitor;
    this.#draw();
    this.#onSelect(monitor);
  }

  #draw() {
    const buttons = this.#monitors.entries().map((entry) => this.#button(entry));
    this.#place.replaceChildren(...buttons);
  }

  #button(/** @type {ReturnType<MonitorList['entries']>[0]} */ { monitor, thumbnail }) {
    const name = texts.display(monitor + 1);
    const button = make('button', {
      type: 'button',
      className: 'monitor',
      title: name,
      ariaPressed: String(monitor === this.#selected),
      dataset: { monitor: String(monitor) },
      onclick: () => this.#select(monitor),
    });
    if (thumbnail) {
      const url = URL.createObjectURL(new Blob([thumbnail.jpeg], { type: 'image/jpeg' }));
      const revoke = () => URL.revokeObjectURL(url);
      button.append(make('img', { src: url, alt: '', onload: revoke, onerror: revoke }));
    }
    button.append(make('span', {}, name));
    return button;
  }
}
