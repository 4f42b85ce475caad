// The file panel: folders, what is chosen in them, and files both ways, byte for byte.
import assert from 'node:assert/strict';
import { createHash, randomBytes } from 'node:crypto';
import { readFileSync } from 'node:fs';
import test from 'node:test';
import { fixture, session } from './support/fixture.mjs';
import { CHUNK, MachineFolders } from './support/folders.mjs';
import { AgentMsg } from './support/scripted_agent.mjs';
import { until } from './support/waiting.mjs';

const shared = fixture();
/** For this long the console keeps what it handed to the browser. */
const KEEP_MS = 60_000;
/** How often the console's link looks after its ping. */
const PING_EVERY_MS = 2000;
/** Thousands of transfers take half a minute on a quiet machine. */
const MANY_MS = 150_000;
const KiB = 1024;
const MiB = 1024 * KiB;
const sha = (bytes) => createHash('sha256').update(bytes).digest('hex');

const DISK = {
  '': [
    { name: 'C:', dir: true, mtime: 0 },
    { name: 'E:', dir: true, mtime: 0 },
  ],
  'C:\\': [{ name: 'Users', dir: true, path: 'C:\\Users' }],
  'C:\\Users': [
    { name: 'Zoe', dir: true },
    { name: 'Ægir', dir: true },
    { name: 'b10.txt', size: 10 },
    { name: 'B9.txt', size: 5_000_000, mtime: 1_600_000_000 },
    { name: 'old.txt', size: 7, mtime: 18446744072709551000 },
    { name: 'þjóð.txt', size: 1234, mtime: 1_650_000_000 },
  ],
  'C:\\Users\\Zoe': [],
};

/** A session with its panel open at the drives. */
async function panel(t, folders = DISK, options = {}) {
  const { agent, page } = await session(t, shared, options);
  const machine = new MachineFolders(agent, structuredClone(folders));
  await page.page.click('#panel-files-button');
  await page.page.locator('.file').first().waitFor();
  return { agent, machine, page, p: page.page };
}

const names = (p) =>
  p
    .locator('.file')
    .evaluateAll((rows) =>
      rows
        .sort((a, b) => a.dataset.index - b.dataset.index)
        .map((row) => row.querySelector('bdi').textContent),
    );
const shows = (p, wanted) =>
  until(`the folder shows ${wanted}`, async () => {
    const seen = await names(p);
    if (seen.join('|') !== wanted.join('|')) throw new Error(seen.join('|'));
    return true;
  });
const file = (p, name) => p.locator('.file', { has: p.locator(`bdi:text-is(${JSON.stringify(name)})`) });
const row = (p, name) =>
  p.locator('.transfer', { has: p.locator(`.transfer-name:text-is(${JSON.stringify(name)})`) });
const ended = (p, name, state) =>
  until(`${name} is ${state}`, async () => {
    const now = await row(p, name).first().getAttribute('data-state');
    if (now !== state) throw new Error(`${now}: ${await words(p, name)}`);
    return true;
  });
const words = (p, name) => row(p, name).first().locator('.transfer-words').innerText();
const inUsers = async (p) => {
  await file(p, 'C:').dblclick();
  await file(p, 'Users').dblclick();
  await file(p, 'Zoe').waitFor();
};

