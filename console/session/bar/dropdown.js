// A button of the toolbar that shows and hides other controls while the toolbar is collapsed.

export class Dropdown {
  #button;
  #content;

  /** @param {HTMLElement} button @param {HTMLElement} content */
  constructor(button, content) {
    this.#button = button;
    this.#content = content;
    this.open = false;
    button.addEventListener('click', () => {
      this.open = !this.open;
    });
    content.addEventListener('click', ({ target }) => {
      if (target instanceof Element && target.closest('button')) this.open = false;
    });
    addEventListener('pointerdown', ({ target }) => {
      const own = target instanceof Node && (button.contains(target) || content.contains(target));
      if (!own) this.open = false;
    });
    for (const element of [button, content]) element.addEventListener('keydown', (event) => this.#key(event));
  }

  get open() {
    return this.#content.classList.contains('open');
  }

  set open(/** @type {boolean} */ on) {
    this.#content.classList.toggle('open', on);
    this.#button.ariaExpanded = String(on);
  }

  #key(/** @type {KeyboardEvent} */ { key }) {
    if (key !== 'Escape' || !this.open) return;
    this.open = false;
    this.#button.focus();
  }
}
