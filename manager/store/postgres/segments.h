#pragma once

#include "manager/store/postgres/server.h"
#include "manager/store/store.h"

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bxm {

/// One of the tables in which a queue's messages lie, as one session knows it.
struct Segment {
  static constexpr std::int64_t kNothing = std::numeric_limits<std::int64_t>::max();

  int number = 0;
  int place = 0;
  int priorities = 0;                   ///< the bits of those that were ever put
  std::size_t longest = 0;              ///< no message has more bytes of data
  std::array<std::int64_t, 10> floor{}; ///< nothing will ever be available below
  std::array<std::int64_t, 10> start{}; ///< nothing was available below when somebody last looked

  bool mayHold(int priority) const { return (priorities >> priority & 1) != 0; }
};

/// One place where a scan looks: a priority of a segment, from a sequence on.
struct Arm {
  std::size_t segment;
  int priority;
  std::int64_t from;
};

/// The segments of a queue, the oldest first, and the statements over them. What is remembered
/// counts as long as the queue's version is the same; the statements tell when it is not.
class Segments {
public:
  explicit Segments(std::uint32_t queue) : m_queue(static_cast<int>(queue)) {}

  /// Reads them when they were never read or are known to be out of date. False when the queue is
  /// gone.
  bool refresh(Server& server);
  void forget() { m_version = 0; }
  int version() const { return m_version; }
  const std::vector<Segment>& all() const { return m_segments; }
  Segment& at(std::size_t index) { return m_segments.at(index); }
  /// The one that is put into.
  const Segment& last() const { return m_segments.back(); }
  bool isLast(std::size_t index) const { return index + 1 == m_segments.size(); }
  std::size_t longest() const;

  /// Where a scan looks, in queue order; with the starts, or from the floors.
  std::vector<Arm> arms(bool fromStarts) const;
  /// Something was given back: it may be below the starts.
  void forgetStarts();

  /// Takes the first message of the arms; parameters: queue, version, how often messages were given
  /// back or -1, the arms' sequences. One row: version, how often messages were given back, arm,
  /// priority, sequence, stored, transaction, clock. Nothing is taken when the parameters differ.
  const std::string& takeStatement(const std::vector<Arm>& arms, bool exactly);
  /// Locks the first messages of the arms for the transaction; parameters as above, and behind them
  /// how many. Rows: version, how often messages were given back, arm, priority, sequence, stored,
  /// transaction, clock, and where the message lies: the segment's place, and the place in there.
  std::string lockStatement(const std::vector<Arm>& arms) const;
  /// Deletes messages by their places in the table; parameter: these.
  std::string deleteStatement(int place) const;
  /// Tells the first messages behind the arms' sequences that nobody has taken; parameters: queue,
  /// how many, the arms' sequences. Rows: version, clock, priority, sequence, stored.
  std::string lookStatement(const std::vector<Arm>& arms) const;
  /// The first sequence of each arm that is not gone for good.
  std::string remainderStatement(const std::vector<Arm>& arms) const;
  /// The messages that are committed, and those that are put and not committed, as far as others
  /// tell. Nullopt when the queue is gone. Up to half of limit the number need not be of one time.
  std::optional<std::uint64_t> count(Server& server, std::uint64_t limit = 0);

  QueueFigures figures(Server& server);

  std::string tableAt(int place) const;
  std::string tableOf(const Segment& segment) const { return tableAt(segment.place); }
  std::string returned() const { return "returned_" + std::to_string(m_queue); }

private:
  void readFloors(Server& server);
  std::string countStatement() const;
  std::string found(const std::vector<Arm>& arms, bool exactly, const std::string& most) const;
  std::string makeTake(const std::vector<Arm>& arms, bool exactly) const;

  int m_queue;
  int m_version = 0;
  std::vector<Segment> m_segments;
  std::map<std::vector<int>, std::string> m_takes; ///< statements of this version
};

} // namespace bxm
