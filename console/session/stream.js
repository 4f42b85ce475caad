// The stream of the machine's screen: starts it with the settings of the toolbar, and passes on what the
// machine sends.
import { byId } from '../base/dom.js';
import { RateMeter } from '../base/rate_meter.js';
import { readJson } from '../link/envelope.js';
import { Msg } from '../link/messages.js';
import { Picture } from '../picture/picture.js';
import { Displays } from './displays.js';

const BITRATE = 6_000_000;

export class Stream {
  #channel;
  #screen;
  #picture;
  #displays;
  #meter = new RateMeter();

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

  /** The size of the picture; null without a picture. */
  get size() {
    return this.#screen.drawn ? this.#screen.canvas : null;
  }

  /** Frames and kilobytes per second. */
  get rates() {
    return this.#meter.read();
  }

  /** Removes the picture and the monitors, before a session with another machine. */
  reset() {
    this.#screen.reset();
    this.#picture.begin();
    this.#displays.reset();
  }

  /**
   * Starts or restarts the stream. The machine shows its pointer at the start of each stream, so the
   * representative's choice is sent each time.
   */
  start() {
    this.#meter.restart();
    this.#channel.sendJson(Msg.StreamStart, {
      monitor_id: this.#displays.selected,
      max_fps: Number(byId('max-fps', HTMLSelectElement).value),
      bitrate: BITRATE,
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

  #frame(/** @type {Uint8Array<ArrayBuffer>} */ payload) {
    this.#meter.add(payload.length);
    this.#picture.frame(payload);
  }
}
