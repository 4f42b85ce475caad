// The list of transfers under the folder: for each a name, a bar, the rate and the time left, and in the end what became
// of it, told honestly.
import { make } from '../base/dom.js';
import { visible } from '../base/names.js';
import { texts } from '../base/texts.js';
import { discard, save } from './download_sink.js';

const DRAW_EVERY_MS = 200;
const RATE_EVERY_MS = 1000;

/** @typedef {import('./transfer.js').Transfer} Transfer */

export class TransferRows {
  /**
   * @param {{list: HTMLElement, clear: HTMLElement, section: HTMLElement}} places
   * @param {import('./transfer_queue.js').Courier} courier
   * @param {import('./listing.js').Numbers} numbers
   */
  constructor({ list, clear, section }, courier, numbers) {
    this.list = list;
    this.section = section;
    this.clear = clear;
    this.courier = courier;
    this.numbers = numbers;
    /** @type {Map<Transfer, HTMLElement>} */
    this.rows = new Map();
    /** @type {Set<Transfer>} */
    this.stale = new Set();
    courier.addEventListener('change', (/** @type {any} */ { detail }) => this.note(detail));
    clear.addEventListener('click', () => this.forgetEnded());
  }

  /** @private However many change at once, the page is drawn now and then. */
  note(/** @type {Transfer} */ transfer) {
    this.stale.add(transfer);
    this.timer ??= setTimeout(() => this.draw(), DRAW_EVERY_MS);
  }

  /** @private Running rates fall also while nothing arrives. */
  draw() {
    clearTimeout(this.timer);
    clearTimeout(this.later);
    this.timer = undefined;
    for (const transfer of this.stale) this.drawRow(transfer);
    this.stale = new Set([...this.rows.keys()].filter(({ state }) => state === 'running'));
    if (this.stale.size) this.later = setTimeout(() => this.draw(), RATE_EVERY_MS);
    this.section.hidden = !this.rows.size;
    this.clear.hidden = ![...this.rows.keys()].some(({ active }) => !active);
  }

  /** @private */
  drawRow(/** @type {Transfer} */ transfer) {
    let row = this.rows.get(transfer);
    if (!row) {
      row = this.makeRow(transfer);
      this.rows.set(transfer, row);
      this.list.prepend(row);
    }
    row.dataset.state = transfer.state;
    const bar = /** @type {HTMLProgressElement} */ (row.querySelector('progress'));
    bar.hidden = !transfer.active;
    bar.max = Math.max(1, transfer.size);
    bar.value = transfer.done;
    /** @type {HTMLElement} */ (row.querySelector('.transfer-words')).textContent = this.words(transfer);
    /** @type {HTMLElement} */ (row.querySelector('.transfer-cancel')).hidden =
      !transfer.active || transfer.state === 'checking';
    /** @type {HTMLElement} */ (row.querySelector('.transfer-save')).hidden = !transfer.blob;
  }

  /** @private */
  makeRow(/** @type {Transfer} */ transfer) {
    const name = visible(transfer.name);
    return make(
      'li',
      { className: `transfer is-${transfer.kind}`, title: visible(transfer.path) },
      make('bdi', { className: 'transfer-name' }, name),
      make('button', {
        type: 'button',
        className: 'quiet transfer-save',
        textContent: texts.saveAgain,
        ariaLabel: `${texts.saveAgain} ${name}`,
        onclick: () => transfer.blob && save(transfer.blob, name),
      }),
      make('button', {
        type: 'button',
        className: 'quiet transfer-cancel',
        textContent: texts.cancel,
        ariaLabel: `${texts.cancel} ${name}`,
        onclick: () => {
          this.courier.cancel(transfer);
          this.draw();
        },
      }),
      make('progress', { ariaLabel: name }),
      make('span', { className: 'transfer-words muted' }),
    );
  }

  /** @private */
  words(/** @type {Transfer} */ transfer) {
    const { numbers } = this;
    const { state, size, done, rate } = transfer;
    if (state === 'running') {
      const parts = [texts.transferDone(numbers.size(done), numbers.size(size))];
      if (rate >= 1) parts.push(`${numbers.size(rate)}/s`);
      if (rate >= 1 && size > done) parts.push(texts.transferLeft(numbers.duration((size - done) / rate)));
      return parts.join(' · ');
    }
    const remark = texts.transferRemarks[/** @type {'cannotOpen'} */ (transfer.remark)] ?? transfer.remark;
    const head =
      state === 'done' ? `${texts.transferStates.done} · ${numbers.size(done)}` : texts.transferStates[state];
    return remark ? `${head} · ${remark}` : head;
  }

  /** @private */
  forgetEnded() {
    for (const [transfer, row] of this.rows) {
      if (transfer.active) continue;
      row.remove();
      if (transfer.sink) discard(transfer.sink);
      this.rows.delete(transfer);
    }
    this.draw();
  }
}
