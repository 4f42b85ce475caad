// The console's entry point: handles the log-in and the link to the relay, and selects the view to show.
import { onDetail } from './base/custom_events.js';
import { byId, showView } from './base/dom.js';
import { nameOf, tidy } from './base/names.js';
import { fillIn, texts } from './base/texts.js';
import * as api from './link/api.js';
import { Link } from './link/link.js';
import { askToForget } from './machines/forget.js';
import { MachineList } from './machines/machine_list.js';
import { attachPassword } from './machines/password.js';
import { attachSession } from './session/session_page.js';

/** @typedef {import('./machines/machine_list.js').Machine} Machine */
/** @typedef {import('./link/link.js').ControlMessage} ControlMessage */

const LOGIN_ERRORS = new Map([
  [401, texts.wrongLogin],
  [429, texts.tooManyLogins],
  [0, texts.noRelay],
]);

fillIn(document);
const link = new Link(`wss://${location.host}/console`);
const { session, begin } = attachSession(link);
const machines = new MachineList({ open: openMachine, forget: forgetMachine });

/** The id of the machine with which the last session was requested. */
let opened = '';

function openMachine(/** @type {Machine} */ machine) {
  if (!link.up) return;
  opened = machine.id;
  showNotice('');
  showView('session', nameOf(machine));
  begin(machine);
}

async function forgetMachine(/** @type {Machine} */ machine) {
  if (!(await askToForget(machine))) return;
  try {
    await api.forget(machine.id);
  } catch (error) {
    showNotice(api.statusOf(error) ? texts.failed : texts.noRelay);
  }
}

function showNotice(/** @type {string} */ text) {
  byId('link-notice').hidden = text === '';
  byId('link-notice').textContent = text;
}

/** Shows the list of machines after a log-in. */
function enter(/** @type {unknown} */ name) {
  byId('user-name').textContent = tidy(name);
  showNotice(texts.connecting);
  showView('machines', texts.machines);
  link.start();
}

function askForLogin(/** @type {string} */ message) {
  session.leave();
  link.stop();
  const [name, password] = ['login-name', 'login-password'].map((id) => byId(id, HTMLInputElement));
  byId('login-error').textContent = message;
  password.value = '';
  showView('login', texts.logIn);
  (name.value ? password : name).focus();
}

async function logIn() {
  const password = byId('login-password', HTMLInputElement);
  const submit = byId('login-submit', HTMLButtonElement);
  submit.disabled = true;
  try {
    const { name } = await api.login(byId('login-name', HTMLInputElement).value, password.value);
    byId('login-error').textContent = '';
    password.value = '';
    enter(name);
    byId('machines-title').focus();
  } catch (error) {
    byId('login-error').textContent = LOGIN_ERRORS.get(api.statusOf(error) ?? -1) ?? texts.failed;
    password.select();
  }
  submit.disabled = false;
}

/** Shows the log-in page if the relay reports that the log-in has ended. */
async function checkLogin() {
  try {
    await api.me();
  } catch (error) {
    if (api.statusOf(error) === 401) askForLogin(texts.loginEnded);
  }
}

function receiveControl(/** @type {ControlMessage} */ message) {
  if (message.type === 'agents') {
    machines.update(message.agents);
    session.machinesChanged(machines.machines);
  }
  if (message.type === 'session') session.receiveChange(message);
  if (message.type === 'error') session.receiveError(message);
}

onDetail(session, 'left', (/** @type {string} */ remark) => {
  showNotice(link.up ? remark : texts.reconnecting);
  showView('machines', texts.machines);
  if (!machines.focus(opened)) byId('machines-title').focus();
});
onDetail(session, 'restarting', (/** @type {{agent: string, on: boolean}} */ { agent, on }) =>
  machines.showRestarting(agent, on),
);
link.addEventListener('up', () => showNotice(''));
link.addEventListener('down', () => {
  session.linkLost();
  if (!link.wanted) return;
  showNotice(texts.reconnecting);
  // A script cannot distinguish a refused WebSocket from a relay that is down, so it asks the relay by HTTP.
  checkLogin();
});
onDetail(link, 'control', receiveControl);
addEventListener('online', () => link.connectNow());

byId('login-form').addEventListener('submit', (event) => {
  event.preventDefault();
  logIn();
});
attachPassword(() => showNotice(texts.passwordChanged));
byId('logout').addEventListener('click', async () => {
  await api.logout().catch(() => {});
  askForLogin('');
});

api
  .me()
  .then(({ name }) => enter(name))
  .catch(() => askForLogin(''));
