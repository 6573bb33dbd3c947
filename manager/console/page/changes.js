// The dialogs that change something. Each is a form of index.html; here is what it asks and what
// comes of it.

import {messages} from './messages.js';
import {byId, make} from './page.js';
import {overviewPlace, queuePlace} from './places.js';
import {queue} from './queue.js';
import {about, call} from './requests.js';
import {counted} from './words.js';

let figures = null;
export function keepFigures(latest) {
  figures = latest;
}

// ---- What each of them does ---------------------------------------------------------------------

const kMoved = ({moved}) => `${counted(moved, 'message', 'messages')} moved.`;
const kPurged = ({purged}) => `${counted(purged, 'message', 'messages')} deleted.`;

let offered = {};  // the definition that Alter was opened with

/// renew: gets what is offered. prepare: fills the form. send: asks the server. told: what is said
/// then; without it the dialog closes.
const kChanges = {
  create: {
    prepare: (form) => {
      offerManagers(form.elements.manager);
      form.elements.max_depth.placeholder = '5000';
      form.elements.max_length.placeholder = '4194304';
      form.elements.default_priority.placeholder = '0';
      form.elements.persistent.checked = true;
    },
    send: (values) => call('POST', '/queues', values),
    done: (values) => {
      location.hash = queuePlace(values);
    },
  },
  alter: {
    renew: () => queue.load(),
    prepare: (form) => fill(form, offered = queue.definition),
    send: (values) => call('PATCH', `/queue${about(queue.shown)}`, othersThan(values, offered)),
    done: () => queue.load(),
  },
  put: {
    prepare: (form) => {
      form.elements.as_line.checked = true;
    },
    send: ({text = '', as_line: asLine, expires_in: seconds, ...others}) => call(
        'POST', `/messages${about(queue.shown)}`, {
          text: asLine ? `${text}\n` : text,
          ...others,
          ...(seconds && {expires_in_ms: Math.round(1000 * seconds)})
        }),
    done: () => messages.load(),
  },
  move: {
    prepare: (form) => offerQueues(form.elements.to),
    send: (values) => call('POST', `/move${about(queue.shown)}`, values),
    told: kMoved,
    done: () => messages.load(),
  },
  purge: {
    prepare: demandName,
    send: (values) => call('POST', `/purge${about(queue.shown)}`, values),
    told: kPurged,
    done: () => messages.load(),
  },
  delete: {
    prepare: demandName,
    send: (values) => call('DELETE', `/queue${about(queue.shown)}`, values),
    done: () => {
      location.hash = overviewPlace({});
    },
  },
};

const othersThan = (values, before) =>
    Object.fromEntries(Object.entries(values).filter(([key, value]) => value !== before[key]));

// ---- Filling in ---------------------------------------------------------------------------------

function offer(select, names, chosen) {
  select.replaceChildren(...names.map((name) => new Option(name, name, false, name === chosen)));
}

function offerManagers(select) {
  const managers = (figures?.managers ?? []).filter(({reachable}) => reachable);
  const names = managers.map(({manager}) => manager);
  offer(select, names, managers.find((other) => other.default)?.manager);
}

function offerQueues(select) {
  const {manager, queue: name} = queue.shown;
  const others = (figures?.queues ?? []).filter((other) => other.manager === manager);
  offer(select, others.map((other) => other.queue).filter((other) => other !== name));
}

function fill(form, values) {
  for (const field of form.elements) {
    if (field.type === 'checkbox')
      field.checked = Boolean(values[field.name]);
    else if (field.name)
      field.value = values[field.name] ?? '';
  }
}

function demandName(form) {
  const submit = form.querySelector('[type=submit]');
  submit.disabled = true;
  form.elements.confirm.oninput = () => {
    submit.disabled = form.elements.confirm.value !== queue.shown.queue;
  };
}

/// What is left empty is left out, so that the server decides.
function valuesOf(form) {
  const values = {};
  for (const field of form.elements) {
    if (!field.name) continue;
    if (field.type === 'checkbox')
      values[field.name] = field.checked;
    else if (field.value !== '')
      values[field.name] = field.type === 'number' ? Number(field.value) : field.value;
  }
  return values;
}

// ---- The dialogs --------------------------------------------------------------------------------

function furnish(dialog) {
  const form = dialog.querySelector('form');
  form.querySelector('.settings')?.replaceChildren(byId('settings').content.cloneNode(true));
  const close = make('button', 'Cancel', 'close');
  close.type = 'button';
  close.addEventListener('click', () => dialog.close());
  const fault = make('p', '', 'fault');
  fault.setAttribute('role', 'alert');
  const outcome = make('p', '', 'outcome');
  outcome.id = `${dialog.id}-outcome`;
  close.setAttribute('aria-describedby', outcome.id);
  form.querySelector('footer').prepend(close);
  form.querySelector('footer').before(fault, outcome);
}

async function open(name) {
  const subject = queue.shown;
  await kChanges[name].renew?.();
  // Meanwhile the page may be another one, a dialog be open, or the queue be gone.
  const isLate = document.querySelector(`dialog[open], [data-change=${name}]:disabled`);
  if (isLate || subject !== queue.shown) return;
  const dialog = byId(name);
  const form = dialog.querySelector('form');
  form.reset();
  dialog.classList.remove('done');
  for (const node of dialog.querySelectorAll('.name')) node.textContent = queue.shown?.queue ?? '';
  dialog.querySelector('.fault').textContent = dialog.querySelector('.outcome').textContent = '';
  dialog.querySelector('.close').textContent = 'Cancel';
  form.querySelector('[type=submit]').disabled = false;
  kChanges[name].prepare(form);
  dialog.showModal();
}

async function submit(name) {
  const dialog = byId(name);
  const form = dialog.querySelector('form');
  const fault = dialog.querySelector('.fault');
  const button = form.querySelector('[type=submit]');
  fault.textContent = firstFault(form);
  if (fault.textContent || button.disabled) return;
  const values = valuesOf(form);
  const subject = queue.shown;
  button.disabled = true;
  try {
    const answer = await kChanges[name].send(values);
    if (subject === queue.shown) finish(name, dialog, values, answer);
  } catch (problem) {
    fault.textContent = problem.message;
  }
  button.disabled = false;
}

function firstFault(form) {
  const field = [...form.elements].find((other) => !other.checkValidity());
  if (!field) return '';
  field.focus();
  return `${field.labels[0].firstChild.textContent.trim()}: ${field.validationMessage}`;
}

function finish(name, dialog, values, answer) {
  const {told, done} = kChanges[name];
  if (told) {
    dialog.querySelector('.outcome').textContent = told(answer);
    dialog.classList.add('done');
    dialog.querySelector('.close').textContent = 'Close';
    dialog.querySelector('.close').focus();
  } else {
    dialog.close();
  }
  done(values);
}

for (const name of Object.keys(kChanges)) {
  furnish(byId(name));
  byId(name).querySelector('form').addEventListener('submit', (event) => {
    event.preventDefault();
    submit(name);
  });
}
for (const button of document.querySelectorAll('[data-change]'))
  button.addEventListener('click', () => open(button.dataset.change));
