// The rows of transfers below the folder: name, progress, rate and time left, and at the end the result.
import { onDetail } from '../../base/custom_events.js';
import { make } from '../../base/dom.js';
import { duration } from '../../base/formats.js';
import { visible } from '../../base/names.js';
import { saveFile } from '../../base/save_file.js';
import { texts } from '../../base/texts.js';
import { discard } from './download_sink.js';
import { transferTexts } from './texts.js';

const DRAW_INTERVAL_MS = 200;
/** Rates are drawn again at this interval, because they also fall while nothing arrives. */
const RATE_INTERVAL_MS = 1000;

const DIRECTIONS = { download: '↓', upload: '↑' };

/** @typedef {import('./transfer.js').Transfer} Transfer */
/** @typedef {{item: HTMLElement, bar: HTMLProgressElement, text: HTMLElement, save: HTMLElement,
 *   cancel: HTMLElement, choose: HTMLElement, stop: HTMLElement}} Row */

export class TransferRows {
  #list;
  #clear;
  #section;
  #queue;
  #formats;
  #onStop;
  /** @type {Map<Transfer, Row>} */
  #rows = new Map();
  /** @type {Set<Transfer>} transfers whose row has to be drawn again */
  #stale = new Set();
  /** @type {WeakSet<Transfer>} transfers of an earlier machine, which have no row */
  #forgotten = new WeakSet();
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #drawTimer;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #rateTimer;

