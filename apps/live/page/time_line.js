// All events of the run, one of which is looked at, or the present.

import { byId, el, eventLink, say, seconds } from './elements.js';
import { Paced } from './interface.js';

const kAround = 14; // events shown on either side
const kWave = 150;  // events of the waveform on either side
const kKinds = {
  '': 'all events',
  GPIO: 'GPIO', SPI: 'SPI and its settings', ADC: 'ADC', FPGA: 'FPGA accesses', STATE: 'what the head did',
  NOTE: 'notes and faults', VIOLATION: 'violations', FAILED: 'failed calls', SLEEP: 'sleeps', OPEN: 'files and mappings',
};

export const failed = (event) => event.kind !== 'NOTE' && event.kind !== 'VIOLATION' && event.text.includes(' failed ');

function letsThrough(chosen) {
  const of = (...kinds) => (event) => kinds.includes(event.kind);
  switch (chosen) {
    case '': return () => true;
    case 'SPI': return (event) => event.kind.startsWith('SPI') || event.text.startsWith('STATE SENSOR-');
    case 'ADC': return of('ADC', 'ADC-COMMAND');
    case 'FPGA': return (event) => event.kind === 'READ' || event.kind === 'WRITE' || event.text.startsWith('STATE FPGA-');
    case 'OPEN': return of('OPEN', 'CLOSE', 'MAP', 'UNMAP');
    case 'FAILED': return failed;
    default: return of(chosen);
  }
}

export class TimeLine {
  /** @param choose is called with the number of an event, or null for now */
  constructor(store, choose, complain) {
    this.store = store;
    this.choose = choose;
    this.at = null;
    this.range = byId('event-range');
    byId('event-kind').append(...Object.entries(kKinds).map(([value, text]) => el('option', { value }, text)));
    this.pace = new Paced(150, () => this.list(), complain);
    this.wavePace = new Paced(500, () => this.wave(), complain);
    this.range.addEventListener('input', () => choose(Number(this.range.value)));
    byId('event-kind').addEventListener('change', () => this.pace.ask());
    byId('event-back').addEventListener('click', () => this.move(-1).catch(complain));
    byId('event-on').addEventListener('click', () => this.move(1).catch(complain));
    byId('event-now').addEventListener('click', () => choose(null));
    byId('event-number').addEventListener('change', (event) => {
      if (event.target.value !== '') choose(Number(event.target.value));
    });
    byId('waveform-details').addEventListener('toggle', () => this.wavePace.ask());
    byId('waveform').addEventListener('error', () => this.waveFailed());
    byId('waveform').addEventListener('load', () => {
      byId('waveform').hidden = false;
    });
  }

  clear() {
    this.at = null;
    byId('event-rows').replaceChildren();
    say(byId('event-place'), '');
    byId('waveform').hidden = true;
    byId('waveform').removeAttribute('src');
  }

  /** The place that is looked at, or more has happened. */
  show(at) {
    this.at = at;
    const last = Math.max(this.store.next - 1, this.store.first);
    this.range.min = this.store.first;
    this.range.max = last;
    this.range.value = at ?? last;
    this.range.setAttribute('aria-valuetext', at === null ? `now, event ${last}` : `event ${at}`);
    byId('event-number').max = last;
    if (document.activeElement !== byId('event-number')) byId('event-number').value = at ?? '';
    byId('event-now').disabled = at === null;
    byId('event-on').disabled = at === null;
    this.pace.ask();
    this.wavePace.ask();
  }

  get middle() {
    return this.at ?? this.store.next - 1;
  }

  // To the next event of the chosen kind.
  async move(step) {
    const from = this.at === null ? this.store.next - 1 : this.at + step;
    const { events } = await this.store.near(from, 1, step, letsThrough(byId('event-kind').value));
    if (events.length) this.choose(events[0].event);
    else say(byId('event-place'), step < 0 ? 'None earlier, as far as was looked.' : 'None later, as far as was looked.');
  }

  async list() {
    const { store } = this;
    const middle = this.middle;
    if (store.next === 0 || middle < 0) return;
    const wanted = letsThrough(byId('event-kind').value);
    const before = await store.near(middle - 1, kAround, -1, wanted);
    const after = await store.near(middle, kAround + 1, 1, wanted);
    const events = [...before.events.reverse(), ...after.events];
    byId('event-rows').replaceChildren(...events.map((event) => this.row(event, middle)));
    const current = events.find((event) => event.event === middle) ?? await store.event(middle);
    say(byId('event-place'), `${this.at === null ? 'now: ' : ''}event ${middle} of ${store.first} to ${store.next - 1}` +
        (current ? `, process ${current.process}, ${seconds(current.time_ns)} s` : ', not kept any more'));
    const row = byId('event-rows').querySelector('[aria-current]');
    const box = row?.closest('.scroll');
    if (box) box.scrollTop = row.offsetTop - box.clientHeight / 2;
  }

  row(event, middle) {
    const bad = event.kind === 'VIOLATION' || failed(event);
    return el('tr', { 'data-event': event.event, 'aria-current': event.event === middle ? 'true' : null, class: bad ? 'bad' : null },
              el('td', {}, eventLink(event.event, String(event.event))), el('td', {}, seconds(event.time_ns)),
              el('td', {}, event.text));
  }

  async wave() {
    if (!byId('waveform-details').open || this.store.next === 0) return;
    const from = Math.max(this.store.first, this.middle - kWave);
    const to = Math.min(this.store.next, this.middle + kWave + 1);
    const path = `/v1/waveform.svg?from=${from}&to=${to}`;
    const image = byId('waveform');
    if (image.getAttribute('src') === path) return;
    image.alt = `Waveform of events ${from} to ${to - 1}`;
    image.src = path;
    say(byId('waveform-note'), `Events ${from} to ${to - 1}.`);
  }

  // An image keeps its reason to itself: ask again for it.
  async waveFailed() {
    const image = byId('waveform');
    image.hidden = true;
    const path = image.getAttribute('src');
    if (!path) return;
    try {
      const answer = await fetch(path);
      if (!answer.ok) say(byId('waveform-note'), (await answer.json()).error);
    } catch { /* the connection is told of elsewhere */ }
  }
}
