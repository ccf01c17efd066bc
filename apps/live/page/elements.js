// Elements of the page. What the head or the interface says goes in as text, never as HTML.

const kSvg = 'http://www.w3.org/2000/svg';

export const byId = (id) => document.getElementById(id);

function filled(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (value === null || value === undefined || value === false) continue;
    if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
    else node.setAttribute(name, value === true ? '' : String(value));
  }
  node.append(...children.filter((one) => one !== null && one !== undefined));
  return node;
}

/** An element with attributes; a function under "onclick" listens. Texts become text nodes. */
export function el(tag, attributes = {}, ...children) {
  return filled(document.createElement(tag), attributes, children);
}

export function svg(tag, attributes = {}, ...children) {
  return filled(document.createElementNS(kSvg, tag), attributes, children);
}

/** Sets text only where it changes, so that a selection stays and nothing is announced twice. */
export function say(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

/** [s], with all digits, as a log has it. */
export function seconds(ns) {
  const whole = Math.floor(ns / 1e9);
  return `${whole}.${String(Math.round(ns - whole * 1e9)).padStart(9, '0')}`;
}

/** "50 ms", "277 ns": the unit that leaves one to three digits before the point. */
export function span(ns) {
  for (const [unit, size] of [['s', 1e9], ['ms', 1e6], ['us', 1e3]]) {
    if (ns >= size) return `${Number((ns / size).toPrecision(7))} ${unit}`;
  }
  return `${ns} ns`;
}

/** A link that takes the time line to an event. */
export function eventLink(number, text = `event ${number}`) {
  return el('a', { href: `#event-${number}`, class: 'mono' }, text);
}
