// Synchronises this computer's clipboard with the machine's, without sending back what was just received.
// Uses the browser's clipboard, but no elements of the page.
import { windowsName } from '../base/paths.js';
import { MAX_SENT_PAYLOAD } from '../link/envelope.js';
import { filesPayloadSize, packFiles, packImage, packText, parseClip } from './payload.js';

const PNG = 'image/png';
/**
 * A text whose payload has at most this many bytes is sent at each Ctrl+V, because the machine's clipboard
 * may have changed without a message. A larger content is sent only if it is new, because sending takes time.
 */
const ALWAYS_SENT_BYTES = 64 * 1024;

/** @typedef {import('../base/dropped.js').DroppedFile} DroppedFile */
/** @typedef {import('./payload.js').ClipFile} ClipFile */
/** @typedef {Uint8Array<ArrayBuffer>} Bytes */
/**
 * A text or picture of the machine that this page can write to this clipboard.
 * @typedef {{kind: 'text', text: string} | {kind: 'image', png: Blob}} Offer
 */
/**
 * A result that the page shows.
 * @typedef {{kind: 'copied' | 'sent' | 'tooLarge' | 'unreadable' | 'nothing' | 'viewOnly' | 'machineTooLarge'}
 *   | Offer | {kind: 'files', files: ClipFile[]}
 *   | {kind: 'filesSent', count: number} | {kind: 'filesTooLarge', files: DroppedFile[]}} Notice
 */
/**
 * Content read from this clipboard. id: the text with LF line ends, or the digest of the picture; '' if there
 * is neither.
 * @typedef {{id: string, text: string | null, png: Bytes | null}} Content
 */

export class ClipboardSync {
  #send;
  #notify;
  #clipboard;
  #crlf;
  /** The id of the machine's content, as far as it is known; '' otherwise. */
  #there = '';
  /** The id of this clipboard's content when it was last read or written; '' if unknown. */
  #here = '';
  /** @type {Offer | null} the machine's newest content, while it is not yet on this clipboard */
  #waiting = null;
  /** Counts the received messages and the sessions, to detect that either has changed meanwhile. */
  #received = 0;
  #session = 0;

  /**
   * @param {object} parts
   * @param {(payload: Uint8Array) => boolean} parts.send returns false when nothing may be sent
   * @param {(notice: Notice) => void} parts.notify
   * @param {Clipboard} parts.clipboard
   * @param {boolean} parts.crlf whether this computer ends lines as Windows does
   */
  constructor({ send, notify, clipboard, crlf }) {
    this.#send = send;
    this.#notify = notify;
    this.#clipboard = clipboard;
    this.#crlf = crlf;
  }