  /**
   * @param {{list: HTMLElement, clear: HTMLElement, section: HTMLElement}} parts
   * @param {import('./transfer_queue.js').TransferQueue} queue
   * @param {import('../../base/formats.js').Formats} formats
   * @param {() => void} onStop asks to stop what the machine is still sending
   */
  constructor({ list, clear, section }, queue, formats, onStop) {
    this.#list = list;
    this.#section = section;
    this.#clear = clear;
    this.#queue = queue;
    this.#formats = formats;
    this.#onStop = onStop;
    onDetail(queue, 'change', (/** @type {Transfer} */ transfer) => this.#changed(transfer));
    clear.addEventListener('click', () => this.#removeEnded());
  }

  /** Removes all rows and their saved copies, before a session with another machine. */
  reset() {
    for (const transfer of [...this.#rows.keys(), ...this.#stale]) {
      this.#forgotten.add(transfer);
      // A download that is being checked is still saved.
      transfer.ended.then(() => this.#remove(transfer));
      this.#remove(transfer);
    }
    this.#draw();
  }

  /** Marks the transfer's row for a drawing after DRAW_INTERVAL_MS, which is shared by all changed rows. */
  #changed(/** @type {Transfer} */ transfer) {
    if (this.#forgotten.has(transfer)) return;
    this.#stale.add(transfer);
    this.#drawTimer ??= setTimeout(() => this.#draw(), DRAW_INTERVAL_MS);
  }

  #draw() {
    clearTimeout(this.#drawTimer);
    clearTimeout(this.#rateTimer);
    this.#drawTimer = undefined;
    for (const transfer of this.#stale) this.#drawRow(transfer);
    const transfers = [...this.#rows.keys()];
    this.#stale = new Set(transfers.filter(({ state }) => state === 'running'));
    if (this.#stale.size) this.#rateTimer = setTimeout(() => this.#draw(), RATE_INTERVAL_MS);
    this.#section.hidden = !transfers.length;
    this.#clear.hidden = transfers.every(({ active }) => active);
  }

  #drawRow(/** @type {Transfer} */ transfer) {
    let row = this.#rows.get(transfer);
    if (!row) {
      row = this.#makeRow(transfer);
      this.#rows.set(transfer, row);
      this.#list.prepend(row.item);
    }
    const { item, bar, text, save, cancel, choose, stop } = row;
    item.dataset.state = transfer.state;
    bar.hidden = !transfer.active;
    bar.max = Math.max(1, transfer.size);
    bar.value = transfer.done;
    text.textContent = this.#textOf(transfer);
    cancel.hidden = !transfer.active || transfer.state === 'checking';
    choose.hidden = transfer.state !== 'fileless';
    save.hidden = !transfer.blob;
    save.textContent = transfer.state === 'failed' ? texts.savePart : texts.saveAgain;
    save.ariaLabel = `${save.textContent} ${visible(transfer.name)}`;
    stop.hidden = !transfer.stillSent;
  }

  /** @returns {Row} */
  #makeRow(/** @type {Transfer} */ transfer) {
    const name = visible(transfer.name);
    const bar = make('progress', { ariaLabel: name });
    const text = make('span', { className: 'transfer-text muted' });
    const save = button(texts.saveAgain, name, 'transfer-save', () => {
      if (transfer.blob) saveFile(transfer.blob, name);
    });
    const cancel = button(texts.cancel, name, 'transfer-cancel', () => {
      this.#queue.cancel(transfer);
      this.#draw();
    });
    const choose = this.#makeChooser(transfer, name);
    const stop = button(texts.stopSending, name, 'transfer-stop', () => this.#onStop());
    const properties = { className: `transfer is-${transfer.kind}`, title: visible(transfer.path) };
    const direction = make('span', { className: 'transfer-direction' }, DIRECTIONS[transfer.kind]);
    direction.ariaHidden = 'true';
    const title = make('bdi', { className: 'transfer-name' }, name);
    const item = make('li', properties, direction, title, save, cancel, bar, text, choose, stop);
    return { item, bar, text, save, cancel, choose, stop };
  }

  /** A button by which the representative chooses the file of an upload again. */
  #makeChooser(/** @type {Transfer} */ transfer, /** @type {string} */ name) {
    const input = make('input', { type: 'file', hidden: true });
    input.addEventListener('change', () => {
      const [file] = input.files ?? [];
      if (file) this.#queue.chooseFile(transfer, file);
      input.value = '';
    });
    const choose = button(transferTexts.chooseFile, name, 'transfer-choose', () => input.click());
    return make('span', { className: 'transfer-file', hidden: true }, choose, input);
  }

  #textOf(/** @type {Transfer} */ transfer) {
    const parts = this.#partsOf(transfer);
    if (transfer.active && this.#queue.suspended) parts.push(transferTexts.suspended);
    return parts.join(' · ');
  }

  #partsOf(/** @type {Transfer} */ { kind, state, size, done, rate, remark, stillSent }) {
    const formats = this.#formats;
    if (state === 'running') {
      const parts = [texts.transferDone(formats.size(done), formats.size(size))];
      if (this.#queue.suspended) return parts;
      if (rate >= 1) parts.push(`${formats.size(rate)}/s`);
      if (rate >= 1 && size > done) parts.push(texts.transferLeft(duration((size - done) / rate)));
      return parts;
    }
    /** @type {Record<string, string>} */
    const remarks = { ...texts.transferRemarks, ...transferTexts.remarks };
    /** @type {string[]} */
    const parts = [];
    if (state === 'done') parts.push(texts.transferResults[kind], formats.size(done));
    else if (state === 'fileless') parts.push(transferTexts.fileless(Math.floor((100 * done) / size)));
    else parts.push(texts.transferStates[state]);
    if (remark) parts.push(remarks[remark] ?? remark);
    if (stillSent) parts.push(texts.stillSent);
    return parts;
  }

  #removeEnded() {
    for (const transfer of this.#rows.keys()) if (!transfer.active) this.#remove(transfer);
    this.#draw();
  }

  /** Removes a row, and deletes the saved copy of its file. */
  #remove(/** @type {Transfer} */ transfer) {
    this.#rows.get(transfer)?.item.remove();
    this.#rows.delete(transfer);
    this.#stale.delete(transfer);
    if (transfer.sink) discard(transfer.sink);
    transfer.sink = null;
  }
}

/**
 * @param {string} text
 * @param {string} name the name of the file, for the button's accessible name
 * @param {string} className
 * @param {() => void} onclick
 */
function button(text, name, className, onclick) {
  const properties = {
    className: `quiet ${className}`,
    textContent: text,
    ariaLabel: `${text} ${name}`,
    onclick,
  };
  return make('button', { type: 'button', ...properties });
}
