// The page of all queues: a row each, of which only what has changed is touched.

import {Depths, keyOf, kSteps} from './depths.js';
import {Spark} from './graph.js';
import {arrange, byId, make, rowOf, say, sayIfAny} from './page.js';
import {keepPlace, overviewPlace, queuePlace} from './places.js';
import {count, counted, duration, rate, remark, share} from './words.js';

export const depths = new Depths();
const rows = new Map();
const body = byId('queues').tBodies[0];
let latest = null;
let order = {column: 'queue', descending: false};

// ---- Rows ---------------------------------------------------------------------------------------

class Row {
  constructor(told) {
    this.node = rowOf('queue-row');
    [this.name, this.manager, this.depth, this.share, this.puts, this.gets, this.oldest,
     this.readers, this.writers, this.uncommitted, this.graph] = this.node.cells;
    this.link = this.name.querySelector('a');
    this.link.textContent = told.queue;
    this.link.href = queuePlace(told);
    this.manager.textContent = told.manager;
    this.spark = new Spark(this.graph, kSteps);
  }

  show(told) {
    this.told = told;
    this.change = changeOf(depths.of(keyOf(told)));
    sayNumber(this.depth, told.depth, count);
    this.showShare(told);
    sayNumber(this.puts, told.puts_per_second, rate);
    sayNumber(this.gets, told.gets_per_second, rate);
    say(this.oldest, told.oldest_age_ms === null ? '–' : duration(told.oldest_age_ms));
    for (const figure of ['readers', 'writers', 'uncommitted'])
      sayNumber(this[figure], told[figure], count);
    this.showRemark(told.remark);
    this.spark.show(depths.of(keyOf(told)));
    say(this.graph.firstElementChild, `${this.change > 0 ? '+' : ''}${count(this.change)}`);
  }

  showShare({depth, max_depth: most}) {
    say(this.share.lastElementChild, share(depth, most));
    const width = `${Math.min(100, 100 * depth / Math.max(1, most)).toFixed(1)}%`;
    const bar = this.share.firstElementChild.firstElementChild;
    if (bar.style.width !== width) bar.style.width = width;
  }

  showRemark(word) {
    if (this.node.dataset.remark !== word) this.node.dataset.remark = word;
    sayIfAny(this.name.lastElementChild, remark(word));
  }
}

function sayNumber(node, number, words) {
  say(node, words(number));
  node.classList.toggle('nothing', number === 0);
}

function changeOf(values) {
  const known = values.filter((value) => value !== null);
  return known.length ? known.at(-1) - known[0] : 0;
}

function updateRows(queues) {
  const there = new Set();
  for (const told of queues) {
    const key = keyOf(told);
    there.add(key);
    if (!rows.has(key)) rows.set(key, new Row(told));
    rows.get(key).show(told);
  }
  for (const key of [...rows.keys()])
    if (!there.has(key)) rows.delete(key);
}

// ---- Order and filter ---------------------------------------------------------------------------

const kColumns = {
  queue: ({told}) => told.queue,
  manager: ({told}) => told.manager,
  depth: ({told}) => told.depth,
  share: ({told}) => told.depth / Math.max(1, told.max_depth),
  puts: ({told}) => told.puts_per_second,
  gets: ({told}) => told.gets_per_second,
  oldest: ({told}) => told.oldest_age_ms ?? -1,
  readers: ({told}) => told.readers,
  writers: ({told}) => told.writers,
  uncommitted: ({told}) => told.uncommitted,
  change: ({change}) => change,
};
const kTexts = ['queue', 'manager'];

const compare = (a, b) => (a < b ? -1 : a > b ? 1 : 0);

function inOrder(a, b) {
  const of = kColumns[order.column];
  return (order.descending ? compare(of(b), of(a)) : compare(of(a), of(b))) ||
      compare(a.told.queue, b.told.queue) || compare(a.told.manager, b.told.manager);
}

const isOneManager = () => latest.managers.length < 2;

function isWanted({told: {manager, queue, remark: word}}) {
  const name = isOneManager() ? queue : `${manager} ${queue}`;
  return (!byId('only-remarks').checked || word) &&
      name.toLowerCase().includes(byId('filter').value.trim().toLowerCase());
}

// Rows do not jump away from under the hand: those who point into the table or tab through it hold
// them.
const kHold = 2000;
let heldUntil = 0;
for (const event of ['pointermove', 'pointerdown', 'focusin', 'keydown'])
  body.addEventListener(event, () => {
    heldUntil = Date.now() + kHold;
  });

