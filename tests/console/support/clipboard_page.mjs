// The page of a session, for tests of the clipboard: the clipboards of both sides, and Ctrl+V.
import { parseClip } from '../../../console/clipboard/payload.js';
import { AgentMsg } from './scripted_agent.mjs';

export const GRANTED = { page: { permissions: ['clipboard-read', 'clipboard-write'] } };
/** A browser that writes its clipboard only at a click, and lets no script read it. */
export const STRICT = {
  page: {
    // Pages that are not secure, such as the empty page before the console, have no clipboard.
    script: `if (window.Clipboard) {
  Clipboard.prototype.writeText = async function (text) {
    if (window.event?.type !== 'click') throw new DOMException('no', 'NotAllowedError');
    window.written = text;
  };
  Clipboard.prototype.read = async () => { throw new DOMException('no', 'NotAllowedError'); };
  Permissions.prototype.query = async () => { throw new TypeError('unknown'); };
}`,
  },
};

/** @typedef {import('playwright-core').Page} Page */
/** @typedef {import('../support/scripted_agent.mjs').ScriptedAgent} ScriptedAgent */
/** @typedef {import('../../../console/clipboard/payload.js').ClipFile} ClipFile */

export const fromMachine = (/** @type {ScriptedAgent} */ agent, /** @type {Uint8Array} */ payload) =>
  agent.send(AgentMsg.ClipboardData, agent.session, payload);
/** The next clipboard content that the machine receives; only the property of its kind is set. */
export const clip = async (/** @type {ScriptedAgent} */ agent) =>
  /** @type {{kind: string, text: string, png: Uint8Array, files: ClipFile[]}} */ (
    /** @type {unknown} */ (parseClip((await agent.next(AgentMsg.ClipboardData)).payload))
  );
/** This computer's clipboard. */
export const local = {
  text: (/** @type {Page} */ p) => p.evaluate(() => navigator.clipboard.readText()),
  setText: (/** @type {Page} */ p, /** @type {string} */ text) =>
    p.evaluate((value) => navigator.clipboard.writeText(value), text),
};
export const notice = (/** @type {Page} */ p, /** @type {string} */ kind) =>
  p.locator(`.clip-notice[data-kind=${kind}]`);
export const refocus = (/** @type {Page} */ p) => p.evaluate(() => dispatchEvent(new Event('focus')));

/**
 * Ctrl+V as the keyboard sends it, with the content that the browser would paste.
 * @param {Page} p
 * @param {string} script fills `data`, a DataTransfer
 */
export async function pasteOn(p, script) {
  await p.locator('#key-input').evaluate((keyInput, source) => {
    const clipboardData = new DataTransfer();
    new Function('data', source)(clipboardData);
    keyInput.focus();
    const options = { bubbles: true, cancelable: true };
    const keyOptions = { key: 'v', code: 'KeyV', ctrlKey: true, ...options };
    keyInput.dispatchEvent(new KeyboardEvent('keydown', keyOptions));
    const paste = new ClipboardEvent('paste', options);
    // Firefox leaves out the content when it is given to the constructor.
    Object.defineProperty(paste, 'clipboardData', { value: clipboardData });
    keyInput.dispatchEvent(paste);
    keyInput.dispatchEvent(new KeyboardEvent('keyup', keyOptions));
  }, script);
}