  /** Handles a clipboard message of the machine. */
  async receive(/** @type {Bytes} */ payload) {
    this.machineChanged();
    const clip = parseClip(payload);
    if (!clip) return;
    if (clip.kind === 'files') {
      if (clip.files.length) this.#notify(clip);
      return;
    }
    /** @type {Offer} */
    let offer;
    if (clip.kind === 'text') {
      offer = { kind: 'text', text: this.#crlf ? clip.text : clip.text.replaceAll('\r\n', '\n') };
    } else {
      offer = { kind: 'image', png: new Blob([clip.png], { type: PNG }) };
      const turn = this.#received;
      // A picture that the browser cannot decode is dropped, because its clipboard would never accept it.
      if (!(await isReadable(offer.png)) || turn !== this.#received) return;
    }
    this.#waiting = offer;
    await this.copy(offer);
  }

  /** Handles a change of the machine's clipboard whose content is not known. */
  machineChanged() {
    this.#received += 1;
    this.#there = '';
    this.#waiting = null;
  }

  /** Writes an offer to this clipboard. If the browser refuses, a notice shows the offer. */
  async copy(/** @type {Offer} */ offer) {
    const turn = this.#received;
    let id = '';
    try {
      if (offer.kind === 'text') {
        await this.#clipboard.writeText(offer.text);
        id = withLf(offer.text);
      } else {
        await this.#clipboard.write([new ClipboardItem({ [PNG]: offer.png })]);
        // Browsers encode a picture again when they write it, so it is read back. A picture without an id
        // may be sent back once, which is harmless.
        if (await mayRead()) ({ id } = await this.#read().catch(() => ({ id: '' })));
      }
    } catch {
      if (turn === this.#received) this.#notify(offer);
      return;
    }
    this.#here = id;
    if (this.#waiting === offer) {
      this.#waiting = null;
      this.#there = id;
    }
    if (turn === this.#received) this.#notify({ kind: 'copied' });
  }

  /** Handles that the representative has refused an offer. */
  refuse(/** @type {Notice} */ offer) {
    if (this.#waiting === offer) this.#waiting = null;
  }

  /**
   * Handles the return of the focus to the page: brings what was copied on one side to the other, if the
   * browser allows to look.
   * @param {boolean} maySend
   */
  async focused(maySend) {
    if (!(await mayRead())) return;
    const waiting = this.#waiting;
    const content = await this.#read().catch(() => null);
    if (!content || waiting !== this.#waiting) return;
    const changed = !content.id || content.id !== this.#here;
    if (waiting) {
      // Content that was copied here in the meantime may be newer than the machine's.
      if (!changed) await this.copy(waiting);
      return;
    }
    if (maySend && changed && content.id !== this.#there) await this.#sendContent(content);
  }

  /** Sends this clipboard after a click, even if its content is not new. A failure is shown. */
  async sendNow() {
    const session = this.#session;
    const content = await this.#read().catch(() => null);
    if (session !== this.#session) return;
    this.#there = '';
    if (!content) this.#notify({ kind: 'unreadable' });
    else if (!content.id) this.#notify({ kind: 'nothing' });
    else if (await this.#sendContent(content)) this.#notify({ kind: 'sent' });
  }

  /** Whether this clipboard's content, of which the text is given, was there before as far as is known. */
  isUnchanged(/** @type {string} */ text) {
    return this.#here === '' || this.#here === withLf(text);
  }

  /** @returns {boolean} whether the text was sent; an empty text and an unchanged large text are not sent */
  sendText(/** @type {string} */ text) {
    const id = withLf(text);
    this.#here = id;
    if (!id) return false;
    const payload = packText(id.replaceAll('\n', '\r\n'));
    if (payload.length > ALWAYS_SENT_BYTES && id === this.#there) return false;
    return this.#sendPayload(payload, id);
  }

  /**
   * @param {Bytes} png @returns {Promise<boolean>} false when the picture is unchanged or cannot be sent
   */
  async sendPicture(png) {
    const session = this.#session;
    const id = await digest(png);
    this.#here = id;
    return session === this.#session && id !== this.#there && this.#sendPayload(packImage(png), id);
  }

  /**
   * Sends files with their content if they fit into one message; else a notice offers an upload.
   * @returns {Promise<boolean>} whether the files were sent
   */
  async sendFiles(/** @type {DroppedFile[]} */ dropped) {
    if (!dropped.length) return false;
    const named = dropped.map(({ file }) => ({ name: windowsName(file.name), size: file.size }));
    if (dropped.some(({ path }) => path) || filesPayloadSize(named) > MAX_SENT_PAYLOAD) {
      this.#notify({ kind: 'filesTooLarge', files: dropped });
      return false;
    }
    const session = this.#session;
    try {
      const contents = await Promise.all(dropped.map(({ file }) => file.arrayBuffer()));
      const files = contents.map((bytes, i) => ({ name: named[i].name, bytes: new Uint8Array(bytes) }));
      if (session !== this.#session || !this.#sendPayload(packFiles(files), '')) return false;
      this.#notify({ kind: 'filesSent', count: files.length });
      return true;
    } catch {
      this.#notify({ kind: 'unreadable' });
      return false;
    }
  }

  /** Forgets what concerns a session. To be called at its end. */
  sessionOver() {
    this.#session += 1;
    this.machineChanged();
  }

  /** Forgets this clipboard too, so that it is sent to another machine although it has not changed. */
  reset() {
    this.#here = '';
  }

  /** @returns {Promise<Content>} rejected when the browser refuses */
  async #read() {
    const items = await this.#clipboard.read();
    const text = await textIn(items);
    const png = text === null ? await pictureIn(items) : null;
    return { id: text !== null ? withLf(text) : png ? await digest(png) : '', text, png };
  }

  async #sendContent(/** @type {Content} */ { text, png }) {
    if (text !== null) return this.sendText(text);
    return png !== null && this.sendPicture(png);
  }

  /** @param {Uint8Array} payload @param {string} id */
  #sendPayload(payload, id) {
    if (payload.length > MAX_SENT_PAYLOAD) {
      this.#notify({ kind: 'tooLarge' });
      return false;
    }
    if (!this.#send(payload)) return false;
    this.#waiting = null;
    this.#there = id;
    return true;
  }
}

/** The text with LF line ends, so that texts can be compared. */
function withLf(/** @type {string} */ text) {
  return text.replaceAll('\r\n', '\n');
}

/**
 * Whether the browser lets a script read the clipboard without a click. The answer is false in browsers that
 * do not have such a permission.
 */
async function mayRead() {
  try {
    const { state } = await navigator.permissions.query({
      name: /** @type {PermissionName} */ ('clipboard-read'),
    });
    return state === 'granted' && document.hasFocus();
  } catch {
    return false;
  }
}

async function isReadable(/** @type {Blob} */ png) {
  const picture = await createImageBitmap(png).catch(() => null);
  picture?.close();
  return picture !== null;
}

async function textIn(/** @type {ClipboardItem[]} */ items) {
  const item = items.find(({ types }) => types.includes('text/plain'));
  return item ? (await item.getType('text/plain')).text() : null;
}

async function pictureIn(/** @type {ClipboardItem[]} */ items) {
  const item = items.find(({ types }) => types.includes(PNG));
  return item ? new Uint8Array(await (await item.getType(PNG)).arrayBuffer()) : null;
}

async function digest(/** @type {Bytes} */ bytes) {
  const hash = new Uint8Array(await crypto.subtle.digest('SHA-256', bytes));
  return [...hash].map((byte) => byte.toString(16).padStart(2, '0')).join('');
}
