// The last 15 minutes' depth of each queue, in steps of 10 seconds.

export const kSteps = 90;
const kStep = 10000;

export const keyOf = ({manager, queue}) => `${manager} ${queue}`;

/// Lets so much time pass, of which nothing is known, up to a value if there is one. At most `most`
/// are kept.
export function grow(values, passed, value, most) {
  for (let i = 0; i < Math.min(passed, most); ++i) values.push(null);
  if (values.length > most) values.splice(0, values.length - most);
  if (value !== undefined) values[Math.max(0, values.length - 1)] = value;
  return values;
}

export class Depths {
  #series = new Map();
  #step = 0;

  /// What /history tells.
  seed({queues, latest}) {
    this.#series = new Map(queues.map((told) => [keyOf(told), told.depth.slice(-kSteps)]));
    this.#step = Math.floor(Date.parse(latest) / kStep);
  }

  of(key) {
    return this.#series.get(key) ?? [];
  }

  /// Queues that are gone are forgotten, but not those of a manager that cannot be reached just
  /// now.
  add({time, managers, queues}) {
    const step = Math.floor(Date.parse(time) / kStep);
    const passed = Math.max(0, step - this.#step);
    this.#step = step;
    const silent =
        new Set(managers.filter(({reachable}) => !reachable).map(({manager}) => manager));
    const series = new Map();
    for (const [key, values] of this.#series)
      if (silent.has(key.split(' ')[0])) series.set(key, grow(values, passed, undefined, kSteps));
    for (const told of queues)
      series.set(keyOf(told), grow(this.of(keyOf(told)), passed, told.depth, kSteps));
    this.#series = series;
  }
}
