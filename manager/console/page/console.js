// Where the page is, who may see it, and the connection to the console.

import {keepFigures} from './changes.js';
import {depths, overview} from './overview.js';
import {byId, say, sayIfAny} from './page.js';
import {place} from './places.js';
import {queue} from './queue.js';
import {ask, call, listen, Problem, whenSignedOut} from './requests.js';

// ---- Places -------------------------------------------------------------------------------------

let current = null;
let isSignedIn = false;

/// A dialog is about the page that it was opened on.
function closeDialogs() {
  for (const dialog of document.querySelectorAll('dialog[open]')) dialog.close();
}

function enter() {
  closeDialogs();
  const {path, words} = place();
  const next = path === '/queue' ? 'queue' : 'overview';
  if (next !== 'queue') queue.leave();
  byId('back').href = overview.address();
  (next === 'queue' ? queue : overview).enter(words);
  const isOther = current !== null && current !== next;
  current = next;
  showPage();
  if (isOther) {
    window.scrollTo(0, 0);
    byId(`${next}-title`).focus({preventScroll: true});
  }
}

function showPage() {
  byId('sign-in').hidden = isSignedIn;
  for (const name of ['overview', 'queue']) byId(name).hidden = !isSignedIn || name !== current;
}

function show(figures) {
  keepFigures(figures);
  depths.add(figures);
  overview.keep(figures);
  (current === 'queue' ? queue : overview).show(figures);
}

// ---- The connection -----------------------------------------------------------------------------

const kStates = {
  connecting: 'Connecting',
  live: 'Live',
  lost: 'Connection lost, trying again',
  out: 'Signed out'
};
const kLongestPause = 5000;
let version = null;
let pause = 0;
let retry = 0;
let attempt = 0;
let hangUp = () => {};

function sayState(state) {
  say(byId('connection'), kStates[state]);
  byId('connection').dataset.state = document.body.dataset.state = state;
}

function letGo() {
  clearTimeout(retry);
  hangUp();
  ++attempt;
}

async function connect() {
  letGo();
  const mine = attempt;
  if (document.body.dataset.state !== 'lost') sayState('connecting');
  try {
    const told = await ask('/console');
    if (mine !== attempt) return;
    // A console of another version has a page of its own.
    if (version !== null && version !== told.version) return void location.reload();
    version = told.version;
    document.body.classList.toggle('may-change', told.allow_changes);
    byId('sign-out').hidden = !(told.needs_token && told.signed_in);
    if (told.needs_token && !told.signed_in) return void askForToken();
    const history = await ask('/history');
    if (mine !== attempt) return;
    depths.seed(history);
    if (!isSignedIn)
      welcome();
    else if (current === 'queue')
      queue.load();
    hangUp = listen(hear, lose);
  } catch (problem) {
    if (!(problem instanceof Problem)) throw problem;
    if (mine === attempt && problem.status !== 401) lose();
  }
}

function hear(figures) {
  pause = 0;
  sayState('live');
  show(figures);
}

function lose() {
  sayState('lost');
  clearTimeout(retry);
  retry = setTimeout(connect, pause);
  pause = Math.min(kLongestPause, pause ? 2 * pause : 500);
}

// ---- Signing in and out -------------------------------------------------------------------------

const form = byId('sign-in-form');

function askForToken() {
  letGo();
  closeDialogs();
  sayState('out');
  document.title = 'Sign in – ferry console';
  isSignedIn = false;
  byId('sign-out').hidden = true;
  showPage();
  form.elements.token.focus();
}

function welcome() {
  isSignedIn = true;
  enter();
}

async function signIn() {
  const fault = form.querySelector('.fault');
  try {
    await call('POST', '/session', {token: form.elements.token.value});
    form.reset();
    fault.hidden = true;
    await connect();
    if (isSignedIn) byId(`${current}-title`).focus();
  } catch (problem) {
    sayIfAny(fault, problem.message);
    form.elements.token.select();
  }
}

async function signOut() {
  try {
    await call('DELETE', '/session');
    askForToken();
  } catch {
    lose();
  }
}

form.addEventListener('submit', (event) => {
  event.preventDefault();
  signIn();
});
byId('sign-out').addEventListener('click', signOut);
byId('skip').addEventListener('click', (event) => {
  event.preventDefault();
  byId('main').focus();
});
window.addEventListener('hashchange', () => {
  if (isSignedIn) enter();
});
// Who does not see the page holds no connection: a browser has but six for all pages of a console.
document.addEventListener('visibilitychange', () => (document.hidden ? letGo() : connect()));
whenSignedOut(askForToken);
if (!document.hidden) connect();
