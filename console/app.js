// The console's entry point: handles the log-in and the link to the relay, and selects the view to show.
import { LogIn } from './account/log_in.js';
import { LoginEnd } from './account/login_end.js';
import { askWhoIAm } from './account/me.js';
import { askReason, stepUp } from './account/step_up.js';
import { PagesView } from './admin/pages_view.js';
import { onDetail } from './base/custom_events.js';
import { byId, showView } from './base/dom.js';
import { nameOf } from './base/names.js';
import { fillIn, texts } from './base/texts.js';
import * as api from './link/api.js';
import { Link } from './link/link.js';
import { arrive, watchRelay, wayTo } from './link/relays.js';
import { askToForget } from './machines/forget.js';
import { MachineList } from './machines/machine_list.js';
import { attachPassword } from './machines/password.js';
import { attachSession } from './session/session_page.js';

/** The address of a session: its number at the relay, and the machine's id. */
const SESSION = /^#session=(\d+)&machine=([\w.~-]+)$/;

/** @typedef {import('./machines/machine_list.js').Machine} Machine */
/** @typedef {import('./link/link.js').ControlMessage} ControlMessage */
/** @typedef {import('./account/me.js').Me} Me */

fillIn(document);
const logIn = new LogIn();
const loginEnd = new LoginEnd(() => logIn.check());
const pages = new PagesView(
  () => logIn.ask(texts.loginEnded),
  () => logIn.start(),
);
const link = new Link(`wss://${location.host}/console`);
const { session, begin, comeBack } = attachSession(link);
const machines = new MachineList({
  open: openMachine,
  forget: forgetMachine,
  requestList: () => link.sendControl({ type: 'list' }),
});

/** The person who is logged in. @type {Me | null} */
let me = null;
/** What is said after the log-in, when the link is up. */
let remark = '';

async function openMachine(/** @type {Machine} */ machine) {
  if (!link.up) return;
  const reason = machine.ask_reason === true ? await askReason(machine) : '';
  if (reason === null || !link.up) return;
  showNotice('');
  showView('session', nameOf(machine));
  begin(machine, reason);
}

/** Asks what the relay wants to know before a session, and requests the session again. */
async function answerQuestion(/** @type {'step-up' | 'reason' | 'elsewhere'} */ question) {
  if (question === 'elsewhere') return followMachine();
  const machine = machines.machines.find(({ id }) => id === session.agent);
  if (!machine) return;
  // One-time codes may have been set up or switched off since the log-in.
  const now = question === 'reason' ? me : await askWhoIAm().catch(() => me);
  const answer = question === 'reason' ? await askReason(machine) : await stepUp(machine, now?.totp === true);
  if (answer === null || answer === false) session.leave();
  else session.answer(answer === true ? undefined : answer);
}

/** Whether the relay is being asked where a machine is. */
let following = false;

/** Goes to the relay that has the session's machine. */
async function followMachine() {
  if (following) return;
  following = true;
  try {
    const address = await wayTo(session.agent);
    session.depart();
    location.assign(address);
  } catch (error) {
    // The machine is on its way: the next list of machines says where it is.
    if (api.statusOf(error) !== 404) showNotice(texts.failed);
  }
  following = false;
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

/** Shows a message above what is shown. */
function showRemark(/** @type {string} */ text) {
  showNotice(text);
  pages.notify(text);
}

/** Shows the view that the page's address names after a log-in. */
function enter(/** @type {Me} */ person) {
  me = person;
  session.person = person;
  byId('user-name').textContent = person.name;
  pages.enter(person);
  byId('admin-link', HTMLAnchorElement).href = pages.home || '#';
  byId('admin-link').hidden = pages.home === '';
  loginEnd.follow(person);
  showWaiting(0);
  route();
  // An auditor sees no machine.
  if (person.role === 'auditor') link.stop();
  else if (!link.wanted) connect();
}

function connect() {
  showNotice(texts.connecting);
  link.start();
}

/** Shows the view that the page's address names. A session stays on the page whatever the address is. */
function route() {
  if (!me || session.inUse) return;
  if (returned()) return;
  if (pages.show(location.hash)) return;
  pages.hide();
  if (me.role === 'auditor') location.replace(pages.home || '#account');
  else showView('machines', texts.machines);
}

/** Returns to the session that the page's address names, for instance after the page was loaded again. */
function returned() {
  const [, number, agent] = SESSION.exec(location.hash) ?? [];
  if (!agent || me?.role === 'auditor') return false;
  pages.hide();
  showView('session', '');
  comeBack(agent, Number(number));
  if (link.up) session.machinesChanged(machines.machines);
  return true;
}

/** Shows in the page's address where the page returns to when it is loaded again. */
function showPlace(/** @type {number | null} */ number) {
  const place = number === null ? '' : `#session=${number}&machine=${session.agent}`;
  if (location.hash !== place) history.replaceState(null, '', `${location.pathname}${place}`);
}

/** Ends what only a log-in allows, before the log-in page is shown. */
function leave() {
  me = null;
  loginEnd.stop();
  pages.hide();
  session.leave();
  link.stop();
}

function showWaiting(/** @type {number} */ count) {
  pages.showWaiting(count);
  byId('admin-link').textContent = count ? texts.administrationWaiting(count) : texts.administration;
}

function receiveControl(/** @type {ControlMessage} */ message) {
  if (machines.receive(message)) session.machinesChanged(machines.machines);
  if (message.type === 'session') session.receiveChange(message);
  if (message.type === 'error') session.receiveError(message);
  if (message.type === 'waiting') showWaiting(Number(message.count) || 0);
  if (message.type === 'login-ends') loginEnd.warn(Number(message.seconds) || 0);
}

onDetail(session, 'left', (/** @type {string} */ remark) => {
  showNotice(link.up ? remark : texts.reconnecting);
  if (location.hash) history.replaceState(null, '', location.pathname);
  showView('machines', texts.machines);
  if (!machines.focus(session.agent)) byId('machines-title').focus();
});
onDetail(session, 'question', answerQuestion);
watchRelay(
  link,
  () => (session.inUse ? session.agent : ''),
  () => session.depart(),
);
onDetail(session, 'place', showPlace);
onDetail(session, 'restarting', (/** @type {{agent: string, on: boolean}} */ { agent, on }) =>
  machines.showRestarting(agent, on),
);
link.addEventListener('up', () => {
  showNotice(remark);
  remark = '';
});
link.addEventListener('down', () => {
  session.linkLost();
  if (!link.wanted) return;
  showNotice(texts.reconnecting);
  // A script cannot distinguish a refused WebSocket from a relay that is down, so it asks the relay by HTTP.
  logIn.check();
});
onDetail(link, 'control', receiveControl);
addEventListener('online', () => link.connectNow());

addEventListener('hashchange', route);

onDetail(logIn, 'entered', (/** @type {{me: Me, remark: string, byForm: boolean}} */ entered) => {
  remark = entered.remark;
  enter(entered.me);
  if (remark) pages.notify(remark);
  if (entered.byForm && !byId('view-machines').hidden) byId('machines-title').focus();
});
logIn.addEventListener('asked', leave);
attachPassword(() => showRemark(texts.passwordChanged));
for (const id of ['logout', 'pages-logout']) byId(id).addEventListener('click', () => logIn.logOut());
arrive().then(() => logIn.start());
