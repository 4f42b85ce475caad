// The view of the administration pages and of the own account: navigation, messages, and the page that the address
// names.
import { OwnAccount } from '../account/own_account.js';
import { byId, make, showView } from '../base/dom.js';
import { texts } from '../base/texts.js';
import { ApiError, get, statusOf } from '../link/api.js';
import { problemOf } from '../link/problems.js';
import { PAGES } from './pages/pages.js';
import { certificateWarning } from './parts/certificate.js';

/** @typedef {import('../account/me.js').Me} Me */
/** @typedef {import('./parts/context.js').Page} Page */
/** @typedef {import('./pages/pages.js').PageEntry} PageEntry */

/** The path, the rest and the query of an address such as #admin/groups/3?x=y */
const ADDRESS = /^#(account|admin\/\w+)(?:\/([^?]*))?(?:\?(.*))?$/;
const ACCOUNT = 'account';
/** The time after which the certificate is looked at again. */
const CERTIFICATE_MS = 3600_000;

export class PagesView {
  #onLost;
  #onRoleChanged;
  #place = byId('pages-place');
  #title = byId('pages-title');
  #notice = byId('pages-notice');
  /** @type {Me | null} */
  #me = null;
  /** @type {PageEntry[]} */
  #entries = [];
  /** @type {{path: string, page: Page} | null} the page that is shown */
  #shown = null;
  #waiting = 0;
  /** When the certificate was looked at last; 0 before. */
  #looked = 0;

  /**
   * @param {() => void} onLost called when a request was refused because the log-in has ended
   * @param {() => void} onRoleChanged called when a request was refused because the person has another role now
   */
  constructor(onLost, onRoleChanged) {
    this.#onLost = onLost;
    this.#onRoleChanged = onRoleChanged;
  }

  /** Prepares the pages of a person. @param {Me} me */
  enter(me) {
    this.hide();
    this.#me = me;
    this.#looked = 0;
    byId('pages-warning').hidden = true;
    const account = {
      path: ACCOUNT,
      title: texts.yourAccount,
      roles: [me.role],
      create: (/** @type {import('./parts/context.js').Context} */ c) => new OwnAccount(c),
    };
    this.#entries = [...PAGES.filter(({ roles }) => roles.includes(me.role)), account];
    byId('pages-user').textContent = me.name;
    byId('pages-back').hidden = me.role === 'auditor';
    this.#drawNavigation();
  }

  /** The address of the first administration page of the person; '' if there is none. */
  get home() {
    const [{ path }] = this.#entries;
    return path === ACCOUNT ? '' : `#${path}`;
  }

  /** Shows how many machines wait for approval. */
  showWaiting(/** @type {number} */ count) {
    this.#waiting = count;
    this.#drawNavigation();
  }

  /**
   * Shows the page that an address names.
   * @param {string} address the fragment of the page's address
   * @returns {boolean} false if the address names no page of this person
   */
  show(address) {
    const [, path, rest = '', query = ''] = ADDRESS.exec(address) ?? [];
    const entry = this.#entries.find((one) => one.path === path);
    if (!entry || !this.#me) return false;
    const same = this.#shown?.path === path;
    if (!same) this.#replace(entry);
    this.notify('');
    showView('pages', entry.title);
    this.#title.textContent = entry.title;
    for (const link of byId('pages-nav').querySelectorAll('a')) {
      link.ariaCurrent = link.hash === `#${path}` ? 'page' : null;
      if (link.ariaCurrent) link.scrollIntoView({ block: 'nearest', inline: 'center' });
    }
    if (!same) this.#title.focus();
    this.#load(decodeURIComponent(rest), new URLSearchParams(query));
    if (this.#me.role === 'administrator' && Date.now() - this.#looked > CERTIFICATE_MS)
      this.#warnOfCertificate().catch((error) => this.fail(error));
    return true;
  }

  /** Leaves the page that is shown. */
  hide() {
    this.#shown?.page.stop?.();
    this.#shown = null;
    this.#place.replaceChildren();
  }

  notify(/** @type {string} */ text) {
    this.#notice.hidden = text === '';
    this.#notice.textContent = text;
  }

  fail(/** @type {unknown} */ error) {
    if (statusOf(error) === 401) this.#onLost();
    else if (error instanceof ApiError && error.code === 'role') this.#onRoleChanged();
    else this.notify(problemOf(error));
  }

  async #warnOfCertificate() {
    this.#looked = Date.now();
    const { certificate } = await get('/api/status', { unattended: true });
    const warning = certificateWarning(
      /** @type {import('./parts/certificate.js').Certificate} */ (certificate),
    );
    const strip = byId('pages-warning');
    strip.hidden = warning === '';
    strip.textContent = warning;
  }

  #replace(/** @type {PageEntry} */ { path, create }) {
    this.hide();
    const page = create({
      notify: (text) => this.notify(text),
      fail: (error) => this.fail(error),
      me: () => /** @type {Me} */ (this.#me),
    });
    this.#shown = { path, page };
    this.#place.append(page.element);
  }

  async #load(/** @type {string} */ rest, /** @type {URLSearchParams} */ query) {
    const shown = this.#shown;
    this.#place.ariaBusy = 'true';
    await shown?.page.load(rest, query).catch((error) => {
      if (this.#shown === shown) this.fail(error);
    });
    if (this.#shown === shown) this.#place.ariaBusy = 'false';
  }

  #drawNavigation() {
    const nav = byId('pages-nav');
    const links = this.#entries
      .filter(({ path }) => path !== ACCOUNT)
      .map(({ path, title }) => {
        const link = make(
          'a',
          { href: `#${path}`, ariaCurrent: this.#shown?.path === path ? 'page' : null },
          title,
        );
        if (path === 'admin/machines' && this.#waiting)
          link.append(' ', make('span', { className: 'count-badge' }, String(this.#waiting)));
        return link;
      });
    nav.replaceChildren(...links);
    nav.hidden = links.length < 2;
  }
}
