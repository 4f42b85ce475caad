// The texts about several representatives with one machine.
import { tableOf } from '../../base/texts.js';

export const english = {
  language: 'en',
  /** @param {number} count of people with a session, this one included */
  people: (count) => `${count} people`,
  you: 'you',
  steers: 'controls',
  asks: 'asks for control',
  away: 'not connected',
  ask: 'Ask for control',
  take: 'Take control',
  give: 'Give control',
  notNow: 'Not now',
  asked: 'Waiting for an answer …',
  /** @param {string} who */
  giveTo: (who) => `Give control to ${who}`,
  /** @param {string} who */
  watching: (who) => `${who} controls the machine, and you watch.`,
  free: 'Nobody controls the machine at present.',
  /** @param {string} who */
  asksYou: (who) => `${who} asks for control.`,
  yours: 'You control the machine now.',
  refused: 'Control was not given to you. You can ask again in half a minute.',
  changedTooOften: 'Control has changed too often. It can change again in a few minutes.',
  /** @param {string} who */
  joined: (who) => `${who} watches too.`,
  /** @param {string} who */
  left: (who) => `${who} does not watch any more.`,
  fourEyes: 'Two people are needed for this machine. Until a second person watches, you only see the screen.',
  notSteering: 'You are watching',
  askFirst: 'Another person controls this machine. Ask for control in the toolbar first.',
};

/** @type {typeof english} */
export const icelandic = {
  language: 'is',
  people: (count) => `${count} manns`,
  you: 'þú',
  steers: 'stjórnar',
  asks: 'biður um stjórn',
  away: 'ekki í sambandi',
  ask: 'Biðja um stjórn',
  take: 'Taka við stjórn',
  give: 'Afhenda stjórn',
  notNow: 'Ekki núna',
  asked: 'Beðið eftir svari …',
  giveTo: (who) => `Afhenda stjórn: ${who}`,
  watching: (who) => `${who} stjórnar tölvunni og þú fylgist með.`,
  free: 'Enginn stjórnar tölvunni eins og er.',
  asksYou: (who) => `${who} biður um stjórn.`,
  yours: 'Þú stjórnar tölvunni núna.',
  refused: 'Þú fékkst ekki stjórnina. Þú getur beðið aftur eftir hálfa mínútu.',
  changedTooOften: 'Of oft hefur verið skipt um stjórn. Hægt er að skipta aftur eftir nokkrar mínútur.',
  joined: (who) => `${who} fylgist líka með.`,
  left: (who) => `${who} fylgist ekki lengur með.`,
  fourEyes: 'Tvo þarf fyrir þessa tölvu. Þú sérð aðeins skjáinn þar til annar fylgist líka með.',
  notSteering: 'Þú fylgist með',
  askFirst: 'Annar stjórnar þessari tölvu. Biddu fyrst um stjórn á tækjastikunni.',
};

export const viewersTexts = tableOf([english, icelandic]);
