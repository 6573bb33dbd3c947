#include "tests/manager/faults/promises.h"

#include "tests/manager/faults/peer.h"

#include <algorithm>
#include <set>

namespace faults {

namespace {
constexpr std::size_t kMostBack = 1000;
/// While its reader lives, a message comes back for 100 ms; the rest is for a busy machine.
constexpr std::int64_t kLongestBack = 1'000'000;
} // namespace

Promises::Names Promises::with(char sign, const Names& words) {
  Names names;
  for (const std::string& word : words)
    if (word[0] == sign) names.push_back(word.substr(1));
  return names;
}

bool Promises::contains(const Names& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

void Promises::mark(const std::string& text, std::int64_t micros) {
  const auto words = split(text);
  m_trying = words[0] == "try";
  if (m_trying) {
    m_puts = with('+', words);
    m_gets = with('-', words);
    return;
  }
  const Names direct = with('-', words);
  // Puts and gets of one unit of work are decided together, on the disk.
  const bool final = m_syncFull || !m_puts.empty();
  for (const std::string& name : direct.empty() ? m_gets : direct) {
    std::erase(m_there, name);
    if (!final) m_mayComeBack.push_back({name, micros});
  }
  append(m_there, m_puts);
  append(m_everything, m_puts);
}

/// What is kept has the lower priority.
void Promises::append(Names& order, const Names& names) {
  order.insert(order.end(), names.begin(), names.end());
  std::stable_partition(order.begin(), order.end(),
                        [](const std::string& name) { return name[0] < kKept; });
}

std::string Promises::orderFault(const Names& found) const {
  Names order = m_everything;
  if (m_trying) append(order, m_puts);
  auto place = order.begin();
  for (const std::string& name : found) {
    place = std::find(place, order.end(), name);
    if (place == order.end()) return name + " is there twice, out of order or a ghost";
    ++place;
  }
  return "";
}

/// A message that the call in flight may have got.
bool Promises::mayBeGone(const std::string& name, bool unitCounts) const {
  if (!m_trying) return false;
  if (!m_puts.empty()) return unitCounts && contains(m_gets, name);
  if (!m_gets.empty()) return contains(m_gets, name);
  // The first, or the second while a unit of work has the first.
  return std::find(m_there.begin(), m_there.end(), name) - m_there.begin() < 2;
}

std::string Promises::faultOf(const Names& found, std::int64_t micros) {
  if (std::string fault = orderFault(found); !fault.empty()) return fault;
  const bool unitCounts = m_trying && !m_puts.empty() && contains(found, m_puts.front());
  std::set<std::string> rest(found.begin(), found.end());
  for (const std::string& name : m_there)
    if (rest.erase(name) == 0 && !mayBeGone(name, unitCounts)) return name + " is lost";
  if (m_trying)
    for (const std::string& name : m_puts)
      if ((rest.erase(name) > 0) != unitCounts) return "half of a unit of work is there";
  if (unitCounts)
    for (const std::string& name : m_gets)
      if (contains(found, name)) return name + " came back though its unit of work counts";
  return backFault({rest.begin(), rest.end()}, micros);
}

std::string Promises::backFault(const Names& back, std::int64_t micros) {
  m_mostBack = std::max(m_mostBack, back.size());
  const std::size_t latest = std::min(m_mayComeBack.size(), kMostBack);
  const auto begin = m_mayComeBack.end() - static_cast<std::ptrdiff_t>(latest);
  for (const std::string& name : back) {
    const auto got = std::find_if(begin, m_mayComeBack.end(),
                                  [&](const Got& each) { return each.name == name; });
    if (got == m_mayComeBack.end()) return name + " came back, and was not among the last";
    if (micros - got->micros > kLongestBack) return name + " came back after a second";
  }
  return "";
}

} // namespace faults
