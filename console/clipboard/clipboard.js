// Clipboard sharing in a session: when this computer's clipboard is read, and where what comes goes.

import { byId } from '../base/dom.js';
import { carriesFiles, droppedFiles } from '../base/dropped.js';
import { Numbers } from '../files/listing.js';
import { Msg } from '../link/messages.js';
import { ClipChip } from './clipboard_notice.js';
import { ClipboardShare } from './clipboard_sync.js';
import { PasteKeys } from './paste_keys.js';

const PNG = 'image/png';
/** What browsers call a picture that was copied as such. */
const COPIED_PICTURE = 'image.png';

/**
 * @param {import('../session/session.js').SessionView} session
 * @param {import('../files/file_panel.js').FilePanel} panel takes the files that are too large, and asks for folders
 */
export function attachClipboard(session, panel) {
  const chip = new ClipChip(byId('clip-chips'), {
    take: () => share.take(),
    upload: (files) => panel.offer(files),
    numbers: new Numbers(navigator.language),
  });
  const share = new ClipboardShare({
    send: (payload) => session.sendBytes(Msg.ClipboardData, payload),
    tell: (news) => chip.show(news),
    clipboard: navigator.clipboard,
    crlf: navigator.platform.startsWith('Win'),
  });
  const automatic = () => session.accepted && byId('clip-automatic').checked;
  const { catcher, keyboard } = session.hands;

  session.handlers.set(Msg.ClipboardData, (payload) => automatic() && share.receive(payload));
  new PasteKeys(catcher, {
    active: () => automatic() && session.hands.sender.enabled,
    // It answers in order: with its drives known, it has the clipboard that was sent before the question.
    paste: async (data) => (await paste(share, data)) && !!(await panel.folders.list('')),
    keyDown: (event) => keyboard.keyDown(event),
    keyUp: (event) => keyboard.keyUp(event),
  });
  addEventListener('focus', async () => {
    if (!automatic()) return;
    if (share.waiting) await share.take();
    else if (session.hands.sender.enabled) await share.sendLocal(false);
  });
  byId('clip-send').addEventListener('click', () => session.accepted && share.sendLocal(true));
  attachDrop(session, share);

  let machine = '';
  session.addEventListener('accepted', () => {
    if (machine !== session.agent) share.reset();
    machine = session.agent;
  });
  session.addEventListener('over', () => chip.clear());
}

/** @returns {Promise<boolean>} whether something new went to the machine */
async function paste(/** @type {ClipboardShare} */ share, /** @type {DataTransfer} */ data) {
  const text = data.getData('text/plain');
  const files = [...data.files];
  const picture =
    files.length === 1 && files[0].type === PNG && files[0].name === COPIED_PICTURE ? files[0] : null;
  if (files.length && !picture) {
    await share.sendFiles(await droppedFiles(data));
    return true;
  }
  if (text) return share.sendText(text);
  return picture ? share.sendPicture(new Uint8Array(await picture.arrayBuffer())) : false;
}

/** Files that are dropped on the picture go to the machine's clipboard. */
function attachDrop(
  /** @type {import('../session/session.js').SessionView} */ session,
  /** @type {ClipboardShare} */ share,
) {
  const stage = byId('stage');
  // Beside its places a dropped file would take the page's place.
  for (const name of ['dragover', 'drop']) addEventListener(name, (event) => event.preventDefault());
  stage.addEventListener('dragover', (/** @type {DragEvent} */ event) => {
    if (!carriesFiles(event.dataTransfer)) return;
    event.preventDefault();
    stage.classList.toggle('is-target', session.accepted);
  });
  stage.addEventListener('dragleave', () => stage.classList.remove('is-target'));
  stage.addEventListener('drop', async (/** @type {DragEvent} */ event) => {
    stage.classList.remove('is-target');
    if (!carriesFiles(event.dataTransfer)) return;
    event.preventDefault();
    const files = await droppedFiles(/** @type {DataTransfer} */ (event.dataTransfer));
    if (session.accepted) await share.sendFiles(files);
  });
}
