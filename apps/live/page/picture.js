// The picture that goes out. Its words of 16 bits are kept as they are; only what is seen is scaled.

import { byId, el, say, seconds } from './elements.js';
import { get, getBytes, Paced, Refused } from './interface.js';

const kBins = 128;
const kLoupe = 17; // pixels across

// Words come low byte first, whatever the machine.
function wordsOf(bytes) {
  const lowFirst = new Uint8Array(new Uint16Array([1]).buffer)[0] === 1;
  if (lowFirst) return new Uint16Array(bytes);
  const view = new DataView(bytes);
  return Uint16Array.from({ length: bytes.byteLength / 2 }, (unused, at) => view.getUint16(2 * at, true));
}

function statisticsOf(words) {
  const counts = new Uint32Array(65536);
  for (const word of words) ++counts[word];
  let least = 0;
  while (least < 65535 && counts[least] === 0) ++least;
  let most = 65535;
  while (most > 0 && counts[most] === 0) --most;
  let sum = 0;
  for (let word = least; word <= most; ++word) sum += word * counts[word];
  return { counts, least, most, mean: words.length ? sum / words.length : 0 };
}

export class Picture {
  constructor(failed) {
    this.canvas = byId('picture-canvas');
    this.cross = byId('picture-cross');
    this.words = null;
    this.key = '';  // process and count of what is shown
    this.wanted = '';
    this.at = null; // pixel that is read
    this.pace = new Paced(400, () => this.fetch(), failed);
    byId('picture-scale').addEventListener('change', () => this.draw());
    this.canvas.addEventListener('pointermove', (event) => this.point(event));
    this.canvas.addEventListener('pointerdown', (event) => this.point(event));
    this.canvas.addEventListener('keydown', (event) => this.step(event));
    new ResizeObserver(() => this.mark()).observe(this.canvas);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.words && this.histogram());
  }

  clear() {
    this.words = null;
    this.key = this.wanted = '';
    this.at = null;
    for (const id of ['picture-frame', 'picture-below', 'picture-details']) byId(id).hidden = true;
    say(byId('picture-note'), 'No picture yet.');
  }

  /** @param process of the state, or null: a new picture is fetched when one was delivered */
  delivered(process) {
    const wanted = process && process.pictures > 0 ? `${process.number} ${process.pictures}` : '';
    if (wanted === this.wanted) return;
    this.wanted = wanted;
    if (wanted === '') this.clear();
    else this.pace.ask();
  }

  async fetch() {
    let about;
    let raw;
    try {
      [about, raw] = [await get('/v1/picture'), await getBytes('/v1/picture.raw')];
      if (String(about.pictures) !== raw.headers.get('X-Pictures')) about = await get('/v1/picture'); // one came between
    } catch (error) {
      if (!(error instanceof Refused) || error.status !== 404) throw error;
      this.clear();
      say(byId('picture-note'), error.message);
      return;
    }
    this.width = Number(raw.headers.get('X-Width'));
    this.height = Number(raw.headers.get('X-Height'));
    this.words = wordsOf(raw.bytes);
    this.statistics = statisticsOf(this.words);
    this.key = `${about.process} ${raw.headers.get('X-Pictures')}`;
    if (!this.at || this.at.x >= this.width || this.at.y >= this.height) {
      this.at = { x: this.width >> 1, y: this.height >> 1 };
    }
    for (const id of ['picture-frame', 'picture-below', 'picture-details']) byId(id).hidden = false;
    say(byId('picture-note'), `Number ${raw.headers.get('X-Pictures')} of process ${about.process}, at ${seconds(about.time_ns)} s; ` +
        `${this.width} x ${this.height} words of 16 bits.`);
    byId('picture-settings').replaceChildren(
      ...Object.entries(about.settings).map(([name, value]) => el('div', {}, el('dt', {}, name), el('dd', {}, value))));
    this.draw();
    this.canvas.dataset.picture = this.key;
  }

  // Bits that a white pixel has.
  bits() {
    const chosen = byId('picture-scale').value;
    if (chosen !== 'auto') return Number(chosen);
    return [10, 12, 16].find((bits) => this.statistics.most < 2 ** bits);
  }

  shade(word) {
    return Math.min(255, word >> (this.bits() - 8));
  }

  draw() {
    if (!this.words) return;
    const shift = this.bits() - 8;
    this.canvas.width = this.width;
    this.canvas.height = this.height;
    this.canvas.style.aspectRatio = `${this.width} / ${this.height}`;
    const context = this.canvas.getContext('2d');
    const image = context.createImageData(this.width, this.height);
    const pixels = new Uint32Array(image.data.buffer);
    for (let at = 0; at < this.words.length; ++at) {
      const grey = Math.min(255, this.words[at] >> shift);
      pixels[at] = 0xFF000000 | grey * 0x010101;
    }
    context.putImageData(image, 0, 0);
    this.histogram();
    this.read();
  }

  histogram() {
    const canvas = byId('histogram');
    const style = getComputedStyle(canvas);
    const context = canvas.getContext('2d');
    const { counts, least, most, mean } = this.statistics;
    const bits = this.bits();
    const perBin = 2 ** bits / kBins;
    const bins = new Float64Array(kBins);
    for (let word = least; word <= most; ++word) bins[Math.min(kBins - 1, Math.floor(word / perBin))] += counts[word];
    const highest = Math.log1p(Math.max(...bins));
    context.clearRect(0, 0, canvas.width, canvas.height);
    context.fillStyle = style.color;
    const width = canvas.width / kBins;
    bins.forEach((count, at) => {
      const height = highest ? canvas.height * Math.log1p(count) / highest : 0;
      context.fillRect(at * width, canvas.height - height, width - 1, height);
    });
    const white = this.words.length ? 100 * this.words.reduce((sum, word) => sum + (word >= 2 ** bits - 2 ** Math.max(0, bits - 12) ? 1 : 0), 0) / this.words.length : 0;
    say(byId('histogram-text'), `0 to ${2 ** bits - 1}, heights logarithmic. least ${least}, mean ${mean.toFixed(1)}, most ${most}, full ${white.toFixed(2)} %`);
  }

  point(event) {
    if (!this.words) return;
    const box = this.canvas.getBoundingClientRect();
    const place = (offset, length, pixels) => Math.max(0, Math.min(pixels - 1, Math.floor(offset / length * pixels)));
    this.at = { x: place(event.clientX - box.left, box.width, this.width), y: place(event.clientY - box.top, box.height, this.height) };
    this.read();
  }

  step(event) {
    const ways = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
    if (!this.words || !ways[event.key] || event.altKey || event.metaKey) return;
    event.preventDefault();
    const far = event.ctrlKey ? 100 : event.shiftKey ? 10 : 1;
    const [x, y] = ways[event.key];
    this.at = { x: Math.max(0, Math.min(this.width - 1, this.at.x + x * far)), y: Math.max(0, Math.min(this.height - 1, this.at.y + y * far)) };
    this.read();
  }

  read() {
    const { x, y } = this.at;
    const word = this.words[y * this.width + x];
    say(byId('pixel'), `x ${x}, y ${y}: ${word} (0x${word.toString(16).toUpperCase().padStart(4, '0')})`);
    this.mark();
    this.loupe();
  }

  mark() {
    if (!this.at || !this.words) return;
    this.canvas.classList.toggle('enlarged', this.canvas.clientWidth > this.width);
    this.cross.style.left = `${(this.at.x + 0.5) / this.width * 100}%`;
    this.cross.style.top = `${(this.at.y + 0.5) / this.height * 100}%`;
  }

  loupe() {
    const canvas = byId('loupe');
    const context = canvas.getContext('2d');
    const size = canvas.width / kLoupe;
    const half = kLoupe >> 1;
    for (let row = 0; row < kLoupe; ++row) {
      for (let column = 0; column < kLoupe; ++column) {
        const x = this.at.x + column - half;
        const y = this.at.y + row - half;
        const inside = x >= 0 && y >= 0 && x < this.width && y < this.height;
        const grey = inside ? this.shade(this.words[y * this.width + x]) : 0;
        context.fillStyle = inside ? `rgb(${grey},${grey},${grey})` : '#446';
        context.fillRect(column * size, row * size, size, size);
      }
    }
    context.strokeStyle = '#e07000';
    context.lineWidth = 2;
    context.strokeRect(half * size, half * size, size, size);
  }
}
