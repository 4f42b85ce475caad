// The page about the own account: the name, the password, and one-time codes.
import { byId, make } from '../base/dom.js';
import { Formats } from '../base/formats.js';
import { locale } from '../base/locale.js';
import { ask, show } from '../base/ui/ask.js';
import { post } from '../link/api.js';
import { problemOf } from '../link/problems.js';
import { askWhoIAm } from './me.js';
import { texts } from './texts/texts.js';
import { backupCodes, totpSetup } from './totp_setup.js';

/** @typedef {import('./me.js').Me} Me */
/** @typedef {{notify: (text: string) => void, fail: (error: unknown) => void}} Reports */

/** @param {string} text @param {() => void} act */
function button(text, act) {
  const element = make('button', { type: 'button' }, text);
  element.addEventListener('click', act);
  return element;
}

/** @param {string} title @param {(Node | string)[]} content */
function section(title, ...content) {
  return make('section', { className: 'part' }, make('h2', {}, title), ...content);
}

/** @param {string} term @param {string} value */
function fact(term, value) {
  return [make('dt', {}, term), make('dd', {}, make('bdi', {}, value))];
}

export class OwnAccount {
  element = make('div', { className: 'account' });
  #reports;

  constructor(/** @type {Reports} */ reports) {
    this.#reports = reports;
  }

  async load() {
    this.#draw(await askWhoIAm());
  }

  stop() {
    this.element.replaceChildren();
  }

  #draw(/** @type {Me} */ me) {
    const until = me.expiresAt ? fact(texts.loginUntil, new Formats(locale).time(me.expiresAt)) : [];
    const facts = [
      ...fact(texts.accountName, me.name),
      ...fact(texts.accountRole, texts.roles[me.role]),
      ...until,
    ];
    const password = button(texts.changePassword, () => byId('password').click());
    password.id = 'account-password';
    this.element.replaceChildren(
      make('dl', { className: 'facts' }, ...facts),
      section(texts.passwordTitle, password),
      this.#codes(me),
    );
  }

  #codes(/** @type {Me} */ me) {
    if (!me.totp) {
      const setUp = button(texts.setUp, () => this.#setUp(me));
      return section(texts.totpTitle, make('p', {}, texts.totpOff), setUp);
    }
    return section(
      texts.totpTitle,
      make('p', {}, `${texts.totpOn} ${texts.codesLeft(me.backupCodesLeft)}`),
      make('p', { className: 'muted' }, texts.setUpAgainHint),
      button(texts.removeTotp, () => this.#remove()),
    );
  }

  async #setUp(/** @type {Me} */ me) {
    let codes = /** @type {string[]} */ ([]);
    try {
      const dialog = make('dialog', { className: 'asked', ariaLabel: texts.setUpTitle });
      const cancel = button(texts.cancel, () => dialog.close());
      cancel.className = 'quiet';
      const setup = await totpSetup({
        others: [cancel],
        onDone: (list) => {
          codes = list;
          dialog.close();
        },
      });
      const title = make('h2', { tabIndex: -1 }, texts.setUpTitle);
      dialog.append(title, ...setup.content);
      document.body.append(dialog);
      dialog.showModal();
      title.focus();
      await new Promise((closed) => dialog.addEventListener('close', closed));
      dialog.remove();
    } catch (error) {
      this.#reports.fail(error);
      return;
    }
    if (!codes.length) return;
    await show({ title: texts.backupTitle, content: backupCodes(codes, me.name), done: texts.backupKept });
    await this.#again(texts.totpSet);
  }

  async #remove() {
    const done = await ask({
      title: texts.removeTotpTitle,
      text: texts.removeTotpText,
      fields: [
        {
          name: 'password',
          label: texts.password,
          kind: 'password',
          more: { autocomplete: 'current-password', maxLength: 1024, required: true },
        },
      ],
      submit: texts.removeTotp.replace(' …', ''),
      danger: true,
      act: async ({ password }) => {
        await post('/api/totp/remove', { password: String(password) });
        return true;
      },
      explain: (error) =>
        problemOf(error, { 401: texts.wrongPassword, 403: texts.totpNeeded, 409: texts.totpNeeded }),
    });
    if (done) await this.#again(texts.totpRemoved);
  }

  async #again(/** @type {string} */ text) {
    await this.load().catch((error) => this.#reports.fail(error));
    this.#reports.notify(text);
  }
}
