// What the operator looks at: {kind: 'route' | 'block' | 'link' | 'fifo', route, name}, or null for everything. It is in the
// address, so that a reload keeps it.

import {notify} from './data.js';

let current = read();

function read() {
  try { return JSON.parse(decodeURIComponent(location.hash.slice(1))) ?? null; } catch { return null; }
}

export const selection = () => current;

export function select(what) {
  if (JSON.stringify(what) === JSON.stringify(current)) return;
  current = what;
  history.replaceState(null, '', what ? '#' + encodeURIComponent(JSON.stringify(what)) : location.pathname);
  notify('selection');
}
