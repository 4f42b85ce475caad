// One session with one machine: the picture, the hands, the tools around them, and its end.
import { byId, make } from './dom.js';
import { decodeEnvelope, encodeEnvelope, encodeJson, Msg, readJson } from './envelope.js';
import { fit } from './geometry.js';
import { Keyboard } from './keyboard.js';
import { attachPointer } from './pointer.js';
import { InputSender } from './sender.js';
import { RateMeter, wholeRoundTrip } from './status.js';
import { texts } from './texts.js';
import { MonitorList, parseThumbnail } from './thumbnails.js';
import { typeText } from './typing.js';
import { Viewer } from './viewer.js';

const BITRATE = 6_000_000;
const STATUS_EVERY_MS = 500;
/** Keys that a browser or its system keeps for itself. */
const COMBINATIONS = { 'alt-tab': ['AltLeft', 'Tab'], 'alt-f4': ['AltLeft', 'F4'], windows: ['MetaLeft'],
  'task-manager': ['ControlLeft', 'ShiftLeft', 'Escape'], lock: ['MetaLeft', 'KeyL'], print: ['PrintScreen'] };

export class SessionView {
  /** @param {import('./link.js').Link} link @param {() => void} onLeave back to the list */
  constructor(link, onLeave) {
    this.link = link;
    this.onLeave = onLeave;
    /** @type {number | null} */
    this.number = null;
    this.accepted = false;
    this.monitor = 0;
    this.monitors = new MonitorList();
    this.meter = new RateMeter();
    /** @type {AbortController | null} */
    this.typing = null;
    this.canvas = byId('screen');
    this.viewer = new Viewer(this.canvas, { onFrame: () => this.drawn(), onSize: () => this.layOut() });
    this.sender = new InputSender({ send: (payload) => this.sendBytes(Msg.InputEvent, payload), backlog: () => link.backlog });
    this.keyboard = new Keyboard((events) => this.sender.send(events));
    this.keys = byId('key-catcher');
    this.pointer = attachPointer(this.canvas, this.sender, () => this.keys.focus({ preventScroll: true }));
    this.attachKeys();
    this.attachTools();
    new ResizeObserver(() => this.layOut()).observe(byId('stage'));
    setInterval(() => this.showStatus(), STATUS_EVERY_MS);
  }

  /** The request for a machine has gone out. */
  begin(/** @type {string} */ agent, /** @type {string} */ name) {
    this.agent = agent;
    this.number = null;
    this.accepted = false;
    this.over = false;
    this.monitor = 0;
    this.monitors = new MonitorList();
    this.viewer.reset();
    this.drawMonitors();
    byId('session-name').textContent = name;
    this.say(texts.waiting(name), true);
  }

  /** @param {{session: number, agent: string, state: string, reason?: string}} message */
  changed({ session, agent, state, reason }) {
    if (agent !== this.agent || this.over) return;
    if (state === 'waiting') this.number = session;
    if (session !== this.number) return;
    if (state === 'accepted') this.start();
    if (state === 'ended') this.finish(texts.ended[/** @type {'other'} */ (reason)] ?? texts.ended.other);
  }

  /** A refusal of the relay before there was a session. */
  refused(/** @type {string} */ message) {
    if (!this.accepted && !this.over) this.finish(message);
  }

  linkLost() {
    if (this.agent && !this.over) this.finish(texts.ended.other);
  }

  /** @private */
  start() {
    this.accepted = true;
    this.say(texts.starting);
    this.startStream();
    this.sendBytes(Msg.ThumbnailRequest, new Uint8Array(0));
    this.setHands();
    this.keys.focus({ preventScroll: true });
  }

  /** @private Every stream begins with the pointer shown, so its choice is sent behind each start. */
  startStream() {
    this.meter.restart();
    this.sendJson(Msg.StreamStart, { monitor_id: this.monitor, max_fps: Number(byId('max-fps').value), bitrate: BITRATE });
    this.sendPointer();
  }

  /** @private */
  sendPointer() {
    this.sendJson(Msg.CursorVisibility, { show: byId('show-pointer').checked ? 1 : 0 });
  }

  /** Ends the session, or gives up waiting for it. */
  leave() {
    this.release();
    if (this.number !== null && !this.over) this.link.sendControl({ type: 'close', session: this.number });
    this.agent = undefined;
    this.over = true;
    this.accepted = false;
    this.setHands();
    this.onLeave();
  }

  /** @private The last picture stays, greyed, with the reason over it. */
  finish(/** @type {string} */ reason) {
    this.release();
    this.over = true;
    this.accepted = false;
    this.setHands();
    this.say(reason);
  }

  /** An envelope of the machine. */
  receive(/** @type {ArrayBuffer} */ buffer) {
    const envelope = decodeEnvelope(buffer);
    if (!envelope || envelope.session !== this.number || !this.accepted) return;
    if (envelope.type === Msg.StreamFrame) {
      this.meter.add(buffer.byteLength);
      this.viewer.show(envelope.payload);
    } else if (envelope.type === Msg.StreamConfig) {
      this.configured(readJson(envelope.payload));
    } else if (envelope.type === Msg.Thumbnail) {
      const thumbnail = parseThumbnail(envelope.payload);
      if (thumbnail) this.monitors.add(thumbnail);
      this.drawMonitors();
    }
  }

  /** @private This console shows JPEG; another codec is answered by asking for that. */
  configured(/** @type {Record<string, unknown> | null} */ config) {
    this.viewer.drop();
    if (config?.codec === 'h264') this.sendJson(Msg.CodecSelect, { codec: 'mjpeg' });
  }

  /** @private */
  drawn() {
    if (this.accepted) this.say('');
  }

