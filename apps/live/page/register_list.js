// Registers by name, what they hold, and which event wrote them.

import { byId, el, eventLink, seconds } from './elements.js';

const hex = (value) => (value === null ? 'nothing' : `0x${value.toString(16).toUpperCase().padStart(8, '0')}`);

// Names and meanings of a register, for the search.
const wordsOf = (row) => [row.address, row.hex, row.block ?? '', ...row.fields.flatMap((one) => [one.name, one.meaning])]
  .join(' ').toLowerCase();

export class RegisterList {
  constructor(store) {
    this.store = store;
    this.shown = null;
    this.texts = new Map(); // of events, by number
    for (const [id, kind] of [['register-find', 'input'], ['register-order', 'change']]) {
      byId(id).addEventListener(kind, () => this.draw());
    }
  }

  clear() {
    this.shown = null;
    this.texts.clear();
    for (const id of ['register-differences', 'register-sensor', 'register-fpga']) byId(id).replaceChildren();
  }

  show(registers) {
    this.shown = registers;
    this.draw();
  }

  draw() {
    if (!this.shown) return;
    const wanted = byId('register-find').value.trim().toLowerCase();
    const byEvent = byId('register-order').value === 'event';
    const { sensor, fpga } = this.shown;
    const last = Math.max(-1, ...sensor.map((row) => row.event), ...fpga.map((row) => row.event));
    const rows = (list) => {
      const found = list.filter((row) => wordsOf(row).includes(wanted));
      if (byEvent) found.sort((one, other) => other.event - one.event);
      return found.length ? found.map((row) => this.row(row, row.event === last))
                          : [el('tr', {}, el('td', { colspan: 4, class: 'quiet' }, list.length ? 'None of that name.' : 'Nothing is known yet.'))];
    };
    this.differences(sensor);
    byId('register-sensor').replaceChildren(...rows(sensor));
    byId('register-fpga').replaceChildren(...rows(fpga));
  }

  row(row, newest) {
    const fields = row.fields.map((one) => el('div', {}, el('span', { class: 'mono' }, `${one.name} ${one.value}`),
                                              el('span', { class: 'quiet' }, ` ${one.meaning}`)));
    const where = row.area === undefined ? row.block ?? null : `area ${row.area}`;
    return el('tr', { 'data-address': row.address, class: newest ? 'newest' : null },
              el('th', { scope: 'row', class: 'mono' }, row.address, where ? el('div', { class: 'quiet' }, where) : null),
              el('td', { class: 'mono' }, row.hex, el('div', { class: 'quiet' }, String(row.value))),
              el('td', {}, ...(fields.length ? fields : [el('span', { class: 'quiet' }, 'no field has a name')])),
              el('td', {}, this.writer(row), newest ? el('div', { class: 'mark' }, 'last change') : null));
  }

  // Event, time, and on demand the event's own words.
  writer(row) {
    const text = el('div', { class: 'mono said' }, this.texts.get(row.event) ?? '');
    const button = el('button', { type: 'button', class: 'small', 'aria-label': `What event ${row.event} said of ${row.address}`,
                                  onclick: () => this.tell(row.event, text) }, 'who');
    return el('div', {}, eventLink(row.event), ' ', this.texts.has(row.event) ? null : button,
              el('div', { class: 'mono quiet' }, `${seconds(row.time_ns)} s`), text);
  }

  async tell(number, text) {
    const event = await this.store.event(number).catch(() => null);
    const said = event ? `process ${event.process}: ${event.text}` : 'this event is not kept any more';
    if (event) this.texts.set(number, said);
    text.textContent = said;
  }

  differences(sensor) {
    const { differences } = this.shown;
    const place = byId('register-differences');
    if (!differences.length) {
      place.replaceChildren(el('p', { class: 'quiet' }, 'The sensor holds what the program sent.'));
      return;
    }
    const nameOf = (address) => sensor.find((row) => row.address === address)?.fields.map((one) => one.name).join(', ') ?? '';
    place.replaceChildren(
      el('h3', { class: 'bad' }, `The sensor holds something else than was sent: ${differences.length}`),
      el('table', {}, el('thead', {}, el('tr', {}, ...['Register', 'Sent', 'Holds', 'Sent in'].map((one) => el('th', { scope: 'col' }, one)))),
         el('tbody', {}, ...differences.map((one) => el('tr', { 'data-difference': one.address },
           el('th', { scope: 'row', class: 'mono' }, one.address, el('div', { class: 'quiet' }, nameOf(one.address))),
           el('td', { class: 'mono' }, hex(one.sent)), el('td', { class: 'mono bad' }, hex(one.sensor)),
           el('td', {}, eventLink(one.event)))))));
  }
}
