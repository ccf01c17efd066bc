// Events by number, fetched in blocks of a thousand: a run may have a million, of which a page keeps few.

import { get } from './interface.js';

const kBlock = 1000;
const kBlocks = 40;

export class EventStore {
  constructor() {
    this.clear();
  }

  clear() {
    this.blocks = new Map(); // by the number of the first event; the least recently used first
    this.first = 0;
    this.next = 0;
    this.generation = (this.generation ?? 0) + 1;
  }

  /** The block with this event; one that was not full is fetched again when more has happened. */
  async block(number) {
    const start = number - number % kBlock;
    let found = this.blocks.get(start);
    if (!found || (found.events.length < kBlock && found.next < Math.min(this.next, start + kBlock))) {
      const generation = this.generation;
      const answer = await get(`/v1/events?from=${start}&limit=${kBlock}`);
      found = { events: answer.events.filter((one) => one.event < start + kBlock),
                next: Math.max(answer.next, this.next > start + kBlock ? start + kBlock : 0) };
      if (generation !== this.generation) return found.events;
      this.first = answer.first_event;
      this.next = Math.max(this.next, answer.next_event);
    }
    this.blocks.delete(start);
    this.blocks.set(start, found);
    if (this.blocks.size > kBlocks) this.blocks.delete(this.blocks.keys().next().value);
    return found.events;
  }

  async event(number) {
    return (await this.block(number)).find((one) => one.event === number) ?? null;
  }

  /** Up to `most` events that `wanted` lets through, from `number` on (or before it, nearest first). Looks at no
   * more than some blocks; `searched` is how far. */
  async near(number, most, step, wanted) {
    const found = [];
    let at = number;
    for (let looked = 0; looked < 20 && found.length < most; ++looked) {
      if (at < this.first || at >= this.next) break;
      const events = await this.block(at);
      const inOrder = step > 0 ? events : [...events].reverse();
      for (const one of inOrder) {
        const right = step > 0 ? one.event >= at : one.event <= at;
        if (right && wanted(one) && found.length < most) found.push(one);
      }
      at = step > 0 ? at - at % kBlock + kBlock : at - at % kBlock - 1;
    }
    return { events: found, searched: at };
  }
}
