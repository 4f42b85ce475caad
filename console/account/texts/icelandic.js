// The texts about log-ins and the own account in Icelandic; the keys are those of english.js.

/** Whether nouns after a count are in the singular: after 1, 21, 31 and so on, but not after 11. */
const singular = (/** @type {number} */ count) => count % 10 === 1 && count % 100 !== 11;

export const icelandic = {
  language: 'is',
  goOn: 'Halda áfram',
  logOut: 'Skrá út',
  cancel: 'Hætta við',
  mustChangeTitle: 'Veldu nýtt lykilorð',
  mustChangeText:
    'Lykilorðið sem þú skráðir þig inn með gildir aðeins einu sinni. Veldu lykilorð sem enginn annar þekkir.',
  oldPassword: 'Núverandi lykilorð',
  newPassword: 'Nýtt lykilorð, að minnsta kosti 10 stafir',
  newPasswordAgain: 'Nýja lykilorðið aftur',
  passwordsDiffer: 'Nýju lykilorðin tvö eru ekki eins.',
  passwordTooShort: 'Nýja lykilorðið þarf að vera að minnsta kosti 10 stafir.',
  wrongOldPassword: 'Þetta er ekki núverandi lykilorð.',
  setPassword: 'Vista lykilorð',
  codeTitle: 'Einnota kóði',
  codeText: 'Sláðu inn kóðann sem auðkenningarforritið sýnir fyrir Vantelink, eða einn af varakóðunum þínum.',
  code: 'Kóði',
  wrongCode: 'Kóðinn er rangur, hefur þegar verið notaður eða er útrunninn.',
  tooManyCodes: 'Of margir rangir kóðar. Bíddu í tíu mínútur og reyndu aftur.',
  backupCodesLeft: (/** @type {number} */ count) =>
    count === 0
      ? 'Þú notaðir síðasta varakóðann. Settu einnota kóða upp aftur til að fá nýja.'
      : `Þú notaðir varakóða. ${count} ${singular(count) ? 'er' : 'eru'} eftir.`,
  setUpTitle: 'Setja upp einnota kóða',
  setUpRequired: 'Hlutverk þitt krefst einnota kóða við hverja innskráningu.',
  setUpSteps: {
    scan: 'Skannaðu þessa mynd með auðkenningarforriti í símanum.',
    secret: 'Eða sláðu þennan lykil inn í forritið',
    code: 'Sláðu svo inn kóðann sem forritið sýnir.',
  },
  qrCode: 'QR-kóði með lyklinum fyrir auðkenningarforritið',
  confirmCode: 'Staðfesta',
  backupTitle: 'Varakóðarnir þínir',
  backupText:
    'Hver þessara kóða kemur einu sinni í stað forritsins, til dæmis ef síminn týnist. Þeir eru aðeins sýndir ' +
    'núna: geymdu þá á öruggum stað.',
  backupHeading: (/** @type {string} */ name) => `Varakóðar fyrir Vantelink, ${name}`,
  backupFile: 'vantelink-varakodar.txt',
  backupKept: 'Ég hef geymt kóðana',
  stepUpTitle: 'Staðfestu hver þú ert',
  stepUpText: (/** @type {string} */ machine) =>
    `Hópur tölvunnar ${machine} krefst þess að þú sláir lykilorðið inn aftur fyrir fjaraðstoð.`,
  stepUpCodeText: (/** @type {string} */ machine) =>
    `Hópur tölvunnar ${machine} krefst þess að þú sláir lykilorð eða einnota kóða inn aftur fyrir fjaraðstoð.`,
  password: 'Lykilorð',
  passwordOrCode: 'Lykilorð eða kóði',
  wrongPassword: 'Lykilorðið er rangt.',
  wrongPasswordOrCode: 'Lykilorðið eða kóðinn er rangur.',
  reasonTitle: 'Ástæða fjaraðstoðarinnar',
  reasonText: (/** @type {string} */ machine) =>
    `Hópur tölvunnar ${machine} krefst ástæðu. Hún er skráð í atburðaskrána.`,
  reason: 'Ástæða',
  ask: 'Biðja um fjaraðstoð',
  reasonBlank: 'Sláðu inn ástæðu.',
  endsSoon: (/** @type {string} */ time) => `Innskráningin rennur út eftir ${time}.`,
  stayTitle: 'Halda innskráningunni',
  stayText:
    'Innskráningin hefur staðið eins lengi og hún má. Staðfestu hver þú ert og þá heldur vinnan áfram.',
  inviteTitle: 'Velkomin í Vantelink',
  inviteText: 'Þér hefur verið boðið. Veldu lykilorð sem þú skráir þig svo inn með.',
  inviteOver:
    'Þetta boð er ekki í gildi: það hefur verið notað, er útrunnið eða var afturkallað. Biddu um nýtt boð.',
  inviteDone: (/** @type {string} */ name) => `Lykilorðið er vistað. Skráðu þig inn sem ${name}.`,
  toLogIn: 'Í innskráningu',
  logOutFailed:
    'Útskráningin barst ekki til miðlarans, svo að þessi vafri er hugsanlega enn skráður inn. Hladdu síðunni aftur og skráðu þig út.',
  accountName: 'Nafn',
  accountRole: 'Hlutverk',
  roles: { administrator: 'Stjórnandi', representative: 'Fulltrúi', auditor: 'Endurskoðandi' },
  loginUntil: 'Innskráning gildir til',
  changePassword: 'Breyta lykilorði …',
  passwordTitle: 'Lykilorð',
  totpTitle: 'Einnota kóðar',
  totpOn: 'Hver innskráning krefst kóða úr auðkenningarforritinu þínu.',
  totpOff: 'Innskráning krefst aðeins lykilorðs. Með einnota kóðum nægir stolið lykilorð ekki.',
  codesLeft: (/** @type {number} */ count) =>
    singular(count) ? `${count} varakóði er eftir.` : `${count} varakóðar eru eftir.`,
  setUp: 'Setja upp …',
  setUpAgainHint: 'Til að fá tíu nýja varakóða slekkurðu á kóðunum og setur þá upp aftur.',
  removeTotp: 'Slökkva á …',
  removeTotpTitle: 'Slökkva á einnota kóðum',
  removeTotpText: 'Eftir þetta nægir lykilorðið eitt til að skrá sig inn.',
  totpRemoved: 'Slökkt er á einnota kóðum.',
  totpSet: 'Einnota kóðar eru uppsettir.',
  totpNeeded:
    'Hlutverk þitt krefst einnota kóða. Stjórnandi getur endurstillt þá og þá seturðu þá upp aftur.',
};
