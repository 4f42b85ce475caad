// File transfer in a session: connects the panel, the transfers and the messages to and from the machine.
import { onDetail } from '../base/custom_events.js';
import { byId, make } from '../base/dom.js';
import { Formats } from '../base/formats.js';
import { locale } from '../base/locale.js';
import { visible } from '../base/names.js';
import { saveFile } from '../base/save_file.js';
import { texts } from '../base/texts.js';
import { Msg } from '../link/messages.js';
import { openSink } from './download_sink.js';
import { FilePanel } from './file_panel.js';
import { FolderRequests } from './folder_requests.js';
import { Transfer } from './transfer.js';
import { TransferQueue } from './transfer_queue.js';
import { TransferRows } from './transfer_rows.js';
import { Uploads } from './uploads.js';

/** The largest number of names that the question whether to overwrite lists. */
const NAMES_SHOWN = 8;

/**
 * @param {object} parts
 * @param {import('../link/session_channel.js').SessionChannel} parts.channel
 * @param {EventTarget & {sendControl: (message: object) => boolean}} parts.relay sends control
 *   messages to the relay and emits the relay's own as 'control' events
 * @param {import('./file_panel.js').AddPanel} parts.addPanel
 * @returns {{offer: FilePanel['offer'], machineIsIdle: () => Promise<boolean>}} offer: lets the
 *   representative choose a folder for the files; machineIsIdle: resolves when the machine has handled all
 *   messages that were sent before the call
 */
export function attachFiles({ channel, relay, addPanel }) {
  const formats = new Formats(locale);
  const folders = new FolderRequests((path) => {
    channel.sendJson(Msg.DirListRequest, { path });
    return channel.isOpen;
  });
  const queue = new TransferQueue(
    {
      sendJson: (type, value) => channel.sendJson(type, value),
      send: (type, payload) => channel.send(type, payload),
      sendControl: (message) => relay.sendControl(message),
      session: () => channel.session,
    },
    openSink,
  );
  const rowParts = {
    list: byId('transfers'),
    clear: byId('transfers-clear'),
    section: byId('transfers-section'),
  };
  new TransferRows(rowParts, queue, formats);
  const uploads = new Uploads(queue, folders, askToOverwrite);
  const panel = new FilePanel(addPanel, folders, formats, {
    download: (entries) => {
      for (const entry of entries) download(queue, entry);
    },
    upload: (files, folder) => uploads.upload(files, folder),
  });

  channel.handle(Msg.DirListResult, (payload) => folders.receive(payload));
  channel.handle(Msg.FileChunk, (payload) => queue.receiveChunk(payload));
  channel.handle(Msg.FileTransferEnd, (payload) => queue.receiveEnd(payload));
  onDetail(relay, 'control', (/** @type {import('../link/link.js').ControlMessage} */ message) =>
    queue.receiveControl(message),
  );
  followSessions(channel, panel, [folders, queue]);
  // The machine handles messages in order, so it sends this listing of its drives after it has handled all
  // messages that were sent before the request.
  return { offer: (files) => panel.offer(files), machineIsIdle: async () => !!(await folders.list('')) };
}

/**
 * @param {import('../link/session_channel.js').SessionChannel} channel
 * @param {FilePanel} panel
 * @param {{sessionOver: () => void}[]} others
 */
function followSessions(channel, panel, others) {
  let agent = '';
  channel.addEventListener('open', () => {
    if (agent !== channel.agent) panel.reset();
    agent = channel.agent;
    panel.start();
  });
  channel.addEventListener('closed', () => {
    for (const other of others) other.sessionOver();
  });
}

/** Downloads a file and saves it as soon as it is complete. */
async function download(
  /** @type {TransferQueue} */ queue,
  /** @type {import('./listing.js').Entry} */ { name, path, size },
) {
  const transfer = new Transfer({ kind: 'download', name, path, size });
  queue.add(transfer);
  await transfer.ended;
  if (transfer.blob && transfer.state === 'done') saveFile(transfer.blob, visible(name));
}

/** @returns {Promise<import('./uploads.js').Answer>} */
function askToOverwrite(/** @type {string[]} */ names) {
  const dialog = byId('overwrite-dialog', HTMLDialogElement);
  byId('overwrite-question').textContent = texts.overwriteQuestion(names.length);
  const more = names.length - NAMES_SHOWN;
  byId('overwrite-names').replaceChildren(
    ...names.slice(0, NAMES_SHOWN).map((name) => make('li', {}, make('bdi', {}, visible(name)))),
    ...(more > 0 ? [make('li', {}, texts.andMore(more))] : []),
  );
  dialog.returnValue = '';
  dialog.showModal();
  return new Promise((resolve) => {
    const answered = () =>
      resolve(/** @type {import('./uploads.js').Answer} */ (dialog.returnValue || 'cancel'));
    dialog.addEventListener('close', answered, { once: true });
  });
}
