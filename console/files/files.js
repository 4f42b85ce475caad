// File transfer in a session: connects the panel, the transfers and the messages to and from the machine.
import { onDetail } from '../base/custom_events.js';
import { byId } from '../base/dom.js';
import { Formats } from '../base/formats.js';
import { locale } from '../base/locale.js';
import { visible } from '../base/names.js';
import { folderOf, lastPart } from '../base/paths.js';
import { saveFile } from '../base/save_file.js';
import { Msg } from '../link/messages.js';
import { FilePanel } from './file_panel.js';
import { FolderRequests } from './folder_requests.js';
import { Questions } from './questions.js';
import { leftDownloads, openSink } from './transfers/download_sink.js';
import { Transfer } from './transfers/transfer.js';
import { TransferQueue } from './transfers/transfer_queue.js';
import { TransferRows } from './transfers/transfer_rows.js';
import { Uploads } from './transfers/uploads.js';

/** @typedef {import('../link/link.js').ControlMessage} ControlMessage */
/** @typedef {import('../link/session_channel.js').SessionChannel} SessionChannel */
/** @typedef {EventTarget} Relay */

const KINDS = /** @type {const} */ (['upload', 'download']);
/** The right that each kind of transfer needs. */
const RIGHT_FOR = /** @type {const} */ ({ upload: 'files-up', download: 'files-down' });

/** The relay's reasons for the end of a session that mean the end of the machine's connection. */
const MACHINE_GONE = ['agent-gone', 'replaced'];

/**
 * @param {object} parts
 * @param {SessionChannel} parts.channel
 * @param {Relay} parts.relay emits the relay's control messages as 'control' events
 * @param {import('./file_panel.js').AddPanel} parts.addPanel
 * @returns {{begin: (agent: string) => void, offer: FilePanel['offer'],
 *   machineIsIdle: () => Promise<boolean>}} begin: to be called before a session with a machine is requested;
 *   offer: lets the representative choose a folder for the files; machineIsIdle: resolves when the machine has
 *   handled all messages that were sent before the call
 */
export function attachFiles({ channel, relay, addPanel }) {
  const formats = new Formats(locale);
  const folders = new FolderRequests((path) => {
    channel.sendJson(Msg.DirListRequest, { path });
    return channel.isOpen;
  });
  const queue = makeQueue(channel, folders);
  const questions = new Questions(formats);
  const rows = makeRows(queue, formats, async () => {
    if (await questions.cut().catch(() => false)) channel.cutMachine();
  });
  const uploads = new Uploads(queue, folders, (conflicts) => questions.overwrite(conflicts));
  const panel = new FilePanel(addPanel, folders, formats, {
    download: (entries) => {
      for (const entry of entries) download(queue, entry);
    },
    upload: (files, folder) => uploads.upload(files, folder),
    may: (right) => !channel.isOpen || channel.may(right),
  });

  attachMessages(channel, relay, folders, queue);
  followSession(channel, { panel, questions, uploads, folders, queue });
  onDetail(queue, 'adopted', (/** @type {Transfer} */ transfer) => {
    if (transfer.kind === 'download') saveWhenDone(transfer);
    else uploads.follow(transfer).then(() => panel.listAgain(folderOf(transfer.path)));
    if (transfer.state === 'fileless') panel.show();
  });
  let machine = '';
  const begin = (/** @type {string} */ agent) => {
    if (agent === machine) return;
    machine = agent;
    panel.reset();
    rows.reset();
  };
  // The machine handles messages in order, so it sends this listing of its drives after it has handled all
  // messages that were sent before the request.
  const machineIsIdle = async () => !!(await folders.list(''));
  return { begin, offer: (files) => panel.offer(files), machineIsIdle };
}

/**
 * Suspends the transfers while the session is interrupted, and ends them when it is over.
 * @param {SessionChannel} channel
 * @param {{panel: FilePanel, questions: Questions, uploads: Uploads, folders: FolderRequests,
 *   queue: TransferQueue}} parts
 */
