// The pages between the password and the console: a new password, a one-time code, setting up codes, and the
// page of an invitation.
import { byId, make, setTitle, showView } from '../base/dom.js';
import { inSentence, tidy } from '../base/names.js';
import { form } from '../base/ui/form.js';
import * as api from '../link/api.js';
import { problemOf } from '../link/problems.js';
import { newPassword, newPasswordFields, oldPasswordField, UnfitPassword } from './new_password.js';
import { texts } from './texts/texts.js';
import { backupCodes, codeField, totpSetup } from './totp_setup.js';

/** The codes of authenticator apps; backup codes are longer. */
const ONE_TIME_CODE = /^\d{6}$/;

/** @param {unknown} error @param {Record<string, string>} own */
function explain(error, own) {
  return error instanceof UnfitPassword ? error.message : problemOf(error, own);
}

/**
 * Shows one card in the middle of the page.
 * @param {string} title
 * @param {string} text
 * @param {HTMLElement[]} content
 */
function showCard(title, text, content) {
  const heading = make('h1', { tabIndex: -1 }, title);
  const mark = make('img', { className: 'mark', src: '/mark.svg', alt: '', width: 40, height: 40 });
  const brand = make('div', { className: 'brand small' }, mark, heading);
  const card = make(
    'div',
    { className: 'card wide' },
    brand,
    ...(text ? [make('p', { className: 'dialog-text' }, text)] : []),
  );
  card.append(...content);
  byId('view-stage').replaceChildren(card);
  showView('stage', title);
  heading.focus();
}

/** Empties the page, so that no secret stays in it. */
export function clearStage() {
  byId('view-stage').replaceChildren();
}

/** @param {() => void} onLogOut */
function logOutButton(onLogOut) {
  const button = make('button', { type: 'button', className: 'quiet' }, texts.logOut);
  button.addEventListener('click', onLogOut);
  return button;
}

/**
 * The page that a log-in with a one-time password leads to.
 * @param {{old: string, next: (stage: unknown) => void, logOut: () => void}} parts old: the password of the
 *   log-in; '' after the page was loaded again
 */
export function showNewPassword({ old, next, logOut }) {
  const asked = form({
    fields: [...(old ? [] : [oldPasswordField()]), ...newPasswordFields()],
    submit: texts.setPassword,
    others: [logOutButton(logOut)],
    act: async (values) => {
      const wanted = newPassword(values);
      const { stage } = await api.changePassword(old || String(values.old), wanted);
      next(stage);
    },
    explain: (error) => explain(error, { 401: texts.wrongOldPassword }),
  });
  showCard(texts.mustChangeTitle, texts.mustChangeText, [asked.element]);
  asked.focus();
}

/**
 * The page that asks for a one-time code or a backup code.
 * @param {{next: (stage: unknown, backup: boolean) => void, logOut: () => void}} parts backup: whether a backup
 *   code was typed
 */
export function showCode({ next, logOut }) {
  const asked = form({
    fields: [codeField()],
    submit: texts.goOn,
    others: [logOutButton(logOut)],
    act: async ({ code }) => {
      const typed = String(code).replaceAll(/\s/g, '');
      const { stage } = await api.post('/api/login/code', { code: typed });
      next(stage, !ONE_TIME_CODE.test(typed));
    },
    explain: (error) =>
      problemOf(error, { 400: texts.wrongCode, 401: texts.wrongCode, 429: texts.tooManyCodes }),
  });
  showCard(texts.codeTitle, texts.codeText, [asked.element]);
  asked.focus();
}

/**
 * The page on which codes must be set up before the log-in is complete.
 * @param {{name: string, next: (stage: unknown) => void, logOut: () => void}} parts
 */
export async function showSetUp({ name, next, logOut }) {
  const setup = await totpSetup({
    others: [logOutButton(logOut)],
    onDone: (codes) => showBackupCodes(codes, name, () => next(undefined)),
  });
  showCard(texts.setUpTitle, texts.setUpRequired, setup.content);
}

/** @param {string[]} codes @param {string} name @param {() => void} goOn */
function showBackupCodes(codes, name, goOn) {
  const button = make('button', { type: 'button', className: 'primary' }, texts.backupKept);
  button.addEventListener('click', goOn);
  showCard(texts.backupTitle, '', [...backupCodes(codes, name), button]);
}

/**
 * The page of an invitation.
 * @param {string} token from the link
 * @param {(message: string, name: string) => void} toLogIn shows the log-in page
 */
export function showInvitation(token, toLogIn) {
  const leave = make('button', { type: 'button', className: 'quiet' }, texts.toLogIn);
  leave.addEventListener('click', () => toLogIn('', ''));
  const asked = form({
    fields: newPasswordFields(),
    submit: texts.setPassword,
    others: [leave],
    act: async (values) => {
      const password = newPassword(values);
      const answer = await api.post('/api/invitations/accept', { token, password });
      const name = tidy(answer.name);
      toLogIn(texts.inviteDone(inSentence(name)), name);
    },
    explain: (error) =>
      explain(error, {
        401: texts.inviteOver,
        403: texts.inviteOver,
        404: texts.inviteOver,
        410: texts.inviteOver,
      }),
  });
  showCard(texts.inviteTitle, texts.inviteText, [asked.element]);
  setTitle(texts.inviteTitle);
  asked.focus();
}
