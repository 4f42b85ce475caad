// The texts of the page of the relay's status in Icelandic.

/** Whether nouns after a count are in the singular: after 1, 21, 31 and so on, but not after 11. */
const singular = (/** @type {number} */ count) => count % 10 === 1 && count % 100 !== 11;

export const statusIcelandic = {
  status: {
    version: 'Útgáfa',
    started: 'Í gangi síðan',
    certificate: 'Skilríki gilda til',
    soon: 'rennur bráðum út',
    authority: 'Vottunarstöð gildir til',
    certificateProblem: 'Vandi með skilríki',
    authorityEnds: (/** @type {number} */ days, /** @type {string} */ when) =>
      `Vottunarstöð miðlarans rennur út eftir ${days} ${singular(days) ? 'dag' : 'daga'} (${when}). Útbúðu nýja og láttu allar tölvur treysta henni fyrir þann tíma.`,
    certificateEnds: (/** @type {number} */ days, /** @type {string} */ when) =>
      `Skilríki miðlarans renna út eftir ${days} ${singular(days) ? 'dag' : 'daga'} (${when}). Eftir það geta tölvur og vafrar ekki tengst.`,
    certificateEnded: (/** @type {string} */ when) =>
      `Skilríki miðlarans eru útrunnin (${when}). Tölvur og vafrar sem tengjast nú hafna þeim.`,
    backup: 'Síðasta öryggisafrit',
    noBackup: 'ekkert skráð',
    unknown: 'óþekkt',
    use: 'Í notkun',
    online: 'Tengdar tölvur',
    waiting: 'Tölvur sem bíða samþykkis',
    sessions: 'Fjaraðstoð',
    sessionCounts: (/** @type {string} */ running, /** @type {string} */ held, /** @type {string} */ asked) =>
      `${running} í gangi, ${held} í bið, ${asked} ósvarað`,
    browsers: 'Vafrar',
    streams: 'Tölvur sem senda myndir',
    pictures: 'Myndir á sekúndu',
    resources: 'Minni og biðraðir',
    memory: 'Minni',
    messages: 'Stór skeyti á leiðinni',
    agentQueues: 'Bíður tölva',
    browserQueues: 'Bíður vafra',
    lag: 'Lengsta töf síðustu mínútur',
    milliseconds: (/** @type {string} */ count) => `${count} ms`,
    storage: 'Diskur og gagnagrunnur',
    dataFree: 'Laust fyrir gagnamöppuna',
    spoolFree: 'Laust fyrir niðurhal í bið',
    spool: 'Niðurhal í bið',
    jobs: 'Verk sem bíða gagnagrunnsins',
    jobTimes: '99 % þessara verka tóku mest',
    of: (/** @type {string} */ used, /** @type {string} */ limit) => `${used} af ${limit}`,
  },
};
