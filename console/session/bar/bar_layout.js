// The toolbar's layout in one line at every width: first the displays collapse into one button, then the menus
// into another, and the machine's name is cut last.
import { byId } from '../../base/dom.js';
import { texts } from '../../base/texts.js';
import { Dropdown } from './dropdown.js';

/** From the widest layout to the narrowest; the style sheet shows each by the toolbar's data-level. */
const LEVELS = ['wide', 'displays', 'menus'];

export class BarLayout {
  #bar = byId('session-bar');
  #name = byId('session-name');
  #picker = byId('monitor-picker');
  #displayMenu = byId('display-menu', HTMLButtonElement);
  #dropdowns;
  #changes;

  constructor() {
    this.#dropdowns = [
      new Dropdown(this.#displayMenu, this.#picker),
      new Dropdown(byId('bar-menu'), byId('bar-items')),
    ];
    this.#changes = new MutationObserver(() => this.layOut());
    this.#changes.observe(this.#bar, {
      subtree: true,
      childList: true,
      characterData: true,
      attributeFilter: ['aria-pressed', 'hidden'],
    });
    new ResizeObserver(() => this.layOut()).observe(this.#bar);
    // The width of a thumbnail is known only when its picture is loaded. This event does not bubble.
    this.#bar.addEventListener('load', () => this.layOut(), true);
  }

  /** Enables or disables what acts on the machine; disabled menus are closed. */
  enable(/** @type {boolean} */ on) {
    const parts = /** @type {NodeListOf<HTMLElement>} */ (
      this.#bar.querySelectorAll('.menu, .toggle, #monitor-picker, #panel-buttons')
    );
    for (const part of parts) {
      part.inert = !on;
      if (!on && part instanceof HTMLDetailsElement) part.open = false;
    }
    this.#displayMenu.disabled = !on;
  }

  /** Lays the toolbar out again, after a change that it does not see itself. */
  layOut() {
    this.#bar.dataset.displays = this.#picker.children.length > 1 ? 'several' : 'one';
    this.#name.title = this.#name.textContent ?? '';
    const before = this.#bar.dataset.level;
    // While it is measured, the name has the width that it must have before anything else collapses.
    this.#bar.classList.add('measuring');
    for (const level of LEVELS) {
      this.#bar.dataset.level = level;
      this.#nameDisplay(level === 'menus');
      if (this.#fits()) break;
    }
    this.#bar.classList.remove('measuring');
    if (this.#bar.dataset.level !== before) for (const dropdown of this.#dropdowns) dropdown.open = false;
    // The method's own changes need no second layout.
    this.#changes.takeRecords();
  }

  #fits() {
    const { paddingRight } = getComputedStyle(this.#bar);
    const space = this.#bar.getBoundingClientRect().right - parseFloat(paddingRight);
    const end = this.#bar.lastElementChild?.getBoundingClientRect().right ?? 0;
    return end <= space + 0.5;
  }

  /** Shows the selected display on the button for the displays. */
  #nameDisplay(/** @type {boolean} */ short) {
    const displays = [...this.#picker.children];
    const selected = displays.findIndex((one) => one.ariaPressed === 'true') + 1;
    const name = texts.displayOf(selected, displays.length);
    this.#displayMenu.textContent = short ? `${selected}/${displays.length}` : name;
    this.#displayMenu.ariaLabel = name;
    this.#displayMenu.title = name;
  }
}
