// The graph as a picture: the server says where things are, this draws them and writes into them what moves.

import {byId, draw, make, micros, number, plugInName, setText, share, shorten, UNKNOWN} from './elements.js';
import * as data from './data.js';
import {selection, select} from './selection.js';

const NARROW = 620;       // pixels: below, from top to bottom
const MOST = 1.25, LEAST = 0.62;  // scales: what would be smaller is scrolled
const FLOOR = -60;        // dBFS, the left end of a level's bar
const LETTER = 6.3, TITLE_LETTER = 7.6;

let shown = null;      // the picture that is drawn
let updates = [];      // writes what moves
const frame = byId('graph');

function text(x, y, kind, content = '') {
  return draw('text', {x, y, class: kind}, content);
}

function selectable(group, what, label) {
  group.setAttribute('tabindex', '0');
  group.setAttribute('role', 'button');
  group.setAttribute('aria-label', label);
  group.addEventListener('click', (event) => { event.stopPropagation(); select(what); });
  group.addEventListener('keydown', (event) => {
    if (event.key !== 'Enter' && event.key !== ' ') return;
    event.preventDefault();
    select(what);
  });
  updates.push(() => group.classList.toggle('selected', JSON.stringify(selection()) === JSON.stringify(what)));
  return group;
}

function drawRoute(place) {
  const group = draw('g', {class: 'route'},
                     draw('rect', {x: place.x, y: place.y, width: place.width, height: place.height, rx: 12}),
                     text(place.x + 14, place.y + 19, 'route-name', place.name));
  const figures = text(place.x + place.width - 14, place.y + 19, 'figures');
  group.append(figures);
  updates.push(() => {
    const stats = data.statsOf(place.name);
    group.classList.toggle('standing', data.standing(stats) !== '');
    group.classList.toggle('stopped', (stats?.status ?? 'running') !== 'running');
    const isRoomy = place.width > 320;
    const parts = [];
    if (!stats) parts.push(UNKNOWN);
    else if (stats.status !== 'running') parts.push(stats.status);
    else {
      if (isRoomy) parts.push(data.standing(stats) ? stats.why ?? stats.status : 'running');
      if (stats.framesPerSecond !== undefined) parts.push(`${number(Math.round(stats.framesPerSecond))}/s`);
    }
    if (stats?.processorShare !== undefined) parts.push(share(stats.processorShare) + (isRoomy ? ' CPU' : ''));
    setText(figures, parts.join(' · '));
  });
  return selectable(group, {kind: 'route', route: place.name}, `Route ${place.name}`);
}

/** The reading that says most about a block at a glance. */
function mainReading(readings) {
  return readings.find((one) => one.name === 'recent-rms') ?? readings.find((one) => data.isLevel(one.unit)) ?? readings[0];
}

function levelClass(value) {
  return value > -3 ? 'hot' : value > -12 ? 'warm' : 'cool';
}

function drawBlock(place) {
  const {route, name, x, y, width, height} = place;
  const block = data.blockOf(route, name) ?? {};
  const plugIn = [plugInName(block.plugIn), ...(block.args ?? [])].join(' ');
  const title = data.titleOf(route, name);
  const letters = Math.floor((width - 26) / LETTER);
  const bar = draw('rect', {x: x + 13, y: y + 45, width: 0, height: 5, rx: 2.5, class: 'bar'});
  const track = draw('rect', {x: x + 13, y: y + 45, width: width - 96, height: 5, rx: 2.5, class: 'track'});
  const value = text(x + width - 12, y + 51, 'value');
  const what = text(x + 13, y + 51, 'what');
  const load = text(x + 13, y + 67, 'figures load');
  const group = draw('g', {class: 'block'},
                     draw('title', {}, `${name}: ${plugIn}`),
                     draw('rect', {x, y, width, height, rx: 8, class: 'box'}),
                     block.first && draw('rect', {x, y: y + 14, width: 4, height: height - 28, rx: 2, class: 'end'}),
                     block.last && draw('rect', {x: x + width - 4, y: y + 14, width: 4, height: height - 28, rx: 2, class: 'end'}),
                     text(x + 13, y + 20, 'title', shorten(title, Math.floor((width - 26) / TITLE_LETTER))),
                     text(x + 13, y + 35, 'plug-in', shorten(plugIn || 'made by the program', letters)),
                     track, bar, what, value, load);
  updates.push(() => {
    const reading = mainReading(data.readingsOf(route, name));
    const hasBar = reading !== undefined && data.isLevel(reading.unit);
    for (const part of [track, bar]) part.classList.toggle('hidden', !hasBar);
    if (hasBar) {
      const level = typeof reading.value === 'number' ? reading.value : FLOOR;
      const full = (width - 96) * Math.min(1, Math.max(0, (level - FLOOR) / -FLOOR));
      bar.setAttribute('width', full.toFixed(1));
      bar.setAttribute('class', `bar ${levelClass(level)}`);
    }
    const amount = reading ? number(reading.value, (reading.unit ?? '').replace('FS', '')) : '';
    setText(value, amount);
    setText(what, reading && !hasBar && letters > amount.length + 4 ? shorten(reading.name, letters - amount.length - 2) : '');
    const timing = data.topics.timing?.on ? data.timingOf(route, name) : undefined;
    setText(load, timing ? `${share(timing.share)} · worst ${micros(timing.worst)}` : '');
    const stats = data.statsOf(route);
    group.classList.toggle('standing', data.standing(stats) !== '' && stats.inBlock === name);
  });
  return selectable(group, {kind: 'block', route, name}, `Block ${title}, ${plugIn}, of ${route}`);
}

