// The line between an agent and the relay: a TCP proxy that can be cut, held or made to swallow what passes.
import { connect, createServer } from 'node:net';

/** @typedef {import('node:net').Socket} Socket */

export class LineProxy {
  /** @type {Set<Socket>} both ends of each connection */
  #sockets = new Set();
  #held = false;
  #swallows = false;
  #server;

  /** @param {() => number} target the port that is connected to on each connection */
  constructor(target) {
    this.#server = createServer((near) => {
      this.#join(near, connect(target(), '127.0.0.1'));
    });
  }

  /** @param {() => number} target */
  static async listening(target) {
    const proxy = new LineProxy(target);
    await new Promise((done) => proxy.#server.listen(0, '127.0.0.1', () => done(null)));
    return proxy;
  }

  get port() {
    const address = this.#server.address();
    return address && typeof address === 'object' ? address.port : 0;
  }

  /** Ends all connections without notice to either end that more was on its way. */
  cut() {
    for (const socket of this.#sockets) socket.destroy();
  }

  /** Lets nothing pass until release(). What arrives meanwhile waits. */
  hold() {
    this.#held = true;
    for (const socket of this.#sockets) socket.pause();
  }

  release() {
    this.#held = false;
    for (const socket of this.#sockets) socket.resume();
  }

  /** Loses everything until mend(), as a line does whose two ends have not noticed. */
  swallow() {
    this.#swallows = true;
  }

  /** Ends the connections, which cannot go on, and lets new ones pass. */
  mend() {
    this.#swallows = false;
    this.cut();
  }

  close() {
    this.#server.close();
    this.cut();
  }

  #join(/** @type {Socket} */ near, /** @type {Socket} */ far) {
    this.#carry(near, far);
    this.#carry(far, near);
  }

  #carry(/** @type {Socket} */ from, /** @type {Socket} */ to) {
    this.#sockets.add(from);
    from.setNoDelay(true);
    if (this.#held) from.pause();
    from.on('data', (bytes) => {
      if (this.#swallows || to.destroyed || to.write(bytes)) return;
      from.pause();
      to.once('drain', () => this.#held || from.resume());
    });
    from.on('end', () => this.#swallows || to.end());
    from.on('error', () => from.destroy());
    from.on('close', () => {
      this.#sockets.delete(from);
      // An end that is lost while the line swallows is not noticed at the other end.
      if (!this.#swallows) to.destroy();
    });
  }
}
