// Restarting the machine: the question before it, and the wait until the machine is back.
import { emit } from '../base/custom_events.js';
import { byId } from '../base/dom.js';
import { texts } from '../base/texts.js';
import { Msg } from '../link/messages.js';
import { RESTART_DEADLINE_MS } from '../machines/machine_list.js';

/**
 * Events: 'restarting' (detail: true) when the machine was asked to restart, (detail: false) when it has not
 * restarted in time.
 */
export class Restart extends EventTarget {
  #channel;
  #strips;
  #machineName;
  #dialog = byId('restart-dialog', HTMLDialogElement);
  #underWay = false;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #deadline;

  /**
   * @param {import('../link/session_channel.js').SessionChannel} channel
   * @param {import('./reports/strips.js').Strips} strips
   * @param {() => string} machineName returns the name of the machine, for use in a sentence
   */
  constructor(channel, strips, machineName) {
    super();
    this.#channel = channel;
    this.#strips = strips;
    this.#machineName = machineName;
    byId('restart').addEventListener('click', () => this.#ask());
    this.#dialog.addEventListener('close', () => {
      if (this.#dialog.returnValue === 'restart') this.#begin();
      this.#dialog.returnValue = '';
    });
  }

  /** True from the request until the machine is back or the wait for it has ended. */
  get underWay() {
    return this.#underWay;
  }

  end() {
    this.#dialog.close();
    clearTimeout(this.#deadline);
    this.#underWay = false;
    this.#strips.hide('restart');
  }

  #ask() {
    if (!this.#channel.isOpen) return;
    byId('restart-question').textContent = texts.restartQuestion(this.#machineName());
    this.#dialog.showModal();
  }

  #begin() {
    if (!this.#channel.isOpen) return;
    this.#channel.send(Msg.Reboot);
    this.#underWay = true;
    this.#deadline = setTimeout(() => this.#expire(), RESTART_DEADLINE_MS);
    this.#strips.show('restart', texts.restartRequested(this.#machineName()));
    emit(this, 'restarting', true);
  }

  /** Ends the wait if the machine is still online. The wait for a machine that is offline has no limit. */
  #expire() {
    if (!this.#channel.isOpen) return;
    this.end();
    emit(this, 'restarting', false);
    this.#strips.show('restart', texts.notRestarted(this.#machineName()));
  }
}
