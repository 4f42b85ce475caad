// A simulated machine's folders: answers requests for listings, sends downloads and stores uploads as the
// agent does.
import { parentOf } from '../../../console/base/paths.js';
import { AgentMsg } from './scripted_agent.mjs';

export const CHUNK_BYTES = 262_144;
const DEFAULT_TIME = 1_700_000_000;

/** @typedef {import('./scripted_agent.mjs').Message} Message */
/**
 * @typedef {{name: string, path?: string, dir?: boolean, size?: number, mtime?: number, data?: Buffer}} Entry
 */
/** @typedef {Record<string, Entry[]>} Folders by path; the drives under '' */
/**
 * @typedef {{path: string, size: number, chunks: {index: number, bytes: Buffer}[], ended: boolean}} Upload
 */
/** @typedef {{session: number, id: number, path: string, data: Buffer | undefined}} Download */

export class MachineFolders {
  /** Whether requests for listings are answered. */
  answering = true;
  /** Whether downloads are kept in `held` instead of being answered. */
  holding = false;
  /** @type {Download[]} */
  held = [];
  /** @type {Map<number, Upload>} uploads by id */
  uploads = new Map();
  /** @type {number[]} the ids in end messages for transfers that are not uploads */
  strays = [];
  /**
   * Returns the part of an upload that the disk keeps. Without this function the disk keeps the whole upload.
   * @type {((path: string, data: Buffer) => Buffer | null) | undefined}
   */
  losing;
  /** The time of the file that was uploaded last. */
  #uploadTime = DEFAULT_TIME;

  /** @param {import('./scripted_agent.mjs').ScriptedAgent} agent @param {Folders} folders */
  constructor(agent, folders) {
    this.agent = agent;
    this.folders = folders;
    agent.onReceived = () => this.serve();
  }

  /** Handles the messages in the machine's inbox that concern files. */
  serve() {
    const { inbox } = this.agent;
    /** @type {Map<number, (message: Message) => void>} */
    const handlers = new Map([
      [AgentMsg.DownloadRequest, (message) => this.#download(message)],
      [AgentMsg.UploadBegin, (message) => this.#begin(message)],
      [AgentMsg.FileChunk, (message) => this.#chunk(message)],
      [AgentMsg.FileTransferEnd, (message) => this.#end(message)],
    ]);
    if (this.answering) handlers.set(AgentMsg.DirListRequest, (message) => this.#list(message));
    for (let i = 0; i < inbox.length; ) {
      const handle = handlers.get(inbox[i].type);
      if (handle) handle(inbox.splice(i, 1)[0]);
      else i++;
    }
  }

  /** The upload to this path; throws before the upload has begun. */
  uploadTo(/** @type {string} */ path) {
    const found = [...this.uploads.values()].find((upload) => upload.path === path);
    if (!found) throw new Error(`no upload to ${path}`);
    return found;
  }

  /** Answers a download with the whole file. */
  sendAll(/** @type {number} */ session, /** @type {number} */ id, /** @type {Buffer} */ data) {
    for (let at = 0, index = 0; at < data.length; at += CHUNK_BYTES)
      this.sendChunk(session, id, index++, data.subarray(at, at + CHUNK_BYTES));
    this.agent.sendJson(AgentMsg.FileTransferEnd, session, { transfer_id: id, ok: true });
  }

  /** @param {number} session @param {number} id @param {number} index @param {Buffer} bytes */
  sendChunk(session, id, index, bytes) {
    const payload = Buffer.alloc(8 + bytes.length);
    payload.writeUInt32BE(id, 0);
    payload.writeUInt32BE(index, 4);
    payload.set(bytes, 8);
    this.agent.send(AgentMsg.FileChunk, session, payload);
  }

  #list(/** @type {Message} */ { session, json }) {
    const path = String(json.path);
    const found = this.folders[path] ?? this.folders[`${path}\\`] ?? [];
    const entries = found.map(({ name, dir = false, size = 0, mtime = DEFAULT_TIME, path: own }) => {
      const below = path ? `${path.replace(/\\$/, '')}\\${name}` : `${name}\\`;
      return { name, path: own ?? below, dir, size, mtime };
    });
    this.agent.sendJson(AgentMsg.DirListResult, session, { path, parent: parentOf(path), entries });
  }

  #find(/** @type {string} */ path) {
    const at = path.lastIndexOf('\\');
    const folder = this.folders[path.slice(0, at)] ?? this.folders[path.slice(0, at + 1)] ?? [];
    return folder.find(({ name }) => name === path.slice(at + 1));
  }

  #download(/** @type {Message} */ { session, json }) {
    const [id, path] = [Number(json.transfer_id), String(json.path)];
    const data = this.#find(path)?.data;
    if (this.holding) this.held.push({ session, id, path, data });
    else if (data) this.sendAll(session, id, data);
    else {
      const end = { transfer_id: id, ok: false, error: 'cannot open' };
      this.agent.sendJson(AgentMsg.FileTransferEnd, session, end);
    }
  }

  #begin(/** @type {Message} */ { json }) {
    const upload = { path: String(json.path), size: Number(json.size), chunks: [], ended: false };
    this.uploads.set(Number(json.transfer_id), upload);
  }

  #chunk(/** @type {Message} */ { payload }) {
    const view = new DataView(payload.buffer, payload.byteOffset);
    const chunk = { index: view.getUint32(4), bytes: Buffer.from(payload.subarray(8)) };
    this.uploads.get(view.getUint32(0))?.chunks.push(chunk);
  }

  /** Ends an upload. Its file exists from then on, unless `losing` shortens or drops it. */
  #end(/** @type {Message} */ { json }) {
    const id = Number(json.transfer_id);
    const upload = this.uploads.get(id);
    if (!upload) {
      this.strays.push(id);
      return;
    }
    upload.ended = true;
    const data = contentOf(upload);
    const kept = this.losing ? this.losing(upload.path, data) : data;
    if (!kept) return;
    const at = upload.path.lastIndexOf('\\');
    const [folder, name] = [upload.path.slice(0, at), upload.path.slice(at + 1)];
    const others = (this.folders[folder] ?? []).filter(
      (entry) => entry.name.toLowerCase() !== name.toLowerCase(),
    );
    const mtime = ++this.#uploadTime;
    this.folders[folder] = [...others, { name, size: kept.length, mtime, data: kept }];
  }
}

/** The bytes of an upload that have arrived. */
export function contentOf(/** @type {Upload} */ { chunks }) {
  return Buffer.concat(chunks.map(({ bytes }) => bytes));
}
