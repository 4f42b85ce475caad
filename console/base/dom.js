// Small helpers for the page. Text from outside only ever becomes text, never markup.

/** The element with that id; a missing one is a mistake of the page. */
export function byId(/** @type {string} */ id) {
  const element = document.getElementById(id);
  if (!element) throw new Error(`the page has no #${id}`);
  return /** @type {any} */ (element);
}

/**
 * @param {string} tag
 * @param {Record<string, any>} [properties] `dataset` is merged
 * @param {...(Node | string)} children
 */
export function make(tag, { dataset = {}, ...properties } = {}, ...children) {
  const element = Object.assign(document.createElement(tag), properties);
  Object.assign(element.dataset, dataset);
  element.append(...children);
  return element;
}

const VIEWS = ['login', 'machines', 'session'];

export function showView(/** @type {string} */ name) {
  for (const view of VIEWS) byId(`view-${view}`).hidden = view !== name;
}
