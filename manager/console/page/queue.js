// The page of one queue: its figures and their course, and how it is defined.

import {grow, keyOf} from './depths.js';
import {Graph} from './graph.js';
import {messages} from './messages.js';
import {faultOf} from './overview.js';
import {byId, define, say, sayIfAny} from './page.js';
import {about, call, Problem} from './requests.js';
import {count, counted, duration, moment, rate, remark, share, since} from './words.js';

const kSlots = 900;
const kStep = 1000;
const figureOf = Object.fromEntries(
    [...document.querySelectorAll('[data-figure]')].map((node) => [node.dataset.figure, node]));

let shown = null;  // {manager, queue}
let definition = null;
let series = null;  // {latest, depth, puts, gets}

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

function showSeries() {
  depthGraph.show([series.depth], series.latest);
  rateGraph.show([series.puts, series.gets], series.latest);
}

function extend(told, time) {
  const passed = Math.round((time - series.latest) / kStep);
  if (passed < 0) return;
  grow(series.depth, passed, told.depth, kSlots);
  grow(series.puts, passed, told.puts_per_second, kSlots);
  grow(series.gets, passed, told.gets_per_second, kSlots);
  // Not the time itself: each second has its own place, however late the figures of one come.
  series.latest += passed * kStep;
}

// ---- The page -----------------------------------------------------------------------------------

function showMissing(words) {
  byId('queue-found').hidden = true;
  for (const node of document.querySelectorAll('#queue .actions.changes')) node.hidden = true;
  showRemark('', words);
}

async function load() {
  const asked = shown;
  try {
    const told = await call('GET', `/queue${about(asked)}`);
    if (asked === shown) showAll(told);
  } catch (problem) {
    if (!(problem instanceof Problem)) throw problem;
    if (asked === shown && problem.status) showMissing(problem.message);
  }
}

// One that was made just now has none.
const seriesOf = (history) => ({
  latest: history ? Date.parse(history.latest) : Date.now(),
  depth: history?.depth ?? [],
  puts: history?.puts_per_second ?? [],
  gets: history?.gets_per_second ?? []
});

function showAll(told) {
  definition = told.definition;
  series = seriesOf(told.history);
  byId('queue-found').hidden = false;
  for (const node of document.querySelectorAll('#queue .actions.changes')) node.hidden = false;
  showFigures(told.queue);
  showDefinition();
  showCounted(told.counted);
  showSeries();
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
      definition = series = null;
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
    shown = null;
  },

  show({time, managers, queues}) {
    if (!series) return;
    const told = queues.find((other) => keyOf(other) === keyOf(shown));
    const manager = managers.find((other) => other.manager === shown.manager);
    if (told) {
      if (byId('queue-found').hidden) return void load();
      showFigures(told);
      extend(told, Date.parse(time));
      showSeries();
    } else if (manager && !manager.reachable) {
      showRemark('', faultOf(manager));
    } else if (manager?.queues_left_out) {
      showRemark(
          '', 'Of so many queues not all are looked at. Load the page again for new figures.',
          false);
    } else if (!byId('queue-found').hidden) {
      load();  // one that was made just now is in none of the figures yet
    }
  },
};
