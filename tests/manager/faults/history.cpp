#include "tests/manager/faults/history.h"

#include "bx/bx.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>

namespace faults {

namespace {

/// "worker-count-pN": putter, number and priority.
struct Name {
  std::string stream; ///< putter and priority
  int number = 0;
  explicit Name(const std::string& name) {
    const auto dash = name.find('-'), priority = name.find("-p");
    number = std::atoi(name.c_str() + dash + 1);
    stream = name.substr(0, dash) + name.substr(priority, 3);
  }
};

bool isExpected(int reason) { return reason == BXRC_NONE || reason == BXRC_NO_MESSAGE_AVAILABLE; }

bool isBroken(int reason) {
  return reason == BXRC_CONNECTION_BROKEN || reason == BXRC_Q_MGR_NOT_AVAILABLE ||
         reason == BXRC_OUTCOME_UNKNOWN;
}

} // namespace

// ---- Reading a log ------------------------------------------------------------------------------

class History::Reader {
public:
  Reader(History& history, std::string process)
      : m_history(history), m_process(std::move(process)) {
    m_unit = newUnit();
  }

  void intent(std::int64_t time, const std::string& what) {
    m_begin = time;
    m_open = true;
    ++m_history.m_counts.calls;
    std::istringstream in(what);
    m_kind = m_queue = m_mode = m_name = "";
    in >> m_kind >> m_queue >> m_mode >> m_name;
    if (m_kind == "put") {
      m_target = m_mode == "s" ? m_unit : newUnit();
      auto& message = m_history.m_messages[m_name];
      message.queue = m_queue;
      message.unit = m_target;
      message.known = true;
      unit(m_target).puts.push_back(m_name);
      if (m_mode == "d") unit(m_target).tried = time;
    }
    if (m_kind == "commit" || m_kind == "disconnect") unit(m_unit).tried = time;
  }

  void outcome(std::int64_t time, std::istringstream& in) {
    int completion = 0, reason = 0;
    in >> completion >> reason;
    m_open = false;
    m_history.m_counts.longestMs =
        std::max(m_history.m_counts.longestMs, static_cast<std::size_t>((time - m_begin) / 1000));
    if (m_history.m_serverDies && isBroken(reason))
      ++m_history.m_counts.broken;
    else if (!isExpected(reason))
      odd(reason);
    if (reason == BXRC_OUTCOME_UNKNOWN) return undecided();
    if (m_kind == "put") put(completion == 0, time);
    if (m_kind == "get" && completion == 0) got(time, in);
    if (m_kind == "browse") browsed(time, in);
    if (m_kind == "commit" || m_kind == "disconnect")
      end(completion == 0 ? Fate::kDecided : Fate::kUndone, completion == 0, time);
    if (m_kind == "backout") end(Fate::kUndone, completion == 0, time);
  }

  /// The log is over: with a call that has no outcome, or after a disconnect.
  void finish() {
    ++m_history.m_counts.processes;
    if (!m_open) return;
    ++m_history.m_counts.deaths;
    undecided();
  }

private:
  void undecided() {
    if (m_kind == "put" && m_mode == "d") unknown(m_target);
    if (m_kind == "get") m_history.m_lostGets[m_queue + m_mode].push_back(m_begin);
    if (m_kind != "commit" && m_kind != "disconnect") return;
    unknown(m_unit);
    m_unit = newUnit();
  }
  Unit& unit(std::size_t number) { return m_history.m_units[number]; }
  std::size_t newUnit() {
    m_history.m_units.emplace_back();
    return m_history.m_units.size() - 1;
  }
  void unknown(std::size_t number) {
    unit(number).fate = Fate::kUnknown;
    ++m_history.m_counts.unknown;
  }
  void odd(int reason) {
    m_history.m_odd.push_back(m_process + ": " + m_kind + " " + m_queue + " ended with " +
                              std::to_string(reason));
  }
  void put(bool good, std::int64_t time) {
    if (!good) m_history.m_messages.erase(m_name), unit(m_target).puts.pop_back();
    if (good && m_mode == "d") unit(m_target).fate = Fate::kDecided, unit(m_target).ended = time;
  }
  void got(std::int64_t time, std::istringstream& in) {
    std::string name;
    in >> name;
    const std::size_t target = m_mode == "s" ? m_unit : newUnit();
    unit(target).gets.push_back(name);
    if (m_mode == "d") unit(target).fate = Fate::kDecided, unit(target).ended = time;
    m_history.m_messages[name].attempts.push_back({target, m_begin});
    m_history.m_readings[{m_process, m_queue}].push_back({m_begin, time, name});
  }
  void browsed(std::int64_t time, std::istringstream& in) {
    Browse browse{m_begin, time, {}};
    for (std::string name; in >> name;) browse.names.push_back(name);
    m_history.m_browses.push_back(std::move(browse));
  }
  void end(Fate fate, bool good, std::int64_t time) {
    auto& counts = m_history.m_counts;
    ++(fate == Fate::kDecided ? counts.commits : counts.backouts);
    unit(m_unit).fate = fate;
    unit(m_unit).ended = time;
    unit(m_unit).isLost = !good;
    m_unit = newUnit();
  }

