// The page of the updates that agents are offered.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import test, { after } from 'node:test';
import { pageOf, SIZES } from '../support/admin/page.mjs';
import { SignedUpdates } from '../support/admin/updates.mjs';
import { fixture } from '../support/fixture.mjs';
import { until } from '../support/waiting.mjs';

const updates = new SignedUpdates();
after(() => updates.remove());
const shared = fixture(updates.options);
const at = '#admin/updates';

test('the page shows what is offered, its hash, and who has fetched it', async (t) => {
  const content = 'an installer of the agent';
  const installer = updates.offer('2.1.0', content);
  await until(
    'it is offered',
    async () => (await updates.fetch(shared.relay, installer, '127.0.0.7')) === 200,
  );
  const { p } = await pageOf(t, shared, { at, ...SIZES.phone });
  const row = p.locator('tbody tr');
  await row.filter({ hasText: installer }).waitFor();
  const text = await row.innerText();
  assert.match(text, /2\.1\.0/);
  assert.match(text, /127\.0\.0\.7/);
  assert.ok(text.includes(createHash('sha256').update(content).digest('hex')));
});

test('a file that does not fit the signature is not offered, and the page says why', async (t) => {
  const installer = updates.offer('2.2.0', 'an installer of the agent');
  writeFileSync(join(updates.files, installer), 'something else of a stranger');
  const { p } = await pageOf(t, shared, { at });
  await until('the relay refuses it', async () => {
    await p.reload();
    return p.getByText('Nothing is offered:').isVisible();
  });
  await p.getByText('No version is on offer.').waitFor();
  assert.equal(await updates.fetch(shared.relay, installer), 404);
});
