// Numbers, times and durations as people read them.

const grouped = new Intl.NumberFormat('en', {maximumFractionDigits: 0});
const oneDecimal =
    new Intl.NumberFormat('en', {minimumFractionDigits: 1, maximumFractionDigits: 1});
const percentage = new Intl.NumberFormat('en', {maximumSignificantDigits: 2});

export const count = (number) => grouped.format(number);

export const counted = (number, one, many) => `${count(number)} ${number === 1 ? one : many}`;

export const rate = (perSecond) =>
    perSecond > 0 && perSecond < 10 ? oneDecimal.format(perSecond) : count(perSecond);

export function share(part, whole) {
  const percent = whole > 0 ? 100 * part / whole : 0;
  if (percent > 0 && percent < 0.1) return '< 0.1 %';
  // What is nearly full is not told to be full.
  return `${
      percent > 10 ? count(percent < 100 ? Math.floor(percent) : percent) :
                     percentage.format(percent)} %`;
}

export function duration(milliseconds) {
  const seconds = milliseconds / 1000;
  if (seconds < 1) return '< 1 s';
  if (seconds < 60) return `${Math.floor(seconds)} s`;
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min`;
  if (seconds < 48 * 3600) return `${Math.floor(seconds / 3600)} h`;
  return `${count(Math.floor(seconds / 86400))} d`;
}

export function size(bytes) {
  if (bytes < 10000) return `${count(bytes)} B`;
  if (bytes < 1000 * 1024) return `${count(bytes / 1024)} KiB`;
  return `${oneDecimal.format(bytes / 1024 / 1024)} MiB`;
}

export const clock = (time) => new Date(time).toLocaleTimeString('en-GB');

const dayOf = (date) => [date.getFullYear(), date.getMonth() + 1, date.getDate()]
                            .map((number) => String(number).padStart(2, '0'))
                            .join('-');

export const moment = (time) => `${dayOf(new Date(time))} ${clock(time)}`;

/// As short as it can be: the time of today, or the day.
export function since(time) {
  const day = dayOf(new Date(time));
  return `since ${day === dayOf(new Date()) ? clock(time) : day}`;
}

const kRemarks = {
  full: 'Full',
  shut: 'Shut',
  unread: 'Grows unread'
};
export const remark = (word) => kRemarks[word] ?? word;