  History& m_history;
  std::string m_process;
  std::size_t m_unit, m_target = 0;
  std::int64_t m_begin = 0;
  bool m_open = false;
  std::string m_kind, m_queue, m_mode, m_name;
};

void History::read(const std::string& log) {
  Reader reader(*this, log.substr(log.rfind('/') + 1));
  std::ifstream file(log);
  for (std::string line; std::getline(file, line) && !file.eof();) { // it may have died over a line
    std::istringstream in(line);
    std::int64_t time = 0;
    char kind = 0;
    in >> time >> kind;
    if (kind == 'i')
      reader.intent(time, line.substr(line.find(" i ") + 3));
    else
      reader.outcome(time, in);
  }
  reader.finish();
}

void History::left(const std::string& queue, const std::vector<std::string>& names) {
  std::map<std::string, int> last;
  for (const std::string& name : names) {
    Message& message = m_messages[name];
    if (message.left) m_odd.push_back(name + " is left twice on " + queue);
    if (message.known && message.queue != queue)
      m_odd.push_back(name + " was put to " + message.queue + " and is left on " + queue);
    message.left = true;
    ++m_counts.left;
    const Name parts(name);
    if (last[parts.stream] > parts.number) m_odd.push_back(name + " is left out of order");
    last[parts.stream] = parts.number;
  }
}

// ---- Rules --------------------------------------------------------------------------------------

bool History::seen(const Message& message) const {
  return message.left || message.browsed || !message.attempts.empty();
}

/// What became of a unit of work whose process died in its commit shows in what is there.
void History::resolveUnknown(Report& report) {
  for (Unit& unit : m_units) {
    if (unit.fate != Fate::kUnknown) continue;
    const auto isSeen = [&](const std::string& name) { return seen(m_messages[name]); };
    const auto isBack = [&](const std::string& name) { return timesGone(m_messages[name]) > 0; };
    const bool counts = std::any_of(unit.puts.begin(), unit.puts.end(), isSeen);
    const auto back = std::find_if(unit.gets.begin(), unit.gets.end(), isBack);
    if (counts && back != unit.gets.end())
      report.push_back(*back + " came back though its unit of work counts");
    if (counts)
      unit.fate = Fate::kDecided;
    else if (back != unit.gets.end())
      unit.fate = Fate::kUndone;
  }
}

/// How often a message has certainly left the queue, or is there to leave it.
std::size_t History::timesGone(const Message& message) const {
  return static_cast<std::size_t>(
             std::count_if(message.attempts.begin(), message.attempts.end(),
                           [&](const Attempt& a) { return fateOf(a.unit) == Fate::kDecided; })) +
         (message.left ? 1 : 0);
}

void History::checkMessage(const std::string& name, const Message& message, Report& report) {
  if (!message.known) return report.push_back(name + " was never put (a ghost)");
  const std::size_t gone = timesGone(message);
  const bool unknown =
      std::any_of(message.attempts.begin(), message.attempts.end(),
                  [&](const Attempt& a) { return fateOf(a.unit) == Fate::kUnknown; });
  const Fate put = fateOf(message.unit);
  m_counts.put += put == Fate::kDecided;
  m_counts.got += gone - (message.left ? 1 : 0);
  m_counts.gotAgain +=
      gone > 0 &&
      std::any_of(message.attempts.begin(), message.attempts.end(), [&](const Attempt& a) {
        return fateOf(a.unit) == Fate::kUndone && m_units[a.unit].isLost;
      });
  if (gone > 1) report.push_back(name + " was delivered " + std::to_string(gone) + " times");
  if (put == Fate::kUndone && seen(message))
    report.push_back(name + " was backed out and is there");
  if (put == Fate::kDecided && gone == 0 && !unknown) m_missing[message.queue].push_back(name);
}

/// A process that died in a get without a unit of work may have had one message.
void History::checkMissing(Report& report) const {
  for (const auto& [queue, names] : m_missing) {
    const auto lost = m_lostGets.find(queue + "d");
    if (names.size() <= (lost == m_lostGets.end() ? 0 : lost->second.size())) continue;
    for (const std::string& name : names) report.push_back(name + " is lost from " + queue);
  }
}

/// Somebody else had the message when another was got.
bool History::wasHeld(const Reading& reading, const std::string& queue,
                      const Reading& other) const {
  for (const Attempt& attempt : m_messages.at(reading.name).attempts)
    if (attempt.begin != reading.begin && attempt.begin < other.end &&
        m_units[attempt.unit].ended > other.begin)
      return true;
  for (const char* mode : {"s", "d"})
    if (const auto lost = m_lostGets.find(queue + mode); lost != m_lostGets.end())
      for (const std::int64_t begin : lost->second)
        if (begin < other.end) return true;
  return false;
}

/// A reading with all that was done with its message, in microseconds.
std::string History::told(const Reading& reading) const {
  const Message& message = m_messages.at(reading.name);
  const auto unit = [this](std::size_t number) {
    const Unit& of = m_units[number];
    return std::to_string(of.tried) + " to " + std::to_string(of.ended) +
           (of.fate == Fate::kDecided  ? ""
            : of.fate == Fate::kUndone ? " undone"
                                       : " unknown");
  };
  std::string text = reading.name + " (" + std::to_string(reading.begin) + " to " +
                     std::to_string(reading.end) + "; put by " + unit(message.unit);
  for (const Attempt& attempt : message.attempts)
    text += "; got at " + std::to_string(attempt.begin) + " by " + unit(attempt.unit);
  return text + ")";
}

/// Messages of one putter and priority reach a reader in their order, unless the later one to
/// arrive was in somebody else's hands when the other was got.
void History::checkOrder(Report& report) const {
  for (const auto& [where, readings] : m_readings) {
    std::map<std::string, const Reading*> highest;
    for (const Reading& reading : readings) {
      const Name name(reading.name);
      const Reading*& other = highest[name.stream];
      if (!other || Name(other->name).number < name.number)
        other = &reading;
      else if (other->name != reading.name && !wasHeld(reading, where.second, *other))
        report.push_back(where.first + " got " + told(reading) + " after " + told(*other));
    }
  }
}

/// A browse shows nothing that was gone when it began, or not yet put when it ended.
void History::checkBrowses(Report& report) {
  for (const Browse& browse : m_browses) {
    for (const std::string& name : browse.names) {
      ++m_counts.browsed;
      Message& message = m_messages[name];
      message.browsed = true;
      if (!message.known) continue;
      if (m_units[message.unit].tried > browse.end)
        report.push_back(name + " was browsed before its commit");
      for (const Attempt& attempt : message.attempts)
        if (fateOf(attempt.unit) == Fate::kDecided && m_units[attempt.unit].ended < browse.begin)
          report.push_back(name + " was browsed after it was gone");
    }
  }
}

std::vector<std::string> History::faults() {
  Report report = m_odd;
  m_missing.clear();
  checkBrowses(report);
  resolveUnknown(report);
  for (const auto& [name, message] : m_messages) checkMessage(name, message, report);
  checkMissing(report);
  checkOrder(report);
  return report;
}

std::ostream& operator<<(std::ostream& out, const History::Counts& counts) {
  return out << counts.processes << " processes, " << counts.deaths << " died in a call; "
             << counts.calls << " calls, " << counts.broken << " of them broken, " << counts.commits
             << " commits, " << counts.backouts << " backouts, " << counts.unknown
             << " units of work with unknown end; " << counts.put << " messages put, " << counts.got
             << " got, " << counts.gotAgain << " of them again after a lost unit of work, "
             << counts.left << " left, " << counts.browsed << " browsed; longest call "
             << counts.longestMs << " ms";
}

} // namespace faults
