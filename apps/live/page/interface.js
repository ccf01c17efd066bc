// Requests to the bench, and how often they may be sent.

/** What the interface refused, in its own words. */
export class Refused extends Error {
  constructor(status, text) {
    super(text);
    this.status = status;
  }
}

/** Nobody answers. */
export class Unreachable extends Error {}

async function answerOf(path, options) {
  let answer;
  try {
    answer = await fetch(path, { cache: 'no-store', ...options });
  } catch {
    throw new Unreachable('nobody answers');
  }
  if (answer.ok) return answer;
  let text = `${answer.status} ${answer.statusText}`;
  try {
    text = (await answer.json()).error ?? text;
  } catch { /* no JSON: the status has to do */ }
  throw new Refused(answer.status, text);
}

// The connection may go while the body comes.
async function bodyOf(answer, kind) {
  try {
    return await answer[kind]();
  } catch {
    throw new Unreachable('the answer broke off');
  }
}

export async function get(path) {
  return bodyOf(await answerOf(path), 'json');
}

/** Bytes with the answer's headers. */
export async function getBytes(path) {
  const answer = await answerOf(path);
  return { bytes: await bodyOf(answer, 'arrayBuffer'), headers: answer.headers };
}

export async function post(path, body) {
  const headers = { 'Content-Type': 'application/json' };
  return bodyOf(await answerOf(path, { method: 'POST', headers, body: JSON.stringify(body) }), 'json');
}

export async function remove(path) {
  return bodyOf(await answerOf(path, { method: 'DELETE' }), 'json');
}

const all = [];

/** Work that is asked for at any time, and done one at a time, at most once in an interval [ms], and only while
 * somebody can see the page. */
export class Paced {
  constructor(interval, work, failed) {
    Object.assign(this, { interval, work, failed, wanted: false, busy: false, timer: 0, last: -Infinity });
    all.push(this);
  }

  ask() {
    this.wanted = true;
    this.pump();
  }

  pump() {
    if (!this.wanted || this.busy || this.timer || document.hidden) return;
    const delay = this.last + this.interval - performance.now();
    if (delay > 0) {
      this.timer = setTimeout(() => {
        this.timer = 0;
        this.pump();
      }, delay);
      return;
    }
    this.wanted = false;
    this.busy = true;
    this.last = performance.now();
    this.work().catch(this.failed).finally(() => {
      this.busy = false;
      this.pump();
    });
  }
}

document.addEventListener('visibilitychange', () => all.forEach((one) => one.pump()));
