// Says which encoding the pictures really have, and why it is not the chosen one.
import { byId } from '../../base/dom.js';
import { texts } from '../../base/texts.js';

/** @typedef {import('../../picture/picture.js').Picture} Picture */

const NAMES = { h264: 'H.264', mjpeg: 'JPEG' };

/** The encoding's name in the field; '' while no picture has arrived. */
export function codecName(/** @type {import('../../picture/picture.js').Codec | ''} */ codec) {
  return codec ? NAMES[codec] : '';
}

export class CodecReport {
  #strips;
  #select = byId('codec', HTMLSelectElement);
  #inUse = byId('codec-in-use');
  /** What the strip says, so that a dismissed strip does not return with every change. */
  #said = '';

  /** @param {import('./strips.js').Strips} strips */
  constructor(strips) {
    this.#strips = strips;
  }

  /** Shows the state of the picture. H.264 cannot be chosen while the browser cannot play it. */
  show(/** @type {Picture} */ picture) {
    const { wanted, codec, hasH264, obstacle } = picture;
    const h264 = /** @type {HTMLOptionElement} */ (this.#select.querySelector('[value=h264]'));
    h264.disabled = !hasH264;
    h264.textContent = hasH264 ? NAMES.h264 : `${NAMES.h264} (${texts.notInThisBrowser})`;
    this.#select.value = wanted;
    this.#inUse.hidden = codec === '';
    const reason = obstacle && ` (${texts.codecObstacles[obstacle]})`;
    this.#inUse.textContent = `${texts.codecInUse(codecName(codec))}${reason}`;
    this.#showStrip(picture);
  }

  #showStrip(/** @type {Picture} */ picture) {
    const { obstacle, slowLine } = picture;
    const unplayable = obstacle === 'noDecoder' || obstacle === 'cannotPlay';
    // A browser without a decoder plays JPEG from the start, so nothing changes that needs a message.
    const tells = unplayable && (slowLine || obstacle === 'cannotPlay');
    const said = tells ? `${obstacle} ${slowLine}` : '';
    if (said === this.#said) return;
    this.#said = said;
    if (!tells) this.#strips.hide('codec');
    else if (!slowLine) this.#strips.show('codec', texts.codecSwitched);
    else {
      const offers = [{ label: texts.useJpeg, act: () => picture.choose('mjpeg') }];
      if (obstacle === 'cannotPlay') offers.push({ label: texts.tryH264Again, act: () => picture.retry() });
      this.#strips.show('codec', texts.slowWithoutH264, offers);
    }
  }
}
