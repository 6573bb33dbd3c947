// The page of one queue: its figures and their course, and how it is defined.

import {grow, keyOf} from './depths.js';
import {Graph} from './graph.js';
import {messages} from './messages.js';
import {faultOf} from './overview.js';
import {byId, define, say, sayIfAny} from './page.js';
import {about, ask, Problem} from './requests.js';
import {count, counted, duration, moment, rate, remark, share, since} from './words.js';

const kSlots = 900;
const kStep = 1000;
const kRefresh = 10000;
const alterButton = document.querySelector('[data-change=alter]');
const figureOf = Object.fromEntries(
    [...document.querySelectorAll('[data-figure]')].map((node) => [node.dataset.figure, node]));

let shown = null;  // {manager, queue}
let definition = null;
let series = null;   // {latest, depth, puts, gets}
let latest = null;   // figures of it
let request = null;  // the one under way, of which the answer is wanted
let requested = 0;

const depthGraph = new Graph(
    byId('depth-graph'),
    {lines: [{name: 'Depth', className: 'first'}], slots: kSlots, least: 1, tell: count});
const rateGraph = new Graph(byId('rate-graph'), {
  lines: [{name: 'Puts/s', className: 'first'}, {name: 'Gets/s', className: 'second'}],
  slots: kSlots,
  least: 0.5,
  tell: rate
});

// ---- Figures ------------------------------------------------------------------------------------

const kRemarkWords = {
  full: 'Full: puts are refused until messages are taken.',
  unread: 'It grows, and nobody reads it.',
};

function remarkWords(told) {
  if (told.remark !== 'shut') return kRemarkWords[told.remark] ?? '';
  const {put_inhibited: puts, get_inhibited: gets} = definition ?? {};
  if (puts && gets) return 'Shut: puts and gets are refused.';
  return `Shut: ${puts ? 'puts are' : gets ? 'gets are' : 'puts or gets are'} refused.`;
}

function showFigures(told) {
  say(figureOf.depth, count(told.depth));
  say(figureOf.share, `${share(told.depth, told.max_depth)} of ${count(told.max_depth)}`);
  say(figureOf.puts, rate(told.puts_per_second));
  say(figureOf.gets, rate(told.gets_per_second));
  say(figureOf.oldest, told.oldest_age_ms === null ? '–' : duration(told.oldest_age_ms));
  for (const figure of ['readers', 'writers', 'uncommitted'])
    say(figureOf[figure], count(told[figure]));
  showRemark(told.remark, remarkWords(told));
}

function showRemark(word, words, isFault = true) {
  byId('queue-remark').dataset.remark = word;
  sayIfAny(byId('queue-remark'), remark(word));
  byId('queue-notice').classList.toggle('alert', isFault);
  sayIfAny(byId('queue-notice'), words);
}

function showDefinition() {
  define(byId('definition'), [
    ['Maximum depth', counted(definition.max_depth, 'message', 'messages')],
    ['Maximum length', counted(definition.max_length, 'byte', 'bytes')],
    ['Default priority', count(definition.default_priority)],
    ['Persistent', definition.persistent ? 'yes' : 'no'],
    ['Puts', definition.put_inhibited ? 'refused' : 'allowed'],
    ['Gets', definition.get_inhibited ? 'refused' : 'allowed'],
    ['Created', moment(definition.created)],
    ['Altered', moment(definition.altered)],
  ]);
}

// A database does not know since when it counts.
const countedWords = (number, from) => (from ? `${count(number)} ${since(from)}` : '');

function showCounted(counts) {
  say(figureOf['put-count'], countedWords(counts.puts, counts.since));
  say(figureOf['get-count'], countedWords(counts.gets, counts.since));
}

// ---- Their course -------------------------------------------------------------------------------

function showSeries({latest: time, depth, puts, gets}) {
  depthGraph.show([depth], time);
  rateGraph.show([puts, gets], time);
}

