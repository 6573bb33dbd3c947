// The JSON interface of the console, as docs/console.md tells it.

export class Problem extends Error {
  constructor(status, detail) {
    super(detail);
    this.status = status;
  }
}

let signedOut = () => {};
export function whenSignedOut(callback) {
  signedOut = callback;
}

async function problemOf(answer) {
  const told = await answer.json().catch(() => ({}));
  return new Problem(
      answer.status, told.detail || told.title || `The console answered ${answer.status}.`);
}

export async function call(method, path, body) {
  const headers =
      method === 'GET' ? {} : {'BX-Console': 'change', 'Content-Type': 'application/json'};
  let answer;
  try {
    answer = await fetch(
        `/api/v1${path}`, {method, headers, body: body && JSON.stringify(body), cache: 'no-store'});
  } catch {
    throw new Problem(0, 'The console cannot be reached.');
  }
  if (answer.status === 401 && path !== '/session') signedOut();
  if (!answer.ok) throw await problemOf(answer);
  const text = await answer.text();
  return text ? JSON.parse(text) : {};
}

/// What names a queue in a request; more may follow.
export function about({manager, queue}, more = {}) {
  return `?${new URLSearchParams({manager, queue, ...more})}`;
}

// ---- What the server tells by itself ------------------------------------------------------------

const kSilence = 10000;

/// Calls `tell` with each set of figures, and `lost` once when no more will come.
export function listen(tell, lost) {
  const source = new EventSource('/api/v1/events');
  let watch;
  const end = () => {
    clearTimeout(watch);
    source.close();
  };
  const giveUp = () => {
    end();
    lost();
  };
  // A connection that died without a word, as after a laptop's sleep, raises no error.
  const waitOn = () => {
    clearTimeout(watch);
    watch = setTimeout(giveUp, kSilence);
  };
  source.addEventListener('figures', (event) => {
    waitOn();
    tell(JSON.parse(event.data));
  });
  source.onerror = giveUp;
  waitOn();
  return end;
}
