// Restarting the machine: the question before it, and what is said until the machine is back.
import { byId } from '../base/dom.js';
import { texts } from '../base/texts.js';
import { Msg } from '../link/messages.js';

/** The machine answers nothing. One that is still there after this long has refused, or somebody there has. */
export const PATIENCE_MS = 90_000;

export class Restart {
  /** @param {import('./session.js').SessionView} session dispatches 'restarting' with `on` in its detail */
  constructor(session) {
    this.session = session;
    this.underWay = false;
    byId('restart').addEventListener('click', () => this.ask());
    byId('restart-dialog').addEventListener('close', () => {
      if (byId('restart-dialog').returnValue === 'restart') this.begin();
      byId('restart-dialog').returnValue = '';
    });
  }

  /** The machine is back, or nobody waits for it any more. */
  over() {
    byId('restart-dialog').close();
    clearTimeout(this.patience);
    this.underWay = false;
    this.session.setHands();
  }

  /** Says so over whatever picture there is. */
  show() {
    this.session.overlay.say(texts.restarting(this.session.name), { busy: true, back: true });
  }

  /** @private */
  ask() {
    if (!this.session.accepted) return;
    byId('restart-question').textContent = texts.restartQuestion(this.session.name);
    byId('restart-dialog').showModal();
  }

  /** @private */
  begin() {
    const { session } = this;
    if (!session.accepted) return;
    session.sendBytes(Msg.Reboot);
    this.underWay = true;
    session.setHands();
    this.show();
    this.tell(true);
    this.patience = setTimeout(() => this.refused(), PATIENCE_MS);
  }

  /** @private A machine that went away is waited for without limit. */
  refused() {
    if (!this.session.accepted) return;
    this.over();
    this.tell(false);
    this.session.overlay.say(texts.notRestarted(this.session.name), { goOn: true, back: true });
  }

  /** @private */
  tell(/** @type {boolean} */ on) {
    this.session.dispatchEvent(new CustomEvent('restarting', { detail: { agent: this.session.agent, on } }));
  }
}
