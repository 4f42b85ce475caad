// Playing the machine's H.264 with the browser's own decoder, through the relay.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, machineAndPage } from '../support/fixture.mjs';
import { CARD, card, encode, middles, rgb } from '../support/h264.mjs';
import { plain } from '../support/pictures.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const WIDTH = 320;
const HEIGHT = 240;
const SIZE = { width: WIDTH, height: HEIGHT };
const COLOURS = ['#c02020', '#20c020', '#2020c0', '#c0c020', '#20c0c0', '#c020c0'];
const CENTRE = [{ x: WIDTH / 2, y: HEIGHT / 2 }];

const plainStream = (how = {}) =>
  encode(
    COLOURS.map((colour) => card(WIDTH, HEIGHT, [colour])),
    { ...SIZE, ...how },
  );
/**
 * The largest difference between two colours in any channel.
 * @param {number[]} one
 * @param {number[]} other
 */
const difference = (one, other) => Math.max(...one.map((value, i) => Math.abs(value - other[i])));

/**
 * A session with an H.264 stream of which no frame has been sent yet.
 * @param {import('node:test').TestContext} t
 * @param {import('../support/fixture.mjs').Options} [options]
 */
async function watching(t, options = {}) {
  const { agent, page } = await machineAndPage(t, shared, options);
  agent.onStream = () => agent.config({ codec: 'h264', ...SIZE });
  await page.ask(agent);
  await agent.next(AgentMsg.StreamStart);
  await agent.next(AgentMsg.ThumbnailRequest);
  return { agent, page };
}

/**
 * Waits until the middle of the picture has this colour.
 * @param {import('../support/console_page.mjs').ConsolePage} page
 * @param {string} colour
 * @param {number} [levels] the difference that is accepted in each channel
 */
async function shows(page, colour, levels = 6) {
  /** @type {number[]} */
  let last;
  await until(`the picture is ${colour}`, async () => {
    [last] = await page.pixels(CENTRE);
    return difference(last, rgb(colour)) <= levels;
  }).catch((error) => {
    throw new Error(`${error.message}: ${last}`);
  });
}

/**
 * Sends one frame that shows the colour card and returns the largest error of a cell in any channel.
 * @param {import('node:test').TestContext} t
 * @param {{bt709?: boolean}} [how]
 */
async function worstError(t, how = {}) {
  const { agent, page } = await watching(t);
  const [first] = encode([card(640, 480)], { width: 640, height: 480, ...how });
  agent.frame(first);
  await page.frames(1);
  const seen = await page.pixels(middles(640, 480));
  t.diagnostic(CARD.map((colour, i) => `${colour} as ${seen[i]}`).join('; '));
  assert.deepEqual(await page.pictureSize(), [640, 480]);
  return { page, worst: Math.max(...CARD.map((colour, i) => difference(seen[i], rgb(colour)))) };
}

test('a single frame shows a colour card with errors of at most 3 levels in each channel', async (t) => {
  const { page, worst } = await worstError(t);
  assert.ok(worst <= 3, `worst difference: ${worst}`);
  await page.shot('h264-card');
});

// x264 in GStreamer, which Wine 10 uses, declares these colours for pictures of high definition.
test('the colours are as right if the encoder declares those of BT.709', async (t) => {
  const { worst } = await worstError(t, { bt709: true });
  assert.ok(worst <= 3, `worst difference: ${worst}`);
});

test('every frame is shown as soon as it arrives', async (t) => {
  const { agent, page } = await watching(t);
  for (const [i, unit] of plainStream().entries()) {
    agent.frame(unit);
    await page.frames(i + 1);
    await shows(page, COLOURS[i]);
  }
});

test('after a missing frame no damaged picture is shown, and a key frame is requested', async (t) => {
  const { agent, page } = await watching(t);
  const units = plainStream({ keys: [4] });
  agent.frame(units[0]);
  agent.frame(units[1]);
  await page.frames(2);
  agent.frame(units[3]);
  await agent.next(AgentMsg.KeyframeRequest);
  await shows(page, COLOURS[1]);
  agent.frame(units[4]);
  await page.frames(3);
  await shows(page, COLOURS[4]);
  agent.frame(units[5]);
  await shows(page, COLOURS[5]);
});

