// What is known of the process: the latest word on each topic, and the curves of the last minutes.

const STEP = 500;      // milliseconds between two points, as the server keeps them
const LONGEST = 1200;  // points

export const topics = {state: {pid: 0, text: ''}};
const listeners = new Map();

/** Calls back with every new word on a topic. */
export function on(topic, callback) {
  if (!listeners.has(topic)) listeners.set(topic, []);
  listeners.get(topic).push(callback);
}

export function notify(topic) {
  for (const callback of listeners.get(topic) ?? []) callback(topics[topic]);
}

// Curves.

let times = [];
const series = new Map();  // by the JSON text of their name
const keyOf = (of) => JSON.stringify(of);

function addPoint(stats) {
  if (times.length && stats.at - times[times.length - 1] < STEP) return;
  times.push(stats.at);
  for (const values of series.values()) values.push(null);
  const set = (of, value) => {
    if (!Number.isFinite(value)) return;
    const key = keyOf(of);
    if (!series.has(key)) series.set(key, new Array(times.length).fill(null));
    const values = series.get(key);
    values[values.length - 1] = value;
  };
  for (const route of stats.routes ?? []) {
    set(['fps', route.name], route.framesPerSecond);
    set(['share', route.name], route.processorShare);
    set(['cycle', route.name], route.cycle?.worst);
    for (const reading of route.readings ?? []) set(['reading', route.name, reading.block, reading.name], reading.value);
  }
  for (const fifo of stats.fifos ?? []) if (fifo.capacity > 0) set(['fill', fifo.name], fifo.count / fifo.capacity);
  if (times.length > LONGEST) {
    times.shift();
    for (const values of series.values()) values.shift();
  }
  notify('point');
}

/** Rows of [Date, value] of a series, or null where there never was a value. */
export function curve(of, seconds) {
  const values = series.get(keyOf(of));
  if (!values) return null;
  const begin = Date.now() - 1000 * seconds;
  const rows = [];
  for (let i = 0; i < times.length; ++i) {
    if (times[i] < begin) continue;
    const isGap = rows.length && times[i] - rows[rows.length - 1][0] > 8 * STEP;
    if (isGap) rows.push([new Date(times[i] - 1), null]);
    rows.push([new Date(times[i]), values[i]]);
  }
  return rows;
}

async function loadHistory() {
  const answer = await fetch('/history');
  if (!answer.ok) return;
  const history = await answer.json();
  times = history.times;
  series.clear();
  for (const {of, values} of history.series) series.set(keyOf(of), values);
  notify('point');
}

/** Readings come as texts; empty, or nan, is none. */
function readNumbers(stats) {
  for (const route of stats.routes ?? []) {
    for (const reading of route.readings ?? []) {
      const value = reading.value === '' ? NaN : Number(String(reading.value).replace('inf', 'Infinity'));
      reading.value = Number.isNaN(value) ? null : value;
    }
  }
}

// The connection.

const TOPICS = ['state', 'wide', 'stacked', 'tall', 'graph', 'params', 'timing', 'events', 'log', 'stats'];

export function connect() {
  const source = new EventSource('/news');
  source.onopen = () => {
    topics.server = {isThere: true};
    notify('server');
    loadHistory();
  };
  source.onerror = () => {
    topics.server = {isThere: false, isOver: source.readyState === EventSource.CLOSED};
    notify('server');
  };
  for (const topic of TOPICS) {
    source.addEventListener(topic, (event) => {
      topics[topic] = JSON.parse(event.data);
      if (topic === 'stats') {
        readNumbers(topics.stats);
        addPoint(topics.stats);
      }
      notify(topic);
    });
  }
}

/** Sends a request that changes something. The reply, or throws an Error with the reason in words. */
export async function send(...words) {
  let answer;
  try {
    answer = await fetch('/request', {
      method: 'POST', headers: {'Content-Type': 'application/json'}, body: JSON.stringify({words: words.map(String)}),
    });
  } catch {
    throw new Error('vorn-web does not answer');
  }
  const text = await answer.text();
  let reply;
  try { reply = JSON.parse(text); } catch { throw new Error(text.trim() || `status ${answer.status}`); }
  if (reply.error) throw new Error(reply.error);
  // The console says in words that a command failed.
  if (/^(Failed|Can't|Unknown|Wrong|Invalid|Usage)/i.test(reply.reply ?? '')) throw new Error(reply.reply.trim());
  return reply;
}

let plugIns = null;

/** The plug-ins that there are, as vorn-inspect describes them. */
export async function loadPlugIns() {
  if (plugIns) return plugIns;
  const list = await (await fetch('/plugins')).json();
  if (list.error) throw new Error(list.error);
  plugIns = list;
  return plugIns;
}

// Looking things up.

const named = (list, name) => (list ?? []).find((one) => one.name === name);

export const routeOf = (name) => named(topics.graph?.routes, name);
export const blockOf = (route, name) => named(routeOf(route)?.blocks, name);
export const linkOf = (route, name) => named(routeOf(route)?.links, name);
export const fifoOf = (name) => named(topics.stats?.fifos ?? topics.graph?.fifos, name);
export const statsOf = (route) => named(topics.stats?.routes, route);
export const timingOf = (route, block) => (block === undefined ? named(topics.timing?.routes, route)
                                                               : named(named(topics.timing?.routes, route)?.blocks, block));
export const parametersOf = (route, block) => named(named(topics.params?.routes, route)?.blocks, block)?.parameters;
export const readingsOf = (route, block) => (statsOf(route)?.readings ?? []).filter((one) => one.block === block);
export const linksOf = (route, block, side) => (routeOf(route)?.links ?? []).filter((link) => link[side].block === block);

/** What a block is called in its graph file, else its name. */
export const titleOf = (route, name) => blockOf(route, name)?.label || name;

const STANDING = ['waits', 'sleeps', 'busy', 'dead', 'broken'];

/** Why a route stands, in words that follow its name; nothing where it does what it should. */
export function standing(stats) {
  if (!stats) return '';
  const why = stats.why ?? stats.status;
  if (!STANDING.includes(why)) return '';
  const text = stats.text || why;
  return text.startsWith(stats.name + ' ') ? text.slice(stats.name.length + 1) : text;
}

export const isLevel = (unit) => /^dBFS|^LUFS/.test(unit ?? '');