test('folders are walked by double click, crumbs, the button upwards and keys', async (t) => {
  const { p, page } = await panel(t);
  await shows(p, ['C:', 'E:']);
  assert.ok(await p.locator('#files-upload').isDisabled(), 'nothing can be put among the drives');
  await inUsers(p);
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

test('rows are sorted with folders first, and tell sizes and times in the user’s way', async (t) => {
  const { p } = await panel(t);
  await inUsers(p);
  await shows(p, ['Ægir', 'Zoe', 'B9.txt', 'b10.txt', 'old.txt', 'þjóð.txt']);
  await p.click('#files-head [data-by=name]');
  await shows(p, ['Zoe', 'Ægir', 'þjóð.txt', 'old.txt', 'b10.txt', 'B9.txt']);
  await p.click('#files-head [data-by=size]');
  await shows(p, ['Zoe', 'Ægir', 'B9.txt', 'þjóð.txt', 'b10.txt', 'old.txt']);
  await p.click('#files-head [data-by=mtime]');
  await shows(p, ['Zoe', 'Ægir', 'b10.txt', 'þjóð.txt', 'B9.txt', 'old.txt']);
  assert.equal(await file(p, 'B9.txt').locator('.file-size').innerText(), '5 MB');
  assert.equal(await file(p, 'B9.txt').locator('.file-size').getAttribute('title'), '5,000,000');
  assert.equal(await file(p, 'old.txt').locator('.file-time').innerText(), '', 'a time before 1970 is none');
  assert.match(await file(p, 'B9.txt').locator('.file-time').innerText(), /^13\/09\/2020, \d\d:\d\d$/);
});

test('the panel speaks Icelandic too', async (t) => {
  const { p, page } = await panel(t, DISK, { page: { locale: 'is-IS', colorScheme: 'dark' } });
  await inUsers(p);
  assert.equal(await p.locator('#panel-files-button').innerText(), 'Skrár');
  await file(p, 'b10.txt').dblclick();
  await ended(p, 'b10.txt', 'failed');
  assert.match(await words(p, 'b10.txt'), /tölvan getur ekki opnað skrána/);
  await page.shot('files-icelandic');
});

test('several rows are chosen by keys and clicks', async (t) => {
  const { p } = await panel(t);
  await inUsers(p);
  const list = p.locator('#files-list');
  const count = () => p.locator('#files-count').innerText();
  await file(p, 'B9.txt').click();
  await list.press('Shift+ArrowDown');
  assert.equal(await count(), '6 items, 2 selected');
  await file(p, 'þjóð.txt').click({ modifiers: ['Control'] });
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

test('hostile names are text, and show what would steer it', async (t) => {
  const hostile = [
    '<img src=x onerror=alert(1)>',
    'innocent\u202egpj.exe',
    '&amp;',
    'a'.repeat(250),
    '" onclick="x',
    '😀 ’x’',
  ];
  const { p, page } = await panel(t, {
    '': [{ name: 'C:', dir: true }],
    'C:\\': hostile.map((name) => ({ name, path: `C:\\${name}` })),
  });
  await file(p, 'C:').dblclick();
  await until('they are listed', async () => (await names(p)).length === hostile.length);
  const seen = await names(p);
  assert.ok(seen.includes(hostile[0]) && seen.includes('innocent\ufffdgpj.exe') && seen.includes('&amp;'));
  assert.equal(await p.locator('.files img').count(), 0);
  await page.shot('files-hostile');
});

test('a listing that makes no sense changes nothing', async (t) => {
  const { agent, p, machine } = await panel(t);
  machine.answering = false;
  await file(p, 'C:').dblclick();
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
  // Control characters as the machine writes them, and entries of which some are none.
  agent.send(
    AgentMsg.DirListResult,
    number,
    new TextEncoder().encode(
      '{"path":"C:\\\\","parent":"","entries":[5,null,{},{"name":"a\u0001b","path":"C:\\\\ab","dir":"no","size":-1,"mtime":"x"}]}',
    ),
  );
  await shows(p, ['a\ufffdb']);
});

test('twenty thousand entries are listed, sorted and walked without a freeze', async (t) => {
  const many = Array.from({ length: 20_000 }, (_, i) => ({
    name: `mynd ${i}.jpg`,
    size: (i * 7919) % 20_000,
    mtime: 1_600_000_000 + i,
  }));
  const { p } = await panel(t, { '': [{ name: 'C:', dir: true }], 'C:\\': many });
  // Processor time, which does not pass while others use the machine.
  const tools = await p.context().newCDPSession(p);
  await tools.send('Performance.enable', { timeDomain: 'threadTicks' });
  const busySeconds = async () =>
    (await tools.send('Performance.getMetrics')).metrics.find(({ name }) => name === 'TaskDuration').value;
  const before = await busySeconds();
  await file(p, 'C:').dblclick();
  await until('all are counted', async () =>
    (await p.locator('#files-count').innerText()).startsWith('20000 items'),
  );
  assert.ok((await p.locator('.file').count()) < 100, 'only rows in view are on the page');
  await p.click('#files-head [data-by=size]');
  await p.locator('#files-list').press('End');
  await until('the end is in view', async () => (await names(p)).includes('mynd 0.jpg'));
  await p.locator('#files-list').press('Control+a');
  assert.match(await p.locator('#files-count').innerText(), /20000 selected/);
  const busy = (await busySeconds()) - before;
  assert.ok(busy < 3, `the page worked for ${busy} s`);
});

/** How many files the console has on the browser's private disk. */
const privateFiles = (p) =>
  p.evaluate(async () => {
    const all = await (await navigator.storage.getDirectory()).getDirectoryHandle('downloads');
    let count = 0;
    for await (const folder of all.values()) for await (const _ of folder.keys()) count++;
    return count;
  });

test('a download arrives byte for byte under its name, and is not kept when its row goes', async (t) => {
  const data = randomBytes(5 * MiB + 17);
  const script = `const wait = setTimeout; window.setTimeout = (act, ms) => wait(act, ms === ${KEEP_MS} ? 300 : ms);`;
  const { p, page, machine } = await panel(t, DISK, { page: { script } });
  machine.folders['C:\\Users'] = [
    { name: 'skýrsla ’99.bin', size: data.length, data },
    { name: 'empty', size: 0, data: Buffer.alloc(0) },
  ];
  await file(p, 'C:').dblclick();
  await file(p, 'Users').dblclick();
  await file(p, 'skýrsla ’99.bin').click();
  const [download] = await Promise.all([p.waitForEvent('download'), p.click('#files-download')]);
  assert.equal(download.suggestedFilename(), 'skýrsla ’99.bin');
  assert.equal(sha(readFileSync(await download.path())), sha(data));
  await ended(p, 'skýrsla ’99.bin', 'done');
  const [nothing] = await Promise.all([p.waitForEvent('download'), file(p, 'empty').dblclick()]);
  assert.equal(readFileSync(await nothing.path()).length, 0);
  await ended(p, 'empty', 'done');
  await page.shot('files-downloaded');
  assert.equal(await privateFiles(p), 2);
  await p.click('#transfers-clear');
  assert.ok(await p.locator('#transfers-section').isHidden());
  await until('the disk is empty', async () => (await privateFiles(p)) === 0);
});

test('thousands of transfers that fail at once leave the page alive', async (t) => {
  const { p } = await panel(t, {
    '': [{ name: 'C:', dir: true }],
    'C:\\': Array.from({ length: 5000 }, (_, i) => ({ name: `${i}`, size: 1 })),
  });
  await file(p, 'C:').dblclick();
  await file(p, '0').waitFor();
  await p.locator('#files-list').press('Control+a');
  await p.click('#files-download');
  await until('each has a row', async () => (await p.locator('.transfer').count()) === 5000, MANY_MS);
  await until(
    'each has failed',
    async () => (await p.locator('.transfer[data-state=failed]').count()) === 5000,
    MANY_MS,
  );
  await p.click('#transfers-clear');
  assert.equal(await p.locator('.transfer').count(), 0);
});

test('many files come down at once, also where the browser has no disk of its own', async (t) => {
  const files = Array.from({ length: 50 }, (_, i) => ({
    name: `${i}.txt`,
    data: randomBytes(1000 + i),
    size: 1000 + i,
  }));
  const { p } = await panel(
    t,
    { '': [{ name: 'C:', dir: true }], 'C:\\': files },
    { page: { script: 'StorageManager.prototype.getDirectory = undefined;' } },
  );
  await file(p, 'C:').dblclick();
  await file(p, '0.txt').waitFor();
  const downloads = [];
  p.on('download', (download) => downloads.push(download));
  await p.locator('#files-list').press('Control+a');
  await p.click('#files-download');
  await until('all are there', () => downloads.length === files.length);
  for (const download of downloads) {
    const { data } = files.find(({ name }) => name === download.suggestedFilename());
    assert.deepEqual(readFileSync(await download.path()), data);
  }
});

test('a download that the machine cannot open, or sends in pieces, is told as such', async (t) => {
  const { p, machine, page } = await panel(t);
  await inUsers(p);
  await file(p, 'b10.txt').dblclick();
  await ended(p, 'b10.txt', 'failed');
  assert.match(await words(p, 'b10.txt'), /cannot open the file/);
  machine.holding = true;
  await file(p, 'old.txt').dblclick();
  const [{ session: number, id }] = await until('it is asked for', () => machine.held.length && machine.held);
  machine.sendChunk(number, id, 1, Buffer.from('x'));
  await ended(p, 'old.txt', 'failed');
  assert.match(await words(p, 'old.txt'), /pieces are missing/);
  // A read error looks like an end of the file to the machine.
  await file(p, 'þjóð.txt').dblclick();
  const held = await until('the next is asked for', () => machine.held[1]);
  await Promise.all([p.waitForEvent('download'), machine.sendAll(number, held.id, Buffer.alloc(1000))]);
  await ended(p, 'þjóð.txt', 'done');
  assert.match(await words(p, 'þjóð.txt'), /its size is not the one that was listed/);
  await page.shot('files-failed');
});

test('a cancelled download says what cannot be done, and the rest goes nowhere', async (t) => {
  const { p, machine } = await panel(t);
  machine.folders['C:\\Users'] = [
    { name: 'long.bin', size: 10 * MiB },
    { name: 'next.bin', size: 3, data: Buffer.from('abc') },
    { name: 'Zoe', dir: true },
  ];
  machine.holding = true;
  await inUsers(p);
  await file(p, 'long.bin').dblclick();
  const held = await until('it is asked for', () => machine.held[0]);
  machine.sendChunk(held.session, held.id, 0, Buffer.alloc(CHUNK));
  await until('it is seen to come', async () => (await words(p, 'long.bin')).startsWith('262 kB of 10.5 MB'));
  await row(p, 'long.bin').locator('.transfer-cancel').click();
  assert.match(await words(p, 'long.bin'), /Cancelled · the machine cannot be told to stop/);
  machine.sendChunk(held.session, held.id, 1, Buffer.alloc(CHUNK));
  machine.holding = false;
  const [download] = await Promise.all([p.waitForEvent('download'), file(p, 'next.bin').dblclick()]);
  assert.equal(readFileSync(await download.path()).toString(), 'abc');
  assert.deepEqual(machine.strays, [], 'the machine knows no end of a download');
});

test('files go up whole and in order, and are looked at afterwards', async (t) => {
  const data = randomBytes(3 * MiB + 5);
  const { p, page, machine } = await panel(t);
  await inUsers(p);
  await p.setInputFiles('#files-input', [
    { name: 'gögn.bin', mimeType: 'a/b', buffer: data },
    { name: 'tómt', mimeType: 'a/b', buffer: Buffer.alloc(0) },
  ]);
  await ended(p, 'gögn.bin', 'done');
  await ended(p, 'tómt', 'done');
  const upload = machine.uploadTo('C:\\Users\\gögn.bin');
  assert.equal(upload.size, data.length);
  assert.deepEqual(
    upload.chunks.map(({ index }) => index),
    upload.chunks.map((_, i) => i),
  );
  assert.ok(upload.chunks.every(({ bytes }) => bytes.length <= CHUNK));
  assert.equal(sha(Buffer.concat(upload.chunks.map(({ bytes }) => bytes))), sha(data));
  assert.deepEqual(machine.uploadTo('C:\\Users\\tómt').chunks, []);
  await file(p, 'gögn.bin').waitFor();
  await page.shot('files-uploaded');
});

test('names that the machine cannot have are made fit', async (t) => {
  const { p, machine } = await panel(t);
  await inUsers(p);
  await p.setInputFiles('#files-input', [
    { name: 'what?: "no" .', mimeType: 'a/b', buffer: Buffer.from('1') },
    { name: 'nul.txt', mimeType: 'a/b', buffer: Buffer.from('2') },
  ]);
  await until(
    'both are there',
    () => machine.uploadTo('C:\\Users\\what__ _no___') && machine.uploadTo('C:\\Users\\_nul.txt'),
  );
});

test('files that are there are replaced only when the representative says so', async (t) => {
  const { p, page, machine } = await panel(t);
  await inUsers(p);
  const choose = (...names) =>
    p.setInputFiles(
      '#files-input',
      names.map((name) => ({ name, mimeType: 'a/b', buffer: Buffer.from(name) })),
    );
  const dialog = p.locator('#overwrite-dialog');
  await choose('B10.TXT', 'new.txt');
  await dialog.waitFor();
  assert.deepEqual(await dialog.locator('li').allInnerTexts(), ['B10.TXT']);
  await page.shot('files-overwrite');
  await dialog.locator('[value=cancel]').click();
  await choose('b10.txt', 'new.txt');
  await dialog.locator('[value=skip]').click();
  await ended(p, 'new.txt', 'done');
  assert.equal(machine.uploads.size, 1);
  await choose('b10.txt', 'zoe');
  await dialog.locator('[value=overwrite]').click();
  await ended(p, 'b10.txt', 'done');
  assert.match(await words(p, 'zoe'), /a folder has that name/);
  assert.equal(machine.uploads.size, 2);
});

test('what arrived short or not at all is told', async (t) => {
  const { p, machine } = await panel(t);
  await inUsers(p);
  machine.losing = (path, data) => (path.endsWith('short') ? data.subarray(0, 2) : null);
  await p.setInputFiles(
    '#files-input',
    ['short', 'lost'].map((name) => ({ name, mimeType: 'a/b', buffer: Buffer.from('12345') })),
  );
  await ended(p, 'short', 'failed');
  await ended(p, 'lost', 'failed');
  assert.match(await words(p, 'short'), /only a part arrived/);
  assert.match(await words(p, 'lost'), /not there/);
});

test('files are dropped into the open folder, and whole folders with them', async (t) => {
  const { p, machine } = await panel(t);
  await inUsers(p);
  const data = await p.evaluateHandle(() => {
    const transfer = new DataTransfer();
    transfer.items.add(new File(['dropped'], 'a.txt'));
    return transfer;
  });
  await p.dispatchEvent('#files', 'dragover', { dataTransfer: data });
  assert.ok(await p.locator('#files.is-target').count());
  await p.dispatchEvent('#files', 'drop', { dataTransfer: data });
  await ended(p, 'a.txt', 'done');
  await p.locator('#files-list').evaluate((list) => {
    const clipboardData = new DataTransfer();
    clipboardData.items.add(new File(['pasted'], 'b.txt'));
    list.dispatchEvent(new ClipboardEvent('paste', { clipboardData }));
  });
  await ended(p, 'b.txt', 'done');
  assert.equal(
    Buffer.concat(machine.uploadTo('C:\\Users\\b.txt').chunks.map(({ bytes }) => bytes)).toString(),
    'pasted',
  );
  // Chromium makes no folder from a script, so its walk is given one that behaves like it.
  const found = await p.evaluate(async () => {
    const { droppedFiles } = await import('/base/dropped.js');
    const one = (name) => ({ isDirectory: false, name, file: (done) => done(new File(['x'], name)) });
    const folder = (name, entries) => ({
      isDirectory: true,
      name,
      createReader: () => ({ readEntries: (done) => done(entries.splice(0, 1)) }),
    });
    const items = [
      {
        kind: 'file',
        getAsFile: () => null,
        webkitGetAsEntry: () => folder('top', [one('1'), folder('sub', [one('2')]), one('3')]),
      },
    ];
    return (await droppedFiles({ items })).map(({ file, path }) => path + file.name);
  });
  assert.deepEqual(found, ['top/1', 'top/sub/2', 'top/3']);
});

test('a cancelled upload ends on the machine and says what stays there', async (t) => {
  const { agent, p, machine } = await panel(t);
  await inUsers(p);
  await p.evaluate(() => {
    // A file that never comes to its end.
    Blob.prototype.arrayBuffer = function read() {
      return this.size < 1000 ? new Response(this).arrayBuffer() : new Promise(() => {});
    };
  });
  await p.setInputFiles('#files-input', [{ name: 'large', mimeType: 'a/b', buffer: Buffer.alloc(2 * MiB) }]);
  const upload = await until('it has begun', () => machine.uploadTo('C:\\Users\\large'));
  await row(p, 'large').locator('.transfer-cancel').click();
  await until('the machine has closed it', () => upload.ended);
  assert.match(await words(p, 'large'), /Cancelled · the part that arrived stays/);
  assert.ok(agent.session);
});

test('an upload waits for a machine that does not read, with little under way and the link alive', async (t) => {
  const data = randomBytes(24 * MiB);
  const { agent, p, page, machine } = await panel(t, DISK, {
    page: {
      script: `
    window.mostWaiting = 0;
    const { send } = WebSocket.prototype;
    WebSocket.prototype.send = function (data) {
      send.call(this, data);
      window.mostWaiting = Math.max(window.mostWaiting, this.bufferedAmount);
    };
    window.ahead = 0;
    const now = performance.now.bind(performance);
    performance.now = () => now() + window.ahead;
    window.looks = 0;
    const every = window.setInterval;
    window.setInterval = (act, ms) => every(() => { act(); if (ms === ${PING_EVERY_MS}) window.looks++; }, ms);`,
    },
  });
  await inUsers(p);
  await p.setInputFiles('#files-input', [{ name: 'slow.bin', mimeType: 'a/b', buffer: data }]);
  await until('it has begun', () => machine.uploadTo('C:\\Users\\slow.bin'));
  agent.socket.pause();
  await until('a ping waits behind it', async () =>
    (await p.locator('#status-line').innerText()).includes('unstable link'),
  );
  // Longer than a silent relay is waited for when there is nothing that holds it up.
  const looks = await p.evaluate(() => {
    window.ahead += 20_000;
    return window.looks;
  });
  await until('the link has looked at its ping', () =>
    p.evaluate((before) => window.looks >= before + 2, looks),
  );
  assert.equal(await row(p, 'slow.bin').getAttribute('data-state'), 'running');
  assert.equal(await page.note(), '');
  agent.socket.resume();
  await ended(p, 'slow.bin', 'done');
  assert.ok(
    (await p.evaluate(() => window.mostWaiting)) <= 5 * MiB,
    'never more than a few MiB wait in the browser',
  );
  assert.equal(
    sha(Buffer.concat(machine.uploadTo('C:\\Users\\slow.bin').chunks.map(({ bytes }) => bytes))),
    sha(data),
  );
});

test('the end of the session ends what is under way, on both sides', async (t) => {
  const { agent, p, machine, page } = await panel(t);
  machine.folders['C:\\Users'].push({ name: 'down.bin', size: 10 * MiB });
  await inUsers(p);
  machine.holding = true;
  await file(p, 'down.bin').dblclick();
  await until('it is asked for', () => machine.held.length);
  await p.evaluate(() => {
    Blob.prototype.arrayBuffer = () => new Promise(() => {});
  });
  await p.setInputFiles('#files-input', [{ name: 'up.bin', mimeType: 'a/b', buffer: Buffer.alloc(2 * MiB) }]);
  const upload = await until('it has begun', () => machine.uploadTo('C:\\Users\\up.bin'));
  agent.drop();
  await page.waitForNote(/gone offline/);
  for (const name of ['down.bin', 'up.bin']) {
    await ended(p, name, 'failed');
    assert.match(await words(p, name), /the session ended/);
  }
  await agent.connect();
  await until('the machine that is back is told', () => upload.ended);
  await until(
    'the panel shows the folder again',
    async () => (await p.locator('#files').getAttribute('aria-busy')) === 'false',
  );
  assert.ok((await names(p)).includes('down.bin'));
});

test('another machine’s panel begins at its own drives', async (t) => {
  const { p, page } = await panel(t);
  await inUsers(p);
  const other = await session(t, shared);
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
