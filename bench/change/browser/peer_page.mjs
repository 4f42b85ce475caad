// A page that shows a program's screen by the distribution's noVNC, and the bridge from its WebSocket to the program.
import { readFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { connect } from 'node:net';
import { join, normalize } from 'node:path';
import { until } from '../../../tests/console/support/waiting.mjs';
import { WebSocketServer } from '../../../tests/console/support/scripted_agent.mjs';

const LIBRARY = '/usr/share/novnc';
export const PEER_CANVAS = '#screen canvas';
const PAGE = `<!doctype html><title>noVNC</title><div id="screen" style="width: 1280px; height: 720px"></div>
<script type="module">
  import RFB from '/core/rfb.js';
  globalThis.rfb = new RFB(document.getElementById('screen'), 'ws://' + location.host);
</script>`;

/** Waits until the program listens. @param {number} port */
async function listening(port) {
  await until(`a program listens on port ${port}`, () => {
    const socket = connect(port, '127.0.0.1');
    return new Promise((done) => {
      socket.on('connect', () => done(true)).on('error', () => done(false));
    }).finally(() => socket.destroy());
  });
}

/**
 * Serves the page and the bridge on a free port of loopback.
 * @param {number} target the program's port
 * @returns {Promise<{url: string, close: () => void}>}
 */
export async function servePeer(target) {
  await listening(target);
  const server = createServer(({ url = '/' }, answer) => {
    if (url === '/') {
      answer.setHeader('Content-Type', 'text/html').end(PAGE);
      return;
    }
    try {
      const file = readFileSync(join(LIBRARY, normalize(url)));
      answer.setHeader('Content-Type', 'text/javascript').end(file);
    } catch {
      answer.writeHead(404).end();
    }
  });
  new WebSocketServer({ server, perMessageDeflate: false }).on('connection', (socket) => {
    const program = connect(target, '127.0.0.1').setNoDelay();
    program.on('data', (bytes) => socket.send(bytes));
    program.on('error', () => socket.close()).on('close', () => socket.close());
    socket.on('message', (/** @type {Buffer} */ bytes) => program.write(bytes));
    socket.on('close', () => program.destroy());
  });
  await new Promise((done) => server.listen(0, '127.0.0.1', () => done(undefined)));
  const address = /** @type {import('node:net').AddressInfo} */ (server.address());
  return { url: `http://localhost:${address.port}/`, close: () => server.close() };
}
