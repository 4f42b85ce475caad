// Moves the page between relays that share their machines: to the one that has a machine, and back when that one is
// gone.
import { post } from './api.js';

/** The address of a page that comes from another relay. */
const ARRIVAL = /^#ticket=([\w-]+)&(session=\d+&machine=[\w.~-]+)$/;
/** The time after which a relay that cannot be reached counts as gone. An outage of the line is shorter mostly. */
const GONE_AFTER_MS = 10_000;
const HOME = 'vantelink-home';

const placeOf = (/** @type {string} */ agent) => `session=0&machine=${agent}`;

/**
 * Asks where a machine is, and for a ticket with which the log-in is valid there. Rejects with an ApiError if the
 * machine is not with another relay.
 * @param {string} agent
 * @returns {Promise<string>} the address to go to
 */
export async function wayTo(agent) {
  const { address, ticket } = await post('/api/tickets', { machine: agent });
  return `${address}/#ticket=${ticket}&${placeOf(agent)}`;
}

/**
 * Uses the ticket in the page's address, if there is one. A ticket that is not valid any more leaves the log-in of the
 * browser as it is.
 */
export async function arrive() {
  const [, ticket, place] = ARRIVAL.exec(location.hash) ?? [];
  if (!ticket) return;
  // The ticket is secret, so it does not stay in the browser's history.
  history.replaceState(null, '', `${location.pathname}#${place}`);
  const { home } = await post('/api/login/ticket', { ticket }).catch(() => ({ home: null }));
  if (typeof home === 'string' && home !== location.origin) sessionStorage.setItem(HOME, home);
}

/**
 * Leads the page back to the relay from which it came, when this one is gone.
 * @param {import('./link.js').Link} link
 * @param {() => string} agent the machine of the page's session; '' for none
 * @param {() => void} depart called before the page leaves
 */
export function watchRelay(link, agent, depart) {
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  let timer;
  const stop = () => {
    clearTimeout(timer);
    timer = undefined;
  };
  link.addEventListener('up', stop);
  link.addEventListener('down', () => {
    const home = sessionStorage.getItem(HOME);
    // Each attempt to connect that fails is another "down".
    if (!home || timer !== undefined) return;
    timer = setTimeout(() => {
      stop();
      if (link.up || !link.wanted) return;
      const place = agent() ? `#${placeOf(agent())}` : '';
      depart();
      location.assign(`${home}/${place}`);
    }, GONE_AFTER_MS);
  });
}
