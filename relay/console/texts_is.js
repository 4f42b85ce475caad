// The console's words in Icelandic; the keys are those of texts_en.js.

const ms = (/** @type {number | null} */ trip) => (trip === null ? '–' : `${trip} ms`);

/** Whether a count takes the singular: 1, 21, 31 and so on, but not 11. */
const singular = (/** @type {number} */ count) => count % 10 === 1 && count % 100 !== 11;

/** In the dative, one and many. Browsers are often built without the language's own forms. */
const AGES = { minute: ['mínútu', 'mínútum'], hour: ['klukkustund', 'klukkustundum'], day: ['degi', 'dögum'] };

export const icelandic = {
  language: 'is',
  slogan: 'Fjaraðstoð fyrir skip og land',
  name: 'Nafn',
  password: 'Lykilorð',
  logIn: 'Skrá inn',
  logOut: 'Skrá út',
  wrongLogin: 'Nafn og lykilorð eiga ekki saman.',
  tooManyLogins: 'Of margar misheppnaðar innskráningar. Bíddu í tíu mínútur og reyndu aftur.',
  noRelay: 'Miðlarinn svarar ekki. Athugaðu tenginguna og reyndu aftur.',
  loginEnded: 'Innskráningin er útrunnin. Skráðu þig inn aftur.',
  failed: 'Miðlarinn gat ekki gert þetta.',

  machines: 'Tölvur',
  search: 'Leita',
  searchMachines: 'Leita að tölvu',
  machineCount: (/** @type {number} */ all, /** @type {number} */ online) =>
    `${all} ${singular(all) ? 'tölva' : 'tölvur'}, ${online} ${singular(online) ? 'nettengd' : 'nettengdar'}`,
  noMachines: 'Engin tölva hefur verið skráð enn. Ræstu forritið á tölvu og þá birtist hún hér.',
  noMatch: 'Engin tölva ber slíkt nafn.',
  connect: 'Tengjast',
  forget: 'Gleyma',
  forgetQuestion: (/** @type {string} */ machine) => `Gleyma tölvunni ${machine}? Þá þarf að skrá hana upp á nýtt.`,
  state: { online: 'Nettengd', offline: 'Ótengd', session: 'Fjaraðstoð í gangi', restarting: 'Endurræsir' },
  with: (/** @type {string} */ who) => `með ${who}`,
  lastSeen: (/** @type {'now' | 'minute' | 'hour' | 'day'} */ unit, /** @type {number} */ count) =>
    `síðast tengd ${unit === 'now' ? 'rétt í þessu' : `fyrir ${count} ${AGES[unit][singular(count) ? 0 : 1]}`}`,
  connecting: 'Tengist miðlara …',
  reconnecting: 'Sambandið við miðlarann rofnaði. Tengist aftur …',

  displays: 'Skjáir',
  display: (/** @type {number} */ number) => `Skjár ${number}`,
  picture: 'Mynd',
  rate: 'Myndir á sekúndu',
  codec: 'Kóðun',
  notInThisBrowser: 'ekki í þessum vafra',
  showPointer: 'Sýna bendil tölvunnar',
  actualSize: 'Raunstærð',
  restartPicture: 'Endurræsa myndina',
  findDisplays: 'Leita að skjám',
  keys: 'Lyklar',
  keyMode: 'Lyklaborð',
  byCharacter: 'eftir stöfum',
  byPosition: 'eftir staðsetningu',
  typeText: 'Slá inn texta …',
  typeQuestion: 'Texti til að slá inn á tölvunni',
  type: 'Slá inn',
  cancel: 'Hætta við',
  machine: 'Tölva',
  restart: 'Endurræsa …',
  restartQuestion: (/** @type {string} */ machine) => `Endurræsa tölvuna ${machine}? Forritum þar verður lokað og það sem ekki ` +
    'hefur verið vistað getur glatast. Fjaraðstoðin heldur áfram þegar tölvan er komin aftur.',
  restartNow: 'Endurræsa',
  restarting: (/** @type {string} */ machine) =>
    `Tölvan ${machine} er að endurræsa sig. Fjaraðstoðin heldur áfram þegar hún er komin aftur …`,
  notRestarted: (/** @type {string} */ machine) => `Tölvan ${machine} endurræsti sig ekki. Verið getur að kerfið hafi neitað því.`,
  closePanel: 'Loka',
  viewOnly: 'Aðeins horfa',
  fullScreen: 'Fylla skjáinn',
  end: 'Ljúka',
  screen: 'Skjár tölvunnar',
  keyCatcher: 'Lyklar fyrir tölvuna',

  waiting: (/** @type {string} */ machine) => `Beðið eftir að einhver við tölvuna ${machine} leyfi fjaraðstoðina …`,
  starting: 'Leyft. Beðið eftir fyrstu myndinni …',
  stopWaiting: 'Hætta að bíða',
  goOn: 'Halda áfram',
  askAgain: 'Biðja aftur',
  backToMachines: 'Aftur í tölvulistann',
  withdrawn: (/** @type {string} */ machine) => `Beiðnin til tölvunnar ${machine} var afturkölluð.`,
  linkDown: 'Sambandið við miðlarann rofnaði. Fjaraðstoðin heldur áfram um leið og það kemst á aftur …',
  machineAway: (/** @type {string} */ machine) =>
    `Tölvan ${machine} missti sambandið. Fjaraðstoðin heldur áfram um leið og það kemst á aftur …`,
  ended: {
    declined: (/** @type {string} */ machine) => `Notandinn við tölvuna ${machine} hafnaði fjaraðstoðinni.`,
    'no-answer': (/** @type {string} */ machine) => `Enginn svaraði við tölvuna ${machine}, svo að beiðnin var afturkölluð.`,
    slow: () => 'Vafrinn hafði ekki undan og því lauk fjaraðstoðinni.',
    other: () => 'Fjaraðstoðinni er lokið.',
  },
  refused: {
    offline: (/** @type {string} */ machine) => `Tölvan ${machine} er ótengd.`,
    'in-use': (/** @type {string} */ machine, /** @type {string} */ who) => `Tölvan ${machine} er í notkun hjá ${who}.`,
    unknown: (/** @type {string} */ machine) => `Miðlarinn þekkir tölvuna ${machine} ekki lengur.`,
    'too-many': () => 'Of margar tengingar eru opnar í þessum vafra.',
  },
  status: (/** @type {number} */ fps, /** @type {number} */ kilobytes, /** @type {number | null} */ trip) =>
    `${fps.toFixed(0)} myndir/s · ${kilobytes.toFixed(0)} kB/s · ${ms(trip)} fram og til baka`,
  unstable: 'óstöðugt samband',
};
