// The texts about transfers that were interrupted or that the relay could not keep.
import { tableOf } from '../../base/texts.js';

export const english = {
  language: 'en',
  suspended: 'waits for the connection',
  fileless: (/** @type {number} */ percent) =>
    `Interrupted at ${percent} %: choose the file again to continue`,
  chooseFile: 'Choose the file …',
  /** @type {Record<string, string>} more remarks about transfers */
  remarks: {
    spoolFull:
      'the machine sent the file faster than this browser took it, and the relay’s disk space for it is used up. ' +
      'Download it again when the connection is better',
    spoolFailed:
      'the relay could not store the file on its disk. Download it again; if that fails too, inform whoever runs ' +
      'the relay',
    notKept: 'the relay cannot continue this transfer, because it no longer has it. Start it again',
    lostHere: 'the part that had arrived is no longer on this computer. Download the file again',
    otherFile: 'that was another file, with a different name or size. Choose the same file',
  },
};

/** @type {typeof english} */
export const icelandic = {
  language: 'is',
  suspended: 'bíður eftir sambandi',
  fileless: (percent) => `Rofnaði við ${percent} %: veldu skrána aftur til að halda áfram`,
  chooseFile: 'Velja skrána …',
  remarks: {
    spoolFull:
      'tölvan sendi skrána hraðar en vafrinn tók við henni, og diskpláss miðlarans fyrir hana er uppurið. Sæktu ' +
      'hana aftur þegar sambandið er betra',
    spoolFailed:
      'miðlarinn gat ekki geymt skrána á diski sínum. Sæktu hana aftur; ef það mistekst líka skaltu láta þann vita ' +
      'sem rekur miðlarann',
    notKept:
      'miðlarinn getur ekki haldið þessum flutningi áfram, því að hann á hann ekki lengur. Byrjaðu aftur',
    lostHere: 'það sem hafði borist er ekki lengur á þessari tölvu. Sæktu skrána aftur',
    otherFile: 'þetta var önnur skrá, með öðru heiti eða annarri stærð. Veldu sömu skrá',
  },
};

export const transferTexts = tableOf([english, icelandic]);
