// The file panel: folders, their rows and the selection in them.

import assert from 'node:assert/strict';
import test from 'node:test';
import { BROWSER } from '../support/console_page.mjs';
import { fixture, openSession } from '../support/fixture.mjs';
import { MachineFolders } from '../support/machine_folders.mjs';
import { DISK, fileRow, namesIn, openPanel, openUsers, shows } from '../support/panel_page.mjs';
import { present } from '../support/present.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { transferIs, transferText } from '../support/transfer_rows.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();

test('folders are opened by double click, by buttons and by keys', async (t) => {
  const { p, page } = await openPanel(t, shared);
  await shows(p, ['C:', 'E:']);
  assert.ok(await p.locator('#files-upload').isDisabled(), 'files cannot be uploaded to the list of drives');
  await openUsers(p);
  assert.equal((await p.locator('#files-crumbs').innerText()).replace(/\s+/g, ' ').trim(), 'Drives C: Users');
  await page.shot('files');
  await p.locator('#files-list').press('Home');
  await p.locator('#files-list').press('Enter');
  await p.locator('#files-empty').waitFor();
  await p.locator('#files-list').press('Backspace');
  await until('the folder that was left has the focus', async () =>
    (await p.locator('.has-focus').innerText()).includes('Ægir'),
  );
  await p.locator('#files-crumbs button', { hasText: 'C:' }).click();
  await shows(p, ['Users']);
  await p.click('#files-up');
  await shows(p, ['C:', 'E:']);
});

test('rows are sorted with folders first, and show sizes and times', async (t) => {
  const { p } = await openPanel(t, shared);
  await openUsers(p);
  await shows(p, ['Ægir', 'Zoe', 'B9.txt', 'b10.txt', 'old.txt', 'þjóð.txt']);
  await p.click('#files-head [data-by=name]');
  await shows(p, ['Zoe', 'Ægir', 'þjóð.txt', 'old.txt', 'b10.txt', 'B9.txt']);
  await p.click('#files-head [data-by=size]');
  await shows(p, ['Zoe', 'Ægir', 'B9.txt', 'þjóð.txt', 'b10.txt', 'old.txt']);
  await p.click('#files-head [data-by=mtime]');
  await shows(p, ['Zoe', 'Ægir', 'b10.txt', 'þjóð.txt', 'B9.txt', 'old.txt']);
  assert.equal(await fileRow(p, 'B9.txt').locator('.file-size').innerText(), '5 MB');
  assert.equal(await fileRow(p, 'B9.txt').locator('.file-size').getAttribute('title'), '5,000,000');
  assert.equal(
    await fileRow(p, 'old.txt').locator('.file-time').innerText(),
    '',
    'a time before 1970 is not shown',
  );
  assert.match(await fileRow(p, 'B9.txt').locator('.file-time').innerText(), /^13\/09\/2020, \d\d:\d\d$/);
});

test('the panel is in Icelandic in an Icelandic browser', async (t) => {
  const { p, page } = await openPanel(t, shared, DISK, { page: { locale: 'is-IS', colorScheme: 'dark' } });
  await openUsers(p);
  assert.equal(await p.locator('#panel-files-button').innerText(), 'Skrár');
  await fileRow(p, 'b10.txt').dblclick();
  await transferIs(p, 'b10.txt', 'failed');
  assert.match(await transferText(p, 'b10.txt'), /tölvan getur ekki opnað skrána/);
  await page.shot('files-icelandic');
});

test('keys and clicks select several rows', async (t) => {
  const { p } = await openPanel(t, shared);
  await openUsers(p);
  const list = p.locator('#files-list');
  const count = () => p.locator('#files-count').innerText();
  await fileRow(p, 'B9.txt').click();
  await list.press('Shift+ArrowDown');
  assert.equal(await count(), '6 items, 2 selected');
  await fileRow(p, 'þjóð.txt').click({ modifiers: ['Control'] });
  assert.equal(await count(), '6 items, 3 selected');
  await list.press('Control+a');
  assert.equal(await count(), '6 items, 6 selected');
  await list.press('o');
  assert.equal(await count(), '6 items, 1 selected');
  assert.ok((await p.locator('.has-focus').innerText()).includes('old.txt'));
  await list.press('Control+Home');
  await list.press(' ');
  assert.equal(await count(), '6 items, 2 selected');
});

