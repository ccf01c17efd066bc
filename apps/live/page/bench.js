// The bench: follows the run, shows its head now or at an event of the past.

import { byId, say, seconds } from './elements.js';
import { EventStore } from './event_store.js';
import { FaultPanel } from './fault_panel.js';
import { HeadDrawing } from './head_drawing.js';
import { get, Paced, post, Refused, Unreachable } from './interface.js';
import { News } from './news.js';
import { Picture } from './picture.js';
import { RegisterList } from './register_list.js';
import { TimeLine } from './time_line.js';

const kRetryMs = 700;
const kHeartbeatMs = 1000;
const kLookBack = 5000; // events that are read for news when the page begins

const bench = {
  run: null,    // text that no other run has
  stream: null,
  next: 0,      // event that the stream is to go on with
  at: null,     // event that is looked at; null: now
  status: null, // of the ended program
  process: null,
  tries: 0,
};

function connection(state, text) {
  byId('connection').dataset.state = state;
  say(byId('connection-text'), text);
  document.title = state === 'connected' ? 'Bench' : `Bench: ${text}`;
}

function complain(error) {
  if (error === null) {
    say(byId('complaint'), '');
  } else if (error instanceof Unreachable) {
    lost();
  } else if (error instanceof Refused) {
    say(byId('complaint'), error.message);
  } else {
    console.error(error);
    say(byId('complaint'), String(error));
  }
}

const store = new EventStore();
const news = new News();
const picture = new Picture(complain);
const registers = new RegisterList(store);
const faults = new FaultPanel(() => redraw(), complain);
const drawing = new HeadDrawing(byId('drawing'), (lane) => faults.pressLane(lane));
const timeLine = new TimeLine(store, choose, complain);

const query = () => (bench.at === null ? '' : `?at=${bench.at}`);
const statePace = new Paced(100, readState, complain);
const registerPace = new Paced(300, readRegisters, complain);

async function readState() {
  const at = bench.at;
  const state = await get(`/v1/state${query()}`);
  if (at !== bench.at) return; // somebody went elsewhere meanwhile
  bench.state = state;
  bench.process = state.process;
  redraw();
}

async function readRegisters() {
  const at = bench.at;
  const all = await get(`/v1/registers${query()}`);
  if (at === bench.at) registers.show(all);
}

function redraw() {
  const { state, at } = bench;
  if (!state) return;
  drawing.show({ state, past: at !== null, deadLanes: faults.deadLanes() });
  news.count(state, at !== null);
  picture.delivered(bench.process);
  showTime(bench.process, at === null ? state.time_ns : null);
  byId('drawing').dataset.event = state.event ?? '';
  if (at !== null) say(byId('past-text'), `event ${at}, ${seconds(state.time_ns)} s. Drawing and registers show the head behind this event; the picture is the latest one.`);
}

function showTime(process, timeNs) {
  const real = process?.time === 'real';
  const running = process?.running ?? false;
  say(byId('time-kind'), process ? `${process.time} time` : 'no program uses the head');
  if (timeNs !== null) say(byId('time-now'), `${seconds(timeNs)} s`);
  const may = running && !real;
  byId('time-stop').disabled = !may || process.stopped;
  byId('time-step').disabled = !may;
  byId('time-go').disabled = !may || !process.stopped;
  say(byId('time-note'), !process ? '' : real ? 'real time cannot be stopped' : !running ? 'not running' : process.stopped ? 'stopped' : 'running');
}

// The past, or now.
function choose(at) {
  const number = at === null ? null : Math.max(store.first, Math.min(store.next - 1, Math.trunc(at)));
  const hash = number === null ? '#now' : `#event-${number}`;
  if (location.hash !== hash) history.replaceState(null, '', hash);
  goTo(number);
}

function goTo(at) {
  bench.at = at;
  byId('past').hidden = at === null;
  document.body.classList.toggle('in-past', at !== null);
  timeLine.show(at);
  statePace.ask();
  registerPace.ask();
}

