// Scripts that a test runs in the page before the console's own: shorter timers, and messages in the relay's name.

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
