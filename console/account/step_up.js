// The questions before a session for which the machine's group asks: who the representative is, and the reason.
import { inSentence, nameOf } from '../base/names.js';
import { ask } from '../base/ui/ask.js';
import { post } from '../link/api.js';
import { problemOf } from '../link/problems.js';
import { texts } from './texts/texts.js';

const REASON_LENGTH = 500;
/** The codes of authenticator apps; a password has ten characters or more. */
const ONE_TIME_CODE = /^\s*\d{3}\s?\d{3}\s*$/;

/**
 * Asks for the password, or for a one-time code where the person has them.
 * @param {{title: string, text: string, totp: boolean}} question
 * @returns {Promise<boolean>} whether the relay has accepted it
 */
export async function proveIdentity({ title, text, totp }) {
  const wrong = totp ? texts.wrongPasswordOrCode : texts.wrongPassword;
  const done = await ask({
    title,
    text,
    fields: [
      {
        name: 'proof',
        label: totp ? texts.passwordOrCode : texts.password,
        kind: 'password',
        more: { autocomplete: 'current-password', maxLength: 1024, required: true },
      },
    ],
    submit: texts.goOn,
    act: async ({ proof }) => {
      const typed = String(proof);
      const isCode = totp && ONE_TIME_CODE.test(typed);
      await post('/api/step-up', isCode ? { code: typed.replaceAll(/\s/g, '') } : { password: typed });
      return true;
    },
    explain: (error) => problemOf(error, { 400: wrong, 401: wrong }),
  });
  return done === true;
}

/** @param {{id: string, name?: unknown}} machine @param {boolean} totp */
export function stepUp(machine, totp) {
  const name = inSentence(nameOf(machine));
  const text = totp ? texts.stepUpCodeText(name) : texts.stepUpText(name);
  return proveIdentity({ title: texts.stepUpTitle, text, totp });
}

/**
 * Asks for the reason of a session.
 * @param {{id: string, name?: unknown}} machine
 * @returns {Promise<string | null>} null after cancelling
 */
export function askReason(machine) {
  const blank = new Error('the reason is blank');
  return ask({
    title: texts.reasonTitle,
    text: texts.reasonText(inSentence(nameOf(machine))),
    fields: [
      {
        name: 'reason',
        label: texts.reason,
        kind: 'lines',
        more: { required: true, maxLength: REASON_LENGTH },
      },
    ],
    submit: texts.ask,
    act: async ({ reason }) => {
      const typed = String(reason).trim();
      if (!typed) throw blank;
      return typed;
    },
    explain: () => texts.reasonBlank,
  });
}
