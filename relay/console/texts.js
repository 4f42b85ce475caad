// Every text that the representative reads.

export const texts = Object.freeze({
  wrongLogin: 'That name and password do not belong together.',
  tooManyLogins: 'Too many failed log-ins. Wait ten minutes and try again.',
  noRelay: 'The relay does not answer. Check the connection and try again.',
  loginEnded: 'Your login has ended. Please log in again.',
  noMachines: 'No machine has enrolled yet. Start the agent on one, and it appears here.',
  noMatch: 'No machine has that in its name.',
  forgetQuestion: (/** @type {string} */ name) => `Forget ${name}? It will have to enrol again.`,
  forget: 'Forget',
  state: { online: 'Online', offline: 'Offline', session: 'In session' },
  with: (/** @type {string} */ who) => `with ${who}`,
  lastSeen: (/** @type {string} */ when) => `last seen ${when}`,
  connecting: 'Connecting to the relay …',
  reconnecting: 'The link to the relay is down. Connecting again …',
  waiting: (/** @type {string} */ name) => `Waiting for somebody at ${name} to allow the session …`,
  starting: 'Waiting for the first picture …',
  ended: {
    declined: 'The session was declined at the machine.',
    closed: 'The session has ended.',
    'agent-gone': 'The machine has gone offline.',
    replaced: 'The machine connected anew, which ended the session.',
    slow: 'This browser could not keep up, which ended the session.',
    'no-answer': 'Nobody answered at the machine.',
    other: 'The session has ended.',
  },
  status: (/** @type {number} */ fps, /** @type {number} */ kilobytes, /** @type {number | null} */ trip) =>
    `${fps.toFixed(0)} frames/s · ${kilobytes.toFixed(0)} kB/s · ${trip === null ? '–' : `${trip} ms`} round trip`,
  unstable: ' · unstable',
  monitor: (/** @type {number} */ number) => `Display ${number}`,
});
