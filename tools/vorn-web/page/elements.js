// Elements of the page, and numbers as people read them. Texts become text nodes: nothing that a process says is ever markup.

const SVG = 'http://www.w3.org/2000/svg';

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes ?? {})) {
    if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
    else if (value === true) element.setAttribute(name, '');
    else if (value !== false && value !== null && value !== undefined) element.setAttribute(name, value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

/** make('button', {onclick: f}, 'Text', other) */
export const make = (tag, attributes, ...children) => fill(document.createElement(tag), attributes, children);
export const draw = (tag, attributes, ...children) => fill(document.createElementNS(SVG, tag), attributes, children);

export const byId = (id) => document.getElementById(id);

/** Sets a text only where it is another one: a selection stays, and nothing is laid out anew. */
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

const MINUS = '\u2212', NARROW = '\u202f';

const withMinus = (text) => text.replace('-', MINUS);

/** What is still to be known. */
export const UNKNOWN = '–';

export function number(value, unit = '') {
  if (value === null || value === undefined || Number.isNaN(value)) return UNKNOWN;
  const isLevel = /^(dB|LU)/.test(unit);
  let text;
  if (!Number.isFinite(value)) text = value > 0 ? '∞' : '-∞';
  else if (isLevel) text = value.toFixed(1);
  else if (Number.isInteger(value)) text = Math.abs(value) < 10000 ? String(value) : value.toLocaleString('en').replaceAll(',', NARROW);
  else text = Number(value.toPrecision(4)).toString();
  return withMinus(text) + (unit ? NARROW + unit : '');
}

export function share(value) {
  if (value === null || value === undefined) return UNKNOWN;
  const percent = 100 * value;
  return (percent < 10 ? percent.toFixed(1) : percent.toFixed(0)) + NARROW + '%';
}

export function micros(value) {
  if (value === null || value === undefined) return UNKNOWN;
  if (value < 10) return value.toFixed(1) + NARROW + 'µs';
  return value < 1000 ? Math.round(value) + NARROW + 'µs' : (value / 1000).toFixed(value < 10000 ? 2 : 1) + NARROW + 'ms';
}

export function clock(seconds) {
  return new Date(1000 * seconds).toLocaleTimeString('en-GB');
}

export const shorten = (text, letters) => (text.length > letters ? text.slice(0, Math.max(1, letters - 1)) + '…' : text);

export const plugInName = (file) => (file ?? '').replace(/^.*\//, '').replace(/^lib/, '').replace(/\.so$/, '');

/** A line at the lower edge that goes by itself. */
export function note(text, isBad = false) {
  const line = make('p', {class: isBad ? 'bad' : ''}, text);
  byId('notes').append(line);
  setTimeout(() => line.remove(), isBad ? 12000 : 4000);
}
