// The largest clipboard that the agent sends: files of 64 MiB together, in one message.
import assert from 'node:assert/strict';
import { createReadStream } from 'node:fs';
import test from 'node:test';
import { packFiles } from '../../../console/clipboard/payload.js';
import { fromMachine, notice } from '../support/clipboard_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';

const shared = fixture();
const FILE_BYTES = 32 * 1024 * 1024;

/** The size of a saved file, whose bytes must all be `value`. */
async function checkedSize(/** @type {string} */ path, /** @type {number} */ value) {
  let size = 0;
  for await (const chunk of createReadStream(path, { highWaterMark: 1 << 20 })) {
    assert.ok(chunk.equals(Buffer.alloc(chunk.length, value)), `bytes before ${size + chunk.length}`);
    size += chunk.length;
  }
  return size;
}

test('two files of 32 MiB each, copied on the machine, arrive and can be saved', async (t) => {
  const { agent, page } = await openSession(t, shared);
  const p = page.page;
  const bytes = (/** @type {number} */ value) => new Uint8Array(FILE_BYTES).fill(value);
  fromMachine(
    agent,
    packFiles([
      { name: 'fyrri.bin', bytes: bytes(1) },
      { name: 'seinni.bin', bytes: bytes(2) },
    ]),
  );
  await notice(p, 'files').waitFor();
  for (const [index, name] of ['fyrri.bin', 'seinni.bin'].entries()) {
    const [download] = await Promise.all([
      p.waitForEvent('download'),
      notice(p, 'files')
        .getByRole('button', { name: `Save ${name}` })
        .click(),
    ]);
    assert.equal(download.suggestedFilename(), name);
    assert.equal(await checkedSize(await download.path(), index + 1), FILE_BYTES);
  }
  const { session } = agent;
  fromMachine(agent, packFiles([{ name: 'þriðja', bytes: new Uint8Array(1) }]));
  await notice(p, 'files').getByText('þriðja').waitFor();
  assert.equal(agent.session, session, 'the session goes on');
});
