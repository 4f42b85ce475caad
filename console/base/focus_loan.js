// Moves the keyboard's focus into a message that has appeared, and back when the message disappears.

export class FocusLoan {
  #message;
  #fallback;
  /** @type {Element | null} the element that had the focus before */
  #before = null;

  /**
   * @param {HTMLElement} message an element that can be focused by a script
   * @param {HTMLElement} fallback gets the focus when the element that had it before has disappeared
   */
  constructor(message, fallback) {
    this.#message = message;
    this.#fallback = fallback;
  }

  /**
   * Focuses the message itself and not one of its buttons, because the representative may be typing: the next
   * key press must not answer the message. While a modal dialog is open the message waits for its end.
   */
  take() {
    const modal = document.querySelector('dialog:modal');
    if (modal) {
      const afterwards = () => this.#message.checkVisibility() && this.take();
      modal.addEventListener('close', afterwards, { once: true });
      return;
    }
    if (!this.#message.contains(document.activeElement)) this.#before = document.activeElement;
    this.#message.focus({ preventScroll: true });
  }

  /** Returns the focus if the message still has it. To be called before the message is hidden. */
  giveBack() {
    if (!this.#message.contains(document.activeElement)) return;
    const before = this.#before;
    const canReturn = before instanceof HTMLElement && before !== document.body && before.checkVisibility();
    (canReturn ? before : this.#fallback).focus({ preventScroll: true });
  }
}
