#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace faults {

/// What happened in a storm, read from the logs of its workers, and whether a queue manager may
/// have done so. A call that has no outcome, because its process died in it, may have happened or
/// not; a unit of work that its process died in before the commit has not.
class History {
public:
  /// Where the server dies, too, calls may end with the loss of the connection.
  explicit History(bool serverDies = false) : m_serverDies(serverDies) {}
  void read(const std::string& log);
  /// What was left on a queue when all workers were gone, in order.
  void left(const std::string& queue, const std::vector<std::string>& names);

  /// Every rule that was broken, one line each; empty when all is well.
  std::vector<std::string> faults();

  struct Counts {
    std::size_t processes = 0, deaths = 0, calls = 0, commits = 0, backouts = 0, unknown = 0;
    std::size_t put = 0, got = 0, left = 0, browsed = 0, longestMs = 0;
    std::size_t broken = 0, gotAgain = 0; ///< calls; messages that a lost unit of work had got
  };
  const Counts& counts() const { return m_counts; }

private:
  /// decided: it counts. undone: it does not. unknown: its process died while it was decided.
  enum class Fate { kDecided, kUndone, kUnknown };
  struct Unit {
    Fate fate = Fate::kUndone;
    std::vector<std::string> puts, gets;
    std::int64_t tried = 0, ended = INT64_MAX;
    bool isLost = true; ///< until it was decided or backed out
  };
  struct Attempt { ///< somebody got a message
    std::size_t unit;
    std::int64_t begin;
  };
  struct Message {
    std::string queue;
    std::size_t unit = 0;
    std::vector<Attempt> attempts;
    bool known = false, left = false, browsed = false;
  };
  struct Reading { ///< what one process got from one queue, in order
    std::int64_t begin, end;
    std::string name;
  };
  class Reader;
  using Report = std::vector<std::string>;

  Fate fateOf(std::size_t unit) const { return m_units[unit].fate; }
  void checkMessage(const std::string& name, const Message& message, Report& report);
  void checkMissing(Report& report) const;
  void resolveUnknown(Report& report);
  void checkOrder(Report& report) const;
  std::string told(const Reading& reading) const;
  void checkBrowses(Report& report);
  bool seen(const Message& message) const;
  std::size_t timesGone(const Message& message) const;
  bool wasHeld(const Reading& reading, const std::string& queue, const Reading& other) const;

  const bool m_serverDies;
  std::vector<Unit> m_units;
  std::map<std::string, Message> m_messages;
  std::map<std::pair<std::string, std::string>, std::vector<Reading>> m_readings;
  struct Browse {
    std::int64_t begin, end;
    std::vector<std::string> names;
  };
  std::vector<Browse> m_browses;
  std::map<std::string, std::vector<std::int64_t>> m_lostGets; ///< begin of gets nobody answered
  std::map<std::string, std::vector<std::string>> m_missing;   ///< by queue
  Report m_odd;
  Counts m_counts;
};

std::ostream& operator<<(std::ostream& out, const History::Counts& counts);

} // namespace faults
