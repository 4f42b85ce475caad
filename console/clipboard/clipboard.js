// Clipboard sharing in a session: decides when this computer's clipboard is read and sent, and shows what is
// received.
import { byId } from '../base/dom.js';
import { carriesFiles, droppedFiles } from '../base/dropped.js';
import { Formats } from '../base/formats.js';
import { locale } from '../base/locale.js';
import { Msg } from '../link/messages.js';
import { ClipboardNotice } from './clipboard_notice.js';
import { ClipboardSync } from './clipboard_sync.js';
import { PasteKeys } from './paste_keys.js';

const PNG = 'image/png';
/** The file name that browsers give to a picture that was copied as a picture. */
const COPIED_PICTURE = 'image.png';

/**
 * @param {object} parts
 * @param {import('../link/session_channel.js').SessionChannel} parts.channel
 * @param {import('../input/remote_input.js').RemoteInput} parts.input
 * @param {HTMLElement} parts.dropTarget files dropped on this element are sent to the machine's clipboard
 * @param {(files: import('../base/dropped.js').DroppedFile[]) => void} parts.offerUpload offers to
 *   upload files that are too large for the clipboard
 * @param {() => Promise<boolean>} parts.machineIsIdle resolves when the machine has handled all messages that
 *   were sent before the call
 */
export function attachClipboard({ channel, input, dropTarget, offerUpload, machineIsIdle }) {
  const notices = new ClipboardNotice(byId('clip-notices'), {
    copy: () => sync.copyWaiting(),
    upload: offerUpload,
    formats: new Formats(locale),
  });
  const sync = new ClipboardSync({
    send: (payload) => channel.send(Msg.ClipboardData, payload),
    notify: (notice) => notices.show(notice),
    clipboard: navigator.clipboard,
    crlf: navigator.platform.startsWith('Win'),
  });
  const automatic = byId('clip-automatic', HTMLInputElement);
  const isAutomatic = () => channel.isOpen && automatic.checked;

  channel.handle(Msg.ClipboardData, (payload) => {
    if (isAutomatic()) sync.receive(payload);
  });
  new PasteKeys(input.keyInput, {
    active: () => isAutomatic() && input.enabled,
    paste: async (data) => (await paste(sync, data)) && (await machineIsIdle()),
    replay: (event) => input.replay(event),
  });
  addEventListener('focus', async () => {
    if (!isAutomatic()) return;
    if (sync.isWaiting) await sync.copyWaiting();
    else if (input.enabled) await sync.sendLocal(false);
  });
  byId('clip-send').addEventListener('click', () => channel.isOpen && sync.sendLocal(true));
  attachDrop(dropTarget, channel, sync);
  followSessions(channel, sync, notices);
}

/**
 * @param {import('../link/session_channel.js').SessionChannel} channel
 * @param {ClipboardSync} sync
 * @param {ClipboardNotice} notices
 */
function followSessions(channel, sync, notices) {
  let agent = '';
  channel.addEventListener('open', () => {
    if (agent !== channel.agent) sync.reset();
    agent = channel.agent;
  });
  channel.addEventListener('closed', () => notices.clear());
}

/** @returns {Promise<boolean>} whether something new was sent to the machine */
async function paste(/** @type {ClipboardSync} */ sync, /** @type {DataTransfer} */ data) {
  const text = data.getData('text/plain');
  const files = [...data.files];
  const isPicture = files.length === 1 && files[0].type === PNG && files[0].name === COPIED_PICTURE;
  if (files.length && !isPicture) {
    await sync.sendFiles(await droppedFiles(data));
    return true;
  }
  if (text) return sync.sendText(text);
  return isPicture ? sync.sendPicture(new Uint8Array(await files[0].arrayBuffer())) : false;
}

/**
 * @param {HTMLElement} target
 * @param {import('../link/session_channel.js').SessionChannel} channel
 * @param {ClipboardSync} sync
 */
function attachDrop(target, channel, sync) {
  // By default the browser opens a file that is dropped elsewhere in place of the page.
  for (const name of ['dragover', 'drop']) addEventListener(name, (event) => event.preventDefault());
  target.addEventListener('dragover', (event) => {
    if (!carriesFiles(event.dataTransfer)) return;
    event.preventDefault();
    target.classList.toggle('is-target', channel.isOpen);
  });
  target.addEventListener('dragleave', () => target.classList.remove('is-target'));
  target.addEventListener('drop', async (event) => {
    target.classList.remove('is-target');
    if (!event.dataTransfer || !carriesFiles(event.dataTransfer)) return;
    event.preventDefault();
    const files = await droppedFiles(event.dataTransfer);
    if (channel.isOpen) await sync.sendFiles(files);
  });
}
