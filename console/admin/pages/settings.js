// The page of the settings that apply to everybody.
import { ROLES } from '../../account/me.js';
import { make } from '../../base/dom.js';
import { ticked } from '../../base/ui/fields.js';
import { form } from '../../base/ui/form.js';
import { get, patch } from '../../link/api.js';
import { problemOf } from '../../link/problems.js';
import { section } from '../parts/elements.js';
import { texts } from '../texts/texts.js';

const OWN = texts.settings;

/** The settings that are numbers, and the limits of each. */
const NUMBERS = /** @type {const} */ ([
  { name: 'login_hours', label: OWN.loginHours, hint: undefined, min: 1, max: 744 },
  { name: 'idle_minutes', label: OWN.idleMinutes, hint: OWN.idleHint, min: 0, max: 1440 },
  { name: 'retention_days', label: OWN.retention, hint: OWN.retentionHint, min: 0, max: 36500 },
]);

export class SettingsPage {
  element = make('div', {});
  #context;

  constructor(/** @type {import('../parts/context.js').Context} */ context) {
    this.#context = context;
  }

  async load() {
    const settings = await get('/api/settings');
    const required = Array.isArray(settings.totp_required) ? settings.totp_required.map(String) : [];
    const numbers = NUMBERS.map(({ name, label, hint, min, max }) => ({
      name,
      label,
      hint,
      kind: /** @type {const} */ ('number'),
      value: Number(settings[name] ?? 0),
      // The relay's command line can set more than this page.
      more: { min: String(min), max: String(Math.max(max, Number(settings[name] ?? 0))), required: true },
    }));
    const choices = ROLES.map((role) => ({ value: role, label: texts.roles[role] }));
    const edited = form({
      fields: [
        {
          name: 'totp_required',
          label: OWN.totp,
          kind: 'checks',
          value: required,
          choices,
          hint: OWN.totpHint,
        },
        ...numbers,
      ],
      submit: texts.save,
      act: async (values) => {
        const entered = NUMBERS.map(({ name }) => [name, Number(values[name])]);
        const changed = entered.filter(([name, value]) => value !== settings[name]);
        Object.assign(
          settings,
          await patch('/api/settings', {
            totp_required: ticked(values.totp_required),
            ...Object.fromEntries(changed),
          }),
        );
        this.#context.notify(texts.saved);
      },
      explain: problemOf,
    });
    const part = section(texts.titles.settings, edited.element);
    part.classList.add('narrow');
    this.element.replaceChildren(part);
  }
}