function fromHash() {
  const found = /^#event-(\d+)$/.exec(location.hash);
  if (found) choose(Number(found[1]) < store.next ? Number(found[1]) : null);
  else if (location.hash === '#now' || location.hash === '') goTo(null);
}

function ended(status) {
  bench.status = status;
  connection('ended', `the program has ended with status ${status}`);
  statePace.ask();
}

function take(events) {
  bench.next = events[events.length - 1].event + 1;
  store.next = Math.max(store.next, bench.next);
  news.hear(events);
  for (const event of events) if (event.kind === 'NOTE') faults.heard(event.text);
  if (bench.at === null) {
    statePace.ask();
    registerPace.ask();
  }
  timeLine.show(bench.at);
}

// Another run, at the address of the one before.
function begin(about) {
  bench.run = about.run;
  bench.next = Math.max(about.first_event, about.next_event - kLookBack);
  bench.status = null;
  bench.state = null;
  bench.process = null;
  for (const part of [store, news, picture, registers, timeLine, faults]) part.clear();
  store.first = about.first_event;
  store.next = about.next_event;
  const [program, ...rest] = about.program;
  const words = [(program ?? '').replace(/^.*\//, ''), ...rest];
  say(byId('program'), `${words.join(' ')}${about.scenario ? ` on ${about.scenario}` : ''}`);
  byId('program').title = about.program.join(' ');
  document.body.dataset.run = about.run;
  faults.pace.ask();
  get('/v1/rules').then((rules) => news.setRules(rules)).catch(complain);
}

async function connect() {
  clearTimeout(bench.retry);
  bench.retry = 0;
  let about;
  try {
    about = await get('/v1');
  } catch (error) {
    if (error instanceof Refused) complain(error);
    again();
    return;
  }
  bench.tries = 0;
  complain(null);
  const first = bench.run === null;
  const anew = about.run !== bench.run;
  if (anew) begin(about);
  store.first = about.first_event;
  store.next = Math.max(store.next, about.next_event);
  connection('connected', 'connected');
  if (about.status !== null) ended(about.status);
  follow();
  if (first) fromHash();
  else if (anew) choose(null); // an event of the run before means nothing here
  statePace.ask();
  registerPace.ask();
  timeLine.show(bench.at);
}

function follow() {
  bench.stream?.close();
  const stream = new EventSource(`/v1/stream?from=${bench.next}`);
  bench.stream = stream;
  stream.addEventListener('events', (message) => take(JSON.parse(message.data)));
  stream.addEventListener('gap', (message) => news.gap(JSON.parse(message.data)));
  stream.addEventListener('end', (message) => ended(JSON.parse(message.data).status));
  // The browser would go on with the number of an event of this run, at whatever run is there then.
  stream.addEventListener('error', () => {
    if (bench.stream === stream) lost();
  });
}

function lost() {
  bench.stream?.close();
  bench.stream = null;
  again();
}

function again() {
  if (bench.retry) return;
  ++bench.tries;
  const before = bench.status === null ? '' : `the program has ended with status ${bench.status}; `;
  connection('lost', `${before}connection lost, trying again (${bench.tries})`);
  bench.retry = setTimeout(connect, kRetryMs);
}

// Pictures are counted, and time stops, without an event.
const heartbeat = new Paced(kHeartbeatMs, async () => {
  if (!bench.stream) return;
  const now = await get('/v1/time');
  bench.process = now.number ? now : null;
  picture.delivered(bench.process);
  showTime(bench.process, bench.at === null ? now.time_ns : null);
  if (bench.state && bench.at === null && JSON.stringify(bench.state.process?.pictures) !== JSON.stringify(now.pictures)) statePace.ask();
}, complain);
setInterval(() => heartbeat.ask(), kHeartbeatMs);

for (const action of ['stop', 'step', 'go']) {
  byId(`time-${action}`).addEventListener('click', async () => {
    try {
      await post('/v1/time', { action });
      complain(null);
    } catch (error) {
      complain(error);
    }
    heartbeat.ask();
    statePace.ask();
  });
}
window.addEventListener('hashchange', fromHash);
connect();
