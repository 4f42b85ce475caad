// The stream of the machine's screen: starts it with the settings of the toolbar, and passes on what the
// machine sends.
import { byId } from '../base/dom.js';
import { RateMeter } from '../base/rate_meter.js';
import { readJson } from '../link/envelope.js';
import { Msg } from '../link/messages.js';
import { Picture } from '../picture/picture.js';
import { Quality, select } from './bar/quality.js';
import { Displays } from './displays/displays.js';

/**
 * The settings for a slow line. The machine sends a key frame every 2 s in any case, so a lower rate of frames
 * saves little more.
 */
const SLOW_LINE = Object.freeze({ preset: 'hand', max_fps: 2, bitrate: 128_000 });

export class Stream {
  #channel;
  #screen;
  #picture;
  #displays;
  #quality = new Quality(() => this.start());
  #meter = new RateMeter();
  #received = 0;
  #agent = '';
  /** The ids of the machines that are on a slow line, as the representative has said since the page was loaded. */
  #slowMachines = new Set();

  /**
   * @param {import('../link/session_channel.js').SessionChannel} channel
   * @param {import('../picture/screen.js').Screen} screen
   * @param {(picture: Picture) => void} onCodecChange
   */
  constructor(channel, screen, onCodecChange) {
    this.#channel = channel;
    this.#screen = screen;
    this.#picture = new Picture(screen, {
      send: (type, value) => channel.sendJson(type, value),
      onChange: () => onCodecChange(this.#picture),
    });
    this.#displays = new Displays(byId('monitor-picker'), (monitor) =>
      channel.sendJson(Msg.MonitorSelect, { monitor_id: monitor }),
    );
    channel.handle(Msg.StreamConfig, (payload) => this.#picture.configured(readJson(payload)));
    channel.handle(Msg.StreamFrame, (payload) => this.#frame(payload));
    channel.handle(Msg.Thumbnail, (payload) => this.#displays.add(payload));
  }

  /** The codec that the machine sends; '' until its first configuration message. */
  get codec() {
    return this.#picture.codec;
  }

  /** Why the pictures are not shown in H.264; '' without such a reason. */
  get obstacle() {
    return this.#picture.obstacle;
  }

  get slowLine() {
    return this.#picture.slowLine;
  }

  /** Changes the running stream to the settings for a slow line, or back. */
  set slowLine(/** @type {boolean} */ on) {
    if (on) this.#slowMachines.add(this.#agent);
    else this.#slowMachines.delete(this.#agent);
    this.#applySlowLine();
    this.start();
  }

  /** The number of frames received since the stream was started. */
  get received() {
    return this.#received;
  }

  get displayCount() {
    return this.#displays.count;
  }

  selectNextDisplay() {
    this.#displays.selectNext();
  }

  /** The size of the picture; null without a picture. */
  get size() {
    return this.#screen.drawn ? this.#screen.canvas : null;
  }

  /** Frames and kilobytes per second. */
  get rates() {
    return this.#meter.read();
  }

  /** Removes the picture and the monitors, before a session with another machine. */
  reset(/** @type {string} */ agent) {
    this.#agent = agent;
    this.#screen.reset();
    this.#applySlowLine();
    this.#picture.begin();
    this.#displays.reset();
  }

  /**
   * Starts or restarts the stream. Unless the rates are chosen by hand, the relay replaces them. The machine shows its pointer at the start of each stream, so the
   * representative's choice is sent each time.
   */
  start() {
    this.#meter.restart();
    this.#received = 0;
    const { preset, max_fps, bitrate } = this.slowLine ? SLOW_LINE : this.#quality.settings;
    this.#channel.sendControl({ type: 'quality', preset, max_fps, bitrate });
    this.#channel.sendJson(Msg.StreamStart, { monitor_id: this.#displays.selected, max_fps, bitrate });
    this.sendPointer();
    this.#picture.started();
  }

  /** Takes over a stream that the machine sends already, from its settings and its last pictures on. */
  goOn() {
    this.#meter.restart();
    this.#received = 0;
    this.#picture.goOn();
  }

  /** What the representative has chosen, as restore() takes it. */
  get choices() {
    return {
      monitor: this.#displays.selected,
      ...this.#quality.choices,
      codec: byId('codec', HTMLSelectElement).value,
      slow: this.slowLine,
      pointer: byId('show-pointer', HTMLInputElement).checked,
    };
  }

  /** Sets what was chosen before the page was loaded again, and sends nothing. */
  restore(/** @type {Record<string, unknown>} */ { monitor, codec, slow, pointer, ...rest }) {
    if (typeof monitor === 'number') this.#displays.restore(monitor);
    this.#quality.restore(rest);
    if (slow === true) this.#slowMachines.add(this.#agent);
    this.#applySlowLine();
    if (select(byId('codec', HTMLSelectElement), codec))
      this.#picture.restore(/** @type {import('../picture/picture.js').Codec} */ (codec));
    byId('show-pointer', HTMLInputElement).checked = pointer !== false;
  }

  /** Drops frames that are not drawn yet; the drawn picture stays. */
  end() {
    this.#picture.drop();
  }

  chooseCodec(/** @type {import('../picture/picture.js').Codec} */ codec) {
    this.#picture.choose(codec);
  }

  /** Tells the machine whether to show its pointer. */
  sendPointer() {
    const { checked } = byId('show-pointer', HTMLInputElement);
    this.#channel.sendJson(Msg.CursorVisibility, { show: checked ? 1 : 0 });
  }

  requestThumbnails() {
    this.#channel.send(Msg.ThumbnailRequest);
  }

  #applySlowLine() {
    const on = this.#slowMachines.has(this.#agent);
    byId('slow-line', HTMLInputElement).checked = on;
    this.#quality.disabled = on;
    this.#picture.slowLine = on;
  }

  #frame(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
    this.#meter.add(payload.length);
    this.#received += 1;
    this.#picture.frame(payload);
  }
}
