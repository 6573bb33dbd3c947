#include "manager/store/log/log_reader.h"

#include "manager/base/bytes.h"
#include "manager/store/queue_definition.h"

#include <algorithm>

namespace bxm {

namespace {

constexpr std::size_t kLeastAhead = 4 << 10, kMostAhead = 128 << 10;
/// The longest message with what stands before its data.
constexpr std::size_t kMostPayload = std::size_t{kMessageLengthLimit} + 4096;

} // namespace

std::optional<LogReader::Item> LogReader::read(Place place) {
  if (place.file >= m_files.runtime().fileLimit()) return std::nullopt;
  Window& window = windowFor(place, m_files.runtime().file(place.file).generation.load());
  if (const auto item = readIn(window, place, false)) return item;
  // What was read before the message was written.
  return readIn(window, place, true);
}

LogReader::Window& LogReader::windowFor(Place place, Generation generation) {
  for (Window& window : m_windows)
    if (window.file == place.file && window.generation == generation) return window;
  Window& window = m_windows[m_next++ % m_windows.size()];
  window.file = place.file;
  window.generation = generation;
  window.size = 0;
  return window;
}

std::optional<LogReader::Item> LogReader::readIn(Window& window, Place place, bool anew) {
  const auto holds = [&](std::size_t size) {
    return place.offset >= window.begin && place.offset - window.begin + size <= window.size;
  };
  if ((anew || !holds(sizeof(ItemHeader))) && !load(window, place, sizeof(ItemHeader)))
    return std::nullopt;
  Item item;
  item.header = itemHeaderAt(window.bytes.data() + (place.offset - window.begin));
  if (item.header.size == 0 || item.header.size > kMostPayload) return std::nullopt;
  const std::size_t size = sizeof(ItemHeader) + item.header.size;
  if (!holds(size) && !load(window, place, size)) return std::nullopt;
  item.payload = {window.bytes.data() + (place.offset - window.begin) + sizeof(ItemHeader),
                  item.header.size};
  if (crc32c(item.payload) != item.header.crc) return std::nullopt;
  return item;
}

/// Reads from the place on, more with each time that what follows was wanted; but not ahead of what
/// was written: there stands what an earlier use of the file left.
bool LogReader::load(Window& window, Place place, std::size_t size) const {
  const auto file = m_files.reader(place.file);
  if (!file) return false;
  const bool follows =
      window.size > 0 && place.offset >= window.begin && place.offset <= window.begin + window.size;
  window.ahead = follows ? std::min(window.ahead * 4, kMostAhead) : kLeastAhead;
  const std::uint32_t end = m_files.runtime().file(place.file).end.load();
  const std::size_t written = end > place.offset ? end - place.offset : 0;
  const std::size_t wanted = std::max(std::min(window.ahead, written), size);
  if (window.bytes.size() < wanted || window.bytes.size() > 2 * std::max(wanted, kMostAhead))
    window.bytes = std::string(wanted, '\0');
  window.begin = place.offset;
  window.size = file->read(window.bytes.data(), wanted, place.offset);
  return window.size >= size;
}

} // namespace bxm
