// A machine's folders for a test: answers listings, sends files down and takes files up as the agent does.

import { readJson } from '../../../console/link/envelope.js';
import { AgentMsg } from './scripted_agent.mjs';

export const CHUNK = 262_144;

const parentOf = (path) => {
  const copy = path.endsWith('\\') ? path.slice(0, -1) : path;
  const last = copy.lastIndexOf('\\');
  return last <= 1 ? '' : copy.slice(0, last);
};

export class MachineFolders {
  /**
   * @param {import('./scripted_agent.mjs').ScriptedAgent} agent
   * @param {Record<string, {name: string, dir?: boolean, size?: number, mtime?: number, data?: Buffer}[]>} folders by
   *   path; the drives under ''
   */
  constructor(agent, folders) {
    this.agent = agent;
    this.folders = folders;
    /** Whether listings are answered. */
    this.answering = true;
    /** Uploads as they came: path, announced size, chunks with their index, and whether they ended. */
    this.uploads = new Map();
    /** Downloads that were asked for and not answered yet, when `holding`. */
    this.holding = false;
    this.held = [];
    /** Ends that named no upload. */
    this.strays = [];
    const receive = agent.receive.bind(agent);
    agent.receive = (data) => {
      receive(data);
      this.serve();
    };
  }

  serve() {
    const { inbox } = this.agent;
    const acts = {
      [AgentMsg.DirListRequest]: 'list',
      [AgentMsg.DownloadRequest]: 'download',
      [AgentMsg.UploadBegin]: 'begin',
      [AgentMsg.FileChunk]: 'chunk',
      [AgentMsg.FileTransferEnd]: 'end',
    };
    for (let i = 0; i < inbox.length; ) {
      const act = acts[inbox[i].type];
      if (!act || (act === 'list' && !this.answering)) i++;
      else this[act](inbox.splice(i, 1)[0]);
    }
  }

  list({ session, payload }) {
    const { path } = readJson(payload);
    const entries = (this.folders[path] ?? this.folders[`${path}\\`] ?? []).map(
      ({ name, dir = false, size = 0, mtime = 1_700_000_000, path: own }) => ({
        name,
        path: own ?? (path ? `${path.replace(/\\$/, '')}\\${name}` : `${name}\\`),
        dir,
        size,
        mtime,
      }),
    );
    this.agent.sendJson(AgentMsg.DirListResult, session, { path, parent: parentOf(path), entries });
  }

  find(path) {
    const at = path.lastIndexOf('\\');
    const folder = this.folders[path.slice(0, at)] ?? this.folders[path.slice(0, at + 1)] ?? [];
    return folder.find(({ name }) => name === path.slice(at + 1));
  }

  download(request) {
    const { transfer_id: id, path } = readJson(request.payload);
    const data = this.find(path)?.data;
    if (this.holding) this.held.push({ ...request, id, path, data });
    else if (!data)
      this.agent.sendJson(AgentMsg.FileTransferEnd, request.session, {
        transfer_id: id,
        ok: false,
        error: 'cannot open',
      });
    else this.sendAll(request.session, id, data);
  }

  sendAll(session, id, data) {
    for (let at = 0, index = 0; at < data.length; at += CHUNK)
      this.sendChunk(session, id, index++, data.subarray(at, at + CHUNK));
    this.agent.sendJson(AgentMsg.FileTransferEnd, session, { transfer_id: id, ok: true });
  }

  sendChunk(session, id, index, bytes) {
    const payload = Buffer.alloc(8 + bytes.length);
    payload.writeUInt32BE(id, 0);
    payload.writeUInt32BE(index, 4);
    payload.set(bytes, 8);
    this.agent.send(AgentMsg.FileChunk, session, payload);
  }

  begin({ payload }) {
    const { transfer_id: id, path, size } = readJson(payload);
    this.uploads.set(id, { path, size, chunks: [], ended: false });
  }

  chunk({ payload }) {
    const view = new DataView(payload.buffer, payload.byteOffset);
    this.uploads
      .get(view.getUint32(0))
      .chunks.push({ index: view.getUint32(4), bytes: Buffer.from(payload.subarray(8)) });
  }

  /** As on a disk: the file is there from then on, unless `losing` says how many bytes of it are. */
  end({ payload }) {
    const { transfer_id: id } = readJson(payload);
    const upload = this.uploads.get(id);
    if (!upload) {
      this.strays.push(id);
      return;
    }
    upload.ended = true;
    const data = Buffer.concat(upload.chunks.map(({ bytes }) => bytes));
    const kept = this.losing ? this.losing(upload.path, data) : data;
    if (!kept) return;
    const at = upload.path.lastIndexOf('\\');
    const folder = (this.folders[upload.path.slice(0, at)] ??= []);
    const name = upload.path.slice(at + 1);
    const rest = folder.filter((entry) => entry.name.toLowerCase() !== name.toLowerCase());
    this.folders[upload.path.slice(0, at)] = [...rest, { name, size: kept.length, data: kept }];
  }

  /** The upload to that path, once there is one. */
  uploadTo(path) {
    return [...this.uploads.values()].find((upload) => upload.path === path);
  }
}
