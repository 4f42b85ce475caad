// A folder of updates for agents, signed as packaging/sign-update does, and what fetches them.
import { execFileSync } from 'node:child_process';
import { generateKeyPairSync } from 'node:crypto';
import { once } from 'node:events';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { request } from 'node:https';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

const SIGN = fileURLToPath(new URL('../../../../packaging/sign-update', import.meta.url));

export class SignedUpdates {
  #folder = mkdtempSync(join(tmpdir(), 'vantelink-updates-'));
  #key = join(this.#folder, 'key.pem');
  #publicKey = join(this.#folder, 'key.pub');
  files = mkdtempSync(join(this.#folder, 'files-'));

  constructor() {
    const { publicKey, privateKey } = generateKeyPairSync('ed25519');
    writeFileSync(this.#key, privateKey.export({ type: 'pkcs8', format: 'pem' }), { mode: 0o600 });
    writeFileSync(this.#publicKey, publicKey.export({ type: 'spki', format: 'pem' }));
  }

  /** What the relay's command line needs. */
  get options() {
    return ['--updates', this.files, '--update-key', this.#publicKey];
  }

  /** Puts a signed version into the folder. @param {string} version @param {string} content of the installer */
  offer(version, content) {
    const installer = `VantelinkAgent-${version}.exe`;
    writeFileSync(join(this.files, installer), content);
    const manifest = { agent_version: version, agent_file: installer };
    writeFileSync(join(this.files, 'version.json'), JSON.stringify(manifest));
    execFileSync(SIGN, ['--key', this.#key, this.files]);
    return installer;
  }

  /** Fetches a file as an agent does. @param {import('../relay.mjs').Relay} relay @param {string} name
   * @param {string} [localAddress] of the agent */
  async fetch(relay, name, localAddress = '127.0.0.1') {
    const options = { port: relay.port, path: `/download/${name}`, localAddress, rejectUnauthorized: false };
    const [reply] = await once(request({ ...options, agent: false }).end(), 'response');
    for await (const _piece of reply);
    return reply.statusCode;
  }

  remove() {
    rmSync(this.#folder, { recursive: true, force: true });
  }
}
