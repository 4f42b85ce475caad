// The console's start: log-in, the link to the relay, and which of the three views is shown.

import { byId, showView } from './base/dom.js';
import { inSentence, nameOf, tidy } from './base/names.js';
import { fillIn, texts } from './base/texts.js';
import * as api from './link/api.js';
import { Link } from './link/link.js';
import { MachineList } from './machines/machines.js';
import { attachPassword } from './machines/password.js';
import { SessionView } from './session/session.js';

fillIn(document);
const link = new Link(`wss://${location.host}/console`);
const session = new SessionView(link, (remark) => {
  notice(link.up ? remark : texts.reconnecting);
  showView('machines');
});
const machines = new MachineList({ open: openMachine, forget: forgetMachine });

function openMachine(/** @type {import('./machines/machines.js').Machine} */ machine) {
  if (!link.up) return;
  notice('');
  showView('session');
  session.begin(machine);
}

async function forgetMachine(/** @type {import('./machines/machines.js').Machine} */ machine) {
  if (!confirm(texts.forgetQuestion(inSentence(nameOf(machine))))) return;
  await api.forget(machine.id).catch((error) => notice(error.status ? texts.failed : texts.noRelay));
}

function notice(/** @type {string} */ text) {
  byId('link-notice').hidden = text === '';
  byId('link-notice').textContent = text;
}

function enter(/** @type {string} */ name) {
  byId('user-name').textContent = tidy(name);
  notice(texts.connecting);
  showView('machines');
  link.start();
}

function askForLogin(/** @type {string} */ message) {
  session.leave();
  link.stop();
  byId('password-dialog').close();
  byId('login-error').textContent = message;
  byId('login-password').value = '';
  showView('login');
  byId('login-name').focus();
}

session.addEventListener('restarting', (/** @type {any} */ { detail }) =>
  machines.expectBack(detail.agent, detail.on),
);
link.addEventListener('up', () => notice(''));
link.addEventListener('down', async () => {
  session.linkLost();
  if (!link.wanted) return;
  notice(texts.reconnecting);
  // A refused upgrade and a relay that is away look alike to a page; the difference is asked for.
  await api.me().catch((error) => error.status === 401 && askForLogin(texts.loginEnded));
});
link.addEventListener('control', (/** @type {any} */ { detail }) => {
  if (detail.type === 'agents') {
    machines.update(detail.agents);
    session.machinesChanged(machines.machines);
  }
  if (detail.type === 'session') session.changed(detail);
  if (detail.type === 'error') session.refused(detail);
});
link.addEventListener('envelope', (/** @type {any} */ { detail }) => session.receive(detail));
addEventListener('online', () => link.hurry());

byId('login-form').addEventListener('submit', async (/** @type {SubmitEvent} */ event) => {
  event.preventDefault();
  byId('login-submit').disabled = true;
  try {
    const { name } = await api.login(byId('login-name').value, byId('login-password').value);
    byId('login-error').textContent = '';
    byId('login-password').value = '';
    enter(name);
  } catch (/** @type {any} */ error) {
    const known = /** @type {Record<number, string>} */ ({
      401: texts.wrongLogin,
      429: texts.tooManyLogins,
      0: texts.noRelay,
    });
    byId('login-error').textContent = known[error.status] ?? texts.failed;
    byId('login-password').select();
  }
  byId('login-submit').disabled = false;
});
attachPassword(() => notice(texts.passwordChanged));
byId('logout').addEventListener('click', async () => {
  await api.logout().catch(() => {});
  askForLogin('');
});

api
  .me()
  .then(({ name }) => enter(name))
  .catch(() => askForLogin(''));
