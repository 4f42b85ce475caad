// The notices over the picture that say what happened to the clipboards and offer actions that need a click.
import { make } from '../base/dom.js';
import { visible } from '../base/names.js';
import { saveFile } from '../base/save_file.js';
import { texts } from '../base/texts.js';

const BRIEF_MS = 4000;
/** Outgoing notices: those about sending this computer's clipboard to the machine. */
const OUTGOING = new Set([
  'sent',
  'filesSent',
  'filesTooLarge',
  'tooLarge',
  'unreadable',
  'nothing',
  'viewOnly',
]);
/** Notices that disappear by themselves. */
const BRIEF = new Set(['copied', 'sent', 'filesSent', 'nothing', 'viewOnly']);

/** @typedef {import('./clipboard_sync.js').Notice} Notice */
/** @typedef {import('./clipboard_sync.js').Offer} Offer */
/** @typedef {import('./payload.js').ClipFile} ClipFile */

export class ClipboardNotice {
  #place;
  #copy;
  #refuse;
  #upload;
  #focusPicture;
  #formats;

  /**
   * @param {HTMLElement} place
   * @param {object} parts
   * @param {(offer: Offer) => void} parts.copy writes the machine's text or picture to this clipboard; called
   *   within a click
   * @param {(notice: Notice) => void} parts.refuse called when the representative closes a notice
   * @param {(files: import('../base/dropped.js').DroppedFile[]) => void} parts.upload
   * @param {() => void} parts.focusPicture
   * @param {import('../base/formats.js').Formats} parts.formats
   */
  constructor(place, { copy, refuse, upload, focusPicture, formats }) {
    this.#place = place;
    this.#copy = copy;
    this.#refuse = refuse;
    this.#upload = upload;
    this.#focusPicture = focusPicture;
    this.#formats = formats;
  }

  /**
   * Shows a notice. An outgoing notice replaces only other outgoing notices; any other notice replaces all
   * notices.
   */
  show(/** @type {Notice} */ notice) {
    if (!OUTGOING.has(notice.kind)) this.clear();
    const refuse = () => {
      this.#refuse(notice);
      this.#remove(card);
    };
    const close = make('button', {
      type: 'button',
      className: 'quiet clip-notice-close',
      textContent: '×',
      ariaLabel: texts.closePanel,
      onclick: refuse,
    });
    const properties = { className: 'clip-notice', dataset: { kind: notice.kind } };
    const card = make('div', properties, ...this.#parts(notice), close);
    card.addEventListener('keydown', ({ key }) => key === 'Escape' && refuse());
    for (const before of this.#cards()) if (OUTGOING.has(before.dataset.kind ?? '')) this.#remove(before);
    this.#place.append(card);
    if (BRIEF.has(notice.kind)) this.#removeLater(card);
  }

  clear() {
    for (const card of this.#cards()) this.#remove(card);
  }

  /** Removes a notice, which gives its focus back to the picture. */
  #remove(/** @type {HTMLElement} */ card) {
    const hasFocus = card.contains(document.activeElement);
    for (const { src } of card.querySelectorAll('img')) URL.revokeObjectURL(src);
    card.remove();
    if (hasFocus) this.#focusPicture();
  }

  /** Removes a notice after a while, but not while it has the focus. */
  #removeLater(/** @type {HTMLElement} */ card) {
    setTimeout(() => {
      if (card.contains(document.activeElement)) this.#removeLater(card);
      else this.#remove(card);
    }, BRIEF_MS);
  }

  #cards() {
    return /** @type {HTMLElement[]} */ ([...this.#place.children]);
  }

  /** @returns {Node[]} */
  #parts(/** @type {Notice} */ notice) {
    switch (notice.kind) {
      case 'text':
        return [textSpan(texts.clipText), this.#copyButton(notice)];
      case 'image':
        return this.#imageParts(notice);
      case 'files':
        return [this.#fileList(notice.files)];
      case 'filesSent':
        return [textSpan(texts.clipFilesSent(notice.count))];
      case 'filesTooLarge':
        return [textSpan(texts.clipFilesTooLarge), this.#uploadButton(notice.files)];
      default:
        return [textSpan(texts.clipNotices[notice.kind])];
    }
  }

  #imageParts(/** @type {Offer & {kind: 'image'}} */ offer) {
    const { png } = offer;
    const save = button(texts.save, () => saveFile(png, `${texts.clipImageName}.png`));
    const image = make('img', { src: URL.createObjectURL(png), alt: '' });
    return [image, textSpan(texts.clipImage), this.#copyButton(offer), save];
  }

  #copyButton(/** @type {Offer} */ offer) {
    return button(texts.copy, () => this.#copy(offer), 'primary');
  }

  #uploadButton(/** @type {import('../base/dropped.js').DroppedFile[]} */ files) {
    const upload = () => {
      this.clear();
      this.#upload(files);
    };
    return button(texts.upload, upload);
  }

  #fileList(/** @type {ClipFile[]} */ files) {
    const save = (/** @type {ClipFile} */ { name, bytes }) => saveFile(new Blob([bytes]), visible(name));
    const saveButton = (/** @type {ClipFile} */ file) => {
      const one = button(texts.save, () => save(file), 'quiet');
      one.ariaLabel = `${texts.save} ${visible(file.name)}`;
      return one;
    };
    const rows = files.map((file) =>
      make(
        'li',
        {},
        make('bdi', {}, visible(file.name)),
        make('span', { className: 'muted' }, this.#formats.size(file.bytes.length)),
        saveButton(file),
      ),
    );
    const saveAll = button(texts.saveAll, () => files.forEach(save), 'primary');
    const head = make('div', { className: 'clip-notice-head' }, textSpan(texts.clipFiles(files.length)));
    if (files.length > 1) head.append(saveAll);
    return make('div', { className: 'clip-notice-files' }, head, make('ul', {}, ...rows));
  }
}

function textSpan(/** @type {string} */ text) {
  return make('span', { className: 'clip-notice-text' }, text);
}

function button(/** @type {string} */ text, /** @type {() => void} */ onclick, className = '') {
  return make('button', { type: 'button', className, onclick }, text);
}
