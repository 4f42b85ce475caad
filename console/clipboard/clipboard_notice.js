// The small card over the picture that tells what the clipboards do, and offers what needs a click.
import { make } from '../base/dom.js';
import { visible } from '../base/names.js';
import { texts } from '../base/texts.js';
import { save } from '../files/download_sink.js';

const SHORT_MS = 4000;
/** About what went, or did not go, to the machine. */
const OURS = ['sent', 'filesSent', 'filesTooLarge', 'tooLarge', 'unreadable', 'nothing'];
const BRIEF = ['copied', 'sent', 'filesSent', 'nothing'];

/** @typedef {import('./clipboard_sync.js').News} News */

export class ClipChip {
  /**
   * @param {HTMLElement} place
   * @param {{take: () => void, upload: (files: import('./clipboard_sync.js').Dropped[]) => void,
   *   numbers: import('../files/listing.js').Numbers}} acts take: what waits, into this clipboard, within a click
   */
  constructor(place, { take, upload, numbers }) {
    this.place = place;
    this.take = take;
    this.upload = upload;
    this.numbers = numbers;
  }

  /** The machine's newest replaces what was there; words about this computer's clipboard stand beside it for a while. */
  show(/** @type {News} */ news) {
    const ours = OURS.includes(news.kind);
    if (!ours) this.clear();
    const card = make(
      'div',
      { className: 'chip', dataset: { kind: news.kind } },
      ...this.parts(news),
      make('button', {
        type: 'button',
        className: 'quiet chip-close',
        textContent: '×',
        ariaLabel: texts.closePanel,
        onclick: () => remove(card),
      }),
    );
    for (const before of this.place.querySelectorAll('.chip'))
      if (OURS.includes(before.dataset.kind)) remove(before);
    this.place.append(card);
    if (BRIEF.includes(news.kind)) setTimeout(() => remove(card), SHORT_MS);
  }

  clear() {
    for (const card of [...this.place.children]) remove(card);
  }

  /** @private @returns {Node[]} */
  parts(/** @type {News} */ news) {
    const say = (/** @type {string} */ text) => make('span', { className: 'chip-text' }, text);
    switch (news.kind) {
      case 'text':
        return [say(texts.clipText), this.copyButton()];
      case 'image':
        return [
          make('img', { src: URL.createObjectURL(news.png), alt: '' }),
          say(texts.clipImage),
          this.copyButton(),
          button(texts.save, () => save(news.png, `${texts.clipImageName}.png`)),
        ];
      case 'files':
        return [this.fileList(news.files)];
      case 'filesSent':
        return [say(texts.clipFilesSent(news.count))];
      case 'filesTooLarge':
        return [
          say(texts.clipFilesTooLarge),
          button(texts.upload, () => {
            this.clear();
            this.upload(news.files);
          }),
        ];
      default:
        return [say(texts.clipNews[news.kind])];
    }
  }

  /** @private */
  copyButton() {
    return button(texts.copy, () => this.take(), 'primary');
  }

  /** @private @param {import('./payload.js').ClipFile[]} files */
  fileList(files) {
    const fetch = (/** @type {{name: string, bytes: Uint8Array}} */ { name, bytes }) =>
      save(new Blob([/** @type {BlobPart} */ (bytes)]), visible(name));
    const rows = files.map((file) =>
      make(
        'li',
        {},
        make('bdi', {}, visible(file.name)),
        make('span', { className: 'muted' }, this.numbers.size(file.bytes.length)),
        button(texts.save, () => fetch(file), 'quiet'),
      ),
    );
    return make(
      'div',
      { className: 'chip-files' },
      make(
        'div',
        { className: 'chip-head' },
        make('span', { className: 'chip-text' }, texts.clipFiles(files.length)),
        ...(files.length > 1 ? [button(texts.saveAll, () => files.forEach(fetch), 'primary')] : []),
      ),
      make('ul', {}, ...rows),
    );
  }
}

function remove(/** @type {Element} */ card) {
  for (const { src } of card.querySelectorAll('img')) URL.revokeObjectURL(src);
  card.remove();
}

function button(/** @type {string} */ text, /** @type {() => void} */ act, className = '') {
  return make('button', { type: 'button', className, onclick: act }, text);
}