function extend(told, time) {
  // One that was made just now has none, and begins by the console's clock.
  series.latest ??= time;
  const passed = Math.round((time - series.latest) / kStep);
  if (passed < 0) return;
  grow(series.depth, passed, told.depth, kSlots);
  grow(series.puts, passed, told.puts_per_second, kSlots);
  grow(series.gets, passed, told.gets_per_second, kSlots);
  // Not the time itself: each second has its own place, however late the figures of one come.
  series.latest += passed * kStep;
}

// ---- The page -----------------------------------------------------------------------------------

function forget() {
  definition = series = latest = null;
  alterButton.disabled = true;
}

function showMissing(words) {
  forget();
  byId('queue-found').hidden = true;
  for (const node of document.querySelectorAll('#queue .actions.changes')) node.hidden = true;
  showRemark('', words);
}

async function load() {
  const mine = request = {};
  requested = performance.now();
  try {
    const told = await ask(`/queue${about(shown)}`);
    if (mine === request) showAll(told);
  } catch (problem) {
    if (!(problem instanceof Problem)) throw problem;
    // What is shown stays when it is only not told anew just now.
    const isMissing = problem.status === 404 || (problem.status && !definition);
    if (mine === request && isMissing) showMissing(problem.message);
  } finally {
    if (mine === request) request = null;
  }
}

function refresh() {
  if (!request) load();
}

/// The figures of each second tell nothing of the counts, and of the definition but what follows
/// from it.
const isOutdated = (told) => told.max_depth !== definition.max_depth ||
    (latest && told.remark !== latest.remark) || performance.now() > requested + kRefresh;

const seriesOf = (history) => ({
  latest: history ? Date.parse(history.latest) : null,
  depth: history?.depth ?? [],
  puts: history?.puts_per_second ?? [],
  gets: history?.gets_per_second ?? []
});

function showAll(told) {
  definition = told.definition;
  series = seriesOf(told.history);
  alterButton.disabled = false;
  byId('queue-found').hidden = false;
  for (const node of document.querySelectorAll('#queue .actions.changes')) node.hidden = false;
  showFigures(told.queue);
  showDefinition();
  showCounted(told.counted);
  showSeries(series);
}

export const queue = {
  get shown() {
    return shown;
  },
  get definition() {
    return definition;
  },
  load,

  enter(words) {
    const asked = {manager: words.get('manager') ?? '', queue: words.get('queue') ?? ''};
    const isOther = !shown || keyOf(shown) !== keyOf(asked);
    if (isOther) {
      shown = asked;
      forget();
      define(byId('definition'), []);
      showSeries(seriesOf(null));
      for (const node of Object.values(figureOf)) say(node, '–');
      showRemark('', '');
      say(byId('queue-title'), shown.queue);
      say(byId('queue-manager'), `on ${shown.manager}`);
      byId('export').href = `/api/v1/export${about(shown)}`;
    }
    if (isOther || !series) load();
    document.title = `${shown.queue} – ${shown.manager} – ferry console`;
    messages.enter(shown, Number(words.get('offset')) || 0);
  },

  leave() {
    shown = request = null;
  },

  show({time, managers, queues}) {
    const told = queues.find((other) => keyOf(other) === keyOf(shown));
    const manager = managers.find((other) => other.manager === shown.manager);
    if (!told && byId('queue-found').hidden) return;
    if (told && series) {
      if (isOutdated(told)) refresh();
      latest = told;
      showFigures(told);
      extend(told, Date.parse(time));
      showSeries(series);
    } else if (told) {
      refresh();
    } else if (manager && !manager.reachable) {
      showRemark('', faultOf(manager));
    } else if (manager?.queues_left_out) {
      showRemark(
          '', 'Of so many queues not all are looked at. Load the page again for new figures.',
          false);
    } else {
      refresh();  // one that was made just now is in none of the figures yet
    }
  },
};
