#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace faults {

/// What queues hold, as a browse tells it; a queue that is not there has no entry.
using Queues = std::map<std::string, std::vector<std::string>>;

/// The queues of a manager and one unit of work, as the contract has them, for one client that is
/// told the same words as the program.
class Model {
public:
  /// What is committed.
  const Queues& committed() const { return m_committed; }
  /// Does what the words ask for. read: the name that a get returned.
  void apply(const std::string& words, const std::string& read = "");
  /// The name that a get would return; empty when there is none.
  std::string first(const std::string& queue) const;

private:
  struct Item {
    std::string queue, name;
    int priority = 0;
  };
  void append(const Item& item);
  void commit();

  Queues m_committed;
  std::map<std::string, int> m_priorities;
  std::vector<Item> m_puts, m_takes;
};

} // namespace faults
