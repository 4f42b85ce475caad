// The warning before a log-in ends, with a way to go on. It is at the top of every view.
import { byId, make } from '../base/dom.js';
import { duration } from '../base/formats.js';
import { askWhoIAm } from './me.js';
import { proveIdentity } from './step_up.js';
import { texts } from './texts/texts.js';

const WARNING_S = 60;
/** The longest delay that a timer of the browser can have. */
const LONGEST_TIMER_MS = 0x7fffffff;

export class LoginEnd {
  #place = byId('login-ends');
  #text = make('span', {});
  #goOn = make('button', { type: 'button' }, texts.goOn);
  #onLost;
  /** @type {ReturnType<typeof setInterval> | undefined} */
  #ticking;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #timer;
  /** The end of the log-in, in the page's own time. */
  #end = 0;

  /** @param {() => void} onLost called when the log-in may have ended */
  constructor(onLost) {
    this.#onLost = onLost;
    // The time left changes each second, so it is not part of what is read out.
    this.#text.ariaHidden = 'true';
    this.#place.append(this.#text, this.#goOn);
    // In full screen, the browser shows nothing but the element that fills the screen.
    const home = this.#place.parentElement ?? document.body;
    document.addEventListener('fullscreenchange', () => {
      (document.fullscreenElement ?? home).append(this.#place);
    });
    this.#goOn.addEventListener('click', () => this.#stay());
  }

  /** Watches the end of the log-in. @param {import('./me.js').Me} me */
  follow(me) {
    this.stop();
    const left = me.expiresAt * 1000 - Date.now() - WARNING_S * 1000;
    if (me.expiresAt && left > 0)
      this.#timer = setTimeout(() => this.warn(WARNING_S), Math.min(left, LONGEST_TIMER_MS));
  }

  stop() {
    clearTimeout(this.#timer);
    clearInterval(this.#ticking);
    this.#ticking = undefined;
    this.#place.hidden = true;
  }

  /** Shows the warning. @param {number} seconds until the end of the log-in */
  warn(seconds) {
    this.#end = performance.now() + seconds * 1000;
    if (this.#ticking === undefined) {
      this.#place.hidden = false;
      this.#ticking = setInterval(() => this.#show(), 500);
      const spoken = make('span', { className: 'spoken' }, texts.endsSoon(duration(seconds)));
      byId('login-ends-spoken').replaceChildren(spoken);
    }
    this.#show();
  }

  #show() {
    const left = (this.#end - performance.now()) / 1000;
    this.#text.textContent = texts.endsSoon(duration(Math.max(0, left)));
    if (left > 0) return;
    this.stop();
    this.#onLost();
  }

  /** Extends the log-in. A request is enough after idle time; its longest time needs the password. */
  async #stay() {
    const me = await askWhoIAm().catch(() => null);
    if (!me) return this.#onLost();
    if (hasTime(me)) return this.follow(me);
    const proven = await proveIdentity({ title: texts.stayTitle, text: texts.stayText, totp: me.totp });
    const after = proven ? await askWhoIAm().catch(() => null) : null;
    if (after) this.follow(after);
  }
}

/** Whether the log-in goes on for longer than the warning. */
function hasTime(/** @type {import('./me.js').Me} */ { expiresAt, idleAt }) {
  const ends = [expiresAt, idleAt].filter((end) => end > 0);
  return ends.length > 0 && Math.min(...ends) > Date.now() / 1000 + WARNING_S + 5;
}
