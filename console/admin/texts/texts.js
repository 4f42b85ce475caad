// The texts of the administration pages, in the language of the page.
import { tableOf } from '../../base/texts.js';
import { english } from './english.js';
import { icelandic } from './icelandic.js';

export const texts = tableOf([english, icelandic]);
