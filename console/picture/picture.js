// A session's picture: which codec is wanted, which one comes, and the player that shows it.
import { Msg } from '../link/messages.js';
import { H264Player } from './h264_player.js';
import { playsH264 } from './h264_probe.js';
import { JpegPlayer } from './jpeg_player.js';

const STAMP_BYTES = 8;

export class Picture {
  /**
   * @param {import('./screen.js').Screen} screen
   * @param {{send: (type: number, value: object) => void, onChange: () => void}} road onChange: `wanted`, `codec` or
   *   `hasH264` are others now
   */
  constructor(screen, { send, onChange }) {
    this.send = send;
    this.onChange = onChange;
    this.jpeg = new JpegPlayer(screen);
    this.h264 = new H264Player(screen, {
      askForKey: () => send(Msg.KeyframeRequest, {}),
      giveUp: () => this.withoutH264(),
    });
    /** 'h264' or 'mjpeg': what the representative chose, and what is asked for. */
    this.chosen = 'h264';
    this.wanted = 'h264';
    /** What the machine sends, '' until it has said. */
    this.codec = '';
    this.hasH264 = true;
    this.plays = true;
    playsH264().then((plays) => {
      this.plays = plays;
      if (!plays) this.withoutH264();
    });
  }

  /** For another session: one machine's stream that could not be played says nothing of another's. */
  begin() {
    this.hasH264 = this.plays;
    this.wanted = this.hasH264 ? this.chosen : 'mjpeg';
    this.onChange();
  }

  /** To be called after each start of a stream: it begins with H.264 and knows nothing of the choice. */
  started() {
    this.codec = '';
    this.drop();
    if (this.wanted !== 'h264') this.select();
  }

  choose(/** @type {string} */ codec) {
    this.chosen = codec;
    this.want(codec);
  }

  /** @param {Record<string, unknown> | null} config what the machine says of the frames to come */
  configured(config) {
    this.codec = config?.codec === 'h264' ? 'h264' : 'mjpeg';
    this.drop();
    if (this.codec === 'h264' && !this.hasH264) this.select();
    this.onChange();
  }

  frame(/** @type {Uint8Array} */ payload) {
    const picture = payload.subarray(STAMP_BYTES);
    if (this.codec !== 'h264') this.jpeg.show(picture);
    else if (this.hasH264) this.h264.show(picture, stampOf(payload));
  }

  /** Forgets what is on its way. */
  drop() {
    this.jpeg.drop();
    this.h264.drop();
  }

  /** @private */
  want(/** @type {string} */ codec) {
    this.wanted = codec === 'h264' && this.hasH264 ? 'h264' : 'mjpeg';
    this.select();
    this.onChange();
  }

  /** @private */
  select() {
    this.send(Msg.CodecSelect, { codec: this.wanted });
  }

  /** @private */
  withoutH264() {
    if (!this.hasH264) return;
    this.hasH264 = false;
    this.h264.drop();
    this.want('mjpeg');
  }
}

/** Microseconds, as a number that is exact for three centuries. */
function stampOf(/** @type {Uint8Array} */ payload) {
  if (payload.length < STAMP_BYTES) return 0;
  return Number(new DataView(payload.buffer, payload.byteOffset).getBigUint64(0, true) & 0x1fffffffffffffn);
}
