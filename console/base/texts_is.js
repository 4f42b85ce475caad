// The page's texts in Icelandic; the keys are those of texts_en.js.

const ms = (/** @type {number | null} */ trip) => (trip === null ? '–' : `${trip} ms`);

/** Whether nouns after a count are in the singular: after 1, 21, 31 and so on, but not after 11. */
const singular = (/** @type {number} */ count) => count % 10 === 1 && count % 100 !== 11;

/** Units of time in the dative, singular and plural. Many browsers cannot format times in Icelandic. */
const AGES = {
  minute: ['mínútu', 'mínútum'],
  hour: ['klukkustund', 'klukkustundum'],
  day: ['degi', 'dögum'],
};

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
  changePassword: 'Breyta lykilorði …',
  passwordTitle: 'Breyta lykilorði',
  oldPassword: 'Núverandi lykilorð',
  newPassword: 'Nýtt lykilorð, að minnsta kosti 10 stafir',
  newPasswordAgain: 'Nýja lykilorðið aftur',
  change: 'Breyta',
  wrongPassword: 'Þetta er ekki núverandi lykilorð.',
  passwordsDiffer: 'Nýju lykilorðin tvö eru ekki eins.',
  passwordChanged: 'Lykilorðinu var breytt. Aðrir vafrar með þetta nafn hafa verið skráðir út.',

  machines: 'Tölvur',
  search: 'Leita',
  searchMachines: 'Leita að tölvu',
  machineCount: (/** @type {number} */ all, /** @type {number} */ online) =>
    `${all} ${singular(all) ? 'tölva' : 'tölvur'}, ${online} ${singular(online) ? 'nettengd' : 'nettengdar'}`,
  machinesFound: (/** @type {number} */ found, /** @type {number} */ all) =>
    `${found} af ${all} ${singular(all) ? 'tölvu' : 'tölvum'}`,
  noMachines: 'Engin tölva hefur verið skráð enn. Ræstu forritið á tölvu og þá birtist hún hér.',
  noMatch: 'Engin tölva ber slíkt nafn.',
  connect: 'Tengjast',
  forget: 'Gleyma',
  forgetQuestion: (/** @type {string} */ machine) => `Gleyma tölvunni ${machine}? Þá þarf að skrá hana á ný.`,
  state: {
    online: 'Nettengd',
    offline: 'Ótengd',
    session: 'Fjaraðstoð í gangi',
    restarting: 'Endurræsir',
    quarantine: 'Í sóttkví',
  },
  with: (/** @type {string} */ who) => `með ${who}`,
  lastSeen: (/** @type {'now' | 'minute' | 'hour' | 'day'} */ unit, /** @type {number} */ count) =>
    `síðast tengd ${unit === 'now' ? 'rétt í þessu' : `fyrir ${count} ${AGES[unit][singular(count) ? 0 : 1]}`}`,
  connecting: 'Tengist miðlara …',
  reconnecting: 'Sambandið við miðlarann rofnaði. Tengist aftur …',

  displays: 'Skjáir',
  display: (/** @type {number} */ number) => `Skjár ${number}`,
  displayOf: (/** @type {number} */ number, /** @type {number} */ count) => `Skjár ${number} af ${count}`,
  picture: 'Mynd',
  rate: 'Myndir á sekúndu',
  codec: 'Kóðun',
  notInThisBrowser: 'ekki í þessum vafra',
  codecInUse: (/** @type {string} */ codec) => `Í notkun: ${codec}`,
  codecObstacles: {
    noEncoder: 'tölvan hefur engan nothæfan H.264-kóðara',
    noDecoder: 'vafrinn getur ekki spilað H.264',
    cannotPlay: 'vafrinn getur ekki spilað H.264 frá þessari tölvu',
  },
  codecSwitched:
    'Vafrinn getur ekki spilað H.264-myndir tölvunnar. Þær koma nú sem JPEG, sem þarf hraðara samband.',
  slowWithoutH264:
    'Vafrinn getur ekki spilað H.264-myndir tölvunnar. Á hægu sambandi er ekki skipt sjálfkrafa yfir í JPEG, ' +
    'því að það þarf allt að 1 MB/s.',
  useJpeg: 'Nota JPEG',
  tryH264Again: 'Reyna H.264 aftur',
  slowLine: 'Hægt samband: 2 myndir á sekúndu',
  showPointer: 'Sýna bendil tölvunnar',
  actualSize: 'Raunstærð',
  restartPicture: 'Endurræsa myndina',
  findDisplays: 'Leita að skjám',
  keys: 'Lyklar',
  keyMode: 'Lyklaborð',
  byCharacter: 'eftir stöfum',
  byPosition: 'eftir staðsetningu',
  typeText: 'Slá inn texta …',
  showKeyboard: 'Sýna skjályklaborð',
  leaveHint: 'Frá myndinni að verkfærastikunni:',
  leaveTip: 'Lyklaborðið þitt stýrir nú tölvunni. Að verkfærastikunni:',
  returnHint: 'Aftur að myndinni:',
  typeQuestion: 'Texti til að slá inn á tölvunni',
  type: 'Slá inn',
  cancel: 'Hætta við',
  machine: 'Tölva',
  restart: 'Endurræsa …',
  restartQuestion: (/** @type {string} */ machine) =>
    `Endurræsa tölvuna ${machine}? Forritum þar verður lokað og það sem ekki ` +
    'hefur verið vistað getur glatast. Fjaraðstoðin heldur áfram þegar tölvan er komin aftur.',
  restartNow: 'Endurræsa',
  restarting: (/** @type {string} */ machine) =>
    `Tölvan ${machine} er að endurræsa sig. Fjaraðstoðin heldur áfram þegar hún er komin aftur …`,
  restartRequested: (/** @type {string} */ machine) =>
    `Tölvan ${machine} var beðin um að endurræsa sig. Hún lokar nú forritum og spyr ef til vill um forrit sem ` +
    'lokast ekki. Fjaraðstoðin heldur áfram eftir endurræsinguna.',
  notRestarted: (/** @type {string} */ machine) =>
    `Tölvan ${machine} hefur ekki endurræst sig á 90 sekúndum. Forrit bíður ef til vill eftir svari, eða ` +
    'Windows hefur neitað endurræsingunni.',
  closePanel: 'Loka',
  viewOnly: 'Aðeins horfa',
  watchOnly: 'Þú mátt aðeins horfa',
  watchOnlyRemark: 'Þú hefur ekki réttindi til að stjórna þessari tölvu, aðeins til að horfa á hana.',
  rights: {
    see: 'sjá tölvuna',
    control: 'stjórna henni',
    clipboard: 'nota klippiborðið',
    'files-up': 'senda skrár á hana',
    'files-down': 'sækja skrár af henni',
    restart: 'endurræsa hana og ýta á Ctrl+Alt+Del',
    forget: 'gleyma henni',
  },
  rightsGone: (/** @type {string} */ rights) => `Réttindi þín hafa breyst. Þú mátt ekki lengur: ${rights}.`,
  rightsAdded: (/** @type {string} */ rights) => `Réttindi þín hafa breyst. Þú mátt nú: ${rights}.`,
  viewOnlyRemark: 'Aðeins horfa: músin þín og lyklaborðið stýra ekki tölvunni.',
  menu: 'Valmynd',
  showBar: 'Sýna tækjastikuna',
  fullScreen: 'Fylla skjáinn',
  leaveFullScreen: 'Hætta að fylla skjáinn',
  leaveByF11: 'F11 hættir að fylla skjáinn',
  holdEscape: 'Einnig má halda Escape-lyklinum niðri til að hætta að fylla skjáinn',
  escapeLeaves: 'Escape-lykillinn hættir líka að fylla skjáinn',
  end: 'Ljúka',
  screen: 'Skjár tölvunnar',
  keyInput: 'Lyklar fyrir tölvuna',

  waiting: (/** @type {string} */ machine) =>
    `Beðið eftir að einhver við tölvuna ${machine} leyfi fjaraðstoðina …`,
  starting: 'Leyft. Beðið eftir fyrstu myndinni …',
  pictureLate: (/** @type {string} */ machine) =>
    `Engin mynd hefur borist frá tölvunni ${machine} enn. Ef til vill er slökkt á skjánum, hann læstur, eða ` +
    'Windows sýnir spurningu sem forritið fær ekki að sjá.',
  pictureNotShown: (/** @type {string} */ machine) =>
    `Myndir berast frá tölvunni ${machine}, en vafrinn hefur ekki getað sýnt neina enn.`,
  nextDisplay: 'Sýna annan skjá',
  wake: 'Vekja skjáinn',
  inputDropped: 'Sambandið við tölvuna er rofið. Lyklasláttur og smellir eru ekki sendir.',
  linkStill: 'Ekkert berst um sambandið. Myndin er ekki lengur ný.',
  stopWaiting: 'Hætta að bíða',
  askAgain: 'Biðja aftur',
  backToMachines: 'Aftur í tölvulistann',
  withdrawn: (/** @type {string} */ machine) => `Beiðnin til tölvunnar ${machine} var afturkölluð.`,
  linkDown: 'Sambandið við miðlarann rofnaði. Fjaraðstoðin heldur áfram um leið og það kemst á aftur …',
  machineAway: (/** @type {string} */ machine) =>
    `Tölvan ${machine} missti sambandið. Fjaraðstoðin heldur áfram um leið og það kemst á aftur …`,
  machineTaken: (/** @type {string} */ machine, /** @type {string} */ who) =>
    `Tölvan ${machine} er í notkun hjá ${who}. Fjaraðstoðin heldur áfram um leið og hún losnar …`,
  ended: {
    declined: (/** @type {string} */ machine) => `Notandinn við tölvuna ${machine} hafnaði fjaraðstoðinni.`,
    'no-answer': (/** @type {string} */ machine) =>
      `Enginn svaraði við tölvuna ${machine}, svo að beiðnin var afturkölluð.`,
    'no-right': (/** @type {string} */ machine) =>
      `Fjaraðstoðinni er lokið því að þú hefur ekki lengur réttindi til að sjá tölvuna ${machine}.`,
    'ended-by-administrator': () => 'Stjórnandi batt enda á fjaraðstoðina.',
    blocked: (/** @type {string} */ machine) =>
      `Fjaraðstoðinni er lokið því að stjórnandi hefur útilokað tölvuna ${machine}.`,
    quarantined: (/** @type {string} */ machine) =>
      `Fjaraðstoðinni er lokið því að stjórnandi hefur sett tölvuna ${machine} í sóttkví.`,
    removed: (/** @type {string} */ machine) =>
      `Fjaraðstoðinni er lokið því að stjórnandi hefur fjarlægt tölvuna ${machine}.`,
    disconnected: (/** @type {string} */ machine) =>
      `Fjaraðstoðinni er lokið því að stjórnandi hefur rofið tenginguna við tölvuna ${machine}.`,
    'no-evidence': () => 'Miðlarinn gat ekki skráð fjaraðstoðina og því lauk henni.',
    other: () => 'Fjaraðstoðinni er lokið.',
  },
  refused: {
    offline: (/** @type {string} */ machine) => `Tölvan ${machine} er ótengd.`,
    'in-use': (/** @type {string} */ machine, /** @type {string} */ who) =>
      `Tölvan ${machine} er í notkun hjá ${who}.`,
    unknown: (/** @type {string} */ machine) => `Miðlarinn þekkir tölvuna ${machine} ekki lengur.`,
    'no-right': (/** @type {string} */ machine) =>
      `Þú hefur ekki réttindi til fjaraðstoðar við tölvuna ${machine}.`,
    quarantined: (/** @type {string} */ machine) =>
      `Tölvan ${machine} er í sóttkví og þar er engin fjaraðstoð leyfð.`,
    'too-many': () => 'Of margar tengingar eru opnar í þessum vafra.',
  },
  status: (/** @type {number} */ fps, /** @type {number} */ kilobytes, /** @type {number | null} */ trip) =>
    `${fps.toFixed(0)} myndir/s · ${kilobytes.toFixed(0)} kB/s · ${ms(trip)} fram og til baka`,
  unstable: 'óstöðugt samband',
  sessionStates: { requested: 'Beðið', waiting: 'Beðið', interrupted: 'Rofið', ended: 'Lokið' },

  files: 'Skrár',
  drives: 'Drif',
  place: 'Mappan sem sést',
  folderAbove: 'Mappan fyrir ofan',
  listAgain: 'Lesa aftur',
  fileColumns: 'Dálkar',
  fileName: 'Heiti',
  fileSize: 'Stærð',
  fileTime: 'Breytt',
  folderEmpty: 'Tóm, eða forritið fær ekki að skoða hana.',
  entryCount: (/** @type {number} */ all, /** @type {number} */ chosen) =>
    `${all} atriði${chosen ? `, ${chosen} ${singular(chosen) ? 'valið' : 'valin'}` : ''}`,
  download: 'Sækja',
  upload: 'Senda skrár …',
  hintDrives: 'Opnaðu möppu til að senda skrár í hana.',
  hintSelect: 'Veldu skrár til að sækja.',
  hintSelectOrDrop: 'Veldu skrár til að sækja eða dragðu skrár hingað til að senda þær.',
  hintDrop: 'eða dragðu skrár hingað',
  hintFolders: 'Ekki er hægt að sækja möppur. Opnaðu möppuna og veldu skrár í henni.',
  hintFoldersLeftOut: (/** @type {number} */ count) =>
    count === 1 ? 'Valda mappan er ekki sótt.' : `${count} valdar möppur eru ekki sóttar.`,
  folderTooLarge: (/** @type {string} */ size) =>
    `Of margt er í möppunni til að hægt sé að telja það upp: listinn einn er ${size}.`,
  listingInterrupted: 'Fjaraðstoðin rofnaði meðan mappan var lesin. Ýttu á ⟳ til að lesa hana aftur.',
  putHere: (/** @type {number} */ count) =>
    `Setja ${singular(count) ? `${count} skrá` : `${count} skrár`} hér`,
  overwriteQuestion: (/** @type {number} */ count) =>
    count === 1
      ? 'Skipta þessari skrá út á tölvunni?'
      : `Skipta ${count} ${singular(count) ? 'skrá' : 'skrám'} út á tölvunni?`,
  versionThere: (/** @type {string} */ size, /** @type {string} */ time) =>
    `Á tölvunni: ${size}${time && `, breytt ${time}`}`,
  versionHere: (/** @type {string} */ size, /** @type {string} */ time) =>
    `Til sendingar: ${size}${time && `, breytt ${time}`}`,
  andMore: (/** @type {number} */ count) => `og ${count} til viðbótar`,
  skipThese: 'Sleppa',
  overwrite: 'Skipta út',
  transfers: 'Flutningar',
  clearTransfers: 'Hreinsa lokna',
  saveAgain: 'Vista aftur',
  savePart: 'Vista það sem barst',
  stillSent: 'tölvan sendir skrána til enda nema sendingin sé stöðvuð',
  stopSending: 'Stöðva sendinguna …',
  cutQuestion:
    'Stöðva það sem tölvan er enn að senda? Til þess lokar miðlarinn tengingu tölvunnar. Fjaraðstoðin rofnar ' +
    'því stutta stund og allir flutningar í gangi hætta. Tölva sem notandi situr við biður aftur um leyfi.',
  cutNow: 'Loka tengingunni',
  transferDone: (/** @type {string} */ done, /** @type {string} */ all) => `${done} af ${all}`,
  transferLeft: (/** @type {string} */ time) => `${time} eftir`,
  transferStates: {
    waiting: 'Bíður',
    running: 'Í gangi',
    checking: 'Athuga hvað barst …',
    failed: 'Mistókst',
    cancelled: 'Hætt við',
  },
  transferResults: { download: 'Sótt', upload: 'Sent' },
  transferRemarks: {
    uploadCancelled: 'það sem þegar barst verður eftir á tölvunni',
    downloadCancelled: 'því sem eftir er af skránni er hent',
    sessionOver: 'fjaraðstoðinni lauk; það sem hafði borist á tölvuna verður þar eftir',
    downloadOver: 'fjaraðstoðinni lauk; því sem eftir er af skránni er hent',
    outOfOrder: 'hluta vantar',
    cannotOpen: 'tölvan getur ekki opnað skrána',
    machineFailed: 'tölvan gat ekki sent skrána',
    cannotRead: 'ekki er lengur hægt að lesa skrána á þessari tölvu',
    noRoom: 'ekkert pláss er fyrir skrána á þessari tölvu',
    unreadableEnd: 'ekki var hægt að lesa skilaboð tölvunnar um enda skrárinnar',
    fileChanged: 'skráin hefur breyst síðan möppan var lesin',
    otherSize: 'stærðin er önnur en á tölvunni: ef til vill vantar hluta af skránni',
    notThere: 'skráin er ekki þar: tölvan gat ekki búið hana til',
    notReplaced:
      'ekki skipt út: skráin á tölvunni hefur sömu stærð og tíma og áður. Hún er ef til vill opin í forriti, ' +
      'ritvarin eða falin',
    sameTarget: 'annarri sendingu í þessa skrá er ekki lokið',
    folderTooLarge:
      'of margt er í möppunni til að hægt sé að telja það upp, svo að ekki sést hvaða skrám yrði skipt út',
    cutShort: 'aðeins hluti barst: diskur tölvunnar er ef til vill fullur',
    unchecked: 'send, en ekki var hægt að athuga hvað barst',
    noRight: 'þú hefur ekki lengur réttindi til þessa',
    isFolder: 'mappa ber þetta heiti',
  },

  clipboard: 'Klippiborð',
  clipAutomatic: 'Deila texta, myndum og skrám',
  clipSend: 'Senda mitt klippiborð núna',
  clipHint:
    'Ctrl+V á myndinni límir þangað það sem er á klippiborði þessarar tölvu, eða það sem Ctrl+C á myndinni afritaði þar rétt áður. Einnig má draga skrár á myndina.',
  clipText: 'Texti var afritaður á tölvunni.',
  clipImage: 'Mynd var afrituð á tölvunni.',
  clipImageName: 'mynd',
  clipFiles: (/** @type {number} */ count) =>
    `${count} ${singular(count) ? 'skrá var afrituð' : 'skrár voru afritaðar'} á tölvunni`,
  clipFilesSent: (/** @type {number} */ count) =>
    `${count} ${singular(count) ? 'skrá er' : 'skrár eru'} á klippiborði tölvunnar. Límdu þar.`,
  clipFilesTooLarge: 'Þetta er of mikið fyrir klippiborðið, sem tekur skrár upp að 8 MiB.',
  clipNotices: {
    copied: 'Það sem var afritað á tölvunni er nú á þessu klippiborði.',
    sent: 'Þetta klippiborð er nú á tölvunni.',
    tooLarge: 'Þetta er of mikið fyrir klippiborðið, sem tekur 8 MiB.',
    unreadable: 'Vafrinn leyfir ekki lestur klippiborðsins. Smelltu á myndina og ýttu á Ctrl+V í staðinn.',
    nothing: 'Hvorki texti né mynd er á þessu klippiborði.',
    viewOnly: 'Ekkert var sent, því að kveikt er á „Aðeins horfa“.',
    machineTooLarge: 'Það sem var afritað á tölvunni er of stórt til að flytja það hingað.',
  },
  copy: 'Afrita',
  save: 'Vista',
  saveAll: 'Vista allar',
  administration: 'Stjórnun',
  administrationWaiting: (/** @type {number} */ count) => `Stjórnun (${count} í bið)`,
  yourAccount: 'Aðgangurinn þinn',
  loginEnd: 'Lok innskráningar',
  copiedNow: 'Afritað',
  copyByHand: 'Veldu textann og afritaðu hann',
  print: 'Prenta',
  problems: {
    400: 'Miðlarinn tekur ekki við þessu.',
    401: 'Innskráningin er útrunnin. Skráðu þig inn aftur.',
    403: 'Þú hefur ekki réttindi til þess.',
    404: 'Þetta er ekki lengur til. Einhver annar kann að hafa fjarlægt það.',
    409: 'Þetta samræmist ekki því sem fyrir er.',
    413: 'Þetta er of langt.',
    429: 'Of margar tilraunir. Bíddu í tíu mínútur og reyndu aftur.',
    503: 'Miðlarinn er of önnum kafinn í augnablikinu. Reyndu aftur eftir nokkrar sekúndur.',
  },
};
