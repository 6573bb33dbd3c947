// The document: finding its parts, and touching only what has changed.

export const byId = (id) => document.getElementById(id);

export const rowOf = (template) => byId(template).content.firstElementChild.cloneNode(true);

export function say(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

/// A text that is not there when there is nothing to say.
export function sayIfAny(node, text) {
  say(node, text);
  node.hidden = !text;
}

export function make(name, text = '', className = '') {
  const node = document.createElement(name);
  node.textContent = text;
  if (className) node.className = className;
  return node;
}

/// The list `dl` as told by [term, text] pairs. What is selected in it stays when they are the
/// same.
export function define(list, pairs) {
  const told = JSON.stringify(pairs);
  if (told === list.dataset.told) return;
  list.dataset.told = told;
  list.replaceChildren(...pairs.map(([term, text]) => {
    const pair = document.createElement('div');
    pair.append(make('dt', term), make('dd', text));
    return pair;
  }));
}

/// The children of `parent` in this order. Those in place are not moved, and who had the focus
/// keeps it.
export function arrange(parent, nodes) {
  const focused = document.activeElement;
  const wanted = new Set(nodes);
  for (const node of [...parent.children])
    if (!wanted.has(node)) node.remove();
  let next = parent.firstElementChild;
  for (const node of nodes) {
    // One that went down leaves the others where they are.
    if (node !== next && next?.nextElementSibling === node) {
      const gone = next;
      next = node;
      parent.append(gone);
    }
    if (node === next)
      next = next.nextElementSibling;
    else
      parent.insertBefore(node, next);
  }
  if (focused !== document.activeElement && focused?.isConnected)
    focused.focus({preventScroll: true});
}
