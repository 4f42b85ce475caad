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

/** As KEEP_SOCKETS; keeps the control messages that the page sends in `window.sent` too, as JSON text. */
export const KEEP_SENT = `${KEEP_SOCKETS}
  window.sent = [];
  {
    const { send } = WebSocket.prototype;
    WebSocket.prototype.send = function (data) {
      if (typeof data === 'string') window.sent.push(data);
      send.call(this, data);
    };
  }`;

/** Ends the link of a page that runs KEEP_SOCKETS, and keeps the page from a new one until the returned call. */
export async function cutOff(/** @type {import('playwright-core').Page} */ p) {
  await p.context().setOffline(true);
  await p.evaluate(() => window.sockets.at(-1)?.close());
  return () => p.context().setOffline(false);
}

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