function followSession(channel, { panel, questions, uploads, folders, queue }) {
  const endForbidden = () => {
    for (const kind of KINDS) if (!channel.may(RIGHT_FOR[kind])) queue.cancelAll(kind);
  };
  onDetail(channel, 'open', (/** @type {import('../link/session_channel.js').Kept} */ kept) => {
    endForbidden();
    queue.opened(kept.transfers, kept.uploads, kept.unwanted);
    folders.opened();
    panel.start();
  });
  channel.addEventListener('rights', () => {
    panel.rightsChanged();
    endForbidden();
  });
  channel.addEventListener('closed', () => {
    for (const part of [folders, queue]) part.suspend();
  });
  channel.addEventListener('over', () => {
    for (const part of [panel, questions, uploads, folders, queue]) part.sessionOver();
  });
}

/**
 * @param {SessionChannel} channel
 * @param {FolderRequests} folders
 */
function makeQueue(channel, folders) {
  const entryOf = async (/** @type {string} */ path) => {
    const { entries } = await folders.list(folderOf(path), { lasting: true });
    return entries.find(({ name }) => name === lastPart(path));
  };
  return new TransferQueue(
    {
      sendJson: (type, value) => channel.sendJson(type, value),
      send: (type, payload) => channel.send(type, payload),
      sendControl: (message) => channel.sendControl(message),
      session: () => channel.session,
      agent: () => channel.agent,
      entryOf,
    },
    { open: openSink, left: leftDownloads },
  );
}

/**
 * @param {TransferQueue} queue
 * @param {Formats} formats
 * @param {() => void} onStop stops what the machine is still sending
 */
function makeRows(queue, formats, onStop) {
  const parts = {
    list: byId('transfers'),
    clear: byId('transfers-clear'),
    section: byId('transfers-section'),
  };
  return new TransferRows(parts, queue, formats, onStop);
}

/**
 * Hands the messages of the machine and of the relay to the parts that they concern.
 * @param {SessionChannel} channel
 * @param {Relay} relay
 * @param {FolderRequests} folders
 * @param {TransferQueue} queue
 */
function attachMessages(channel, relay, folders, queue) {
  channel.handle(Msg.DirListResult, (payload) => folders.receive(payload));
  channel.handle(Msg.FileChunk, (payload) => queue.receiveChunk(payload));
  channel.handle(Msg.FileTransferEnd, (payload) => queue.receiveEnd(payload));
  onDetail(channel, 'too-large', (/** @type {{type: number, bytes: number}} */ { type, bytes }) => {
    if (type === Msg.DirListResult) folders.tooLarge(bytes);
  });
  onDetail(relay, 'control', (/** @type {ControlMessage} */ message) => {
    queue.receiveControl(message);
    // The session, which may receive the same message later, ends its transfers first.
    if (machineIsGone(message, channel.agent)) queueMicrotask(() => queue.machineGone());
  });
}

/** Whether the message reports that the machine is no longer connected as it was. */
function machineIsGone(/** @type {ControlMessage} */ message, /** @type {string} */ agent) {
  if (message.type === 'session')
    return (
      message.agent === agent && message.state === 'ended' && MACHINE_GONE.includes(String(message.reason))
    );
  const machines = { agents: message.agents, 'agents-changed': message.changed }[message.type];
  return Array.isArray(machines) && machines.some(({ id, state }) => id === agent && state === 'offline');
}

/** Downloads a file and saves it as soon as it is complete. */
function download(
  /** @type {TransferQueue} */ queue,
  /** @type {import('./listing.js').Entry} */ { name, path, size },
) {
  const transfer = new Transfer({ kind: 'download', name, path, size });
  queue.add(transfer);
  saveWhenDone(transfer);
}

async function saveWhenDone(/** @type {Transfer} */ transfer) {
  await transfer.ended;
  if (transfer.blob && transfer.state === 'done') saveFile(transfer.blob, visible(transfer.name));
}
