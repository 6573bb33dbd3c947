// The messages of a queue, page by page from its head.

import {byId, define, rowOf, say, sayIfAny} from './page.js';
import {queuePlace} from './places.js';
import {about, call} from './requests.js';
import {clock, count, counted, duration, moment, size} from './words.js';

const kCount = 50;
// From there on the console tells none.
const kMostOffset = 100000;
// As much as a browser lays out without being felt.
const kAtOnce = 50000;

const body = byId('messages').tBodies[0];
let shown = null;
let offset = 0;
let told = null;  // what the rows show
let asked = 0;

// ---- Data as text or hexadecimal ----------------------------------------------------------------

const spaced = (hex) => hex.replace(/(..)(?=.)/g, '$1 ');

function hexLines(bytes) {
  const lines = [];
  for (let at = 0; at < bytes.length; at += 16) {
    const part = [...bytes.subarray(at, at + 16)];
    const hex = part.map((byte) => byte.toString(16).padStart(2, '0')).join(' ').padEnd(47);
    const text =
        part.map((byte) => (byte >= 32 && byte < 127 ? String.fromCharCode(byte) : '.')).join('');
    lines.push(`${at.toString(16).padStart(8, '0')}  ${hex}  ${text}`);
  }
  return lines.join('\n');
}

const bytesOf = (base64) => Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0));

function kindWords({hex, truncated, size: bytes}) {
  const kind = hex === undefined ? '' : 'Not UTF-8, in hexadecimal';
  const cut = truncated ? `the first 1,024 of ${count(bytes)} bytes` : '';
  return [kind, cut].filter(Boolean).join(', ').replace(/^t/, 'T');
}

// ---- Rows ---------------------------------------------------------------------------------------

function rowFor(message, index) {
  const row = rowOf('message-row');
  const [number, identifier, priority, age, expiry, bytes, data, whole] = row.cells;
  const at = told.offset + index;
  number.textContent = count(at + 1);
  identifier.textContent = message.id;
  priority.textContent = message.priority;
  age.textContent = duration(message.age_ms);
  age.title = moment(message.put);
  expiry.textContent = message.expires_in_ms === null ? 'never' : duration(message.expires_in_ms);
  bytes.textContent = size(message.size);
  data.firstElementChild.textContent = message.text?.replace(/\n$/, '') ?? spaced(message.hex);
  sayIfAny(data.lastElementChild, kindWords(message));
  whole.firstElementChild.setAttribute('aria-label', `Show message ${at + 1}`);
  whole.firstElementChild.addEventListener('click', () => showWhole(message.id, at));
  return row;
}

function filter() {
  if (!told) return;
  const part = byId('search').value.toLowerCase();
  const matches = ({id, text, hex}) => !part ||
      [id, text, hex, hex && spaced(hex)].some((data) => data?.toLowerCase().includes(part));
  let matching = 0;
  told.messages.forEach((message, i) => {
    const isShown = matches(message);
    body.rows[i].hidden = !isShown;
    matching += isShown;
  });
  sayShown(part, matching);
}

function sayShown(part, matching) {
  const all = told.messages.length;
  const range = `${count(told.offset + 1)} to ${count(told.offset + all)}`;
  const found = part ? `, ${matching} of them shown` : '';
  say(byId('messages-shown'),
      all ? `${range}${found}, as of ${clock(told.time)}` : `as of ${clock(told.time)}`);
  byId('messages').hidden = !matching;
  sayIfAny(byId('no-messages'), matching ? '' : emptyWords(all));
}

function emptyWords(all) {
  if (all) return 'None of the messages on this page is like that.';
  return told.offset ? 'There are no messages from here on.' : 'The queue is empty.';
}

// ---- Pages --------------------------------------------------------------------------------------

async function load() {
  const mine = ++asked;
  byId('messages-fault').hidden = true;
  try {
    const answer = await call('GET', `/messages${about(shown, {offset, count: kCount})}`);
    if (mine === asked) show({...answer, time: Date.now()});
  } catch (problem) {
    if (mine !== asked) return;
    sayIfAny(byId('messages-fault'), problem.message);
    if (told?.offset !== offset) clear();
  }
}

function show(answer) {
  told = answer;
  body.replaceChildren(...told.messages.map(rowFor));
  allowTurns();
  filter();
}

function clear() {
  told = null;
  body.replaceChildren();
  say(byId('messages-shown'), '');
  byId('messages').hidden = byId('no-messages').hidden = true;
  allowTurns();
}

function allowTurns() {
  byId('previous').disabled = offset === 0;
  byId('next').disabled = !told?.more || offset + kCount > kMostOffset;
}

function turn(by) {
  location.hash = queuePlace(shown, Math.max(0, offset + by) || '');
}

export const messages = {
  load,

  enter(queue, from) {
    if (queue !== shown || from !== offset) byId('search').value = '';
    const isOther = queue !== shown;
    shown = queue;
    offset = from;
    if (isOther) clear();
    load();
  },
};

byId('reload').addEventListener('click', load);
byId('previous').addEventListener('click', () => turn(-kCount));
byId('next').addEventListener('click', () => turn(kCount));
byId('search').addEventListener('input', filter);

// ---- One of them, whole -------------------------------------------------------------------------

const dialog = byId('message');
const part = (selector) => dialog.querySelector(selector);

/// Of several with this identifier the one of the row.
async function showWhole(id, offset) {
  byId('messages-fault').hidden = true;
  try {
    open(await call('GET', `/message${about(shown, {id, offset})}`));
  } catch (problem) {
    sayIfAny(byId('messages-fault'), problem.message);
    byId('messages-fault').scrollIntoView({block: 'nearest'});
  }
}

/// A field as the export tells it, in words where it has some.
function described([key, value]) {
  const name = (key === 'id' ? 'identifier' : key).replaceAll('_', ' ');
  const isTime = key === 'put' || key === 'expires';
  return [name[0].toUpperCase() + name.slice(1), isTime ? moment(value) : String(value)];
}

function open({text, base64, ...descriptor}) {
  const bytes = base64 === undefined ? null : bytesOf(base64);
  define(part('dl'), Object.entries(descriptor).map(described));
  part('pre').classList.toggle('bytes', bytes !== null);
  showPart(bytes ?? text, kAtOnce);
  part('.all').onclick = () => {
    showPart(bytes ?? text, Infinity);
    part('pre').focus();
  };
  offer(new Blob([bytes ?? text]), `${descriptor.id}${bytes ? '.bin' : '.txt'}`);
  dialog.showModal();
}

function showPart(data, most) {
  const isText = typeof data === 'string';
  const some = isText ? data.slice(0, most) : data.subarray(0, Math.min(data.length, most / 4));
  part('pre').textContent = isText ? some : hexLines(some);
  const unit = isText ? ['character', 'characters'] : ['byte', 'bytes'];
  const all = counted(data.length, ...unit);
  const told = some.length < data.length ? `The first ${count(some.length)} of ${all}` : all;
  say(part('p.hint'), isText ? told : `${told}. Not UTF-8, so in hexadecimal`);
  part('.all').hidden = some.length === data.length;
}

function offer(blob, name) {
  const link = part('.save');
  if (link.href) URL.revokeObjectURL(link.href);
  link.href = URL.createObjectURL(blob);
  link.download = name;
}

part('.close').addEventListener('click', () => dialog.close());
dialog.addEventListener('close', () => {
  part('pre').textContent = '';
  URL.revokeObjectURL(part('.save').href);
});
