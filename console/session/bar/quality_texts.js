// The texts about the quality of the picture.
import { tableOf } from '../../base/texts.js';

export const english = {
  language: 'en',
  quality: 'Quality',
  /** @type {Record<string, string>} by the relay's name */
  presets: {
    automatic: 'Automatic',
    sharp: 'Sharp',
    balanced: 'Balanced',
    saving: 'Saving',
    hand: 'By hand',
  },
  bitrate: 'Bit rate',
  megabits: (/** @type {string} */ number) => `${number} Mbit/s`,
};

/** @type {typeof english} */
export const icelandic = {
  language: 'is',
  quality: 'Gæði',
  presets: {
    automatic: 'Sjálfvirkt',
    sharp: 'Skarpt',
    balanced: 'Jafnvægi',
    saving: 'Sparlegt',
    hand: 'Handvirkt',
  },
  bitrate: 'Bitahraði',
  megabits: (number) => `${number.replace('.', ',')} Mbit/s`,
};

export const qualityTexts = tableOf([english, icelandic]);
