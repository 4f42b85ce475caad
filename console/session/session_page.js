// The session's part of the page: creates the features and connects them with the session.

import { byId } from '../base/dom.js';
import { askBeforeLeaving } from '../base/leaving.js';
import { attachClipboard } from '../clipboard/clipboard.js';
import { attachFiles } from '../files/files.js';
import { RemoteInput } from '../input/remote_input.js';
import { Msg } from '../link/messages.js';
import { SessionChannel } from '../link/session_channel.js';
import { Screen } from '../picture/screen.js';
import { BarLayout } from './bar/bar_layout.js';
import { Panels } from './panels.js';
import { Strips } from './reports/strips.js';
import { Session } from './session.js';
import { Stage } from './stage.js';
import { attachStatusLine } from './status_line.js';
import { Stream } from './stream.js';
import { attachToolbar, showCodec } from './toolbar.js';

/**
 * @param {import('../link/link.js').Link} link
 * @returns {{session: Session, begin: (machine: import('../machines/machine_list.js').Machine) => void}}
 *   begin: requests a session with a machine
 */
export function attachSession(link) {
  const channel = new SessionChannel(link);
  const strips = new Strips(() => input.remote.focus());
  const session = new Session(link, channel, strips);
  const screen = new Screen(byId('screen', HTMLCanvasElement), {
    onFrame: () => session.frameDrawn(),
    onSize: () => stage.layOut(),
  });
  const stage = new Stage(screen);
  const stream = new Stream(channel, screen, showCodec);
  const input = attachInput({ channel, session, stage, canvas: screen.canvas, backlog: () => link.backlog });
  // This listener is added before those of the other features, so that a new session requests the picture
  // first.
  channel.addEventListener('open', () => {
    stream.start();
    stream.requestThumbnails();
    input.update();
    input.remote.focus();
  });
  channel.addEventListener('closed', () => stream.end());
  attachToolbar({
    channel,
    stream,
    input: input.remote,
    onEnd: () => session.leave(),
    onViewOnly: input.update,
  });
  const bar = new BarLayout();
  session.addEventListener('state', () => bar.enable(session.isAccepted));
  attachStatusLine({ channel, link, stream });
  const panels = new Panels(byId('panels'), byId('panel-buttons'));
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
  const begin = (/** @type {import('../machines/machine_list.js').Machine} */ machine) => {
    stream.reset();
    stage.reset();
    files.begin(machine.id);
    session.begin(machine);
  };
  return { session, begin };
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
  const viewOnly = byId('view-only', HTMLInputElement);
  const update = () => {
    remote.enabled = channel.isOpen && !viewOnly.checked;
  };
  session.addEventListener('ending', () => {
    remote.enabled = false;
  });
  return { remote, update };
}