function arranged() {
  const wanted = [...rows.values()].filter(isWanted);
  if (Date.now() > heldUntil) return wanted.sort(inOrder);
  const places = new Map([...body.rows].map((node, i) => [node, i]));
  const placeOf = ({node}) => places.get(node) ?? places.size;
  return wanted.sort((a, b) => placeOf(a) - placeOf(b) || inOrder(a, b));
}

function sortBy(column) {
  const again = order.column === column;
  order = {column, descending: again ? !order.descending : !kTexts.includes(column)};
  changed();
}

function showOrder() {
  for (const button of document.querySelectorAll('[data-sort]')) {
    const header = button.parentElement;
    if (button.dataset.sort !== order.column)
      header.removeAttribute('aria-sort');
    else
      header.setAttribute('aria-sort', order.descending ? 'descending' : 'ascending');
  }
}

/// Filter or order are others: the address tells them, so that a bookmark brings them back.
function changed() {
  heldUntil = 0;
  keepPlace(overviewPlace(words()));
  update();
}

function words() {
  const {column, descending} = order;
  return {
    filter: byId('filter').value.trim(),
    only: byId('only-remarks').checked ? 'remarks' : '',
    sort: column === 'queue' && !descending ? '' : column,
    order: descending ? 'descending' : ''
  };
}

// ---- What is above the rows ---------------------------------------------------------------------

function showTotals(shown, all) {
  const sum = (figure) => shown.reduce((total, {told}) => total + told[figure], 0);
  say(byId('total-queues'),
      shown.length === all ? count(all) : `${count(shown.length)} of ${count(all)}`);
  say(byId('total-depth'), count(sum('depth')));
  say(byId('total-puts'), rate(sum('puts_per_second')));
  say(byId('total-gets'), rate(sum('gets_per_second')));
  const remarks = shown.filter(({told}) => told.remark).length;
  say(byId('total-remarks'), count(remarks));
  byId('total-remarks-box').classList.toggle('alert', remarks > 0);
}

export function faultOf({manager, reachable, fault}) {
  if (reachable) return '';
  return `${manager} cannot be reached${fault ? `: ${fault}` : ''}`.replace(/\.?$/, '.');
}

function restOf({manager, queues_left_out: out}) {
  return out ? `Not shown: ${counted(out, 'more queue', 'more queues')} of ${manager}.` : '';
}

function noticesOf(manager) {
  return [['notice alert', faultOf(manager)], ['notice', restOf(manager)]].filter(
      ([, text]) => text);
}

function showNotices(managers) {
  const told = managers.flatMap(noticesOf);
  const box = byId('notices');
  if (JSON.stringify(told) === box.dataset.told) return;
  box.dataset.told = JSON.stringify(told);
  box.replaceChildren(...told.map(([className, text]) => make('p', text, className)));
}

function emptyWords(shown) {
  if (shown) return '';
  if (rows.size) return 'No queue is like that. Clear the filter to see all.';
  if (!latest.managers.length)
    return 'There is no queue manager yet: bxadm manager create makes one.';
  return latest.managers.some(({reachable}) => reachable) ? 'There are no queues yet.' : '';
}

// ---- The page -----------------------------------------------------------------------------------

function update() {
  if (!latest) return;
  updateRows(latest.queues);
  const shown = arranged();
  arrange(body, shown.map(({node}) => node));
  showOrder();
  showTotals(shown, rows.size);
  showNotices(latest.managers);
  byId('queues').classList.toggle('one-manager', isOneManager());
  byId('queues').hidden = rows.size === 0;
  sayIfAny(byId('no-queues'), emptyWords(shown.length));
}

export const overview = {
  address: () => overviewPlace(words()),

  enter(told) {
    byId('filter').value = told.get('filter') ?? '';
    byId('only-remarks').checked = told.get('only') === 'remarks';
    const column = told.get('sort') ?? 'queue';
    order = {
      column: kColumns[column] ? column : 'queue',
      descending: told.get('order') === 'descending'
    };
    heldUntil = 0;
    document.title = 'Queues – ferry console';
    update();
  },

  show(figures) {
    latest = figures;
    update();
  },

  keep(figures) {
    latest = figures;
  },
};

byId('filter').addEventListener('input', changed);
byId('only-remarks').addEventListener('change', changed);
for (const button of document.querySelectorAll('[data-sort]'))
  button.addEventListener('click', () => sortBy(button.dataset.sort));
