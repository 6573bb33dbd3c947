// Graphs over time, as SVG: a small one for a row, and a large one with axes.

import {make, say} from './page.js';
import {clock} from './words.js';

const kSvg = 'http://www.w3.org/2000/svg';

function draw(parent, name, attributes = {}, text = '') {
  const node = document.createElementNS(kSvg, name);
  for (const [key, value] of Object.entries(attributes)) node.setAttribute(key, value);
  node.textContent = text;
  parent.append(node);
  return node;
}

function alter(node, key, value) {
  if (node.getAttribute(key) !== String(value)) node.setAttribute(key, value);
}

/// The stretches of [index, value] between holes longer than `hole` values.
function stretches(values, hole) {
  const found = [];
  let previous = -Infinity;
  values.forEach((value, index) => {
    if (value === null || value === undefined) return;
    if (index - previous > hole) found.push([]);
    found.at(-1).push([index, value]);
    previous = index;
  });
  return found;
}

const line = (points) =>
    points.map(([x, y], i) => `${i ? 'L' : 'M'}${x.toFixed(1)} ${y.toFixed(1)}`).join('');

/// A stretch of a single value is still seen: it is drawn half a step long.
function linesOf(values, hole, at) {
  return stretches(values, hole).map((stretch) => {
    const points = stretch.map(at);
    return points.length > 1 ? points : [at([stretch[0][0] - 0.5, stretch[0][1]]), points[0]];
  });
}

const areaOf = (points, bottom) => `${line(points)}L${points.at(-1)[0].toFixed(1)} ${bottom}L${
    points[0][0].toFixed(1)} ${bottom}Z`;

// ---- In a row -----------------------------------------------------------------------------------

const kSparkHeight = 24;

export class Spark {
  constructor(parent, slots) {
    this.slots = slots;
    const svg = draw(parent, 'svg', {
      viewBox: `0 0 ${slots - 1} ${kSparkHeight}`,
      class: 'spark',
      preserveAspectRatio: 'none',
      'aria-hidden': 'true'
    });
    this.area = draw(svg, 'path', {class: 'area'});
    this.line = draw(svg, 'path', {class: 'line'});
  }

  show(values) {
    const top = Math.max(1, ...values);
    const first = this.slots - values.length;
    const at =
        ([index, value]) => [first + index, kSparkHeight - 1 - (kSparkHeight - 3) * value / top];
    const lines = linesOf(values, 2, at);
    alter(this.line, 'd', lines.map(line).join(''));
    alter(this.area, 'd', lines.map((points) => areaOf(points, kSparkHeight)).join(''));
  }
}

// ---- With axes ----------------------------------------------------------------------------------

const kLeft = 56, kRight = 12, kTop = 10, kBottom = 24, kHeight = 220;
const kMinutes = [15, 10, 5, 0];

/// A step of 1, 2 or 5 times a power of ten, by which at most four reach `top`.
function stepTo(top, least) {
  const rough = Math.max(top / 4, least);
  const power = 10 ** Math.floor(Math.log10(rough));
  return [1, 2, 5, 10].find((factor) => factor * power >= rough * 0.999) * power;
}

const kKeys = {
  ArrowLeft: -1,
  ArrowRight: 1,
  PageDown: -60,
  PageUp: 60,
  Home: -Infinity,
  End: Infinity
};

export class Graph {
  /// `lines`: [{name, className}], `slots` values of a second each, `least` the smallest step of
  /// the axis.
  constructor(figure, {lines, slots, least, tell}) {
    Object.assign(
        this, {lines, slots, least, tell, figure, series: lines.map(() => []), latest: 0});
    this.told = [make('span'), ...lines.map(({className}) => make('span', '', `key ${className}`))];
    figure.querySelector('.readout').replaceChildren(...this.told);
    this.svg = draw(figure, 'svg', {
      class: 'plot',
      height: kHeight,
      role: 'slider',
      tabindex: 0,
      'aria-valuemin': 1 - slots,
      'aria-valuemax': 0
    });
    this.axes = draw(this.svg, 'g', {class: 'axes'});
    this.areas = lines.map(({className}) => draw(this.svg, 'path', {class: `area ${className}`}));
    this.paths = lines.map(({className}) => draw(this.svg, 'path', {class: `line ${className}`}));
    this.cursor = draw(this.svg, 'path', {class: 'cursor'});
    this.pointed = null;
    this.svg.addEventListener('pointermove', (event) => this.point(event.offsetX));
    this.svg.addEventListener('pointerleave', () => this.point(null));
    this.svg.addEventListener('focus', () => this.step(0));
    this.svg.addEventListener('blur', () => this.point(null));
    this.svg.addEventListener('keydown', (event) => {
      if (!kKeys[event.key] || event.altKey || event.ctrlKey || event.metaKey) return;
      event.preventDefault();
      this.step(kKeys[event.key]);
    });
    new ResizeObserver(() => this.redraw()).observe(figure);
  }

