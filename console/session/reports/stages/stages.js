// The part of the page that the status line opens: how long a picture takes for each stage of its way.
import { onDetail } from '../../../base/custom_events.js';
import { byId, make } from '../../../base/dom.js';
import { qualityTexts } from '../../bar/quality_texts.js';
import { stageTexts as texts } from './texts.js';

/** A queue of the machine that a representative notices, in milliseconds. */
const LONG_QUEUE_MS = 1000;

/** @typedef {keyof typeof texts.stages} Stage */
/**
 * The relay's report about the last second; times in milliseconds. stages: null if no picture was displayed. queue:
 * how long pictures wait in the machine. file: whether the machine sends a file. still: whether the picture stands
 * still under input, by the relay's name; '' if not. asked: what the machine is asked for, in words; '' if unknown.
 * @typedef {{stages: Record<Stage, number> | null, queue: number, file: boolean, dropped: number, still: string,
 *   asked: string}} Report
 */

const STAGES = /** @type {Stage[]} */ (Object.keys(texts.stages));

/**
 * Reads the relay's message; returns null if it is not valid.
 * @param {Record<string, unknown>} message
 * @returns {Report | null}
 */
export function readReport({ stages, queue, file, dropped, still, preset, asked }) {
  if (typeof queue !== 'number' || typeof dropped !== 'number') return null;
  const times = /** @type {Record<Stage, number> | null} */ (stages ?? null);
  if (times && !STAGES.every((stage) => Number.isFinite(times[stage]))) return null;
  const state = String(still) in texts.still ? String(still) : '';
  return { stages: times, queue, file: file === true, dropped, still: state, asked: askedFor(preset, asked) };
}

function askedFor(/** @type {unknown} */ preset, /** @type {unknown} */ asked) {
  const name = qualityTexts.presets[String(preset)];
  const { max_fps: fps, bitrate } = /** @type {Record<string, unknown>} */ (asked ?? {});
  if (!name || typeof fps !== 'number' || typeof bitrate !== 'number') return '';
  return texts.asked(name, fps, qualityTexts.megabits((bitrate / 1_000_000).toFixed(2)));
}

/** What the status line says about a report: a long queue of the machine, a picture that stands still, or ''. */
export function remarkOn(/** @type {Report} */ { queue, file, still }) {
  if (queue < LONG_QUEUE_MS) return texts.still[still] ?? '';
  const seconds = (queue / 1000).toFixed(1);
  return file ? texts.fileQueue(seconds) : texts.lineQueue(seconds);
}

/**
 * The rounded times of the stages and their sum, so that the shown numbers add up.
 * @param {Record<Stage, number>} stages
 */
export function rowsOf(stages) {
  const rows = STAGES.map((stage) => ({ name: texts.stages[stage], ms: Math.round(stages[stage]) }));
  return [...rows, { name: texts.total, ms: rows.reduce((sum, { ms }) => sum + ms, 0) }];
}

export class StagesPanel {
  #button = byId('status-line', HTMLButtonElement);
  #panel = byId('stages');
  /** @type {Report | null} */
  #report = null;

  /**
   * @param {object} parts
   * @param {import('../../../link/session_channel.js').SessionChannel} parts.channel
   * @param {import('../../../link/link.js').Link} parts.link
   */
  constructor({ channel, link }) {
    this.#button.title = texts.open;
    this.#panel.ariaLabel = texts.title;
    this.#open = false;
    this.#button.addEventListener('click', () => {
      this.#open = this.#panel.hidden;
    });
    this.#button.addEventListener('keydown', ({ key }) => {
      if (key === 'Escape') this.#open = false;
    });
    channel.addEventListener('closed', () => {
      this.#report = null;
      this.#open = false;
    });
    onDetail(link, 'control', (/** @type {import('../../../link/link.js').ControlMessage} */ message) => {
      if (message.type !== 'stages' || message.session !== channel.session) return;
      this.#report = readReport(message);
      this.#show();
    });
  }

  /** What the status line adds to its own numbers; '' for nothing. */
  get remark() {
    return this.#report ? remarkOn(this.#report) : '';
  }

  set #open(/** @type {boolean} */ on) {
    this.#panel.hidden = !on;
    this.#button.ariaExpanded = String(on);
    this.#show();
  }

  #show() {
    if (this.#panel.hidden) return;
    const report = this.#report;
    const remarks = report ? [remarkOn(report), report.dropped ? texts.dropped(report.dropped) : ''] : [];
    this.#panel.replaceChildren(
      make('h2', {}, texts.title),
      report?.stages ? listOf(rowsOf(report.stages)) : make('p', {}, texts.none),
      ...remarks.filter(Boolean).map((remark) => make('p', { className: 'remark' }, remark)),
      ...(report?.asked ? [make('p', {}, report.asked)] : []),
      make('p', { className: 'muted' }, texts.hint),
    );
  }
}

function listOf(/** @type {{name: string, ms: number}[]} */ rows) {
  return make(
    'dl',
    {},
    ...rows.map(({ name, ms }) => make('div', {}, make('dt', {}, name), make('dd', {}, texts.time(ms)))),
  );
}
