// The area of the page that shows the picture: fits the picture to the area, or shows the picture at its own
// size with scroll bars.
import { byId } from '../base/dom.js';
import { fit } from '../input/geometry.js';

export class Stage {
  #element = byId('stage');
  #actualSize = byId('actual-size', HTMLInputElement);
  #screen;

  /** @param {import('../picture/screen.js').Screen} screen */
  constructor(screen) {
    this.#screen = screen;
    this.#actualSize.addEventListener('change', () => this.layOut());
    new ResizeObserver(() => this.layOut()).observe(this.#element);
  }

  get element() {
    return this.#element;
  }

  layOut() {
    const stage = this.#element;
    const { canvas, drawn } = this.#screen;
    const actual = this.#actualSize.checked;
    stage.classList.toggle('actual', actual);
    // A canvas without a picture would show as a black rectangle.
    canvas.hidden = drawn === 0;
    const size = actual ? canvas : fit(canvas, { width: stage.clientWidth, height: stage.clientHeight });
    canvas.style.width = `${size.width}px`;
    canvas.style.height = `${size.height}px`;
  }
}