  /// Series of values, oldest first, of which the last are of the time `latest`.
  show(series, latest) {
    Object.assign(this, {series, latest});
    this.redraw();
  }

  x(index) {
    return kLeft + (this.width - kLeft - kRight) * index / (this.slots - 1);
  }
  y(value) {
    return kHeight - kBottom - (kHeight - kTop - kBottom) * value / this.top;
  }

  redraw() {
    this.width = this.svg.clientWidth;
    if (this.width < kLeft + kRight + 10) return;
    const highest = Math.max(0, ...this.series.flat());
    const step = stepTo(highest, this.least);
    this.top = Math.max(1, Math.ceil(highest / step)) * step;
    this.drawAxes(step);
    this.series.forEach((values, i) => this.drawLine(values, i));
    this.point(this.pointed);
    alter(this.svg, 'aria-label', `The last 15 minutes. At most: ${this.highestWords()}`);
  }

  highestWords() {
    return this.lines.map(({name}, i) => `${name} ${this.tell(Math.max(0, ...this.series[i]))}`)
        .join(', ');
  }

  drawLine(values, i) {
    const first = this.slots - values.length;
    const lines = linesOf(values, 15, ([index, value]) => [this.x(first + index), this.y(value)]);
    alter(this.paths[i], 'd', lines.map(line).join(''));
    alter(this.areas[i], 'd', lines.map((points) => areaOf(points, this.y(0))).join(''));
  }

  drawAxes(step) {
    const drawn = `${this.width} ${this.top} ${step}`;
    if (drawn === this.drawn) return;
    this.drawn = drawn;
    this.axes.replaceChildren();
    for (let value = 0; value <= this.top * 1.001; value += step) {
      const y = Math.round(this.y(value)) + 0.5;
      draw(this.axes, 'path', {d: `M${kLeft} ${y}H${this.width - kRight}`});
      draw(this.axes, 'text', {x: kLeft - 8, y: y + 4, 'text-anchor': 'end'}, this.tell(value));
    }
    for (const minutes of kMinutes) {
      const anchor = minutes === 15 ? 'start' : minutes === 0 ? 'end' : 'middle';
      const x = this.x((1 - minutes / 15) * (this.slots - 1));
      draw(
          this.axes, 'text', {x, y: kHeight - 6, 'text-anchor': anchor},
          minutes ? `−${minutes} min` : 'now');
    }
  }

  slotAt(x) {
    const inner = x === null ? 1 : (x - kLeft) / (this.width - kLeft - kRight);
    return Math.round(Math.min(1, Math.max(0, inner)) * (this.slots - 1));
  }

  /// Points so many values further on, and says to those who hear the page what is there.
  step(by) {
    const slot = Math.min(this.slots - 1, Math.max(0, this.slotAt(this.pointed) + by));
    this.point(this.x(slot));
    alter(this.svg, 'aria-valuenow', slot - this.slots + 1);
    alter(this.svg, 'aria-valuetext', this.told.map(({textContent}) => textContent).join(' '));
  }

  /// Tells the values under the pointer, or the latest ones.
  point(x) {
    this.pointed = x;
    const slot = this.slotAt(x);
    alter(
        this.cursor, 'd',
        x === null ? '' : `M${this.x(slot).toFixed(1)} ${kTop}V${kHeight - kBottom}`);
    const time = new Date(this.latest - 1000 * (this.slots - 1 - slot));
    const words = this.lines.map(({name}, i) => {
      const value = this.series[i].at(slot - this.slots);
      return `${name} ${value === null || value === undefined ? '–' : this.tell(value)}`;
    });
    this.readOut(x === null || !this.latest ? '' : clock(time), words);
  }

  readOut(time, words) {
    say(this.told[0], time);
    words.forEach((text, i) => say(this.told[i + 1], text));
  }
}
