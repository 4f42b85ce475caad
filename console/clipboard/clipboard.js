// Clipboard sharing in a session: decides when this computer's clipboard is read and sent, and shows what is
// received.
import { onDetail } from '../base/custom_events.js';
import { byId } from '../base/dom.js';
import { carriesFiles, droppedFiles } from '../base/dropped.js';
import { Formats } from '../base/formats.js';
import { locale } from '../base/locale.js';
import { Msg } from '../link/messages.js';
import { ClipboardNotice } from './clipboard_notice.js';
import { ClipboardSync } from './clipboard_sync.js';
import { MachineCopies } from './machine_copies.js';
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
  const viewOnly = byId('view-only', HTMLInputElement);
  const notices = new ClipboardNotice(byId('clip-notices'), {
    copy: (offer) => sync.copy(offer),
    refuse: (notice) => sync.refuse(notice),
    upload: offerUpload,
    focusPicture: () => input.focus(),
    formats: new Formats(locale),
  });
  const sync = new ClipboardSync({
    send: (payload) => {
      const may = channel.may('clipboard') && !viewOnly.checked;
      if (may) channel.send(Msg.ClipboardData, payload);
      return may;
    },
    notify: (notice) => notices.show(notice),
    clipboard: navigator.clipboard,
    crlf: navigator.platform.startsWith('Win'),
  });
  const automatic = byId('clip-automatic', HTMLInputElement);
  const isAutomatic = () => channel.may('clipboard') && automatic.checked;
  /** Asks whether the representative may send something, and shows a notice if not. */
  const maySend = () => {
    if (viewOnly.checked) notices.show({ kind: 'viewOnly' });
    return channel.may('clipboard') && !viewOnly.checked;
  };

  const active = () => isAutomatic() && input.enabled;
  const copies = new MachineCopies(input.keyInput, { active, machineIsIdle });
  receiveClipboards(channel, { sync, copies, notices, isAutomatic });
  new PasteKeys(input.keyInput, {
    active,
    hold: () => input.hold(),
    replay: (event) => input.replay(event),
    take: (data) => {
      const { session } = channel;
      const send = pasted(sync, data);
      const mayBeOlder = sync.isUnchanged(data.getData('text/plain'));
      return async () => {
        if (mayBeOlder && (await copies.areNewer())) return false;
        return session === channel.session && (await send()) && (await machineIsIdle());
      };
    },
  });
  addEventListener('focus', () => isAutomatic() && sync.focused(input.enabled));
  byId('clip-send').addEventListener('click', () => maySend() && sync.sendNow());
  attachDrop(dropTarget, { channel, sync, maySend });
  followSessions(channel, sync, notices);
}

/**
 * @param {import('../link/session_channel.js').SessionChannel} channel
 * @param {{sync: ClipboardSync, copies: MachineCopies, notices: ClipboardNotice, isAutomatic: () => boolean}}
 *   parts
 */
function receiveClipboards(channel, { sync, copies, notices, isAutomatic }) {
  channel.addEventListener('closed', () => copies.forget());
  channel.handle(Msg.ClipboardData, (payload) => {
    copies.machineChanged();
    if (isAutomatic()) sync.receive(payload);
    else sync.machineChanged();
  });
  onDetail(channel, 'too-large', (/** @type {import('../link/session_channel.js').TooLarge} */ { type }) => {
    if (type !== Msg.ClipboardData) return;
    copies.machineChanged();
    sync.machineChanged();
    if (isAutomatic()) notices.show({ kind: 'machineTooLarge' });
  });
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
  channel.addEventListener('rights', () => {
    if (!channel.may('clipboard')) notices.clear();
  });
  channel.addEventListener('closed', () => {
    sync.sessionOver();
    notices.clear();
  });
}

/**
 * Reads the content of a paste. Must be called while the event is being handled.
 * @param {ClipboardSync} sync
 * @param {DataTransfer} data
 * @returns {() => Promise<boolean>} sends the content; resolves with whether anything was sent
 */
function pasted(sync, data) {
  const text = data.getData('text/plain');
  const files = [...data.files];
  const isPicture = files.length === 1 && files[0].type === PNG && files[0].name === COPIED_PICTURE;
  if (files.length && !isPicture) {
    const dropped = droppedFiles(data);
    return async () => sync.sendFiles(await dropped);
  }
  if (text) return async () => sync.sendText(text);
  return async () => isPicture && sync.sendPicture(new Uint8Array(await files[0].arrayBuffer()));
}

/** Whether files may be sent to the machine's clipboard: they are files on the machine when they are pasted. */
function mayDrop(/** @type {import('../link/session_channel.js').SessionChannel} */ channel) {
  return channel.may('clipboard') && channel.may('files-up');
}

/**
 * @param {HTMLElement} target
 * @param {{channel: import('../link/session_channel.js').SessionChannel, sync: ClipboardSync,
 *   maySend: () => boolean}} parts
 */
function attachDrop(target, { channel, sync, maySend }) {
  // By default the browser opens a file that is dropped elsewhere in place of the page.
  for (const name of ['dragover', 'drop']) addEventListener(name, (event) => event.preventDefault());
  target.addEventListener('dragover', (event) => {
    if (!carriesFiles(event.dataTransfer)) return;
    event.preventDefault();
    target.classList.toggle('is-target', mayDrop(channel));
  });
  target.addEventListener('dragleave', () => target.classList.remove('is-target'));
  target.addEventListener('drop', async (event) => {
    target.classList.remove('is-target');
    if (!event.dataTransfer || !carriesFiles(event.dataTransfer)) return;
    event.preventDefault();
    if (!mayDrop(channel) || !maySend()) return;
    const { session } = channel;
    const files = await droppedFiles(event.dataTransfer);
    if (session === channel.session) await sync.sendFiles(files);
  });
}
