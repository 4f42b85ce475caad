// One session with one machine: asking for it, its stream, and its end. A session that broke with the link or the
// machine is asked for again when both are back.

import { byId } from '../base/dom.js';
import { inSentence, nameOf } from '../base/names.js';
import { RateMeter } from '../base/status.js';
import { texts } from '../base/texts.js';
import { attachClipboard } from '../clipboard/clipboard.js';
import { attachFiles } from '../files/files.js';
import { Hands } from '../input/remote_input.js';
import { decodeEnvelope, encodeEnvelope, encodeJson, readJson } from '../link/envelope.js';
import { Msg } from '../link/messages.js';
import { Picture } from '../picture/picture.js';
import { Screen } from '../picture/screen.js';
import { Displays } from './displays.js';
import { Overlay } from './overlay.js';
import { Panels } from './panels.js';
import { Restart } from './restart.js';
import { attachTools, layOut, showCodec, showStatus } from './toolbar.js';

const BITRATE = 6_000_000;
const STATUS_EVERY_MS = 500;
/** Ends after which the machine is expected to come back by itself. */
const COMES_BACK = ['agent-gone', 'replaced'];

/**
 * Events: 'accepted' when envelopes may flow, 'over' when they no longer do, 'restarting'. A panel adds itself to `panels`,
 * what it wants to hear of the machine to `handlers`, and sends by sendBytes and sendJson.
 */
export class SessionView extends EventTarget {
  /**
   * @param {import('../link/link.js').Link} link
   * @param {(remark: string) => void} onLeave back to the list, with something to say there or ''
   */
  constructor(link, onLeave) {
    super();
    this.link = link;
    this.onLeave = onLeave;
    /** 'none', 'asking' until the relay knows, 'waiting' for consent, 'accepted', 'away' until it can go on, 'over' */
    this.state = 'none';
    /** @type {number | null} the relay's number of the session */
    this.number = null;
    this.agent = '';
    this.name = '';
    this.monitor = 0;
    this.meter = new RateMeter();
    this.screen = new Screen(byId('screen'), { onFrame: () => this.drawn(), onSize: () => layOut(this) });
    this.picture = new Picture(this.screen, {
      send: (type, value) => this.sendJson(type, value),
      onChange: () => showCodec(this),
    });
    this.overlay = new Overlay({
      again: () => this.ask(),
      goOn: () => this.overlay.clear(),
      giveUp: () => this.leave(),
      back: () => this.leave(),
    });
    this.displays = new Displays(byId('monitor-picker'), (monitor) => this.selectMonitor(monitor));
    this.hands = new Hands({
      canvas: this.screen.canvas,
      catcher: byId('key-catcher'),
      send: (payload) => this.sendBytes(Msg.InputEvent, payload),
      backlog: () => link.backlog,
    });
    /** @type {Map<number, (payload: Uint8Array) => void>} what to do with the machine's messages */
    this.handlers = new Map([
      [Msg.StreamFrame, (payload) => this.showFrame(payload)],
      [Msg.StreamConfig, (payload) => this.picture.configured(readJson(payload))],
      [Msg.Thumbnail, (payload) => this.displays.add(payload)],
    ]);
    this.panels = new Panels(byId('panels'), byId('panel-buttons'));
    this.restart = new Restart(this);
    attachTools(this);
    attachClipboard(this, attachFiles(this));
    setInterval(() => showStatus(this), STATUS_EVERY_MS);
  }

  get state() {
    return /** @type {string} */ (byId('view-session').dataset.state);
  }

  /** On the page, where the style sheet sees it too. */
  set state(state) {
    byId('view-session').dataset.state = state;
  }

  get accepted() {
    return this.state === 'accepted';
  }

  /** @param {import('../machines/machines.js').Machine} machine */
  begin(machine) {
    this.agent = machine.id;
    this.name = inSentence(nameOf(machine));
    this.monitor = 0;
    this.screen.reset();
    this.picture.begin();
    this.displays.reset();
    byId('session-name').textContent = nameOf(machine);
    byId('session-name').title = nameOf(machine);
    this.ask();
  }

  /** Asks the machine, for the first time or again. */
  ask() {
    this.number = null;
    this.state = 'asking';
    this.overlay.say(texts.waiting(this.name), { busy: true, giveUp: true });
    if (!this.link.sendControl({ type: 'open', agent: this.agent })) this.stayAway();
  }

  /** @param {{session: number, agent: string, state: string, reason?: string}} message what became of a session */
  changed({ session, agent, state, reason = 'other' }) {
    if (agent === this.agent && state === 'waiting' && this.state === 'asking') {
      this.number = session;
      this.state = 'waiting';
    }
    // A session that was given up before its number was known.
    else if (state === 'waiting') this.link.sendControl({ type: 'close', session });
    if (session !== this.number || !['waiting', 'accepted'].includes(this.state)) return;
    if (state === 'accepted') this.start();
    if (state !== 'ended') return;
    if (COMES_BACK.includes(reason)) this.stayAway();
    else this.finish((texts.ended[/** @type {'other'} */ (reason)] ?? texts.ended.other)(this.name));
  }

