// Folders whose listing the relay cannot pass on, or that end the session.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Msg } from '../../../console/link/messages.js';
import { fixture } from '../support/fixture.mjs';
import { deliver, KEEP_SOCKETS } from '../support/page_scripts.mjs';
import { DISK, fileRow, openPanel, openUsers, shows } from '../support/panel_page.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { transferIs, transferText } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

/** @typedef {import('../support/machine_folders.mjs').MachineFolders} MachineFolders */

const shared = fixture();

/** Waits for the next request for a listing, and answers it as the relay does for an oversized listing. */
async function refuseListing(
  /** @type {MachineFolders} */ { agent },
  /** @type {import('playwright-core').Page} */ p,
) {
  const { session } = await agent.next(AgentMsg.DirListRequest);
  await deliver(p, { type: 'too-large', session, message: Msg.DirListResult, bytes: 70_000_000 });
}

test('a folder that is too large is named so, and is listed again only on request', async (t) => {
  const { p, page, agent, machine } = await openPanel(t, shared, DISK, { page: { script: KEEP_SOCKETS } });
  machine.answering = false;
  await fileRow(p, 'C:').dblclick();
  await refuseListing(machine, p);
  const problem = p.locator('#files-empty');
  await until('the reason is shown', async () =>
    /too much to be listed.* 70 MB/.test(await problem.innerText()),
  );
  assert.equal(await p.locator('.file').count(), 0);
  assert.ok(await p.locator('#files-upload').isDisabled());
  await page.shot('files-too-large');

  agent.drop();
  await page.waitForNote(/gone offline/);
  await agent.connect();
  // The picture is requested after the panel has handled the start of the session.
  await agent.next(AgentMsg.StreamStart);
  await agent.next(AgentMsg.ThumbnailRequest);
  assert.ok(!agent.has(AgentMsg.DirListRequest), 'the folder is not listed again by itself');
  machine.answering = true;
  await p.click('#files-again');
  await shows(p, ['Users']);
});

test('a listing that was under way when the session was interrupted is repeated only on request', async (t) => {
  const { p, page, agent, machine } = await openPanel(t, shared);
  machine.answering = false;
  await fileRow(p, 'C:').dblclick();
  await agent.next(AgentMsg.DirListRequest);
  agent.drop();
  await until('the reason is shown', async () =>
    /interrupted while this folder was being listed/.test(await p.locator('#files-empty').innerText()),
  );
  await agent.connect();
  await page.frames(2);
  assert.ok(!agent.has(AgentMsg.DirListRequest));
  machine.answering = true;
  await p.click('#files-again');
  await shows(p, ['Users']);
});

test('files are not uploaded into a folder that is too large to show what they would replace', async (t) => {
  const { p, machine } = await openPanel(t, shared, DISK, { page: { script: KEEP_SOCKETS } });
  await openUsers(p);
  machine.answering = false;
  await p.setInputFiles('#files-input', [{ name: 'a', mimeType: 'a/b', buffer: Buffer.from('1') }]);
  await refuseListing(machine, p);
  await transferIs(p, 'a', 'failed');
  assert.match(await transferText(p, 'a'), /too much to be listed/);
  assert.equal(machine.uploads.size, 0);
});
