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
 * Makes the items the children of the list, in this order. An item that contains the focus stays in place and
 * the others are moved around it, because an element that is moved loses the focus.
 * @param {HTMLElement} list
 * @param {HTMLElement[]} items
 */
export function arrange(list, items) {
  const wanted = new Set(/** @type {Element[]} */ (items));
  for (const child of [...list.children]) if (!wanted.has(child)) child.remove();
  /** @type {HTMLElement | null} */
  let next = null;
  for (const item of items.toReversed()) {
    const hasFocus = item.contains(document.activeElement);
    if (item.parentElement !== list || (!hasFocus && item.nextElementSibling !== next))
      list.insertBefore(item, next);
    next = item;
  }
}

const VIEWS = /** @type {const} */ (['login', 'stage', 'machines', 'pages', 'session']);

/**
 * Shows one of the page's views and hides the others. Open dialogs are closed, because a modal dialog in a
 * hidden view would still block the page.
 * @param {(typeof VIEWS)[number]} name
 * @param {string} title what the title of the page says before the product's name
 */
export function showView(name, title) {
  for (const dialog of document.querySelectorAll('dialog')) dialog.close();
  setTitle(title);
  for (const view of VIEWS) byId(`view-${view}`).hidden = view !== name;
}

/** Sets the title of the page, which names what the page shows before the product. */
export function setTitle(/** @type {string} */ title) {
  document.title = `${title} - Vantelink`;
}
