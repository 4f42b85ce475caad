// The log-in: the form, the stages between the password and the console, invitations, and the log-out.
import { emit } from '../base/custom_events.js';
import { byId, showView } from '../base/dom.js';
import { texts } from '../base/texts.js';
import * as api from '../link/api.js';
import { problemOf } from '../link/problems.js';
import { askWhoIAm } from './me.js';
import { clearStage, showCode, showInvitation, showNewPassword, showSetUp } from './stages.js';
import { texts as own } from './texts/texts.js';

const INVITATION = /^#invitation=([\w.~-]+)$/;
const LOGIN_ERRORS = { 401: texts.wrongLogin, 429: texts.tooManyLogins };

/**
 * Events: 'entered' (detail: {me: Me, remark: string, byForm: boolean}) when the log-in is complete, 'asked'
 * before the log-in page is shown.
 */
export class LogIn extends EventTarget {
  #name = byId('login-name', HTMLInputElement);
  #password = byId('login-password', HTMLInputElement);
  #submit = byId('login-submit', HTMLButtonElement);
  #error = byId('login-error');
  /** The password of a log-in whose stage needs it once more; otherwise ''. */
  #old = '';
  /** What is said after the log-in. */
  #remark = '';
  /** How often the log-in page was shown. A check that began before does not concern the present log-in. */
  #turn = 0;

  constructor() {
    super();
    byId('login-form').addEventListener('submit', (event) => {
      event.preventDefault();
      this.#send();
    });
  }

  /** Continues the log-in of the browser, or asks for one. */
  async start() {
    const [, token] = INVITATION.exec(location.hash) ?? [];
    if (token) {
      // The link of an invitation is secret, so it does not stay in the browser's history.
      history.replaceState(null, '', location.pathname);
      showInvitation(token, (message, name) => this.ask(message, name));
      return;
    }
    await askWhoIAm().then(
      (me) => this.#goOn(me.stage, false, me),
      () => this.ask(''),
    );
  }

  /** Shows the log-in page. @param {string} message @param {string} [name] fills in the name */
  ask(message, name) {
    this.#turn += 1;
    emit(this, 'asked');
    this.#leaveStage();
    if (name) this.#name.value = name;
    this.#error.textContent = message;
    this.#password.value = '';
    showView('login', texts.logIn);
    (this.#name.value ? this.#password : this.#name).focus();
  }

  async logOut() {
    // The relay closes the log-in's WebSocket before it answers, so the console stops using it first.
    this.ask('');
    // The answer removes the cookie, also that of a next log-in.
    this.#submit.disabled = true;
    try {
      await api.logout();
    } catch (error) {
      if (api.statusOf(error) !== 401) this.#error.textContent = own.logOutFailed;
    }
    this.#submit.disabled = false;
  }

  /** Shows the log-in page if the relay reports that the log-in has ended. */
  async check() {
    const turn = this.#turn;
    try {
      await api.me();
    } catch (error) {
      if (api.statusOf(error) === 401 && turn === this.#turn) this.ask(texts.loginEnded);
    }
  }

  #leaveStage() {
    this.#old = '';
    this.#remark = '';
    clearStage();
  }

  async #send() {
    this.#submit.disabled = true;
    try {
      const { stage } = await api.login(this.#name.value, this.#password.value);
      this.#error.textContent = '';
      if (isStage(stage)) this.#old = this.#password.value;
      this.#password.value = '';
      await this.#goOn(stage, true);
    } catch (error) {
      this.#error.textContent = problemOf(error, LOGIN_ERRORS);
      this.#password.select();
    }
    this.#submit.disabled = false;
  }

  /**
   * Shows the page of a stage, or the console after the last.
   * @param {unknown} stage of the log-in; undefined when it has to be asked for
   * @param {boolean} byForm whether the representative has just typed something
   * @param {import('./me.js').Me} [known]
   * @returns {Promise<void>}
   */
  async #goOn(stage, byForm, known) {
    const next = (/** @type {unknown} */ after) =>
      this.#goOn(after, true).catch(() => this.ask(texts.noRelay));
    const logOut = () => this.logOut();
    if (stage === 'password') return showNewPassword({ old: this.#old, next, logOut });
    if (stage === 'totp')
      return showCode({ next: (after, backup) => this.#codeAccepted(after, backup), logOut });
    const me = known ?? (await askWhoIAm());
    if (me.stage !== stage && isStage(me.stage)) return this.#goOn(me.stage, byForm, me);
    if (stage === 'totp-setup') return showSetUp({ name: me.name, next, logOut });
    const remark = this.#remark && own.backupCodesLeft(me.backupCodesLeft);
    this.#leaveStage();
    emit(this, 'entered', { me, remark, byForm });
  }

  /** @param {unknown} stage @param {boolean} backup whether the code was a backup code */
  async #codeAccepted(stage, backup) {
    this.#remark = backup ? 'backup' : '';
    await this.#goOn(stage, true).catch(() => this.ask(texts.noRelay));
  }
}

function isStage(/** @type {unknown} */ stage) {
  return stage === 'password' || stage === 'totp' || stage === 'totp-setup';
}
