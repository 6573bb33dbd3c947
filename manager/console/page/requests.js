// The JSON interface of the console, as docs/console.md tells it.

export class Problem extends Error {
  constructor(status, detail) {
    super(detail);
    this.status = status;
  }
}

const kSilence = 10000;

let signedOut = () => {};
export function whenSignedOut(callback) {
  signedOut = callback;
}

async function problemOf(answer) {
  const told = await answer.json().catch(() => ({}));
  return new Problem(
      answer.status, told.detail || told.title || `The console answered ${answer.status}.`);
}

function unreachable() {
  throw new Problem(0, 'The console cannot be reached.');
}

export async function call(method, path, body, signal) {
  const headers =
      method === 'GET' ? {} : {'BX-Console': 'change', 'Content-Type': 'application/json'};
  const how = {method, headers, body: body && JSON.stringify(body), cache: 'no-store', signal};
  const answer = await fetch(`/api/v1${path}`, how).catch(unreachable);
  if (answer.status === 401 && path !== '/session') signedOut();
  if (!answer.ok) throw await problemOf(answer);
  const text = await answer.text().catch(unreachable);
  return text ? JSON.parse(text) : {};
}

/// What is small and not waited for any longer than the figures are.
export const ask = (path) => call('GET', path, undefined, AbortSignal.timeout(kSilence));

/// What names a queue in a request; more may follow.
export function about({manager, queue}, more = {}) {
  return `?${new URLSearchParams({manager, queue, ...more})}`;
}

// ---- What the server tells by itself ------------------------------------------------------------

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
