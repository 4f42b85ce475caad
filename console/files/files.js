// File transfer in a session: the panel, the transfers, and the messages between them and the machine.

import { byId, make } from '../base/dom.js';
import { visible } from '../base/names.js';
import { texts } from '../base/texts.js';
import { Msg } from '../link/messages.js';
import { openSink, save } from './download_sink.js';
import { FilePanel } from './file_panel.js';
import { Folders } from './folders.js';
import { Numbers } from './listing.js';
import { Transfer } from './transfer.js';
import { Courier } from './transfer_queue.js';
import { TransferRows } from './transfer_rows.js';
import { Uploads } from './uploads.js';

/** Names shown when it is asked whether to overwrite. */
const NAMES_SHOWN = 8;

/** @param {import('../session/session.js').SessionView} session */
export function attachFiles(session) {
  const numbers = new Numbers(navigator.language);
  const folders = new Folders((path) => {
    session.sendJson(Msg.DirListRequest, { path });
    return session.accepted;
  });
  const courier = new Courier(
    {
      sendJson: (type, value) => session.sendJson(type, value),
      sendBytes: (type, payload) => session.sendBytes(type, payload),
      sendControl: (message) => session.link.sendControl(message),
      session: () => (session.accepted ? session.number : null),
    },
    openSink,
  );
  new TransferRows(
    { list: byId('transfers'), clear: byId('transfers-clear'), section: byId('transfers-section') },
    courier,
    numbers,
  );
  const uploads = new Uploads(courier, folders, askToOverwrite);
  const panel = new FilePanel(session.panels, folders, numbers, {
    download: (entries) => entries.forEach((entry) => fetchFile(courier, entry)),
    upload: (files, folder) => uploads.put(files, folder),
  });

  session.handlers.set(Msg.DirListResult, (payload) => folders.receive(payload));
  session.handlers.set(Msg.FileChunk, (payload) => courier.receiveChunk(payload));
  session.handlers.set(Msg.FileTransferEnd, (payload) => courier.receiveEnd(payload));
  session.link.addEventListener('control', (/** @type {any} */ { detail }) => courier.control(detail));
  let machine = '';
  session.addEventListener('accepted', () => {
    if (machine !== session.agent) panel.reset();
    machine = session.agent;
    panel.start();
  });
  session.addEventListener('over', () => {
    folders.sessionOver();
    courier.sessionOver();
  });
  return panel;
}

/** Each file is handed over as soon as it is whole. */
async function fetchFile(
  /** @type {Courier} */ courier,
  /** @type {import('./listing.js').Entry} */ { name, path, size },
) {
  const transfer = new Transfer({ kind: 'download', name, path, size });
  courier.add(transfer);
  await transfer.ended;
  if (transfer.blob && transfer.state === 'done') save(transfer.blob, visible(name));
}

/** @returns {Promise<import('./uploads.js').Answer>} */
function askToOverwrite(/** @type {string[]} */ names) {
  const dialog = byId('overwrite-dialog');
  byId('overwrite-question').textContent = texts.overwriteQuestion(names.length);
  const more = names.length - NAMES_SHOWN;
  byId('overwrite-names').replaceChildren(
    ...names.slice(0, NAMES_SHOWN).map((name) => make('li', {}, make('bdi', {}, visible(name)))),
    ...(more > 0 ? [make('li', {}, texts.andMore(more))] : []),
  );
  dialog.returnValue = '';
  dialog.showModal();
  return new Promise((resolve) => {
    dialog.addEventListener('close', () => resolve(dialog.returnValue || 'cancel'), { once: true });
  });
}
