// A curve of the last minutes.

import {make, number, setText, share, micros} from './elements.js';
import {curve} from './data.js';

// Its legend needs styles within the page, which its policy forbids; ours stands above the curve.
Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugIn) => plugIn !== Dygraph.Plugins.Legend);

const SPANS = [{seconds: 120, text: '2 min'}, {seconds: 600, text: '10 min'}];
let span = SPANS[0];

/** How values of a kind are written, and how far the axis reaches at least. */
const KINDS = {
  fps: {unit: 'frames/s', format: (value) => number(value === null ? value : Math.round(value * 10) / 10), range: [0, null], least: 1},
  share: {unit: 'of a processor', format: share, range: [0, null], least: 0.01},
  fill: {unit: 'full', format: share, range: [0, 1]},
  cycle: {unit: 'worst', format: micros, range: [0, null]},
  reading: {unit: '', format: number, range: [null, null]},
};

const style = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

/** Leaves room above and below, so that a curve that does not move is a line in the middle. */
function rangeOf(rows, {range: [low, high], least: leastRange = 0}) {
  let least = low ?? Infinity, most = high ?? -Infinity;
  for (const [, value] of rows) {
    if (value === null || !Number.isFinite(value)) continue;
    least = Math.min(least, value);
    most = Math.max(most, value);
  }
  if (least > most) return [0, 1];
  const room = (most - least) * 0.12 || Math.max(Math.abs(most) * 0.1, 0.01);
  return [low ?? least - room, high ?? Math.max(most + room, (low ?? least) + leastRange)];
}

export class Curve {
  /** @param of the name of the series; unit of a reading. */
  constructor(of, title, unit = '') {
    this.of = of;
    this.unit = unit;
    this.kind = KINDS[of[0]];
    this.value = make('output', {});
    this.plot = make('div', {class: 'plot'});
    this.element = make('figure', {class: 'curve'}, make('figcaption', {}, make('span', {}, title), this.value), this.plot);
    this.graph = null;
  }

  format(value) {
    return this.of[0] === 'reading' ? number(value, this.unit) : this.kind.format(value);
  }

  /** To be called where there is something new, once the element is in the page. */
  refresh() {
    const rows = curve(this.of, span.seconds);
    this.element.hidden = rows === null;
    if (!rows?.length || !this.plot.clientWidth) return;
    const last = rows[rows.length - 1][1];
    if (!this.isPointedAt) setText(this.value, this.format(last));
    const now = Date.now();
    const moving = {file: rows, dateWindow: [now - 1000 * span.seconds, now], valueRange: rangeOf(rows, this.kind)};
    if (this.graph) this.graph.updateOptions(moving);
    else this.graph = this.create(moving);
  }

  create(moving) {
    const {file, ...options} = moving;
    return new Dygraph(this.plot, file, {
      ...options,
      labels: ['time', 'value'],
      legend: 'never',
      colors: [style('--curve')],
      strokeWidth: 1.5,
      fillGraph: this.of[0] !== 'reading',  // decibels would fill what is above
      fillAlpha: 0.12,
      gridLineColor: style('--line'),
      axisLineColor: style('--line'),
      axisLabelFontSize: 10,
      highlightCircleSize: 3,
      interactionModel: {},
      rightGap: 4,
      xAxisHeight: 20,
      axes: {
        x: {drawGrid: false, axisLabelWidth: 52, pixelsPerLabel: 70,
            axisLabelFormatter: (date) => date.toLocaleTimeString('en-GB').replace(/:00$/, '')},
        y: {axisLabelWidth: 44, pixelsPerLabel: 15, axisLabelFormatter: (value) => this.axisText(value)},
      },
      highlightCallback: (event, x, points) => {
        this.isPointedAt = true;
        setText(this.value, `${new Date(x).toLocaleTimeString('en-GB')}  ${this.format(points[0]?.yval ?? null)}`);
      },
      unhighlightCallback: () => { this.isPointedAt = false; },
    });
  }

  axisText(value) {
    if (this.of[0] === 'share' || this.of[0] === 'fill') return share(value);
    if (this.of[0] === 'cycle') return micros(value);
    return number(Number(value.toPrecision(3)));
  }

  destroy() { this.graph?.destroy(); }
}

/** The choice of how far back curves go. */
export function spanChoice(onChange) {
  return make('div', {class: 'choice', role: 'group', 'aria-label': 'How far back'}, SPANS.map((one) => make(
      'button', {type: 'button', 'aria-pressed': String(one === span), onclick: (event) => {
        span = one;
        for (const button of event.target.parentElement.children) button.setAttribute('aria-pressed', String(button === event.target));
        onChange();
      }}, one.text)));
}
