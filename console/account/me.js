// The person who is logged in, as the relay describes them.
import { tidy } from '../base/names.js';
import { me } from '../link/api.js';

/** @typedef {'administrator' | 'representative' | 'auditor'} Role */
/**
 * totp: whether log-ins ask for a one-time code. Times are in seconds since 1970, 0 if unknown: expiresAt is the
 * end of the log-in, idleAt its end if nothing is done until then.
 * @typedef {{name: string, role: Role, stage: unknown, totp: boolean, backupCodesLeft: number, expiresAt: number,
 *   idleAt: number}} Me
 */

/** @type {Role[]} */
export const ROLES = ['administrator', 'representative', 'auditor'];

/** @returns {Promise<Me>} */
export async function askWhoIAm() {
  const { name, role, stage, totp, ...rest } = await me();
  return {
    name: tidy(name),
    role: ROLES.find((one) => one === role) ?? 'representative',
    stage,
    totp: totp === true,
    backupCodesLeft: Number(rest.backup_codes_left) || 0,
    expiresAt: Number(rest.expires_at) || 0,
    idleAt: Number(rest.idle_at) || 0,
  };
}