test('if a stream begins without a key frame, the console requests a key frame and waits for it', async (t) => {
  const { agent, page } = await watching(t);
  const units = plainStream({ keys: [3] });
  agent.frame(units[1]);
  await agent.next(AgentMsg.KeyframeRequest);
  agent.frame(units[3]);
  await page.frames(1);
  await shows(page, COLOURS[3]);
});

test('the request for a key frame is repeated until a key frame arrives', async (t) => {
  const { agent } = await watching(t);
  const units = plainStream();
  agent.frame(units[1]);
  await agent.next(AgentMsg.KeyframeRequest);
  await agent.next(AgentMsg.KeyframeRequest);
});

test('several pictures in one message are all shown', async (t) => {
  const { agent, page } = await watching(t);
  const units = plainStream();
  agent.frame(Buffer.concat(units.slice(0, 3)));
  agent.frame(Buffer.concat(units.slice(3)));
  await page.frames(6);
  await shows(page, COLOURS[5]);
});

test('a stream that changes its size is shown in the new size', async (t) => {
  const { agent, page } = await watching(t);
  agent.frame(plainStream()[0]);
  await page.frames(1);
  agent.config({ codec: 'h264', width: 200, height: 120 });
  agent.frame(encode([card(200, 120, ['#306090'])], { width: 200, height: 120 })[0]);
  await page.frames(2);
  assert.deepEqual(await page.pictureSize(), [200, 120]);
});

test('frames whose time stamps decrease are shown', async (t) => {
  const { agent, page } = await watching(t);
  for (const [i, unit] of plainStream().entries()) agent.frame(unit, 5000 - i * 100);
  await page.frames(6);
  await shows(page, COLOURS[5]);
});

test('after a broken frame the console requests a key frame and continues with it', async (t) => {
  const { agent, page } = await watching(t);
  const units = plainStream({ keys: [3] });
  agent.frame(units[0]);
  await page.frames(1);
  const parameters = units[3].indexOf(Buffer.from([0, 0, 1, 0x65]));
  agent.frame(Buffer.concat([units[3].subarray(0, parameters), Buffer.from([0, 0, 1, 0x65, 0xff, 0, 0xff])]));
  await agent.next(AgentMsg.KeyframeRequest);
  agent.frame(units[3]);
  await shows(page, COLOURS[3]);
});

test('a decoder that is slow but puts out pictures does not count as failed', async (t) => {
  const script = `{
    const { decode } = VideoDecoder.prototype;
    let before = Promise.resolve();
    const pause = () => new Promise((done) => setTimeout(done, 300));
    VideoDecoder.prototype.decode = function (chunk) {
      const late = () => this.state === 'configured' && decode.call(this, chunk);
      if (!window.isSlow) return late();
      window.received += 1;
      before = before.then(pause).then(late);
    };
  }`;
  const { agent, page } = await watching(t, { page: { script } });
  // With rates that are chosen by hand, the relay does not start the stream again for a viewer that is late.
  await page.page.click('#picture-menu summary');
  await page.page.selectOption('#quality', 'hand');
  await page.page.selectOption('#max-fps', '25');
  await until('the chosen rates are requested', () =>
    agent.inbox.some(({ type, json }) => type === AgentMsg.StreamStart && json.max_fps === 25),
  );
  const [key, next] = plainStream();
  agent.frame(key);
  await page.frames(1);
  await page.page.evaluate(() => {
    window.isSlow = true;
    window.received = 0;
  });
  // Each key frame replaces those that still wait at the relay, so the next one is sent when the last has arrived.
  for (let i = 1; i <= 40; i++) {
    agent.frame(key);
    await until('the frame has arrived', () => page.page.evaluate((count) => window.received === count, i));
  }
  // More than 2.5 s after the first frame, more than 10 frames still wait.
  await page.frames(20);
  agent.frame(next);
  await page.frames(40);
  assert.ok(!agent.inbox.some(({ type }) => type === AgentMsg.CodecSelect));
});

