// The toolbar of a session at every width, and while its session is not accepted.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fixture, machineAndPage, openSession } from '../support/fixture.mjs';
import { desktop } from '../support/pictures.mjs';
import { present } from '../support/present.mjs';
import { AgentMsg } from '../support/scripted_agent.mjs';
import { until } from '../support/waiting.mjs';

const shared = fixture();
const WIDTHS = [390, 640, 900, 1024, 1280, 1440, 1920, 2560];
/** The width that a name keeps until the menus are collapsed. */
const NAME_WIDTH = 24 * 15;
const LONG_NAME = 'Guðmundur í Nesi RE 13 – bridge computer on the port side, beside the echo sounder';

/** @typedef {import('../support/console_page.mjs').ConsolePage} ConsolePage */

/** The parts of the toolbar that are visible, with their places, and whether the name is cut. */
const layout = (/** @type {ConsolePage} */ { page }) =>
  page.evaluate(() => {
    const bar = /** @type {HTMLElement} */ (document.getElementById('session-bar'));
    const name = /** @type {HTMLElement} */ (document.getElementById('session-name'));
    const controls = [...bar.querySelectorAll('h1, button, summary, .toggle')].filter((one) =>
      one.checkVisibility(),
    );
    const boxes = controls.map((one) => one.getBoundingClientRect());
    return {
      level: bar.dataset.level,
      height: bar.clientHeight,
      middles: boxes.map(({ top, height }) => top + height / 2),
      left: Math.min(...boxes.map(({ left }) => left)),
      right: Math.max(...boxes.map(({ right }) => right)),
      end: /** @type {Element} */ (document.getElementById('session-end')).getBoundingClientRect().right,
      cut: name.scrollWidth > name.clientWidth,
      nameWidth: name.clientWidth,
      title: name.title,
    };
  });

/** A session with a machine that has four displays. */
async function fourDisplays(/** @type {import('node:test').TestContext} */ t, options = {}) {
  const { agent, page } = await openSession(t, shared, options);
  for (const monitor of [0, 1, 2, 3])
    agent.thumbnail({ monitor, count: 4, width: 64, height: 36, jpeg: desktop(64, 36) });
  const buttons = page.page.locator('#monitor-picker .monitor img');
  await until('four displays', async () => (await buttons.count()) === 4);
  return { agent, page };
}

for (const name of ['Sæfari', LONG_NAME]) {
  test(`the toolbar stays in one line at every width, with four displays and the name ${name}`, async (t) => {
    const { page } = await fourDisplays(t, { agent: { name } });
    const { page: tab } = page;
    for (const width of WIDTHS) {
      await tab.setViewportSize({ width, height: 800 });
      const seen = await until(`the toolbar fits in ${width} pixels`, async () => {
        const { middles, ...one } = await layout(page);
        const spread = Math.max(...middles) - Math.min(...middles);
        if (spread < 4 && one.left >= 0 && one.right <= width) return one;
        throw new Error(JSON.stringify({ ...one, spread }));
      });
      assert.ok(seen.height < 64, `${width}: ${seen.height} pixels high`);
      assert.ok(width - seen.end <= 20 && seen.end <= width, `End is at ${seen.end} of ${width}`);
      assert.ok(seen.nameWidth > 30, `${width}: the name has ${seen.nameWidth} pixels`);
      assert.equal(seen.title, name);
      if (seen.cut) assert.ok(seen.level === 'menus' || seen.nameWidth >= NAME_WIDTH, `${width}: cut first`);
      if ([390, 1024, 1440].includes(width))
        await page.shot(`bar-${width}-${name === LONG_NAME ? 'long' : 'short'}`);
    }
  });
}

test('with one display, a window of 1440 pixels shows every menu', async (t) => {
  const { page } = await openSession(t, shared);
  for (const menu of ['picture', 'keys', 'machine', 'clip'])
    assert.ok(await page.page.locator(`#${menu}-menu summary`).isVisible(), menu);
  for (const id of ['view-only', 'full-screen', 'session-end', 'panel-files-button'])
    assert.ok(await page.page.locator(`#${id}`).isVisible(), id);
  assert.ok(await page.page.locator('#bar-menu').isHidden());
});

test('in a narrow window the menus are behind one button, and the displays behind another', async (t) => {
  const { agent, page } = await fourDisplays(t, { page: { viewport: { width: 390, height: 760 } } });
  const { page: tab } = page;
  assert.ok(await tab.locator('#picture-menu').isHidden());
  await tab.click('#display-menu');
  await page.shot('bar-390-displays');
  await tab.locator('#monitor-picker .monitor').nth(2).click();
  assert.deepEqual((await agent.next(AgentMsg.MonitorSelect)).json, { monitor_id: 2 });
  assert.match(await tab.locator('#display-menu').innerText(), /3/);
  assert.ok(await tab.locator('#monitor-picker').isHidden());
  await tab.click('#bar-menu');
  await page.shot('bar-390-menu');
  for (const menu of ['picture', 'keys', 'machine', 'clip']) {
    await tab.click(`#${menu}-menu summary`);
    const { x, y, width, height } = present(await tab.locator(`#${menu}-menu .panel`).boundingBox());
    assert.ok(x >= 0 && x + width <= 390, `${menu}: ${x}, ${width}`);
    assert.ok(y > 0 && height > 40, `${menu}: ${y}, ${height}`);
    if (menu === 'picture') await page.shot('bar-390-picture-menu');
    await tab.click(`#${menu}-menu summary`);
  }
  await tab.click('#machine-menu summary');
  await tab.click('#attention');
  await agent.next(AgentMsg.SecureAttention);
  assert.ok(await tab.locator('#bar-items').isHidden(), 'the menu closes after an action');
  await tab.click('#bar-menu');
  await tab.keyboard.press('Escape');
  assert.ok(await tab.locator('#bar-items').isHidden());
});

test('menus of a session that is not accepted are closed and cannot be opened by keyboard', async (t) => {
  const { agent, page } = await machineAndPage(t, shared, { agent: { consent: 'none' } });
  const { page: tab } = page;
  const open = () => tab.locator('.menu[open]').count();
  /** The ids of what the Tab key reaches in the toolbar up to End; tags where there is no id. */
  const reachable = async () => {
    await tab.evaluate(() => /** @type {HTMLElement} */ (document.activeElement)?.blur());
    /** @type {(string | undefined)[]} */
    const reached = [];
    for (let i = 0; i < 12 && !reached.includes('session-end'); i++) {
      await tab.keyboard.press('Tab');
      reached.push(await tab.evaluate(() => document.activeElement?.id || document.activeElement?.tagName));
    }
    return reached;
  };
  await page.ask(agent);
  const { session } = await agent.next(AgentMsg.SessionRequest);
  const disabled = await reachable();
  assert.ok(disabled.includes('session-end'), String(disabled));
  assert.deepEqual(
    disabled.filter((one) => one === 'SUMMARY' || one === 'view-only'),
    [],
  );
  await page.shot('bar-disabled');
  agent.accept(session);
  await agent.next(AgentMsg.StreamStart);
  assert.ok((await reachable()).includes('SUMMARY'), 'the menus are enabled in the session');
  await tab.click('#machine-menu summary');
  assert.equal(await open(), 1);
  agent.drop();
  await page.waitForNote(/gone offline/);
  assert.equal(await open(), 0);
});
