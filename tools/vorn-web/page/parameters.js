// The parameters of a block as controls: sliders, switches, lists.

import {make, note, setText} from './elements.js';
import {send} from './data.js';

const SILENCE = -96, LOUDEST = 24;  // the ends of a slider in decibels whose range has none
const QUIET = 1500;                 // milliseconds in which a control that was just moved is not moved by what arrives

const limitsOf = (range) => {
  const [low, high] = (range ?? '').split('..').map((text) => (text === '' ? NaN : Number(text.replace('inf', 'Infinity'))));
  return {low: low ?? NaN, high: high ?? NaN};
};

/** The ends of a slider, or null where a range has none to offer. */
function sliderOf(parameter) {
  let {low, high} = limitsOf(parameter.range);
  const isLevel = parameter.unit.startsWith('dB');
  const reachesSilence = isLevel && low === -Infinity;
  if (reachesSilence) low = SILENCE;
  if (isLevel && high === Infinity) high = LOUDEST;
  if (!Number.isFinite(low) || !Number.isFinite(high) || high <= low) return null;
  const isWhole = parameter.type === 'integer';
  const step = isWhole ? Math.max(1, Math.round((high - low) / 1000)) : isLevel ? 0.5 : 10 ** Math.floor(Math.log10((high - low) / 100));
  return {low, high, step, reachesSilence};
}

function rangeText(parameter) {
  if (['word', 'flag'].includes(parameter.type)) return '';
  const [low, high] = (parameter.range ?? '').split('..');
  if (high === undefined) return '';
  const unit = parameter.unit ? ' ' + parameter.unit : '';
  if (low === '-inf' && high === 'inf') return '';
  return `${low.replace('-inf', '−∞').replace('-', '−')} to ${high.replace('inf', '∞').replace('-', '−')}${unit}`;
}

/** Sends the newest value whenever the one before has arrived: a slider that is drawn does not pile up requests. */
class Sender {
  /** @param onRefused called where the block did not take a value. */
  constructor(route, block, name, onRefused) {
    this.onRefused = onRefused;
    this.words = ['edit', '{', 'setparam', route, block, name];
    this.next = null;
    this.isBusy = false;
    this.touched = 0;
  }

  isQuiet() { return !this.isBusy && Date.now() - this.touched > QUIET; }

  async set(value, control) {
    this.touched = Date.now();
    this.next = value;
    if (this.isBusy) return;
    this.isBusy = true;
    while (this.next !== null) {
      const now = this.next;
      this.next = null;
      try {
        await send(...this.words, now, '}');
        control.classList.remove('bad');
      } catch (error) {
        control.classList.add('bad');
        note(error.message, true);
        this.touched = 0;
        this.onRefused();
      }
    }
    this.isBusy = false;
  }
}

export class Parameter {
  constructor(route, block, parameter) {
    this.sender = new Sender(route, block, parameter.name, () => this.put(this.latest));
    this.parameter = parameter;
    this.latest = String(parameter.value ?? '');
    this.id = `parameter-${parameter.id}`;
    this.controls = make('div', {class: 'controls'});
    this.element = make('div', {class: `parameter ${parameter.type}`, 'data-name': parameter.name},
                        make('label', {for: this.id}, parameter.name),
                        this.controls,
                        make('p', {class: 'help'}, [parameter.help, rangeText(parameter)].filter(Boolean).join(' · ')));
    this.put = this.build(parameter);
    this.note = make('p', {class: 'help', hidden: parameter.access !== 'stopped'}, 'Only while the route is stopped.');
    this.element.append(this.note);
  }

  /** @return what writes a value into the controls. */
  build(parameter) {
    if (parameter.type === 'flag') return this.buildSwitch();
    if (parameter.type === 'word') return this.buildList(parameter.range.split(/[|\s]+/).filter(Boolean));
    if (parameter.type === 'text') return this.buildField('text');
    const ends = sliderOf(parameter);
    return ends ? this.buildSlider(ends) : this.buildField('number');
  }

  set(value) { this.sender.set(value, this.element); }

  buildSwitch() {
    const box = make('input', {type: 'checkbox', role: 'switch', id: this.id, onchange: () => this.set(String(box.checked))});
    this.controls.append(box);
    return (value) => { box.checked = value === 'true' || value === '1'; };
  }

  buildList(words) {
    const list = make('select', {id: this.id, onchange: () => this.set(list.value)}, words.map((word) => make('option', {}, word)));
    this.controls.append(list);
    return (value) => {
      if (!words.includes(value)) list.append(make('option', {}, value));
      list.value = value;
    };
  }

  buildField(type) {
    const field = make('input', {type, id: this.id, step: 'any', onchange: () => this.set(field.value)});
    this.controls.append(field, make('span', {class: 'unit'}, this.parameter.unit));
    return (value) => { field.value = value; };
  }

  buildSlider({low, high, step, reachesSilence}) {
    const textOf = (value) => (reachesSilence && value <= low ? '-inf' : String(Number(value.toPrecision(6))));
    const slider = make('input', {type: 'range', id: this.id, min: low, max: high, step, oninput: () => {
      field.value = textOf(slider.valueAsNumber);
      this.set(field.value);
    }});
    const field = make('input', {type: 'text', inputmode: 'decimal', size: 6, 'aria-label': this.parameter.name + ' as a number',
                                 onchange: () => this.set(field.value.replace('−', '-'))});
    this.controls.append(slider, field, make('span', {class: 'unit'}, this.parameter.unit));
    return (value) => {
      const number = Number(value.replace('inf', 'Infinity'));
      slider.value = Number.isNaN(number) ? low : Math.min(high, Math.max(low, number));
      slider.setAttribute('aria-valuetext', `${value} ${this.parameter.unit}`);
      field.value = value;
    };
  }

  refresh(parameter, isRunning) {
    const isLocked = parameter.access === 'stopped' && isRunning;
    for (const control of this.controls.querySelectorAll('input, select')) control.disabled = isLocked;
    this.note.hidden = !isLocked;
    const isTyping = this.controls.contains(document.activeElement) && ['text', 'number'].includes(document.activeElement.type);
    this.latest = String(parameter.value ?? '');
    if (this.sender.isQuiet() && !isTyping && this.latest !== this.shownValue) {
      this.shownValue = this.latest;
      this.put(this.latest);
    }
    if (!this.sender.isQuiet()) this.shownValue = null;
  }
}

/** What a plug-in takes when its block is made, as a form. words() gives what was filled in. */
export function argumentForm(plugIn) {
  const rows = [];
  const fields = (plugIn.parameters ?? []).filter((one) => one.access !== 'read').map((parameter) => {
    const id = `argument-${parameter.name}`;
    const common = {id, 'data-name': parameter.name, required: parameter.required};
    const words = parameter.type === 'flag' ? ['true', 'false'] : parameter.type === 'word' ? parameter.range.split(/[|\s]+/) : null;
    const standard = parameter.default ? `${parameter.default}` : '';
    const field = words ? make('select', common, make('option', {value: ''}, standard ? `${standard} (as it is)` : ''),
                               words.filter(Boolean).map((word) => make('option', {}, word)))
                        : make('input', {type: 'text', placeholder: standard, ...common});
    rows.push(make('div', {class: 'argument'}, make('label', {for: id}, parameter.name), field,
                   make('span', {class: 'unit'}, parameter.unit),
                   make('p', {class: 'help'}, [parameter.help, rangeText(parameter)].filter(Boolean).join(' · '))));
    return field;
  });
  return {
    elements: rows,
    words: () => fields.filter((field) => field.value !== '').map((field) => `${field.dataset.name}=${field.value}`),
  };
}
