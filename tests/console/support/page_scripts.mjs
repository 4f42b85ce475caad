// Scripts in the page: shorter timers, messages in the relay's name, and files that are read later.

/** Shortens a timer of the page, so that a test need not wait for it. */
export const shortTimer = (/** @type {number} */ milliseconds) => `{
  const wait = setTimeout;
  window.setTimeout = (act, ms) => wait(act, ms === ${milliseconds} ? 300 : ms);
}`;

/** Keeps the page's WebSockets in `window.sockets`, oldest first. */
export const KEEP_SOCKETS = `
  window.sockets = [];
  window.WebSocket = class extends WebSocket {
    constructor(...parts) {
      super(...parts);
      window.sockets.push(this);
    }
  };`;

/** Delivers a control message to a page that runs KEEP_SOCKETS, as the relay would. */
export const deliver = (/** @type {import('playwright-core').Page} */ p, /** @type {object} */ message) =>
  p.evaluate((data) => {
    const socket = window.sockets.at(-1);
    if (!socket) throw new Error('the page has no WebSocket');
    socket.dispatchEvent(new MessageEvent('message', { data }));
  }, JSON.stringify(message));

/** Makes the page's reading of files wait for `window.release()`. */
export const holdFileReads = (/** @type {import('playwright-core').Page} */ p) =>
  p.evaluate(() => {
    const read = Blob.prototype.arrayBuffer;
    window.released = new Promise((release) => {
      window.release = () => release(undefined);
    });
    Blob.prototype.arrayBuffer = async function held() {
      await window.released;
      return read.call(this);
    };
  });