function drawFifo(place) {
  const {name, x, y, width, height} = place;
  const full = width - 36;
  const bar = draw('rect', {x: x + 18, y: y + 33, width: 0, height: 5, rx: 2.5, class: 'bar fill'});
  const count = text(x + width - 18, y + 22, 'value');
  const group = draw('g', {class: 'fifo'},
                     draw('rect', {x, y, width, height, rx: height / 2, class: 'box'}),
                     text(x + 18, y + 22, 'title', shorten(name, 10)), count,
                     draw('rect', {x: x + 18, y: y + 33, width: full, height: 5, rx: 2.5, class: 'track'}), bar);
  updates.push(() => {
    const fifo = data.fifoOf(name);
    if (!fifo) return;
    const part = fifo.capacity > 0 ? Math.min(1, fifo.count / fifo.capacity) : 0;
    bar.setAttribute('width', (full * part).toFixed(1));
    setText(count, share(part));
  });
  return selectable(group, {kind: 'fifo', name}, `FIFO ${name}`);
}

function drawEdge(edge) {
  const group = draw('g', {class: edge.link ? 'edge' : 'edge loose'},
                     draw('path', {d: edge.path, class: 'touch'}),
                     draw('path', {d: edge.path, class: 'line', 'marker-end': 'url(#arrow)'}),
                     edge.text ? text(edge.textX, edge.textY + (isTall() ? 3 : -2), 'stream', edge.text) : null);
  if (!edge.link) return group;
  return selectable(group, {kind: 'link', route: edge.route, name: edge.link}, `Link ${edge.link}, ${edge.text}`);
}

const arrow = () => draw('defs', {}, draw('marker', {id: 'arrow', viewBox: '0 0 8 8', refX: 7, refY: 4, markerWidth: 9, markerHeight: 9,
                                                     markerUnits: 'userSpaceOnUse', orient: 'auto-start-reverse'},
                                          draw('path', {d: 'M0 0.6 L8 4 L0 7.4z', class: 'arrow'})));

const isTall = () => shown === data.topics.tall;

const roomOf = () => ({width: frame.clientWidth - 26, height: frame.clientHeight - 26});

function scaleOf(picture) {
  const room = roomOf();
  if (picture === data.topics.tall) return room.width / picture.width;
  return Math.min(room.width / picture.width, room.height / picture.height);
}

function fit() {
  const svg = frame.querySelector('svg');
  if (!svg || !shown) return;
  const scale = Math.min(MOST, Math.max(LEAST, scaleOf(shown)));
  svg.setAttribute('width', Math.floor(shown.width * scale));
  svg.setAttribute('height', Math.floor(shown.height * scale));
}

/** From left to right; where that does not fit, routes one above the other; in a narrow window from top to bottom. */
function chosen() {
  const {wide, stacked, tall} = data.topics;
  if (frame.clientWidth < NARROW) return tall;
  if (!stacked || !wide || wide.error) return wide;
  return scaleOf(wide) >= LEAST || scaleOf(wide) >= scaleOf(stacked) ? wide : stacked;
}

/** Draws the picture anew, for another graph or another width. */
function redraw() {
  const picture = chosen();
  if (!picture || !data.topics.graph) return;
  shown = picture;
  updates = [];
  const focused = document.activeElement?.getAttribute?.('aria-label');
  if (picture.error || !picture.blocks.length && !picture.routes.length && !picture.fifos.length) {
    frame.replaceChildren(make('p', {class: 'empty'}, picture.error ?? 'The process has no routes yet.'));
    return;
  }
  const svg = draw('svg', {viewBox: `0 0 ${picture.width} ${picture.height}`, role: 'group'}, arrow(), picture.routes.map(drawRoute),
                   picture.edges.map(drawEdge), picture.fifos.map(drawFifo), picture.blocks.map(drawBlock));
  frame.replaceChildren(svg);
  fit();
  refresh();
  if (focused) [...svg.querySelectorAll('[tabindex]')].find((one) => one.getAttribute('aria-label') === focused)?.focus();
}

export function refresh() {
  for (const update of updates) update();
}

/** Where the details cover the lower half, what is selected goes to the upper one. */
function showSelected() {
  const isNarrow = matchMedia('(max-width: 900px)').matches;
  frame.querySelector('.selected')?.scrollIntoView({block: isNarrow ? 'start' : 'nearest', inline: 'nearest'});
}

export function start() {
  for (const topic of ['wide', 'stacked', 'tall', 'graph']) {
    data.on(topic, () => { if (chosen() !== shown || topic !== 'graph') redraw(); });
  }
  for (const topic of ['stats', 'timing', 'selection']) data.on(topic, refresh);
  data.on('selection', showSelected);
  frame.addEventListener('click', () => select(null));
  new ResizeObserver(() => (chosen() !== shown ? redraw() : fit())).observe(frame);
}
