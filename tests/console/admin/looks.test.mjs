// Each administration page at both sizes, in both languages and themes: it fits, and axe-core finds nothing.
import test, { after } from 'node:test';
import { assertAccessible } from '../access/findings.mjs';
import { makeBusy } from '../support/admin/busy.mjs';
import { everyLook, NARROWEST, pageOf } from '../support/admin/page.mjs';
import { SignedUpdates } from '../support/admin/updates.mjs';
import { fixture } from '../support/fixture.mjs';

const updates = new SignedUpdates();
after(() => updates.remove());
const shared = fixture(updates.options, { enrolment: false });

const PAGES = [
  'machines',
  'enrolment',
  'groups',
  'people',
  'teams',
  'activity',
  'trail',
  'updates',
  'status',
  'settings',
];

const ready = (/** @type {import('playwright-core').Page} */ p) =>
  p.locator('#pages-place[aria-busy=false] :is(.part, .account)').first().waitFor();

/** @param {import('node:test').TestContext} t @param {string} path */
async function look(t, path) {
  const name = path.replaceAll('/', '-');
  await t.test(`the page ${path} fits each size, in both languages and themes`, (each) =>
    everyLook(each, shared, { name, at: `#${path}`, ready }),
  );
  await t.test(`the page ${path} is accessible`, async (each) => {
    const { p } = await pageOf(each, shared, { at: `#${path}` });
    await ready(p);
    await assertAccessible(p, path);
    await p.setViewportSize(NARROWEST);
    await assertAccessible(p, `${path} on a phone`);
  });
}

test('each page of a relay with people, machines and sessions', async (t) => {
  const installer = updates.offer('1.5.0', 'the installer');
  const { engines } = await makeBusy(t, shared);
  for (let host = 2; host < 15; host++) await updates.fetch(shared.relay, installer, `127.0.0.${host}`);
  for (const page of [...PAGES, `groups/${engines}`]) await look(t, `admin/${page}`);
  await look(t, 'account');
});
