// Faults: the usual ones as buttons, any other by a form; which were made and which last.

import { byId, el, say } from './elements.js';
import { get, Paced, post, remove } from './interface.js';

const kRails = ['VDD1.2', 'VDD3.3SVDD', 'VDD3.3AVDDH'];

// The words of a form that stand in backticks are what one types.
function kindText(kind) {
  return kind.split('`').map((part, at) => (at % 2 ? el('code', {}, part) : part));
}

export class FaultPanel {
  /** @param changed is called when faults were made or ended */
  constructor(changed, complain) {
    this.changed = changed;
    this.complain = complain;
    this.made = [];
    this.lasting = [];
    this.over = new Set();
    this.pace = new Paced(250, () => this.fetch(), complain);
    this.buttons();
    byId('fault-form').addEventListener('submit', (event) => {
      event.preventDefault();
      const body = {};
      for (const [name, value] of new FormData(event.target)) if (value.trim() !== '') body[name] = value.trim();
      this.make(body);
    });
  }

  buttons() {
    const rail = el('select', { id: 'fault-rail' }, ...kRails.map((name) => el('option', {}, name)));
    const core = el('select', { id: 'fault-core' }, ...['frame-control', 'pwm', 'pixel-shift', 'bad-pixel'].map((name) => el('option', {}, name)));
    const button = (text, what) => el('button', { type: 'button', onclick: () => this.make({ what: what() }) }, text);
    byId('fault-buttons').append(
      button('PLL lost', () => 'PLL lost'), button('Alignment lost', () => 'alignment lost'),
      el('span', { class: 'together' }, el('label', {}, 'Supply ', rail), button('Too low by 0.3 V', () => `rail ${rail.value} -0.3`),
         button('Droops', () => `rail ${rail.value} droops 0.3 over 20`)),
      button('ADC fails', () => 'ADC fails ENXIO'), button('SPI fails', () => 'SPI fails EIO'),
      el('span', { class: 'together' }, el('label', {}, 'Core ', core), button('Silent', () => `block ${core.value} silent`)));
  }

  clear() {
    this.over.clear();
    this.made = [];
    this.lasting = [];
    this.draw();
  }

  /** "NOTE fault NAME ends" */
  heard(text) {
    const ends = /^NOTE fault (.*) ends$/.exec(text);
    if (ends) this.over.add(ends[1]);
    if (text.startsWith('NOTE fault ')) this.pace.ask();
  }

  async fetch() {
    const { kinds, made, lasting } = await get('/v1/faults');
    Object.assign(this, { made, lasting });
    const list = byId('fault-kinds');
    if (!list.firstChild) {
      list.append(...kinds.map((kind) => el('li', {}, ...kindText(kind))));
      const whats = kinds.flatMap((kind) => [...kind.matchAll(/`([^`]*)`/g)].map((match) => match[1]));
      byId('fault-whats').append(...whats.map((value) => el('option', { value })));
    }
    this.draw();
    this.changed();
  }

  /** Lanes of which a fault of their own lasts or waits. */
  deadLanes() {
    const open = this.made.filter((one) => !this.over.has(one.name));
    return new Map(open.flatMap((one) => {
      const lane = /^lanes (\d+) lost$/.exec(one.what);
      return lane ? [[Number(lane[1]), one.name]] : [];
    }));
  }

  pressLane(lane) {
    const name = this.deadLanes().get(lane);
    if (name === undefined) this.make({ what: `lanes ${lane} lost` });
    else this.end(name);
  }

  make(body) {
    return this.order(() => post('/v1/faults', body));
  }

  end(name) {
    return this.order(async () => {
      await remove(`/v1/faults/${encodeURIComponent(name)}`);
      this.over.add(name);
    });
  }

  async order(work) {
    try {
      await work();
      this.complain(null);
    } catch (error) {
      this.complain(error);
    }
    this.pace.ask();
  }

  draw() {
    const strange = this.lasting.filter((name) => !this.made.some((one) => one.name === name));
    const rows = [...strange.map((name) => ({ name, what: 'of the scenario' })), ...this.made].map((one) => {
      const lasts = this.lasting.includes(one.name);
      const over = !lasts && this.over.has(one.name);
      const when = ['at', 'after', 'for', 'until'].filter((key) => one[key]).map((key) => `${key} ${one[key]}`).join(', ');
      return el('li', { 'data-fault': one.name, class: over ? 'quiet' : null },
                el('span', { class: 'mark' }, over ? 'over' : lasts ? 'lasts' : 'waits'), ' ',
                el('span', { class: 'mono' }, one.what + (when ? `, ${when}` : '')), ' ', el('span', { class: 'quiet' }, one.name), ' ',
                over ? null : el('button', { type: 'button', class: 'small', 'aria-label': `End ${one.name}`, onclick: () => this.end(one.name) }, 'End'));
    });
    const list = byId('fault-list');
    const text = rows.map((row) => row.textContent).join('\n');
    if (text === this.drawn) return; // a button that has the focus keeps it
    this.drawn = text;
    list.replaceChildren(...(rows.length ? rows : [el('li', { class: 'quiet' }, 'None was made.')]));
  }

  say(text) {
    say(byId('fault-list'), text);
  }
}
