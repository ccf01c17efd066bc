// The head as a drawing: supplies, sensor, lanes, FPGA. What changed lights up for a moment.

import { el, say, span, svg } from './elements.js';

const kLanes = 12;
const kLightMs = 1200;
const kNarrowBelow = 500; // pixels: the wide drawing's text would be too small

// Where things stand, in pixels of a drawing that is shown about 1:1.
const kWide = {
  width: 640, height: 412,
  supplies: { x: 4, y: 4, width: 170, height: 90, step: 98, columns: 1 },
  spi: { x: 4, y: 300, width: 170, height: 108 },
  sensor: { x: 196, y: 4, width: 132, height: 404 },
  lanes: { along: 'x', from: 328, to: 432, start: 22, step: 33, width: 62, height: 26 },
  fpga: { x: 432, y: 4, width: 204, height: 404 },
};
const kNarrow = {
  width: 340, height: 846,
  supplies: { x: 2, y: 2, width: 336, height: 74, step: 80, columns: 2 },
  spi: { x: 2, y: 732, width: 336, height: 110 },
  sensor: { x: 2, y: 244, width: 336, height: 124 },
  lanes: { along: 'y', from: 368, to: 438, start: 19, step: 27.5, width: 26, height: 40 },
  fpga: { x: 2, y: 438, width: 336, height: 286 },
};

const yes = (flag) => (flag ? 'yes' : 'no');
const volts = (value) => (value === null || value === undefined ? '-' : `${value.toFixed(value < 10 ? 4 : 2)} V`);
const nominal = (name) => /\d\.\d/.exec(name)?.[0] ?? '?';

export function laneWord(lane, link) {
  if (lane.reset) return 'in reset';
  if (lane.locked) return lane.held ? 'locked, held' : 'locked';
  return link.enabled || lane.event !== null ? 'not locked' : 'off';
}

const laneSign = { 'in reset': 'reset', locked: 'lock', 'locked, held': 'held', 'not locked': '\u00d7', off: '-' };

export class HeadDrawing {
  /** @param pressLane is called with a lane's number */
  constructor(place, pressLane) {
    this.place = place;
    this.pressLane = pressLane;
    this.shown = null;
    this.build();
    new ResizeObserver(() => {
      if ((place.clientWidth < kNarrowBelow) !== (this.layout === kNarrow)) {
        this.build();
        if (this.shown) this.show(this.shown);
      }
    }).observe(place);
  }

  build() {
    this.layout = this.place.clientWidth < kNarrowBelow ? kNarrow : kWide;
    const { width, height } = this.layout;
    this.slots = new Map();
    this.picture = svg('svg', { viewBox: `0 0 ${width} ${height}`, class: this.layout === kNarrow ? 'head-drawing narrow' : 'head-drawing', role: 'group',
                                'aria-label': 'Drawing of the head' });
    this.supplies();
    this.sensor();
    this.fpga();
    this.spi();
    this.lanes();
    this.place.replaceChildren(this.picture);
  }

  box({ x, y, width, height }, title, kind = 'box') {
    this.picture.append(svg('rect', { x, y, width, height, rx: 4, class: kind }),
                        svg('text', { x: x + 9, y: y + 18, class: 'title' }, title));
  }

  // A line "label value" that can light up; `key` finds it again.
  slot(key, label, x, y, width) {
    const value = svg('tspan', { class: 'value' });
    const group = svg('g', { class: 'slot', 'data-key': key },
                      svg('rect', { x: x - 3, y: y - 12, width, height: 16, rx: 3, class: 'light' }),
                      svg('text', { x, y }, svg('tspan', { class: 'label' }, label ? `${label} ` : ''), value));
    this.picture.append(group);
    this.slots.set(key, { group, value, text: null });
  }

  supplies() {
    const { x, y, width, height, step, columns } = this.layout.supplies;
    for (let at = 0; at < 3; ++at) {
      const top = y + at * step;
      this.box({ x, y: top, width, height }, '', 'box');
      const half = columns === 2 ? width / 2 - 8 : width - 12;
      const right = columns === 2 ? x + width / 2 : x + 9;
      const lines = columns === 2 ? [20, 40, 60] : [18, 34, 50];
      this.slot(`supply${at}`, '', x + 9, top + lines[0], half);
      this.slot(`supply${at}-volts`, 'is', x + 9, top + lines[1], half);
      this.slot(`supply${at}-measured`, 'measured', x + 9, top + lines[2], half);
      this.slot(`supply${at}-verdict`, '', right, top + (columns === 2 ? 60 : 66), half);
      this.slot(`supply${at}-enable`, '', right, top + (columns === 2 ? 20 : 82), half);
    }
  }