  /** @private */
  say(/** @type {string} */ text, waiting = false) {
    const note = byId('session-note');
    note.hidden = text === '';
    if (text) byId('session-note-text').textContent = text;
    byId('session-give-up').hidden = !waiting;
    byId('stage').classList.toggle('covered', text !== '');
  }

  /** @private */
  sendBytes(/** @type {number} */ type, /** @type {Uint8Array} */ payload) {
    if (this.accepted && this.number !== null) this.link.sendEnvelope(encodeEnvelope(type, this.number, payload));
  }

  /** @private */
  sendJson(/** @type {number} */ type, /** @type {object} */ value) {
    if (this.accepted && this.number !== null) this.link.sendEnvelope(encodeJson(type, this.number, value));
  }

  /** @private */
  release() {
    this.typing?.abort();
    this.keyboard.releaseAll();
    this.pointer.releaseAll();
  }

  /** @private */
  setHands() {
    this.sender.enabled = this.accepted && !byId('view-only').checked;
  }

  /** @private */
  attachKeys() {
    const deal = (/** @type {(event: any) => boolean} */ handle) => (/** @type {KeyboardEvent} */ event) => {
      if (this.sender.enabled && handle(event)) event.preventDefault();
    };
    this.keys.addEventListener('keydown', deal((event) => this.keyboard.keyDown(event)));
    this.keys.addEventListener('keyup', deal((event) => this.keyboard.keyUp(event)));
    this.keys.addEventListener('blur', () => this.keyboard.releaseAll());
    const take = (/** @type {string} */ text) => {
      this.keyboard.text(text);
      this.keys.value = '';
    };
    this.keys.addEventListener('compositionend', (/** @type {CompositionEvent} */ event) => take(event.data));
    this.keys.addEventListener('input', (/** @type {InputEvent} */ event) => {
      if (!event.isComposing && event.inputType !== 'insertCompositionText') take(event.data ?? '');
    });
  }

  /** @private */
  attachTools() {
    const on = (/** @type {string} */ id, /** @type {string} */ name, /** @type {() => void} */ act) =>
      byId(id).addEventListener(name, act);
    on('session-end', 'click', () => this.leave());
    on('session-give-up', 'click', () => this.leave());
    on('max-fps', 'change', () => this.startStream());
    on('show-pointer', 'change', () => this.sendPointer());
    on('view-only', 'change', () => {
      this.release();
      this.setHands();
    });
    on('key-mode', 'change', () => {
      this.keyboard.releaseAll();
      this.keyboard.mode = byId('key-mode').value;
    });
    on('actual-size', 'change', () => this.layOut());
    on('full-screen', 'click', () => {
      if (document.fullscreenElement) document.exitFullscreen();
      else byId('view-session').requestFullscreen().catch(() => {});
    });
    on('key-combination', 'change', () => this.combination());
    on('monitor-refresh', 'click', () => this.sendBytes(Msg.ThumbnailRequest, new Uint8Array(0)));
    on('type-text', 'click', () => byId('type-dialog').showModal());
    on('type-dialog', 'close', () => this.typeBox());
  }

  /** @private */
  combination() {
    const select = byId('key-combination');
    const chosen = select.value;
    select.value = '';
    if (chosen === 'attention') this.sendBytes(Msg.SecureAttention, new Uint8Array(0));
    const codes = COMBINATIONS[/** @type {'lock'} */ (chosen)];
    if (codes) this.keyboard.tap(codes);
    this.keys.focus({ preventScroll: true });
  }

  /** @private */
  async typeBox() {
    const box = byId('type-box');
    if (byId('type-dialog').returnValue !== 'type') return;
    this.typing = new AbortController();
    await typeText(box.value, { send: (events) => this.sender.send(events), signal: this.typing.signal,
      pause: (ms) => new Promise((done) => setTimeout(done, ms)) });
    box.value = '';
  }

  /** @private */
  drawMonitors() {
    const places = this.monitors.entries().map(({ monitor, thumbnail }) => {
      const name = texts.monitor(monitor + 1);
      const button = make('button', { type: 'button', className: 'monitor', title: name, ariaPressed: String(monitor === this.monitor),
        dataset: { monitor: String(monitor) }, onclick: () => this.selectMonitor(monitor) });
      if (thumbnail) {
        const url = URL.createObjectURL(new Blob([thumbnail.jpeg], { type: 'image/jpeg' }));
        const forget = () => URL.revokeObjectURL(url);
        button.append(make('img', { src: url, alt: '', onload: forget, onerror: forget }));
      }
      button.append(make('span', {}, name));
      return button;
    });
    byId('monitor-picker').replaceChildren(...places);
  }

  /** @private */
  selectMonitor(/** @type {number} */ monitor) {
    this.monitor = monitor;
    this.sendJson(Msg.MonitorSelect, { monitor_id: monitor });
    this.drawMonitors();
  }

  /** @private */
  layOut() {
    const stage = byId('stage');
    const actual = byId('actual-size').checked;
    stage.classList.toggle('actual', actual);
    const size = actual ? this.canvas : fit(this.canvas, { width: stage.clientWidth, height: stage.clientHeight });
    this.canvas.style.width = `${size.width}px`;
    this.canvas.style.height = `${size.height}px`;
  }

  /** @private */
  showStatus() {
    const { framesPerSecond, kilobytesPerSecond } = this.meter.read();
    const trip = wholeRoundTrip(this.link.browserTrip, this.link.machineTrip);
    byId('status-line').textContent = this.accepted
      ? texts.status(framesPerSecond, kilobytesPerSecond, trip) + (this.link.unstable ? texts.unstable : '') : '';
  }
}
