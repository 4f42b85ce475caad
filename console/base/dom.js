// Helpers for the page's elements. Text from outside becomes text nodes, never markup.

/**
 * Returns the page's element with this id; throws when the element is missing or of another class.
 * @template {HTMLElement} [Kind=HTMLElement]
 * @param {string} id
 * @param {new () => Kind} [kind] the element's class, where more than HTMLElement is needed
 * @returns {Kind}
 */
export function byId(id, kind) {
  const element = document.getElementById(id);
  if (!(element instanceof (kind ?? HTMLElement))) throw new Error(`the page has no such element: #${id}`);
  return /** @type {Kind} */ (element);
}

/**
 * Creates an element.
 * @template {keyof HTMLElementTagNameMap} Tag
 * @param {Tag} tag
 * @param {Omit<Partial<HTMLElementTagNameMap[Tag]>, 'dataset'> & {dataset?: Record<string, string>}}
 *   [properties]
 * @param {...(Node | string)} children
 * @returns {HTMLElementTagNameMap[Tag]}
 */
export function make(tag, properties, ...children) {
  const { dataset = {}, ...others } = properties ?? {};
  const element = Object.assign(document.createElement(tag), others);
  Object.assign(element.dataset, dataset);
  element.append(...children);
  return element;
}

/**
 * Shows one of the page's views and hides the others.
 * @param {'login' | 'machines' | 'session'} name
 */
export function showView(name) {
  for (const view of ['login', 'machines', 'session']) byId(`view-${view}`).hidden = view !== name;
}