  sensor() {
    const { x, y, width } = this.layout.sensor;
    this.box(this.layout.sensor, 'Sensor', 'box strong');
    const wide = this.layout === kWide;
    const rows = [['sensor', ''], ['doing', ''], ['reset', 'RESET_B'], ['clock', 'clock'], ['triggered', 'triggered']];
    rows.forEach(([key, label], at) => {
      const across = wide ? 0 : Math.floor(at / 3) * (width / 2);
      const down = wide ? at : at % 3;
      this.slot(key, label, x + 9 + across, y + (wide ? 146 : 66) + down * 20, wide ? width - 12 : width / 2 - 10);
    });
    // the array, with its aspect
    const array = wide ? { x: x + 16, y: y + 34, width: 100, height: 79 } : { x: x + width - 68, y: y + 8, width: 58, height: 46 };
    this.picture.append(svg('rect', { ...array, class: 'array' }));
    this.slot('array', '', wide ? x + 20 : x + 70, wide ? y + 78 : y + 36, wide ? 94 : 120);
  }

  fpga() {
    const { x, y, width } = this.layout.fpga;
    this.box(this.layout.fpga, 'FPGA', 'box strong');
    const rows = [['core', 'receiver on', 0], ['pll', 'PLL locked', 0], ['pll-rg', 'PLL rgLocked', 0], ['pll-gb', 'PLL gbLocked', 0],
                  ['aligned', 'aligned', 0], ['locked', 'lanes locked', 0],
                  ['pulses', 'frame starts', 10], ['pulse-length', 'pulse', 10], ['frames', 'frames', 10],
                  ['bad-pixels', 'bad-pixel core runs', 20], ['pixel-shift', 'pixel shift runs', 20],
                  ['pictures', 'pictures', 30]];
    const wide = this.layout === kWide;
    rows.forEach(([key, label, gap], at) => {
      this.slot(key, label, x + 11, y + (wide ? 48 : 44) + at * (wide ? 25 : 18) + gap * (wide ? 1.6 : 0.8), width - 16);
    });
  }

  spi() {
    const { x, y, width } = this.layout.spi;
    this.box(this.layout.spi, 'Ports and checks');
    [['spi', 'SPI'], ['spi-clock', 'SPI'], ['violations', 'violations'], ['failed', 'failed calls'], ['faults', 'faults']].forEach(([key, label], at) => {
      this.slot(key, label, x + 9, y + 37 + at * 16, width - 12);
    });
  }

  lanes() {
    const { along, from, to, start, step, width, height } = this.layout.lanes;
    this.laneParts = [];
    for (let lane = 0; lane < kLanes; ++lane) {
      const across = start + lane * step;
      const line = along === 'x' ? { x1: from, x2: to, y1: across, y2: across } : { x1: across, x2: across, y1: from, y2: to };
      const middle = (from + to) / 2;
      const place = along === 'x' ? { x: middle - width / 2, y: across - height / 2 } : { x: across - width / 2, y: middle - height / 2 };
      const wire = svg('line', { ...line, class: 'lane' });
      const sign = el('span', { class: 'sign' });
      const button = el('button', { type: 'button', class: 'lane-button', 'data-lane': lane, onclick: () => this.pressLane(lane) },
                        el('span', {}, String(lane)), sign);
      this.picture.append(wire, svg('foreignObject', { ...place, width, height }, button));
      this.laneParts.push({ wire, button, sign, word: null });
    }
  }

  set(key, text, tone = '') {
    const slot = this.slots.get(key);
    if (slot.text === text && slot.tone === tone) return;
    if (slot.text !== null) this.light(slot.group);
    slot.text = text;
    slot.tone = tone;
    say(slot.value, text);
    slot.group.dataset.tone = tone;
  }

  light(node) {
    node.classList.remove('changed');
    node.getBoundingClientRect(); // the animation begins anew
    node.classList.add('changed');
    clearTimeout(node.lightTimer);
    node.lightTimer = setTimeout(() => node.classList.remove('changed'), kLightMs);
  }

