// The texts of the page of the relay's status in English.

export const statusEnglish = {
  status: {
    version: 'Version',
    started: 'Running since',
    certificate: 'Certificate valid until',
    soon: 'ends soon',
    authority: 'Certificate authority valid until',
    certificateProblem: 'Problem of the certificate',
    authorityEnds: (/** @type {number} */ days, /** @type {string} */ when) =>
      `The relay's certificate authority ends in ${days === 1 ? 'one day' : `${days} days`} (${when}). Prepare a new one and let all machines trust it before that.`,
    certificateEnds: (/** @type {number} */ days, /** @type {string} */ when) =>
      `The relay's certificate ends in ${days === 1 ? 'one day' : `${days} days`} (${when}). Agents and browsers cannot connect after that.`,
    certificateEnded: (/** @type {string} */ when) =>
      `The relay's certificate ended (${when}). Agents and browsers that connect now refuse it.`,
    backup: 'Last backup',
    noBackup: 'none recorded',
    unknown: 'unknown',
    use: 'In use',
    online: 'Machines online',
    waiting: 'Machines waiting for approval',
    sessions: 'Sessions',
    sessionCounts: (/** @type {string} */ running, /** @type {string} */ held, /** @type {string} */ asked) =>
      `${running} running, ${held} held, ${asked} not answered yet`,
    browsers: 'Browsers',
    streams: 'Machines that send pictures',
    pictures: 'Pictures a second',
    resources: 'Memory and queues',
    memory: 'Memory',
    messages: 'Large messages on their way',
    agentQueues: 'Waiting for machines',
    browserQueues: 'Waiting for browsers',
    lag: 'Longest delay in the last minutes',
    milliseconds: (/** @type {string} */ count) => `${count} ms`,
    storage: 'Disk and database',
    dataFree: 'Free for the data folder',
    spoolFree: 'Free for downloads that wait',
    spool: 'Downloads that wait',
    jobs: 'Jobs of the database that wait',
    jobTimes: '99 % of these jobs took at most',
    of: (/** @type {string} */ used, /** @type {string} */ limit) => `${used} of ${limit}`,
  },
};
