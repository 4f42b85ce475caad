// The administration pages: the address of each, who sees it, and what creates it.
import { texts } from '../texts/texts.js';
import { ActivityPage } from './activity.js';
import { EnrolmentPage } from './enrolment.js';
import { GroupsPage } from './groups.js';
import { MachinesPage } from './machines.js';
import { PeoplePage } from './people.js';
import { SettingsPage } from './settings.js';
import { StatusPage } from './status.js';
import { TeamsPage } from './teams.js';
import { TrailPage } from './trail.js';
import { UpdatesPage } from './updates.js';

/** @typedef {import('../../account/me.js').Role} Role */
/** @typedef {import('../parts/context.js').Context} Context */
/**
 * path: the fragment of the page's address without what follows it.
 * @typedef {{path: string, title: string, roles: Role[],
 *   create: (context: Context) => import('../parts/context.js').Page}} PageEntry
 */

/** @type {Role[]} */
const ADMINISTRATOR = ['administrator'];

const { titles } = texts;

/** @type {PageEntry[]} in the order of the navigation */
export const PAGES = [
  {
    path: 'admin/machines',
    title: titles.machines,
    roles: ADMINISTRATOR,
    create: (context) => new MachinesPage(context),
  },
  {
    path: 'admin/enrolment',
    title: titles.enrolment,
    roles: ADMINISTRATOR,
    create: (context) => new EnrolmentPage(context),
  },
  {
    path: 'admin/groups',
    title: titles.groups,
    roles: ADMINISTRATOR,
    create: (context) => new GroupsPage(context),
  },
  {
    path: 'admin/people',
    title: titles.people,
    roles: ADMINISTRATOR,
    create: (context) => new PeoplePage(context),
  },
  {
    path: 'admin/teams',
    title: titles.teams,
    roles: ADMINISTRATOR,
    create: (context) => new TeamsPage(context),
  },
  {
    path: 'admin/activity',
    title: titles.activity,
    roles: ADMINISTRATOR,
    create: (context) => new ActivityPage(context),
  },
  {
    path: 'admin/trail',
    title: titles.trail,
    roles: [...ADMINISTRATOR, 'auditor'],
    create: () => new TrailPage(),
  },
  { path: 'admin/updates', title: titles.updates, roles: ADMINISTRATOR, create: () => new UpdatesPage() },
  {
    path: 'admin/status',
    title: titles.status,
    roles: ADMINISTRATOR,
    create: (context) => new StatusPage(context),
  },
  {
    path: 'admin/settings',
    title: titles.settings,
    roles: ADMINISTRATOR,
    create: (context) => new SettingsPage(context),
  },
];
