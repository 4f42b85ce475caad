// The small card over the picture that tells what the clipboards do, and offers what needs a click.
import { make } from './dom.js';
import { visible } from './names.js';
import { save } from './save.js';
import { texts } from './texts.js';

const SHORT_MS = 4000;

/** @typedef {import('./clip_share.js').News} News */

export class ClipChip {
  /**
   * @param {HTMLElement} place
   * @param {{take: () => void, upload: (files: import('./clip_share.js').Dropped[]) => void,
   *   numbers: import('./listing.js').Numbers}} acts take: what waits, into this clipboard, within a click
   */
  constructor(place, { take, upload, numbers }) {
    this.place = place;
    this.take = take;
    this.upload = upload;
    this.numbers = numbers;
  }

  /** The newest replaces what was there. */
  show(/** @type {News} */ news) {
    this.clear();
    const parts = this.parts(news);
    const close = make('button', { type: 'button', className: 'quiet chip-close', textContent: '×', ariaLabel: texts.closePanel,
      onclick: () => this.clear() });
    this.place.replaceChildren(make('div', { className: 'chip', dataset: { kind: news.kind } }, ...parts, close));
    const brief = ['copied', 'sent', 'filesSent', 'nothing'].includes(news.kind);
    if (brief) this.timer = setTimeout(() => this.clear(), SHORT_MS);
  }

  clear() {
    clearTimeout(this.timer);
    for (const { src } of this.place.querySelectorAll('img')) URL.revokeObjectURL(src);
    this.place.replaceChildren();
  }

  /** @private @returns {Node[]} */
  parts(/** @type {News} */ news) {
    const say = (/** @type {string} */ text) => make('span', { className: 'chip-text' }, text);
    switch (news.kind) {
      case 'text': return [say(texts.clipText), this.copyButton()];
      case 'image': return [make('img', { src: URL.createObjectURL(news.png), alt: '' }), say(texts.clipImage), this.copyButton(),
        button(texts.save, () => save(news.png, `${texts.clipImageName}.png`))];
      case 'files': return [this.fileList(news.files)];
      case 'filesSent': return [say(texts.clipFilesSent(news.count))];
      case 'filesTooLarge': return [say(texts.clipFilesTooLarge), button(texts.upload, () => {
        this.clear();
        this.upload(news.files);
      })];
      default: return [say(texts.clipNews[news.kind])];
    }
  }

  /** @private */
  copyButton() {
    return button(texts.copy, () => this.take(), 'primary');
  }

  /** @private @param {import('./clip_payload.js').ClipFile[]} files */
  fileList(files) {
    const fetch = (/** @type {{name: string, bytes: Uint8Array}} */ { name, bytes }) =>
      save(new Blob([/** @type {BlobPart} */ (bytes)]), visible(name));
    const rows = files.map((file) => make('li', {}, make('bdi', {}, visible(file.name)),
      make('span', { className: 'muted' }, this.numbers.size(file.bytes.length)), button(texts.save, () => fetch(file), 'quiet')));
    return make('div', { className: 'chip-files' },
      make('div', { className: 'chip-head' }, make('span', { className: 'chip-text' }, texts.clipFiles(files.length)),
        ...(files.length > 1 ? [button(texts.saveAll, () => files.forEach(fetch), 'primary')] : [])),
      make('ul', {}, ...rows));
  }
}

function button(/** @type {string} */ text, /** @type {() => void} */ act, className = '') {
  return make('button', { type: 'button', className, onclick: act }, text);
}
