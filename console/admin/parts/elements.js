// Small elements that the administration pages share.
import { make } from '../../base/dom.js';
import { Formats } from '../../base/formats.js';
import { locale } from '../../base/locale.js';
import { tidy } from '../../base/names.js';

export const formats = new Formats(locale);

/** @param {string} text @param {() => unknown} act @param {string} [className] */
export function button(text, act, className = '') {
  const element = make('button', { type: 'button', className }, text);
  element.addEventListener('click', act);
  return element;
}

/** A name from outside, isolated so that right-to-left names do not reorder the line. */
export function bdi(/** @type {unknown} */ name) {
  return make('bdi', {}, tidy(name));
}

/** @param {string} text @param {string} kind selects the colour */
export function tag(text, kind) {
  return make('span', { className: 'tag', dataset: { kind } }, text);
}

/** @param {string} title @param {(Node | string)[]} content */
export function section(title, ...content) {
  return make('section', { className: 'part' }, make('h2', {}, title), ...content);
}

/** The address of a peer without the port, which says nothing about where the peer is. */
export function host(/** @type {string} */ address) {
  const [, inBrackets, plain] = /^(?:\[(.*)\]|([^:]*)):\d+$/.exec(address) ?? [];
  return inBrackets ?? plain ?? address;
}

/** A time in seconds since 1970 as an element. @param {unknown} seconds */
export function moment(seconds) {
  const text = formats.time(Number(seconds) || 0);
  return make('span', { className: 'moment' }, text || '–');
}
