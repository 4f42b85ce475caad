// The session's part of the page: creates the features and connects them with the session.

import { onDetail } from '../base/custom_events.js';
import { byId } from '../base/dom.js';
import { askBeforeLeaving } from '../base/leaving.js';
import { attachClipboard } from '../clipboard/clipboard.js';
import { attachFiles } from '../files/files.js';
import { RemoteInput } from '../input/remote_input.js';
import { Msg } from '../link/messages.js';
import { SessionChannel } from '../link/session_channel.js';
import { Screen } from '../picture/screen.js';
import { BarLayout } from './bar/bar_layout.js';
import { attachRights } from './bar/rights_controls.js';
import { Viewers } from './bar/viewers.js';
import { viewersTexts } from './bar/viewers_texts.js';
import { Choices } from './consent/choices.js';
import { Focus } from './focus.js';
import { Panels } from './panels.js';
import { CodecReport } from './reports/codec_report.js';
import { attachDroppedInput } from './reports/dropped_input.js';
import { attachFirstPicture } from './reports/first_picture.js';
import { attachStatusLine } from './reports/status_line.js';
import { watchLink } from './reports/still_link.js';
import { Strips } from './reports/strips.js';
import { Session } from './session.js';
import { Stage } from './stage.js';
import { Stream } from './stream.js';
import { attachToolbar } from './toolbar.js';
import { ViewOnly } from './view_only.js';

/**
 * @param {import('../link/link.js').Link} link
 * @returns {{session: Session, begin: (machine: import('../machines/machine_list.js').Machine,
 *   reason?: string) => void, comeBack: (agent: string, session: number) => void}} begin: requests a session
 *   with a machine; comeBack: returns to a session that the relay may hold
 */
export function attachSession(link) {
  const channel = new SessionChannel(link);
  const strips = new Strips(() => input.remote.focus());
  const session = new Session(link, channel, strips);
  const screen = new Screen(byId('screen', HTMLCanvasElement), {
    onFrame: () => session.note.frameDrawn(),
    onSize: () => stage.layOut(),
  });
  const stage = new Stage(screen);
  const codecReport = new CodecReport(strips);
  const stream = new Stream(channel, screen, (picture) => codecReport.show(picture));
  const input = attachInput({ channel, session, stage, canvas: screen.canvas, backlog: () => link.backlog });
  const panels = new Panels(byId('panels'), byId('panel-buttons'));
  attachReturn({ channel, link, session, stream, stage, input, panels });
  channel.addEventListener('closed', () => stream.end());
  attachToolbar({ channel, stream, input: input.remote, onEnd: () => session.leave() });
  attachFirstPicture({
    session,
    stream,
    inputAllowed: () => input.remote.enabled,
    wake: () => input.remote.pressCombination('shift'),
  });
  watchLink({ link, session, stream });
  attachDroppedInput({ channel, link, strips });
  const bar = new BarLayout();
  session.addEventListener('state', () => bar.enable(session.isAccepted));
  attachPeople({ channel, link, strips, session, onShown: () => bar.layOut() });
  attachStatusLine({ channel, link, stream, times: screen.times });
  const files = attachFiles({ channel, relay: link, addPanel: (panel) => panels.add(panel) });
  attachClipboard({
    channel,
    input: input.remote,
    dropTarget: stage.element,
    offerUpload: files.offer,
    machineIsIdle: files.machineIsIdle,
  });
  // File transfers end with their session, so the question covers them too.
  askBeforeLeaving(() => session.inUse);
  /** @param {import('../machines/machine_list.js').Machine} machine @param {string} [reason] */
  const begin = (machine, reason) => {
    prepare(machine.id);
    session.begin(machine, reason);
  };
  const comeBack = (/** @type {string} */ agent, /** @type {number} */ number) => {
    prepare(agent);
    session.comeBack(agent, number);
  };
  const prepare = (/** @type {string} */ agent) => {
    stream.reset(agent);
    stage.reset();
    input.reset();
    files.begin(agent);
  };
  return { session, begin, comeBack };
}

/**
 * Shows what the representative may do in the session, and who else has one with the machine.
 * @param {{channel: SessionChannel, link: import('../link/link.js').Link, strips: Strips, session: Session,
 *   onShown: () => void}} parts
 */
function attachPeople({ channel, link, strips, session, onShown }) {
  attachRights({ channel, strips, onShown });
  const isAdministrator = () => session.person?.role === 'administrator';
  new Viewers({ channel, link, strips, isAdministrator, onShown });
}

/**
 * Starts the stream of a new session, and continues the stream and the choices of a resumed one.
 * @param {{channel: SessionChannel, link: import('../link/link.js').Link, session: Session, stream: Stream,
 *   stage: Stage, input: ReturnType<typeof attachInput>, panels: Panels}} parts
 */
function attachReturn({ channel, link, session, stream, stage, input, panels }) {
  // This listener is added before those of the other features, so that a new session requests the picture
  // first.
  let streaming = false;
  channel.addEventListener('open', () => {
    if (streaming) stream.goOn();
    else stream.start();
    streaming = false;
    stream.requestThumbnails();
    input.start();
  });
  const choices = new Choices(channel, link, byId('view-session'), [
    { read: () => stream.choices, restore: (chosen) => stream.restore(chosen) },
    input.choices,
    stage.choices,
    {
      read: () => ({ panel: panels.open }),
      restore: ({ panel }) => typeof panel === 'string' && panels.show(panel),
    },
  ]);
  onDetail(session, 'returning', (/** @type {import('./session.js').Return} */ back) => {
    // A page that was only interrupted knows more than the relay: what was chosen last may not have been sent.
    if (!channel.isInterrupted) choices.restore(back.choices);
    streaming = back.streaming;
  });
}

/**
 * Connects keyboard and pointer input to the session. Input is enabled while the session is open and
 * "view only" is off.
 * @param {{channel: SessionChannel, session: Session, stage: Stage, canvas: HTMLCanvasElement,
 *   backlog: () => number}} parts
 */
function attachInput({ channel, session, stage, canvas, backlog }) {
  const remote = new RemoteInput({
    canvas,
    area: stage.area,
    view: stage,
    keyInput: byId('key-input', HTMLTextAreaElement),
    send: (payload) => channel.send(Msg.InputEvent, payload),
    backlog,
  });
  const enable = (/** @type {boolean} */ on) => {
    remote.enabled = on;
    stage.element.classList.toggle('live', on);
  };
  const update = () => enable(channel.may('control') && !viewOnly.isOn);
  const viewOnly = new ViewOnly(update);
  const focus = new Focus();
  const start = () => {
    allow();
    focus.giveBack();
  };
  const reset = () => {
    viewOnly.reset();
    focus.reset();
  };
  const allow = () => {
    const waits = channel.granted.has('control');
    viewOnly.allow(
      channel.may('control'),
      waits ? { short: viewersTexts.notSteering, long: viewersTexts.askFirst } : undefined,
    );
  };
  channel.addEventListener('rights', allow);
  session.addEventListener('ending', () => enable(false));
  const mode = byId('key-mode', HTMLSelectElement);
  const choices = {
    read: () => ({ viewOnly: viewOnly.isOn, keys: mode.value }),
    restore: (/** @type {Record<string, unknown>} */ { viewOnly: on, keys }) => {
      viewOnly.restore(on === true);
      if (keys !== 'position' && keys !== 'character') return;
      mode.value = keys;
      remote.setMode(keys);
    },
  };
  return { remote, start, reset, choices };
}