  /** @param {{message?: unknown, code?: unknown, agent?: unknown, representative?: unknown}} error of the relay */
  refused({ message, code, agent, representative }) {
    if (this.state !== 'asking' || agent !== this.agent) return;
    const known = texts.refused[/** @type {'in-use'} */ (code)];
    this.finish(
      known ? known(this.name, inSentence(String(representative ?? ''))) : String(message ?? texts.failed),
    );
  }

  /** @param {import('../machines/machines.js').Machine[]} list all machines as they are now */
  machinesChanged(list) {
    if (this.state !== 'away') return;
    const machine = list.find(({ id }) => id === this.agent);
    if (machine?.state === 'online') this.ask();
    else this.sayAway(machine?.state === 'session' ? (machine.representative ?? '') : '');
  }

  linkLost() {
    if (['asking', 'waiting', 'accepted', 'away'].includes(this.state)) this.stayAway();
  }

  /** Ends the session, or gives up waiting for it. */
  leave() {
    if (this.state === 'none') return;
    const asked = this.state === 'asking' || this.state === 'waiting';
    this.restart.over();
    this.stop('none');
    if (this.number !== null) this.link.sendControl({ type: 'close', session: this.number });
    this.number = null;
    if (document.fullscreenElement) document.exitFullscreen();
    this.onLeave(asked ? texts.withdrawn(this.name) : '');
  }

  /** An envelope of the machine. */
  receive(/** @type {ArrayBuffer} */ buffer) {
    const envelope = decodeEnvelope(buffer);
    if (!envelope || !this.accepted || envelope.session !== this.number) return;
    this.handlers.get(envelope.type)?.(envelope.payload);
  }

  sendBytes(/** @type {number} */ type, /** @type {Uint8Array} */ payload = new Uint8Array(0)) {
    if (this.accepted && this.number !== null)
      this.link.sendEnvelope(encodeEnvelope(type, this.number, payload));
  }

  sendJson(/** @type {number} */ type, /** @type {object} */ value) {
    if (this.accepted && this.number !== null) this.link.sendEnvelope(encodeJson(type, this.number, value));
  }

  /** Starts the stream, or starts it anew: each stream begins with the pointer shown. */
  startStream() {
    this.meter.restart();
    this.sendJson(Msg.StreamStart, {
      monitor_id: this.monitor,
      max_fps: Number(byId('max-fps').value),
      bitrate: BITRATE,
    });
    this.sendPointer();
    this.picture.started();
  }

  sendPointer() {
    this.sendJson(Msg.CursorVisibility, { show: byId('show-pointer').checked ? 1 : 0 });
  }

  setHands() {
    this.hands.enabled = this.accepted && !this.restart.underWay && !byId('view-only').checked;
  }

  /** @private */
  start() {
    this.state = 'accepted';
    this.restart.over();
    this.overlay.say(texts.starting, { busy: true });
    this.startStream();
    this.sendBytes(Msg.ThumbnailRequest);
    this.setHands();
    this.hands.focus();
    this.dispatchEvent(new Event('accepted'));
  }

  /** @private The keys that are down are let go while the machine still hears it. */
  stop(/** @type {string} */ state) {
    const was = this.accepted;
    this.hands.enabled = false;
    this.state = state;
    this.picture.drop();
    if (was) this.dispatchEvent(new Event('over'));
  }

  /** @private The last picture stays, greyed, with the reason over it. */
  finish(/** @type {string} */ reason) {
    this.stop('over');
    this.restart.over();
    this.number = null;
    this.overlay.say(reason, { again: true, back: true });
  }

  /** @private */
  stayAway() {
    this.stop('away');
    this.number = null;
    this.sayAway();
  }

  /** @private `holder`: who works on the machine, which may be this representative until the relay misses the old link */
  sayAway(holder = '') {
    if (!this.link.up) this.overlay.say(texts.linkDown, { busy: true, back: true });
    else if (holder)
      this.overlay.say(texts.machineTaken(this.name, inSentence(holder)), { busy: true, back: true });
    else if (this.restart.underWay) this.restart.show();
    else this.overlay.say(texts.machineAway(this.name), { busy: true, back: true });
  }

  /** @private */
  showFrame(/** @type {Uint8Array} */ payload) {
    this.meter.add(payload.length);
    this.picture.frame(payload);
  }

  /** @private */
  drawn() {
    if (this.accepted && !this.restart.underWay && !this.overlay.asks) this.overlay.clear();
  }

  /** @private */
  selectMonitor(/** @type {number} */ monitor) {
    this.monitor = monitor;
    this.sendJson(Msg.MonitorSelect, { monitor_id: monitor });
  }
}
