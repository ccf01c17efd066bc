// Violations and failed calls as they happen, the newest first.

import { byId, el, eventLink, say, seconds } from './elements.js';
import { failed } from './time_line.js';

const kMost = 200;

export class News {
  constructor() {
    this.rules = new Map();
    this.clear();
  }

  clear() {
    this.items = []; // {first, last, time, text, count, rule}, the newest first
    this.gaps = [];
    this.heard = -1;
    byId('news-list').replaceChildren();
    say(byId('news-count'), 'None.');
    this.spoken = 0;
  }

  setRules(list) {
    this.rules = new Map(list.map((rule) => [rule.name, rule]));
    this.draw();
  }

  /** @param events in their order */
  hear(events) {
    let news = false;
    for (const event of events) {
      if (event.event <= this.heard) continue;
      this.heard = event.event;
      if (event.kind !== 'VIOLATION' && event.kind !== 'LOST' && !failed(event)) continue;
      news = true;
      const same = this.items[0];
      if (same && same.text === event.text) {
        ++same.count;
        same.last = event.event;
        continue;
      }
      this.items.unshift({ first: event.event, last: event.event, time: event.time_ns, text: event.text, count: 1,
                           rule: /^VIOLATION ([^:]+):/.exec(event.text)?.[1] ?? null });
      this.items.length = Math.min(this.items.length, kMost);
    }
    if (news && !this.timer) {
      this.timer = setTimeout(() => { // many come at once
        this.timer = 0;
        this.draw();
        if (this.items[0]) say(byId('news-live'), this.items[0].text);
      }, 150);
    }
  }

  gap({ from, next }) {
    this.items.unshift({ first: from, last: next, time: null, text: `events ${from} to ${next - 1} were let go before this page read them`, count: 1, rule: null });
    this.draw();
  }

  count(state, past) {
    const counts = `${state.violations} violations, ${state.failed_calls} failed calls`;
    say(byId('news-count'), past ? `${counts} up to the event that is looked at.` :
        state.violations + state.failed_calls === 0 ? 'None.' : `${counts}.`);
  }

  draw() {
    const opened = new Set([...byId('news-list').querySelectorAll('details[open]')].map((one) => one.dataset.first));
    byId('news-list').replaceChildren(...this.items.map((item) => {
      const rule = this.rules.get(item.rule);
      return el('li', { class: item.rule ? 'violation' : 'failure', 'data-event': item.first },
                el('div', {}, el('span', { class: 'mark' }, item.rule ? 'violation' : item.text.startsWith('LOST') || item.time === null ? 'gap' : 'failed call'), ' ',
                   eventLink(item.first), item.count > 1 ? ` ${item.count} times, last in ` : '', item.count > 1 ? eventLink(item.last) : null,
                   el('span', { class: 'mono quiet' }, item.time === null ? '' : ` ${seconds(item.time)} s`)),
                el('div', { class: 'mono' }, item.text),
                rule ? el('details', { 'data-first': item.first, open: opened.has(String(item.first)) }, el('summary', {}, rule.rule),
                          el('p', {}, el('strong', {}, 'Why: '), rule.reason), el('p', {}, el('strong', {}, 'Instead: '), rule.remedy)) : null);
    }));
  }
}
