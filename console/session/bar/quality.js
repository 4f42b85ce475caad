// The choice of the picture's quality: a preset, or rates that are chosen by hand.
import { byId, make } from '../../base/dom.js';
import { qualityTexts as texts } from './quality_texts.js';

const FRAME_RATES = [5, 10, 15, 25, 30, 60];
const MEGABITS = [0.1, 0.25, 0.5, 1, 2, 4, 6, 10, 20];
const BY_HAND = Object.freeze({ max_fps: 30, bitrate: 6_000_000 });

/** What the relay is told: max_fps and bitrate are for the preset "hand" only. */
/** @typedef {{preset: string, max_fps: number, bitrate: number}} Settings */

export class Quality {
  #preset = byId('quality', HTMLSelectElement);
  #frames = byId('max-fps', HTMLSelectElement);
  #bitrate = byId('bitrate', HTMLSelectElement);

  /** @param {() => void} onChange called when the representative has chosen */
  constructor(onChange) {
    byId('quality-label').textContent = texts.quality;
    byId('bitrate-label').textContent = texts.bitrate;
    this.#preset.append(
      ...Object.entries(texts.presets).map(([value, text]) => make('option', { value }, text)),
    );
    this.#frames.append(...FRAME_RATES.map((rate) => make('option', { value: String(rate) }, String(rate))));
    this.#bitrate.append(
      ...MEGABITS.map((rate) =>
        make('option', { value: String(rate * 1_000_000) }, texts.megabits(String(rate))),
      ),
    );
    this.#frames.value = String(BY_HAND.max_fps);
    this.#bitrate.value = String(BY_HAND.bitrate);
    for (const element of [this.#preset, this.#frames, this.#bitrate])
      element.addEventListener('change', () => {
        this.#layOut();
        onChange();
      });
    this.#layOut();
  }

  /** @returns {Settings} */
  get settings() {
    return {
      preset: this.#preset.value,
      max_fps: Number(this.#frames.value),
      bitrate: Number(this.#bitrate.value),
    };
  }

  /** What the representative has chosen, as restore() takes it. */
  get choices() {
    const { preset, max_fps, bitrate } = this.settings;
    return { quality: preset, fps: max_fps, bitrate };
  }

  restore(/** @type {Record<string, unknown>} */ { quality, fps, bitrate }) {
    select(this.#preset, quality);
    select(this.#frames, fps);
    select(this.#bitrate, bitrate);
    this.#layOut();
  }

  /** Whether something else decides about the rates. */
  set disabled(/** @type {boolean} */ on) {
    for (const element of [this.#preset, this.#frames, this.#bitrate]) element.disabled = on;
  }

  #layOut() {
    const hidden = this.#preset.value !== 'hand';
    for (const { parentElement: label } of [this.#frames, this.#bitrate]) if (label) label.hidden = hidden;
  }
}

/** Selects an option; returns false if there is none with this value. */
export function select(/** @type {HTMLSelectElement} */ element, /** @type {unknown} */ value) {
  const option = [...element.options].find((one) => one.value === String(value));
  if (option) option.selected = true;
  return option !== undefined;
}
