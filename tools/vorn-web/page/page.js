// The page as a whole: its head, what stands, events and log, and the keyboard.

import {byId, clock, make, note, setText} from './elements.js';
import * as data from './data.js';
import {select, selection} from './selection.js';
import * as picture from './picture.js';
import * as panel from './panel.js';

const SILENCE = 4000;  // milliseconds without news from a process, after which the page says so

function stateText() {
  const {state, server, stats} = data.topics;
  if (server?.isOver) return 'vorn-web was started anew: open the address that it printed';
  if (server && !server.isThere) return 'vorn-web has ended, or cannot be reached';
  if (!state.pid) return state.text;
  if (stats && Date.now() - stats.at > SILENCE) return state.text + ' has said nothing for some seconds';
  const process = data.topics.graph?.process;
  return process?.name && state.text.startsWith(process.name) && !/ does not | not trusted/.test(state.text) ? '' : state.text;
}

function showState() {
  const {state, server, graph} = data.topics;
  const isThere = state.pid > 0 && server?.isThere !== false;
  const name = graph?.process?.name ?? state.text.replace(/ \(.*$/, '');
  if (state.pid > 0) {
    setText(byId('name'), name || 'Vorn');
    setText(byId('pid'), String(state.pid));
    document.title = `${name} – Vorn`;
  }
  const text = stateText();
  setText(byId('state'), text);
  byId('lamp').className = `lamp ${isThere ? (text ? 'warm' : 'good') : 'bad'}`;
  document.body.classList.toggle('gone', !isThere);
  byId('timing').disabled = !isThere;
}

function showAlerts() {
  const standing = (data.topics.stats?.routes ?? []).filter((route) => data.standing(route));
  const texts = standing.map((route) => [route.name, data.standing(route)]);
  const box = byId('alerts');
  // An alert is read out when it changes: a time that counts is no news.
  if (box.dataset.names !== JSON.stringify(texts.map(([name]) => name))) {
    box.dataset.names = JSON.stringify(texts.map(([name]) => name));
    box.replaceChildren(...texts.map(([name]) => make('button', {type: 'button', onclick: () => select({kind: 'route', route: name})},
                                                      make('b', {}, name), make('span', {}))));
  }
  texts.forEach(([, text], i) => setText(box.children[i].lastChild, text));
}

/** Shows lines in a list, and stays at its end if it was there. */
function showLines(list, lines) {
  const isAtEnd = list.scrollHeight - list.scrollTop - list.clientHeight < 30;
  list.replaceChildren(...(lines.length ? lines : [make('li', {class: 'empty'}, 'Nothing yet.')]));
  if (isAtEnd) list.scrollTop = list.scrollHeight;
}

function showEvents(reply) {
  showLines(byId('events'), (reply.events ?? []).map((event) => make(
      'li', {class: event.kind}, make('time', {}, clock(event.time)), make('b', {}, event.kind),
      make('span', {}, [event.route, event.block].filter(Boolean).join(' · '), ' ', event.text ?? ''))));
}

const LEVELS = {E: 'error', W: 'warning'};

function showLog(reply) {
  showLines(byId('log'), (reply.lines ?? []).map((line) => {
    const text = typeof line === 'string' ? line : line.text ?? '';
    const level = /(?:^|\s|\[)([EWIDV])(?:\s|\]|\/|:)/.exec(text.slice(0, 60))?.[1];
    return make('li', {class: LEVELS[level] ?? ''}, text);
  }));
}

async function switchTiming() {
  const box = byId('timing');
  try {
    await data.send('timing', box.checked ? 'on' : 'off');
  } catch (error) {
    box.checked = !box.checked;
    note(error.message, true);
  }
}

function onKey(event) {
  if (event.ctrlKey || event.metaKey || event.altKey || document.querySelector('dialog')) return;
  if (event.key === 'Escape') {
    const what = selection();
    select(null);
    if (what) byId('graph').querySelector('[tabindex]')?.focus();
  } else if (event.key === 't' && !/^(INPUT|SELECT|TEXTAREA)$/.test(event.target.tagName)) {
    byId('timing').click();
  }
}

picture.start();
panel.start();
for (const topic of ['state', 'server', 'graph', 'stats']) data.on(topic, showState);
data.on('stats', showAlerts);
data.on('events', showEvents);
data.on('log', showLog);
data.on('timing', (reply) => { byId('timing').checked = reply.on === true; });
byId('timing').addEventListener('change', switchTiming);
document.addEventListener('keydown', onKey);
setInterval(showState, 1000);
data.connect();
