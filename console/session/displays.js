// The picker of the machine's monitors, with their small pictures.
import { make } from '../base/dom.js';
import { texts } from '../base/texts.js';
import { MonitorList, parseThumbnail } from './thumbnails.js';

export class Displays {
  /** @param {HTMLElement} place @param {(monitor: number) => void} onSelect */
  constructor(place, onSelect) {
    this.place = place;
    this.onSelect = onSelect;
    this.reset();
  }

  reset() {
    this.selected = 0;
    this.monitors = new MonitorList();
    this.draw();
  }

  /** @param {Uint8Array} payload of a thumbnail message; one that makes no sense changes nothing */
  add(payload) {
    const thumbnail = parseThumbnail(payload);
    if (!thumbnail) return;
    this.monitors.add(thumbnail);
    this.draw();
  }

  select(/** @type {number} */ monitor) {
    this.selected = monitor;
    this.draw();
    this.onSelect(monitor);
  }

  /** @private */
  draw() {
    this.place.replaceChildren(...this.monitors.entries().map((entry) => this.button(entry)));
  }

  /** @private */
  button({ monitor, thumbnail }) {
    const name = texts.display(monitor + 1);
    const button = make('button', {
      type: 'button',
      className: 'monitor',
      title: name,
      ariaPressed: String(monitor === this.selected),
      dataset: { monitor: String(monitor) },
      onclick: () => this.select(monitor),
    });
    if (thumbnail) {
      const url = URL.createObjectURL(new Blob([thumbnail.jpeg], { type: 'image/jpeg' }));
      const forget = () => URL.revokeObjectURL(url);
      button.append(make('img', { src: url, alt: '', onload: forget, onerror: forget }));
    }
    button.append(make('span', {}, name));
    return button;
  }
}
