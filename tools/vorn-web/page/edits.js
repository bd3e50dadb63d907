// The dialogs that change the graph.

import {make, note, plugInName} from './elements.js';
import * as data from './data.js';
import {argumentForm as argumentsOf} from './parameters.js';
import {select} from './selection.js';

const takes = (count, ports) => ports !== undefined && ports.least <= count && count <= ports.most;

/** Whether a port takes a link's stream. A plug-in that has several inputs may describe fewer: the last stands for the rest. */
function carries(ports, index, link) {
  const port = ports?.each?.[Math.min(index, ports.each.length - 1)];
  if (!port || !link) return true;
  if (port.formats && link.format && !port.formats.split(' ').includes(link.format)) return false;
  return !(link.channels < port.minChannels) && !(link.channels > (port.maxChannels ?? Infinity));
}

/** Why a plug-in does not fit, in words; nothing where it does, as far as it tells. */
export function misfit(plugIn, {inputs, outputs, links}) {
  if (plugIn.error) return plugIn.error;
  if (!plugIn.kit) return '';
  if (plugIn.readsFifo || plugIn.writesFifo) return 'it needs a FIFO';
  if (!takes(inputs, plugIn.inputs)) return `it has no ${inputs} input${inputs === 1 ? '' : 's'}`;
  if (!takes(outputs, plugIn.outputs)) return `it has no ${outputs} output${outputs === 1 ? '' : 's'}`;
  if (!links.in.every((link, i) => carries(plugIn.inputs, i, link))) return 'it does not take this stream';
  if (!links.out.every((link, i) => carries(plugIn.outputs, i, link))) return 'it does not give this stream';
  return '';
}

function openDialog(title, ...content) {
  const dialog = make('dialog', {'aria-label': title}, make('header', {}, make('h2', {}, title),
                                                           make('button', {type: 'button', class: 'plain', 'aria-label': 'Close', onclick: () => dialog.close()}, '✕')),
                      ...content);
  dialog.addEventListener('close', () => dialog.remove());
  document.body.append(dialog);
  dialog.showModal();
  return dialog;
}

/** Runs a request of a dialog: closes it when that is done, and says why where it is not. */
async function carryOut(dialog, button, problem, words) {
  button.disabled = true;
  problem.textContent = '';
  try {
    const reply = await data.send(...words);
    dialog.close();
    const made = reply.made ?? [], gone = reply.deleted ?? [];
    note([made.length && `Made ${made.join(', ')}.`, gone.length && `Deleted ${gone.join(', ')}.`].filter(Boolean).join(' ') || 'Done.');
    return reply;
  } catch (error) {
    problem.textContent = error.message;
    return null;
  } finally {
    button.disabled = false;
  }
}

function plugInRow(plugIn, onChoose) {
  const name = plugIn.name ?? plugInName(plugIn.file);
  return make('li', {}, make('button', {type: 'button', 'data-name': name, onclick: () => onChoose(plugIn)}, make('b', {}, name),
                             make('span', {}, plugIn.summary ?? 'says nothing of itself')));
}

/** Lets the operator choose a plug-in and its arguments. @param need see misfit(); make words of a request from both. */
async function choosePlugIn(title, doing, need, wordsOf) {
  let plugIns;
  try {
    plugIns = await data.loadPlugIns();
  } catch (error) {
    note(error.message, true);
    return;
  }
  const fitting = plugIns.filter((one) => !misfit(one, need)).sort((a, b) => (b.kit ?? false) - (a.kit ?? false));
  const list = make('ul', {class: 'plug-ins'});
  const search = make('input', {type: 'search', placeholder: 'Search', 'aria-label': 'Search plug-ins', autofocus: true});
  const problem = make('p', {class: 'problem', role: 'alert'});
  const body = make('div', {class: 'body'}, search, list,
                    make('p', {class: 'help'}, `${fitting.length} of ${plugIns.length} plug-ins fit here.`));
  const dialog = openDialog(title, body);

  const showForm = (plugIn) => {
    const name = plugIn.name ?? plugInName(plugIn.file);
    const form = argumentsOf(plugIn);
    const button = make('button', {type: 'submit', class: 'main'}, doing);
    const back = make('button', {type: 'button', onclick: showList}, 'Back');
    const page = make('form', {class: 'body', onsubmit: async (event) => {
      event.preventDefault();
      const reply = await carryOut(dialog, button, problem, wordsOf(plugIn.kit ? name : plugIn.file, form.words()));
      if (reply?.made?.length && need.route) select({kind: 'block', route: need.route, name: reply.made[0]});
    }}, make('p', {}, make('b', {}, name), ' ' + (plugIn.summary ?? '')), form.elements, problem,
        make('footer', {}, back, button));
    body.replaceWith(page);
    (page.querySelector('input, select') ?? button).focus();
    function showList() {
      problem.textContent = '';
      page.replaceWith(body);
      search.focus();
    }
  };
  const showMatches = () => {
    const wanted = search.value.trim().toLowerCase();
    list.replaceChildren(...fitting.filter((one) => `${one.name ?? one.file} ${one.summary ?? ''}`.toLowerCase().includes(wanted))
                             .map((one) => plugInRow(one, showForm)));
  };
  search.addEventListener('input', showMatches);
  search.addEventListener('keydown', (event) => {
    if (event.key === 'Enter') list.querySelector('button')?.click();
    else if (event.key === 'ArrowDown') list.querySelector('button')?.focus();
    else return;
    event.preventDefault();
  });
  list.addEventListener('keydown', (event) => {
    const buttons = [...list.querySelectorAll('button')];
    const step = {ArrowDown: 1, ArrowUp: -1}[event.key];
    if (!step) return;
    event.preventDefault();
    (buttons[buttons.indexOf(document.activeElement) + step] ?? search).focus();
  });
  showMatches();
  search.focus();
}

export function insert(route, link) {
  const known = data.linkOf(route, link);
  choosePlugIn('Insert a block', 'Insert', {route, inputs: 1, outputs: 1, links: {in: [known], out: [known]}},
               (plugIn, args) => ['insert', route, link, plugIn, ...args]);
}

export function tap(route, link) {
  const known = data.linkOf(route, link);
  choosePlugIn('Tap the stream', 'Tap', {route, inputs: 1, outputs: 0, links: {in: [known], out: []}},
               (plugIn, args) => ['tap', route, link, plugIn, ...args]);
}

const byPort = (links, side) => [...links].sort((a, b) => a[side].port - b[side].port);

export function replace(route, block) {
  const links = {in: byPort(data.linksOf(route, block, 'to'), 'to'), out: byPort(data.linksOf(route, block, 'from'), 'from')};
  choosePlugIn(`Replace ${data.titleOf(route, block)}`, 'Replace', {route, inputs: links.in.length, outputs: links.out.length, links},
               (plugIn, args) => ['replace', route, block, plugIn, ...args]);
}

export function remove(route, block) {
  const problem = make('p', {class: 'problem', role: 'alert'});
  const button = make('button', {type: 'button', class: 'main bad', autofocus: true, onclick: async () => {
    if (await carryOut(dialog, button, problem, ['remove', route, block])) select(null);
  }}, 'Remove');
  const dialog = openDialog(`Remove ${data.titleOf(route, block)}?`,
                            make('div', {class: 'body'}, make('p', {}, 'Its neighbours are joined, and the route runs on.'), problem,
                                 make('footer', {}, make('button', {type: 'button', onclick: () => dialog.close()}, 'Cancel'), button)));
}
