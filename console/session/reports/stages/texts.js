// The texts about the way of the pictures from the machine to the screen.
import { tableOf } from '../../../base/texts.js';

export const english = {
  language: 'en',
  open: 'Where the time goes',
  title: 'From the machine to the screen',
  stages: {
    machine: 'Machine (its queue)',
    to_relay: 'Line to the relay',
    relay: 'Relay',
    to_browser: 'Line to this browser',
    decoder: 'Decoder',
    screen: 'Screen',
  },
  total: 'Together',
  time: (/** @type {number} */ ms) => `${ms.toFixed(0)} ms`,
  hint: 'On average, without the time that the machine needs to capture and encode a picture.',
  none: 'No picture was displayed in the last seconds.',
  dropped: (/** @type {number} */ count) =>
    `${count} ${count === 1 ? 'picture was' : 'pictures were'} left out in the last second, because the line to ` +
    'this browser is too slow for all of them.',
  /** @type {Record<string, string>} by the relay's name */
  still: {
    still: 'The picture does not follow the input; a new one was asked for',
    'started-again': 'The picture did not follow the input; the stream was started again',
    unchanged: 'The picture does not change under the input',
    silent: 'The machine sends no pictures',
  },
  asked: (/** @type {string} */ preset, /** @type {number} */ fps, /** @type {string} */ megabits) =>
    `${preset}: at most ${fps} frames/s and ${megabits}.`,
  fileQueue: (/** @type {string} */ seconds) =>
    `The machine is sending a file; its pictures wait ${seconds} s`,
  lineQueue: (/** @type {string} */ seconds) =>
    `The line from the machine is too slow; its pictures wait ${seconds} s`,
};

/** @type {typeof english} */
export const icelandic = {
  language: 'is',
  open: 'Hvert tíminn fer',
  title: 'Frá tölvunni á skjáinn',
  stages: {
    machine: 'Tölvan (biðröð hennar)',
    to_relay: 'Línan að miðlaranum',
    relay: 'Miðlarinn',
    to_browser: 'Línan að þessum vafra',
    decoder: 'Afkóðun',
    screen: 'Skjárinn',
  },
  total: 'Samtals',
  time: (ms) => `${ms.toFixed(0)} ms`,
  hint: 'Að meðaltali, án þess tíma sem tölvan þarf til að taka mynd og kóða hana.',
  none: 'Engin mynd var birt síðustu sekúndurnar.',
  dropped: (count) =>
    `${count} ${count % 10 === 1 && count % 100 !== 11 ? 'mynd var sleppt' : 'myndum var sleppt'} á síðustu sekúndu ` +
    'því línan að þessum vafra ber þær ekki allar.',
  still: {
    still: 'Myndin fylgir ekki innslættinum; beðið var um nýja',
    'started-again': 'Myndin fylgdi ekki innslættinum; straumurinn var ræstur aftur',
    unchanged: 'Myndin breytist ekki við innsláttinn',
    silent: 'Tölvan sendir engar myndir',
  },
  asked: (preset, fps, megabits) => `${preset}: mest ${fps} myndir/s og ${megabits}.`,
  fileQueue: (seconds) => `Tölvan er að senda skrá; myndir hennar bíða í ${withComma(seconds)} s`,
  lineQueue: (seconds) => `Línan frá tölvunni er of hæg; myndir hennar bíða í ${withComma(seconds)} s`,
};

/** Browsers do not all know the Icelandic form of numbers. */
function withComma(/** @type {string} */ number) {
  return number.replace('.', ',');
}

export const stageTexts = tableOf([english, icelandic]);
