// One clipboard out of two: what goes to the machine and what comes from it, without an echo. It knows nothing of the
// page but the browser's clipboard.

import { windowsName } from '../base/paths.js';
import { MAX_SENT_PAYLOAD } from '../link/envelope.js';
import { filesPayloadSize, packFiles, packImage, packText, parseClip } from './payload.js';

const PNG = 'image/png';

/** @typedef {{file: File, path: string}} Dropped */
/**
 * What became of something, for the page to tell.
 * @typedef {{kind: 'copied' | 'sent' | 'tooLarge' | 'unreadable' | 'nothing'}
 *   | {kind: 'text', text: string} | {kind: 'image', png: Blob} | {kind: 'files', files: import('./payload.js').ClipFile[]}
 *   | {kind: 'filesSent', count: number} | {kind: 'filesTooLarge', files: Dropped[]}} News
 */

export class ClipboardShare {
  /**
   * @param {{send: (payload: Uint8Array) => void, tell: (news: News) => void, clipboard: Clipboard, crlf: boolean}} road
   *   crlf: whether this computer ends lines as the machine does
   */
  constructor({ send, tell, clipboard, crlf }) {
    this.send = send;
    this.tell = tell;
    this.clipboard = clipboard;
    this.crlf = crlf;
    /** What both clipboards hold: a text with plain line ends, or the digest of a picture. */
    this.shared = '';
    /** @type {{text: string} | {png: Blob} | null} of the machine, not yet in this clipboard */
    this.waiting = null;
    this.received = 0;
  }

  /** A clipboard message of the machine. */
  async receive(/** @type {Uint8Array} */ payload) {
    const clip = parseClip(payload);
    const turn = ++this.received;
    if (clip?.kind === 'files') {
      if (clip.files.length) this.tell(clip);
      return;
    }
    if (clip?.kind === 'text')
      this.waiting = { text: this.crlf ? clip.text : clip.text.replaceAll('\r\n', '\n') };
    else if (clip?.kind === 'image') {
      const png = new Blob([/** @type {BlobPart} */ (clip.png)], { type: PNG });
      // A picture that no browser can read would be refused with every click anew.
      const picture = await createImageBitmap(png).catch(() => null);
      if (!picture) return;
      picture.close();
      // Something newer came while it was looked at.
      if (turn !== this.received) return;
      this.waiting = { png };
    } else return;
    await this.take();
  }

  /** Puts what waits into this clipboard, where the browser lets it; else the page offers it. */
  async take() {
    const { waiting } = this;
    if (!waiting) return;
    try {
      if ('text' in waiting) {
        await this.clipboard.writeText(waiting.text);
        this.shared = plain(waiting.text);
      } else {
        await this.clipboard.write([new ClipboardItem({ [PNG]: waiting.png })]);
        await this.rememberPicture();
      }
    } catch {
      this.tell(
        'text' in waiting ? { kind: 'text', text: waiting.text } : { kind: 'image', png: waiting.png },
      );
      return;
    }
    if (this.waiting === waiting) this.waiting = null;
    this.tell({ kind: 'copied' });
  }

  /** @private The browser writes pictures in its own way, so what it made of this one is looked at. */
  async rememberPicture() {
    try {
      if (!(await mayRead())) return;
      const png = await pictureIn(await this.clipboard.read());
      if (png) this.shared = await digest(png);
    } catch {
      // Then it may go back once, which does no harm.
    }
  }

  /**
   * Sends what this computer's clipboard holds, if it is new.
   * @param {boolean} asked by a click: then it goes in any case, and a failure is told
   */
  async sendLocal(asked) {
    if (!asked && (this.waiting || !(await mayRead()))) return;
    try {
      const items = await this.clipboard.read();
      const text = await textIn(items);
      const png = text === null ? await pictureIn(items) : null;
      if (asked) this.shared = '';
      if (text !== null) this.sendText(text);
      else if (png) await this.sendPicture(png);
      else if (asked) this.tell({ kind: 'nothing' });
      if (asked && this.shared) this.tell({ kind: 'sent' });
    } catch {
      if (asked) this.tell({ kind: 'unreadable' });
    }
  }

  /** @returns {boolean} whether it was sent: an unchanged one is not */
  sendText(/** @type {string} */ text) {
    const shared = plain(text);
    if (!shared || shared === this.shared) return false;
    const payload = packText(shared.replaceAll('\n', '\r\n'));
    if (!this.sendPayload(payload)) return false;
    this.shared = shared;
    return true;
  }

  /** @param {Uint8Array} png @returns {Promise<boolean>} */
  async sendPicture(png) {
    const shared = await digest(png);
    if (shared === this.shared || !this.sendPayload(packImage(png))) return false;
    this.shared = shared;
    return true;
  }

  /** Files by value where they fit into one message; else the page offers an upload. @param {Dropped[]} dropped */
  async sendFiles(dropped) {
    if (!dropped.length) return;
    const named = dropped.map(({ file }) => ({ name: windowsName(file.name), size: file.size }));
    if (dropped.some(({ path }) => path) || filesPayloadSize(named) > MAX_SENT_PAYLOAD) {
      this.tell({ kind: 'filesTooLarge', files: dropped });
      return;
    }
    try {
      const files = await Promise.all(
        dropped.map(async ({ file }, i) => ({
          name: named[i].name,
          bytes: new Uint8Array(await file.arrayBuffer()),
        })),
      );
      if (!this.sendPayload(packFiles(files))) return;
      this.shared = '';
      this.tell({ kind: 'filesSent', count: files.length });
    } catch {
      this.tell({ kind: 'unreadable' });
    }
  }

  /** Another machine has another clipboard. */
  reset() {
    this.shared = '';
    this.waiting = null;
  }

  /** @private */
  sendPayload(/** @type {Uint8Array} */ payload) {
    if (payload.length > MAX_SENT_PAYLOAD) {
      this.tell({ kind: 'tooLarge' });
      return false;
    }
    this.waiting = null;
    this.send(payload);
    return true;
  }
}

/** With one kind of line ends, so that texts can be compared. */
function plain(/** @type {string} */ text) {
  return text.replaceAll('\r\n', '\n');
}

/** Whether the browser lets the clipboard be read without a click. Not every browser has such a permission. */
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

async function textIn(/** @type {ClipboardItem[]} */ items) {
  const item = items.find(({ types }) => types.includes('text/plain'));
  return item ? (await item.getType('text/plain')).text() : null;
}

async function pictureIn(/** @type {ClipboardItem[]} */ items) {
  const item = items.find(({ types }) => types.includes(PNG));
  return item ? new Uint8Array(await (await item.getType(PNG)).arrayBuffer()) : null;
}

async function digest(/** @type {Uint8Array} */ bytes) {
  const hash = new Uint8Array(await crypto.subtle.digest('SHA-256', /** @type {BufferSource} */ (bytes)));
  return [...hash].map((byte) => byte.toString(16).padStart(2, '0')).join('');
}
