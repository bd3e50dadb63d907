// The details of what is selected; of everything where nothing is.

import {byId, make, micros, number, plugInName, setText, share, UNKNOWN} from './elements.js';
import * as data from './data.js';
import {Curve, spanChoice} from './curves.js';
import {Parameter} from './parameters.js';
import * as edits from './edits.js';
import {select, selection} from './selection.js';

const panel = byId('panel');
let curves = [];
let updates = [];
let shape = '';  // of what is shown: another one builds the panel anew

const heading = (kind, title) => make('header', {}, make('div', {}, make('p', {class: 'kind'}, kind), make('h2', {}, title)),
                                      selection() && make('button', {type: 'button', class: 'plain', 'aria-label': 'Close (Esc)',
                                                                     title: 'Close (Esc)', onclick: () => select(null)}, '✕'));

const section = (title, ...content) => make('section', {}, make('h3', {}, title), ...content);

/** Terms and what they are now. @param rows [[term, () => text]] */
function facts(rows) {
  return make('dl', {}, rows.map(([term, textOf]) => {
    const value = make('dd', {});
    const row = make('div', {}, make('dt', {}, term), value);
    updates.push(() => {
      const now = textOf();
      row.hidden = now === null || now === undefined || now === '';
      setText(value, String(now ?? ''));
    });
    return row;
  }));
}

function addCurve(of, title, unit) {
  const one = new Curve(of, title, unit);
  curves.push(one);
  return one.element;
}

function curvesSection(elements, title = 'Curves') {
  if (!elements.length) return null;
  return make('section', {}, make('div', {class: 'row'}, make('h3', {}, title), spanChoice(refreshCurves)), elements);
}

const go = (what, text) => make('button', {type: 'button', class: 'link', onclick: () => select(what)}, text);

function whyLine(route) {
  const line = make('p', {class: 'why'});
  updates.push(() => {
    const text = data.standing(data.statsOf(route));
    line.hidden = text === '';
    setText(line, text);
  });
  return line;
}

function policyText(stats) {
  if (!stats?.policy) return null;
  return stats.realTimePriority > 0 ? `real time, ${stats.policy} ${stats.realTimePriority}` : 'no real time';
}

/** What a call or a cycle takes, as rows of facts. @param timingNow gives nothing while nobody measures */
function timingRows(what, timingNow) {
  const row = (member) => () => timingNow() && micros(timingNow()[member]);
  return [[`${what}, mean`, row('mean')], ['99 % below', row('p99')], ['Worst', row('worst')]];
}

function showRoute({route}) {
  const stats = () => data.statsOf(route);
  const timing = () => (data.topics.timing?.on ? data.timingOf(route) : undefined);
  return [
    heading('Route', route), whyLine(route),
    facts([
      ['State', () => stats()?.status],
      ['Frames', () => number(stats()?.frames)],
      ['Failed frames', () => stats()?.errorFrames || null],
      ['Frames a second', () => (stats()?.framesPerSecond === undefined ? null : number(Math.round(stats().framesPerSecond * 10) / 10))],
      ['Processor', () => (stats()?.processorShare === undefined ? null : share(stats().processorShare))],
      ...timingRows('Cycle', timing),
      ['Frame lasts', () => timing() && micros(timing().frame)],
      ['Xruns', () => stats()?.xruns],
      ['Scheduling', () => policyText(stats())],
      ['In block', () => stats()?.inBlock],
    ]),
    curvesSection([addCurve(['share', route], 'Processor'), addCurve(['fps', route], 'Frames a second'),
                   addCurve(['cycle', route], 'Cycle, worst')]),
    section('Blocks', make('ul', {class: 'list'}, (data.routeOf(route)?.blocks ?? []).map((block) => make(
        'li', {}, go({kind: 'block', route, name: block.name}, block.label || block.name), make('small', {}, plugInName(block.plugIn)))))),
  ];
}

function parametersSection(route, block) {
  const table = data.parametersOf(route, block);
  if (!table) return section('Parameters', make('p', {class: 'help'}, 'This block does not say what can be set.'));
  const settable = table.filter((one) => one.access !== 'read').map((one) => new Parameter(route, block, one));
  if (!settable.length) return null;
  updates.push(() => {
    const now = data.parametersOf(route, block) ?? [];
    const isRunning = (data.statsOf(route)?.status ?? 'running') === 'running';
    for (const one of settable) {
      const latest = now.find((row) => row.name === one.parameter.name);
      if (latest) one.refresh(latest, isRunning);
    }
  });
  return section('Parameters', settable.map((one) => one.element));
}

