// Requests for listings in a session that is interrupted, without a browser.
import assert from 'node:assert/strict';
import test from 'node:test';
import { FolderRequests } from '../../../console/files/folder_requests.js';

/** Requests in an open session, and the paths that were sent. */
function makeRequests() {
  const state = { isOpen: true, sent: /** @type {string[]} */ ([]) };
  const folders = new FolderRequests((path) => {
    if (state.isOpen) state.sent.push(path);
    return state.isOpen;
  });
  const interrupt = () => {
    state.isOpen = false;
    folders.suspend();
    state.sent = [];
  };
  const goOn = () => {
    state.isOpen = true;
    folders.opened();
  };
  const answer = (/** @type {string} */ path) =>
    folders.receive(new TextEncoder().encode(JSON.stringify({ path, parent: '', entries: [] })));
  return { folders, state, interrupt, goOn, answer };
}

test('a lasting request is sent again after an interruption, and another one is rejected by it', async () => {
  const { folders, state, interrupt, goOn, answer } = makeRequests();
  const lasting = folders.list('C:\\a', { lasting: true });
  const other = folders.list('C:\\b');
  interrupt();
  await assert.rejects(other, /sessionOver/);
  await assert.rejects(folders.list('C:\\c'), /sessionOver/);
  const later = folders.list('C:\\d', { lasting: true });
  assert.deepEqual(state.sent, []);
  goOn();
  assert.deepEqual(state.sent, ['C:\\a', 'C:\\d']);
  for (const path of state.sent) answer(path);
  assert.equal((await lasting).path, 'C:\\a');
  assert.equal((await later).path, 'C:\\d');
});

test('the end of a session rejects lasting requests too, and later ones at once', async () => {
  const { folders, interrupt } = makeRequests();
  const lasting = folders.list('C:\\a', { lasting: true });
  interrupt();
  folders.sessionOver();
  await assert.rejects(lasting, /sessionOver/);
  await assert.rejects(folders.list('C:\\b', { lasting: true }), /sessionOver/);
});

test('the start of a session repeats nothing', () => {
  const { folders, state, goOn } = makeRequests();
  folders.list('C:\\a', { lasting: true });
  goOn();
  assert.deepEqual(state.sent, ['C:\\a']);
});