test('an H.264 stream that the browser cannot decode is replaced by JPEG until the next session', async (t) => {
  const { agent, page } = await watching(t);
  const [unit] = plainStream();
  const parameters = unit.indexOf(Buffer.from([0, 0, 1, 0x65]));
  const broken = Buffer.concat([unit.subarray(0, parameters), Buffer.from([0, 0, 1, 0x65, 0xff, 0, 0xff])]);
  await until('JPEG is requested', () => {
    agent.frame(broken);
    return agent.inbox.some(({ type, json }) => type === AgentMsg.CodecSelect && json.codec === 'mjpeg');
  });
  agent.config({ codec: 'mjpeg', ...SIZE });
  agent.frame(plain(WIDTH, HEIGHT, '#336699'));
  await shows(page, '#336699');
  await page.page.click('#session-end');
  agent.inbox.length = 0;
  await page.row(agent).locator('.badge[data-state=online]').waitFor();
  await page.ask(agent);
  await agent.next(AgentMsg.ThumbnailRequest);
  assert.ok(!agent.inbox.some(({ type }) => type === AgentMsg.CodecSelect));
  agent.frame(unit);
  await shows(page, COLOURS[0]);
});

test('the representative chooses the codec, and a new stream keeps the choice', async (t) => {
  const { agent, page } = await watching(t);
  agent.frame(plainStream()[0]);
  await page.frames(1);
  await until('the status line names it', async () =>
    /320 × 240 · H\.264 · /.test(await page.page.locator('#status-line').innerText()),
  );
  await page.page.click('#picture-menu summary');
  await page.shot('picture-menu');
  await page.page.selectOption('#codec', 'mjpeg');
  assert.deepEqual((await agent.next(AgentMsg.CodecSelect)).json, { codec: 'mjpeg' });
  agent.config({ codec: 'mjpeg', ...SIZE });
  agent.frame(plain(WIDTH, HEIGHT, '#993366'));
  await shows(page, '#993366');
  await page.page.click('#picture-restart');
  await agent.next(AgentMsg.StreamStart);
  assert.deepEqual((await agent.next(AgentMsg.CodecSelect)).json, { codec: 'mjpeg' });
  await page.page.click('#picture-menu summary');
  await page.page.selectOption('#codec', 'h264');
  assert.deepEqual((await agent.next(AgentMsg.CodecSelect)).json, { codec: 'h264' });
});

test('a machine without an encoder is shown in JPEG although H.264 was requested', async (t) => {
  const { agent, page } = await watching(t);
  agent.config({ codec: 'mjpeg', ...SIZE });
  agent.frame(plain(WIDTH, HEIGHT, '#224466'));
  await shows(page, '#224466');
  assert.equal(await page.page.inputValue('#codec'), 'h264');
  await until('the status line names it', async () =>
    / · JPEG · /.test(await page.page.locator('#status-line').innerText()),
  );
});

for (const [how, script] of [
  ['has no decoder', 'delete window.VideoDecoder'],
  ['reports H.264 but cannot decode it', 'VideoDecoder.prototype.decode = () => { throw new Error("no"); }'],
]) {
  test(`a browser that ${how} requests JPEG`, async (t) => {
    const { agent, page } = await watching(t, { page: { script } });
    assert.deepEqual((await agent.next(AgentMsg.CodecSelect)).json, { codec: 'mjpeg' });
    agent.frame(plainStream()[0]);
    agent.config({ codec: 'mjpeg', ...SIZE });
    agent.frame(plain(WIDTH, HEIGHT, '#224466'));
    await shows(page, '#224466');
    assert.ok(
      await page.page.$eval(
        '#codec option[value=h264]',
        (option) => /** @type {HTMLOptionElement} */ (option).disabled,
      ),
    );
  });
}