function linkRow(route, link, side) {
  const other = side === 'to' ? link.from : link.to;
  const own = link[side];
  return make('li', {},
              make('span', {}, side === 'to' ? `in ${own.port} ← ` : `out ${own.port} → `,
                   go({kind: 'block', route, name: other.block}, data.titleOf(route, other.block)), ' ',
                   go({kind: 'link', route, name: link.name}, streamText(link))),
              make('span', {class: 'actions'},
                   make('button', {type: 'button', onclick: () => edits.insert(route, link.name)}, 'Insert…')));
}

const streamText = (link) => `${link.rate} Hz ${link.format} ${link.channels} ch`;

function showBlock({route, name}) {
  const block = data.blockOf(route, name);
  if (!block) return [heading('Block', name), make('p', {class: 'help'}, 'This block is gone.')];
  const readings = data.readingsOf(route, name);
  const timing = () => (data.topics.timing?.on ? data.timingOf(route, name) : undefined);
  const links = [...data.linksOf(route, name, 'to').map((link) => linkRow(route, link, 'to')),
                 ...data.linksOf(route, name, 'from').map((link) => linkRow(route, link, 'from'))];
  const stands = make('p', {class: 'why'});
  updates.push(() => {
    const stats = data.statsOf(route);
    const text = stats?.inBlock === name ? data.standing(stats) : '';
    stands.hidden = text === '';
    setText(stands, `${route} ${text}`);
  });
  return [
    heading(`Block of ${route}`, data.titleOf(route, name)), stands,
    facts([
      ['Name', () => (block.label ? name : null)],
      ['Plug-in', () => plugInName(block.plugIn) || UNKNOWN],
      ['Arguments', () => (block.args ?? []).join(' ')],
      ['Calls', () => timing() && number(timing().calls)],
      ...timingRows('Call', timing),
      ['Of a frame', () => timing() && share(timing().share)],
    ]),
    make('p', {class: 'actions'}, make('button', {type: 'button', onclick: () => edits.replace(route, name)}, 'Replace…'),
         make('button', {type: 'button', onclick: () => edits.remove(route, name)}, 'Remove…')),
    parametersSection(route, name),
    curvesSection(readings.map((one) => addCurve(['reading', route, name, one.name], one.name, one.unit)), 'Readings'),
    links.length ? section('Links', make('ul', {class: 'list'}, links)) : null,
  ];
}

function showLink({route, name}) {
  const link = data.linkOf(route, name);
  if (!link) return [heading('Link', name), make('p', {class: 'help'}, 'This link is gone.')];
  const end = (one) => go({kind: 'block', route, name: one.block}, data.titleOf(route, one.block));
  return [
    heading(`Link of ${route}`, name),
    make('p', {}, end(link.from), ` ${link.from.port} → ${link.to.port} `, end(link.to)),
    facts([['Rate', () => `${link.rate} Hz`], ['Format', () => link.format], ['Channels', () => link.channels],
           ['Samples a frame', () => link.samplesPerFrame],
           ['A frame lasts', () => (link.rate > 0 ? micros(1e6 * link.samplesPerFrame / link.rate) : null)]]),
    make('p', {class: 'actions'}, make('button', {type: 'button', class: 'main', onclick: () => edits.insert(route, name)}, 'Insert…'),
         make('button', {type: 'button', onclick: () => edits.tap(route, name)}, 'Tap…')),
  ];
}

