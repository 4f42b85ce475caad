// The texts about a question that a machine's user has to answer, and about the return to a session.
import { tableOf } from '../../base/texts.js';

export const english = {
  language: 'en',
  timeLeft: (/** @type {string} */ time) => `${time} left to answer`,
  waited: (/** @type {string} */ time) => `Waiting for ${time}`,
  returning: 'Returning to the session …',
  continueHere: 'Continue here',
  /** @type {Record<string, (machine: string) => string>} by the relay's reason */
  ended: {
    moved: () => 'The session continues in another window.',
    'login-ended': () => 'The session has ended with the log-in.',
  },
  askedAlready: (/** @type {string} */ machine) =>
    `An earlier question may still stand on the screen of ${machine}. When it is answered, or after two minutes, ` +
    'the machine is asked again.',
  /** @type {Record<string, (machine: string) => string>} by the relay's code */
  refused: {
    'asked-too-often': (machine) =>
      `The person at ${machine} was asked three times within a minute. Wait a minute before you ask again.`,
  },
};

/** @type {typeof english} */
export const icelandic = {
  language: 'is',
  timeLeft: (time) => `${time} eftir til að svara`,
  waited: (time) => `Bið hefur staðið í ${time}`,
  returning: 'Fer aftur í fjaraðstoðina …',
  continueHere: 'Halda áfram hér',
  ended: {
    moved: () => 'Fjaraðstoðin heldur áfram í öðrum glugga.',
    'login-ended': () => 'Fjaraðstoðinni lauk með innskráningunni.',
  },
  askedAlready: (machine) =>
    `Fyrri spurning kann enn að vera á skjá tölvunnar ${machine}. Þegar henni hefur verið svarað, eða eftir tvær ` +
    'mínútur, er spurt aftur.',
  refused: {
    'asked-too-often': (machine) =>
      `Notandinn við tölvuna ${machine} var spurður þrisvar á einni mínútu. Bíddu í eina mínútu áður en þú ` +
      'spyrð aftur.',
  },
};

export const consentTexts = tableOf([english, icelandic]);
