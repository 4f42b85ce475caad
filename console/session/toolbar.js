// The session's toolbar, the picture's place on the page and the status line.
import { byId, make } from '../base/dom.js';
import { wholeRoundTrip } from '../base/status.js';
import { texts } from '../base/texts.js';
import { fit } from '../input/geometry.js';
import { Msg } from '../link/messages.js';

const RATES = [5, 10, 15, 25, 30];
const USUAL_RATE = 15;

/** @typedef {import('./session.js').SessionView} SessionView */

export function attachTools(/** @type {SessionView} */ session) {
  const on = (
    /** @type {string} */ id,
    /** @type {string} */ name,
    /** @type {(event: any) => void} */ act,
  ) => byId(id).addEventListener(name, act);
  const { hands } = session;
  byId('max-fps').append(
    ...RATES.map((rate) =>
      make('option', { value: String(rate), selected: rate === USUAL_RATE }, String(rate)),
    ),
  );
  on('session-end', 'click', () => session.leave());
  on('max-fps', 'change', () => session.startStream());
  on('picture-restart', 'click', () => session.startStream());
  on('codec', 'change', () => session.picture.choose(byId('codec').value));
  on('show-pointer', 'change', () => session.sendPointer());
  on('view-only', 'change', () => session.setHands());
  on('key-mode', 'change', () => hands.setMode(byId('key-mode').value));
  on('actual-size', 'change', () => layOut(session));
  on('full-screen', 'click', () => toggleFullScreen());
  on('monitor-refresh', 'click', () => session.sendBytes(Msg.ThumbnailRequest));
  on('keys-menu', 'click', ({ target }) => {
    const { combination } = target.dataset;
    if (!combination) return;
    hands.tap(combination);
    hands.focus();
  });
  on('attention', 'click', () => {
    session.sendBytes(Msg.SecureAttention);
    hands.focus();
  });
  on('type-text', 'click', () => byId('type-dialog').showModal());
  on('type-dialog', 'close', () => {
    const box = byId('type-box');
    if (byId('type-dialog').returnValue === 'type') hands.type(box.value);
    box.value = '';
    byId('type-dialog').returnValue = '';
  });
  closeMenusOutside();
  new ResizeObserver(() => layOut(session)).observe(byId('stage'));
}

/** Fits the picture into the stage, or shows it at its own size in a stage that scrolls. */
export function layOut(/** @type {SessionView} */ { screen }) {
  const stage = byId('stage');
  const actual = byId('actual-size').checked;
  stage.classList.toggle('actual', actual);
  const { canvas } = screen;
  // Never a black rectangle where there is no picture yet.
  canvas.hidden = screen.drawn === 0;
  const size = actual ? canvas : fit(canvas, { width: stage.clientWidth, height: stage.clientHeight });
  canvas.style.width = `${size.width}px`;
  canvas.style.height = `${size.height}px`;
}

/** What is asked for; what the browser cannot play cannot be chosen. */
export function showCodec(/** @type {SessionView} */ { picture }) {
  const h264 = byId('codec').querySelector('[value=h264]');
  h264.disabled = !picture.hasH264;
  h264.textContent = picture.hasH264 ? 'H.264' : `H.264 (${texts.notInThisBrowser})`;
  byId('codec').value = picture.wanted;
}

export function showStatus(/** @type {SessionView} */ { accepted, meter, link, screen, picture }) {
  const { framesPerSecond, kilobytesPerSecond } = meter.read();
  const { width, height } = screen.canvas;
  const parts = [
    texts.status(framesPerSecond, kilobytesPerSecond, wholeRoundTrip(link.browserTrip, link.machineTrip)),
  ];
  if (picture.codec) parts.unshift(picture.codec === 'h264' ? 'H.264' : 'JPEG');
  if (screen.drawn) parts.unshift(`${width} × ${height}`);
  if (link.unstable) parts.push(texts.unstable);
  byId('status-line').textContent = accepted ? parts.join(' · ') : '';
}

function toggleFullScreen() {
  if (document.fullscreenElement) {
    document.exitFullscreen();
    return;
  }
  // With the keyboard's lock, where there is one, even Escape and Alt+Tab reach the machine.
  byId('view-session')
    .requestFullscreen()
    .then(() => /** @type {any} */ (navigator).keyboard?.lock?.())
    .catch(() => {});
}

/** A menu closes by a click elsewhere, by Escape in it, and by its own buttons. */
function closeMenusOutside() {
  const menus = /** @type {HTMLDetailsElement[]} */ ([...document.querySelectorAll('.menu')]);
  addEventListener('pointerdown', ({ target }) => {
    for (const menu of menus) if (!menu.contains(/** @type {Node} */ (target))) menu.open = false;
  });
  for (const menu of menus) {
    menu.addEventListener('keydown', (event) => {
      if (event.key !== 'Escape') return;
      menu.open = false;
      menu.querySelector('summary')?.focus();
    });
    menu.addEventListener('click', ({ target }) => {
      if (/** @type {Element} */ (target).closest('button')) menu.open = false;
    });
  }
}