function showFifo({name}) {
  const fifo = () => data.fifoOf(name);
  const user = (end) => {
    const block = fifo()?.[end];
    return block?.block ? go({kind: 'block', route: block.route, name: block.block}, `${data.titleOf(block.route, block.block)} of ${block.route}`)
                        : 'nobody';
  };
  return [
    heading('FIFO', name),
    facts([
      ['Samples', () => fifo() && `${number(fifo().count)} of ${number(fifo().capacity)}`],
      ['Lasts', () => (fifo()?.rate > 0 ? micros(1e6 * fifo().count / fifo().rate) : null)],
      ['Rate', () => fifo() && `${fifo().rate} Hz`],
      ['Writer', () => (fifo()?.writingEnded ? 'has ended' : fifo()?.writerSleeps ? 'waits for room' : null)],
      ['Reader', () => (fifo()?.readingEnded ? 'has ended' : fifo()?.readerSleeps ? 'waits for samples' : null)],
    ]),
    make('p', {}, 'Written by ', user('writer'), ', read by ', user('reader'), '.'),
    curvesSection([addCurve(['fill', name], 'Fill')]),
  ];
}

function showAll() {
  const routes = [...data.topics.graph?.routes ?? []].sort((a, b) => (a.name < b.name ? -1 : 1)), fifos = data.topics.graph?.fifos ?? [];
  const library = data.topics.graph?.process?.library;
  const row = (route) => {
    const state = make('span', {class: 'chip'});
    updates.push(() => {
      const stats = data.statsOf(route.name);
      const why = data.standing(stats);
      setText(state, why ? stats.why ?? stats.status : stats?.status ?? route.status ?? UNKNOWN);
      state.className = `chip ${why ? 'bad' : (stats?.status ?? '') === 'running' ? 'good' : ''}`;
    });
    return make('section', {}, make('div', {class: 'row'}, make('h3', {}, go({kind: 'route', route: route.name}, route.name)), state),
                whyLine(route.name), addCurve(['share', route.name], 'Processor'), addCurve(['fps', route.name], 'Frames a second'));
  };
  return [
    make('header', {}, make('div', {}, make('p', {class: 'kind'}, library ? `Vorn ${library}` : 'Process'), make('h2', {}, 'Overview')),
         spanChoice(refreshCurves)),
    routes.length ? null : make('p', {class: 'help'}, 'Choose a block in the graph to see what it does.'),
    routes.map(row),
    fifos.map((fifo) => make('section', {}, make('h3', {}, go({kind: 'fifo', name: fifo.name}, fifo.name)),
                             addCurve(['fill', fifo.name], 'Fill'))),
  ];
}

const SHOW = {route: showRoute, block: showBlock, link: showLink, fifo: showFifo};

/** What decides which elements there are; everything else is written into them. */
function shapeNow() {
  const what = selection();
  const graph = data.topics.graph;
  if (what?.kind === 'block') {
    return JSON.stringify([what, data.blockOf(what.route, what.name), data.linksOf(what.route, what.name, 'to'),
                           data.linksOf(what.route, what.name, 'from'), data.readingsOf(what.route, what.name).map((one) => one.name),
                           data.parametersOf(what.route, what.name)?.map(({value, ...rest}) => rest)]);
  }
  if (what?.kind === 'link') return JSON.stringify([what, data.linkOf(what.route, what.name)]);
  if (what?.kind === 'fifo') return JSON.stringify([what, data.fifoOf(what.name)?.writer, data.fifoOf(what.name)?.reader]);
  if (what?.kind === 'route') return JSON.stringify([what, data.routeOf(what.route)?.blocks]);
  return JSON.stringify([graph?.process?.library, graph?.routes?.map((one) => one.name), graph?.fifos?.map((one) => one.name)]);
}

function refreshCurves() {
  for (const one of curves) one.refresh();
}

function rebuild() {
  const newShape = shapeNow();
  if (newShape === shape) return;
  shape = newShape;
  for (const one of curves) one.destroy();
  curves = [];
  updates = [];
  const what = selection();
  const focused = panel.contains(document.activeElement) ? document.activeElement.id : '';
  panel.classList.toggle('open', what !== null);
  panel.replaceChildren(...(SHOW[what?.kind] ?? showAll)(what).flat().filter(Boolean));
  refresh();
  refreshCurves();
  if (focused) byId(focused)?.focus();
}

function refresh() {
  for (const update of updates) update();
}

export function start() {
  for (const topic of ['graph', 'params', 'stats', 'selection']) data.on(topic, rebuild);
  for (const topic of ['stats', 'params', 'timing']) data.on(topic, refresh);
  data.on('selection', () => { panel.scrollTop = 0; });
  data.on('point', refreshCurves);
  addEventListener('resize', refreshCurves);
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
    shape = '';
    rebuild();
  });
  rebuild();
}
