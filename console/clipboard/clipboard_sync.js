// Synchronises this computer's clipboard with the machine's, without sending back what was just received.
// Uses the browser's clipboard, but no elements of the page.
import { windowsName } from '../base/paths.js';
import { MAX_SENT_PAYLOAD } from '../link/envelope.js';
import { filesPayloadSize, packFiles, packImage, packText, parseClip } from './payload.js';

const PNG = 'image/png';

/** @typedef {import('../base/dropped.js').DroppedFile} DroppedFile */
/** @typedef {import('./payload.js').ClipFile} ClipFile */
/** @typedef {Uint8Array<ArrayBuffer>} Bytes */
/**
 * A result that the page shows.
 * @typedef {{kind: 'copied' | 'sent' | 'tooLarge' | 'unreadable' | 'nothing'}
 *   | {kind: 'text', text: string} | {kind: 'image', png: Blob} | {kind: 'files', files: ClipFile[]}
 *   | {kind: 'filesSent', count: number} | {kind: 'filesTooLarge', files: DroppedFile[]}} Notice
 */

export class ClipboardSync {
  #send;
  #notify;
  #clipboard;
  #crlf;
  /** The content of both clipboards: a text with LF line ends, or the digest of a picture; '' if unknown. */
  #shared = '';
  /** @type {{text: string} | {png: Blob} | null} content of the machine that is not yet on this clipboard */
  #waiting = null;
  #received = 0;

  /**
   * @param {object} parts
   * @param {(payload: Uint8Array) => void} parts.send
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

  /** Whether content from the machine waits to be written to this clipboard. */
  get isWaiting() {
    return this.#waiting !== null;
  }

  /** Handles a clipboard message of the machine. */
  async receive(/** @type {Bytes} */ payload) {
    const clip = parseClip(payload);
    const turn = ++this.#received;
    if (!clip) return;
    if (clip.kind === 'files') {
      if (clip.files.length) this.#notify(clip);
      return;
    }
    if (clip.kind === 'text') {
      this.#waiting = { text: this.#crlf ? clip.text : clip.text.replaceAll('\r\n', '\n') };
    } else {
      const png = new Blob([clip.png], { type: PNG });
      // A picture that the browser cannot decode is dropped, because its clipboard would never accept it.
      if (!(await isReadable(png)) || turn !== this.#received) return;
      this.#waiting = { png };
    }
    await this.copyWaiting();
  }

  /** Writes the waiting content to this clipboard. If the browser refuses, a notice offers the content. */
  async copyWaiting() {
    const waiting = this.#waiting;
    if (!waiting) return;
    try {
      if ('text' in waiting) {
        await this.#clipboard.writeText(waiting.text);
        this.#shared = withLf(waiting.text);
      } else {
        await this.#clipboard.write([new ClipboardItem({ [PNG]: waiting.png })]);
        await this.#rememberPicture();
      }
    } catch {
      this.#notify(
        'text' in waiting ? { kind: 'text', text: waiting.text } : { kind: 'image', png: waiting.png },
      );
      return;
    }
    if (this.#waiting === waiting) this.#waiting = null;
    this.#notify({ kind: 'copied' });
  }

  /**
   * Remembers the digest of the picture on this clipboard. It is computed from the picture that is read back,
   * because browsers encode a picture again when they write it.
   */
  async #rememberPicture() {
    try {
      if (!(await mayRead())) return;
      const png = await pictureIn(await this.#clipboard.read());
      if (png) this.#shared = await digest(png);
    } catch {
      // Without a digest the picture may be sent back once, which is harmless.
    }
  }

  /**
   * Sends the content of this computer's clipboard if it is new.
   * @param {boolean} asked true after a click: the content is sent even if it is not new, and a failure is
   *   shown
   */
  async sendLocal(asked) {
    if (!asked && (this.#waiting || !(await mayRead()))) return;
    try {
      const items = await this.#clipboard.read();
      const text = await textIn(items);
      const png = text === null ? await pictureIn(items) : null;
      if (asked) this.#shared = '';
      if (text !== null) this.sendText(text);
      else if (png) await this.sendPicture(png);
      else if (asked) this.#notify({ kind: 'nothing' });
      if (asked && this.#shared) this.#notify({ kind: 'sent' });
    } catch {
      if (asked) this.#notify({ kind: 'unreadable' });
    }
  }

  /** @returns {boolean} whether the text was sent; an empty or unchanged text is not sent */
  sendText(/** @type {string} */ text) {
    const shared = withLf(text);
    if (!shared || shared === this.#shared) return false;
    const payload = packText(shared.replaceAll('\n', '\r\n'));
    if (!this.#sendPayload(payload)) return false;
    this.#shared = shared;
    return true;
  }

  /**
   * @param {Bytes} png @returns {Promise<boolean>} false when the picture is unchanged or too large to send
   */
  async sendPicture(png) {
    const shared = await digest(png);
    if (shared === this.#shared || !this.#sendPayload(packImage(png))) return false;
    this.#shared = shared;
    return true;
  }

  /** Sends files with their content if they fit into one message; else a notice offers an upload. */
  async sendFiles(/** @type {DroppedFile[]} */ dropped) {
    if (!dropped.length) return;
    const named = dropped.map(({ file }) => ({ name: windowsName(file.name), size: file.size }));
    if (dropped.some(({ path }) => path) || filesPayloadSize(named) > MAX_SENT_PAYLOAD) {
      this.#notify({ kind: 'filesTooLarge', files: dropped });
      return;
    }
    try {
      const contents = await Promise.all(dropped.map(({ file }) => file.arrayBuffer()));
      const files = contents.map((bytes, i) => ({ name: named[i].name, bytes: new Uint8Array(bytes) }));
      if (!this.#sendPayload(packFiles(files))) return;
      this.#shared = '';
      this.#notify({ kind: 'filesSent', count: files.length });
    } catch {
      this.#notify({ kind: 'unreadable' });
    }
  }

  /** Discards remembered and waiting clipboard content. To be called before a session with another machine. */
  reset() {
    this.#shared = '';
    this.#waiting = null;
  }

  #sendPayload(/** @type {Uint8Array} */ payload) {
    if (payload.length > MAX_SENT_PAYLOAD) {
      this.#notify({ kind: 'tooLarge' });
      return false;
    }
    this.#waiting = null;
    this.#send(payload);
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
