// Where the page is, as the fragment of its address tells it.

export function place() {
  const [path, words] = location.hash.slice(1).split('?');
  return {path: path || '/', words: new URLSearchParams(words)};
}

const fragment = (path, words) => {
  const told = new URLSearchParams(Object.entries(words).filter(([, word]) => word)).toString();
  return `#${path}${told ? `?${told}` : ''}`;
};

export const queuePlace = ({manager, queue}, offset) =>
    fragment('/queue', {manager, queue, offset});

export const overviewPlace = (words) => fragment('/', words);

/// Tells the address bar, without a step in the history.
export function keepPlace(address) {
  if (location.hash !== address) history.replaceState(null, '', address);
}
