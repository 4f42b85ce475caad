// The stream of the machine's screen: starts it with the settings of the toolbar, and passes on what the
// machine sends.
import { byId } from '../base/dom.js';
import { RateMeter } from '../base/rate_meter.js';
import { readJson } from '../link/envelope.js';
import { Msg } from '../link/messages.js';
import { Picture } from '../picture/picture.js';
import { Displays } from './displays.js';

const BITRATE = 6_000_000;
/**
 * The settings for a slow line. The machine sends a key frame every 2 s in any case, so a lower rate of frames
 * saves little more.
 */
const SLOW_LINE = Object.freeze({ max_fps: 2, bitrate: 128_000 });

export class Stream {
  #channel;
  #screen;
  #picture;
  #displays;
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
   * Starts or restarts the stream. The machine shows its pointer at the start of each stream, so the
   * representative's choice is sent each time.
   */
  start() {
    this.#meter.restart();
    this.#received = 0;
    this.#channel.sendJson(Msg.StreamStart, {
      monitor_id: this.#displays.selected,
      max_fps: Number(byId('max-fps', HTMLSelectElement).value),
      bitrate: BITRATE,
      ...(this.slowLine ? SLOW_LINE : {}),
    });
    this.sendPointer();
    this.#picture.started();
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
    byId('max-fps', HTMLSelectElement).disabled = on;
    this.#picture.slowLine = on;
  }

  #frame(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
    this.#meter.add(payload.length);
    this.#received += 1;
    this.#picture.frame(payload);
  }
}
