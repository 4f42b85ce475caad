// Fills a relay with people, groups, machines and sessions, so that each page has something to show.
import { openSession } from '../fixture.mjs';
import { ScriptedAgent } from '../scripted_agent.mjs';
import { Api, addGroup, addPerson, administrator, decide, machineEntry } from './api.mjs';

/** @typedef {import('../fixture.mjs').Shared} Shared */
/** @typedef {import('../relay.mjs').Relay} Relay */

const NAMES = ['Herjólfur', 'Sæfari', 'Baldur engine', 'Old laptop', 'Copied image', 'Skaftfell'];

/** People, teams and groups. @param {Relay} relay */
async function fillPeople(relay) {
  const api = await administrator(relay);
  const jon = await addPerson(relay, { name: 'Jón' });
  await addPerson(relay, { name: 'Guðrún', role: 'auditor' });
  const gone = await addPerson(relay, { name: 'Þorlákur' });
  await api.send('PATCH', `people/${gone.id}`, { disabled: true });
  await api.post('people', { name: 'Sverrir', role: 'representative', teams: [] });
  const { id: shore } = await api.post('teams', { name: 'Shore', members: [jon.id] });
  const { id: night } = await api.post('teams', { name: 'Night watch', members: [jon.id, gone.id] });
  await api.post('invitations', { name: 'Ása', role: 'representative', teams: [night], hours: 72 });
  const rights = [
    { team: shore, rights: ['see', 'control', 'clipboard', 'files-up', 'files-down'] },
    { person: gone.id, rights: ['see'] },
  ];
  await api.send('PUT', 'groups/1/rights', { rights });
  const engines = await addGroup(relay, {
    name: 'Engine rooms',
    step_up: true,
    ask_reason: true,
    rights: [{ team: night, rights: ['see', 'control'] }],
  });
  return { jon, engines };
}

/** Lets two computers use the identity of a machine until the relay holds both back. @param {ScriptedAgent} agent */
async function useTwice(agent) {
  const copy = new ScriptedAgent(agent.relay, { name: agent.name });
  Object.assign(copy, { id: agent.id, secret: agent.secret });
  const pair = [copy, agent];
  while (!(await machineEntry(agent.relay, agent)).used_twice) {
    await pair[0].connect().catch(() => {});
    pair.reverse();
  }
  for (const one of pair) one.drop();
}

/** @param {import('node:test').TestContext} t @param {Shared} shared a relay without open enrolment */
export async function makeBusy(t, shared) {
  const { relay } = shared;
  const { jon, engines } = await fillPeople(relay);
  /** @type {ScriptedAgent[]} */
  const agents = [];
  for (const name of NAMES)
    agents.push(await ScriptedAgent.online(relay, { name, machine: name.toUpperCase() }));
  const [herjolfur, saefari, baldur, laptop, copied, skaftfell] = agents;
  await decide(relay, 'approve', agents, { group: 1 });
  await decide(relay, 'move', [baldur, saefari], { group: engines });
  baldur.drop();
  await decide(relay, 'block', [laptop], { reason: 'stolen in Rotterdam' });
  await decide(relay, 'quarantine', [skaftfell], { reason: 'a virus was found' });
  await useTwice(copied);
  const waiting = [
    await ScriptedAgent.online(relay, { name: 'Herjólfur', hardware: herjolfur.hardware }),
    await ScriptedAgent.online(relay, { name: 'Bridge <b>7</b>', machine: 'DESKTOP-4711' }),
  ];
  const api = await administrator(relay);
  await api.post('enrolment', { group: engines, minutes: 20, machines: 4 });
  t.after(() => {
    for (const agent of [...agents, ...waiting]) agent.drop();
  });
  await inSession(t, shared, jon, engines);
  return { engines };
}

/** A session with a reason. @param {import('node:test').TestContext} t @param {Shared} shared
 * @param {import('./api.mjs').Login} who @param {number} group */
async function inSession(t, shared, who, group) {
  const api = await Api.loggedIn(shared.relay, who);
  await api.post('step-up', { password: who.password });
  const asked = openSession(t, shared, {
    group,
    agent: { name: 'Dettifoss', machine: 'DETTIFOSS' },
    page: { storageState: api.browserState },
    reason: 'The printer of the bridge does not print',
  });
  return asked;
}