  /** @param shown {state, past, deadLanes: a set of numbers, picture: its size or null} */
  show(shown) {
    this.shown = shown;
    const { state, past } = shown;
    state.supplies.forEach((supply, at) => {
      const measured = supply.measured;
      const on = supply.enable === 1;
      this.set(`supply${at}`, `${supply.name} ${supply.good ? 'good' : on ? 'NOT GOOD' : 'off'}`, supply.good ? 'good' : on ? 'bad' : '');
      this.set(`supply${at}-volts`, `${volts(supply.volts)} of ${nominal(supply.name)} V`);
      this.set(`supply${at}-measured`, measured ? volts(measured.volts) : '-', measured && !measured.good ? 'bad' : '');
      this.set(`supply${at}-verdict`, measured ? measured.verdict : 'not measured', measured ? (measured.good ? 'good' : 'bad') : '');
      this.set(`supply${at}-enable`, `${supply.enable_line} ${supply.enable ?? '-'}`);
    });
    const { sensor, link, pulses, frames, pipeline } = state;
    this.set('sensor', sensor.awake ? 'awake' : 'asleep', sensor.awake ? 'good' : '');
    this.set('doing', sensor.doing, sensor.doing === 'streaming' ? 'good' : '');
    this.set('reset', state.reset.level === null ? '-' : String(state.reset.level));
    this.set('clock', `${state.clock_mhz} MHz`);
    this.set('triggered', yes(sensor.triggered));
    this.set('array', '2592 x 2056');
    const on = link.enabled;
    // Without a sensor that sends there is nothing to lock onto.
    const expected = on && (sensor.doing === 'streaming' || sensor.doing === 'lanes on');
    const flag = (value) => [yes(value), value ? 'good' : expected ? 'bad' : ''];
    this.set('core', yes(on), on ? 'good' : '');
    this.set('pll', ...flag(link.pll.locked));
    this.set('pll-rg', ...flag(link.pll.rg_locked));
    this.set('pll-gb', ...flag(link.pll.gb_locked));
    this.set('aligned', ...flag(link.aligned));
    const locked = link.lanes.filter((lane) => lane.locked).length;
    this.set('locked', `${locked} of ${kLanes}`, locked === kLanes ? 'good' : expected || locked ? 'bad' : '');
    this.set('pulses', pulses ? `every ${span(pulses.period_ns)}` : 'none');
    this.set('pulse-length', pulses ? `${span(pulses.length_ns)}, ${pulses.low_pulses ? 'low' : 'high'}` : '-');
    this.set('frames', frames ? `every ${span(frames.period_ns)}` : 'none');
    this.set('bad-pixels', yes(pipeline.bad_pixels_run));
    this.set('pixel-shift', yes(pipeline.pixel_shift_runs));
    this.set('pictures', past ? 'not known here' : String(state.process?.pictures ?? 0));
    const spi = state.spi;
    this.set('spi', spi.HZ ? `mode ${spi.MODE}, ${spi.BITS} bits` : '-');
    this.set('spi-clock', spi.HZ ? `${spi.HZ / 1e6} MHz, ${spi.LSB ? 'LSB' : 'MSB'} first` : '-');
    this.set('violations', String(state.violations), state.violations ? 'bad' : '');
    this.set('failed', String(state.failed_calls), state.failed_calls ? 'bad' : '');
    this.set('faults', state.faults.length ? state.faults.join(', ') : 'none', state.faults.length ? 'bad' : '');
    link.lanes.forEach((lane, at) => this.showLane(lane, at, link, shown));
  }

  showLane(lane, at, link, { past, deadLanes }) {
    const part = this.laneParts[at];
    const word = laneWord(lane, link);
    const dead = !past && deadLanes.has(at);
    if (part.word !== null && part.word !== word) this.light(part.button);
    part.word = word;
    part.wire.dataset.state = word;
    part.button.dataset.state = word;
    say(part.sign, dead && word !== 'locked' && word !== 'locked, held' ? 'dead' : laneSign[word]);
    part.button.setAttribute('aria-pressed', String(dead));
    part.button.setAttribute('aria-label', `Lane ${at}: ${word}${dead ? ', made dead' : ''}`);
    part.button.disabled = past;
  }
}