test('hostile file names are shown as text, with direction marks made visible', async (t) => {
  const hostile = [
    '<img src=x onerror=alert(1)>',
    'innocent\u202egpj.exe',
    '&amp;',
    'a'.repeat(250),
    '" onclick="x',
    '😀 ’x’',
  ];
  const { p, page } = await openPanel(t, shared, {
    '': [{ name: 'C:', dir: true }],
    'C:\\': hostile.map((name) => ({ name, path: `C:\\${name}` })),
  });
  await fileRow(p, 'C:').dblclick();
  await until('they are listed', async () => (await namesIn(p)).length === hostile.length);
  const seen = await namesIn(p);
  assert.ok(seen.includes(hostile[0]) && seen.includes('innocent\ufffdgpj.exe') && seen.includes('&amp;'));
  assert.equal(await p.locator('.files img').count(), 0);
  await page.shot('files-hostile');
});

test('an answer that is not a folder listing does not change the panel', async (t) => {
  const { agent, p, machine } = await openPanel(t, shared);
  machine.answering = false;
  await fileRow(p, 'C:').dblclick();
  const { session: number } = await agent.next(AgentMsg.DirListRequest);
  for (const text of [
    '',
    '{',
    '5',
    '{"path":"C:\\\\"}',
    '{"path":5,"entries":[]}',
    '{"path":"D:\\\\","parent":"","entries":[]}',
  ])
    agent.send(AgentMsg.DirListResult, number, new TextEncoder().encode(text));
  // This answer is a listing, with an unescaped control character and with entries that are left out.
  agent.send(
    AgentMsg.DirListResult,
    number,
    new TextEncoder().encode(
      '{"path":"C:\\\\","parent":"","entries":[5,null,{},{"name":"a\u0001b","path":"C:\\\\ab","dir":"no","size":-1,"mtime":"x"}]}',
    ),
  );
  await shows(p, ['a\ufffdb']);
});

test('twenty thousand entries are listed, sorted and selected without blocking the page', async (t) => {
  if (BROWSER === 'firefox') {
    t.skip('Firefox reports no processor time');
    return;
  }
  const many = Array.from({ length: 20_000 }, (_, i) => ({
    name: `mynd ${i}.jpg`,
    size: (i * 7919) % 20_000,
    mtime: 1_600_000_000 + i,
  }));
  const { p } = await openPanel(t, shared, { '': [{ name: 'C:', dir: true }], 'C:\\': many });
  // The test measures processor time, which does not advance while other programs use the processor.
  const tools = await p.context().newCDPSession(p);
  await tools.send('Performance.enable', { timeDomain: 'threadTicks' });
  const busySeconds = async () => {
    const { metrics } = await tools.send('Performance.getMetrics');
    return present(metrics.find(({ name }) => name === 'TaskDuration')).value;
  };
  const before = await busySeconds();
  await fileRow(p, 'C:').dblclick();
  await until('all are counted', async () =>
    (await p.locator('#files-count').innerText()).startsWith('20000 items'),
  );
  assert.ok((await p.locator('.file').count()) < 100, 'only rows in view are on the page');
  await p.click('#files-head [data-by=size]');
  await p.locator('#files-list').press('End');
  await until('the end is in view', async () => (await namesIn(p)).includes('mynd 0.jpg'));
  await p.locator('#files-list').press('Control+a');
  assert.match(await p.locator('#files-count').innerText(), /20000 selected/);
  const busy = (await busySeconds()) - before;
  assert.ok(busy < 3, `the page worked for ${busy} s`);
});

test('the panel of another machine begins with the list of that machine’s drives', async (t) => {
  const { p, page } = await openPanel(t, shared);
  await openUsers(p);
  const other = await openSession(t, shared);
  await page.page.click('#session-end');
  await other.page.page.click('#session-end');
  await page.row(other.agent).locator('.badge[data-state=online]').waitFor();
  new MachineFolders(other.agent, { '': [{ name: 'D:', dir: true }] });
  await page.ask(other.agent);
  await page.frames(1);
  assert.ok(await p.locator('#files').isHidden());
  await p.click('#panel-files-button');
  await shows(p, ['D:']);
});
