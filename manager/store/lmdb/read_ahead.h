#pragma once

#include "manager/store/store.h"

#include <cstdint>
#include <string>
#include <vector>

namespace bxm {

/// Copies of the messages that come next in a queue, so that reading many does not search the tree
/// for each. They are true as long as no transaction has been committed and nothing has been
/// announced on the queue since they were read; then whoever wants one still has to ask the take
/// map.
class ReadAhead {
public:
  /// Begins anew with what a snapshot of this transaction shows.
  void begin(std::uint64_t transaction, std::uint32_t arrivals) {
    clear();
    m_transaction = transaction;
    m_arrivals = arrivals;
  }
  void clear() {
    m_items.clear();
    m_bytes.clear();
    m_next = 0;
  }
  bool isTrue(std::uint64_t transaction, std::uint32_t arrivals) const {
    return m_transaction == transaction && m_arrivals == arrivals;
  }
  std::uint64_t transaction() const { return m_transaction; }

  /// False when there is no room for the message; wanted is how many are to be kept at the most.
  bool add(const StoredMessage& message, std::size_t wanted) {
    if (m_items.size() >= wanted || m_bytes.size() + message.record.size() > kMostBytes)
      return false;
    m_bytes.append(message.record); // first: an item never is without its bytes
    m_items.push_back(
        {message.position, m_bytes.size() - message.record.size(), message.record.size()});
    return true;
  }

  bool empty() const { return m_next >= m_items.size(); }
  /// The next message; valid until begin or clear.
  StoredMessage next() {
    const Item& item = m_items[m_next++];
    return {item.position, {m_bytes.data() + item.offset, item.size}, 0};
  }
  /// True when what comes next comes right behind a position.
  bool follows(const Position& position) const {
    return m_next > 0 && m_items[m_next - 1].position.sequence == position.sequence &&
           m_items[m_next - 1].position.priority == position.priority;
  }
  /// Leaves a trace of a message that was delivered without being kept.
  void startBehind(const Position& position) {
    m_items.push_back({position, 0, 0});
    m_next = 1;
  }

  /// How many to read ahead: nothing for a single message, more the longer it goes on.
  std::size_t grow() {
    m_wanted = m_wanted == 0 ? 1 : m_wanted < kMostItems ? m_wanted * 4 : kMostItems;
    return m_wanted == 1 ? 0 : m_wanted;
  }

private:
  static constexpr std::size_t kMostBytes = 64 << 10;
  static constexpr std::size_t kMostItems = 512;

  struct Item {
    Position position;
    std::size_t offset, size;
  };
  std::vector<Item> m_items;
  std::string m_bytes;
  std::size_t m_next = 0;
  std::size_t m_wanted = 0;
  std::uint64_t m_transaction = 0;
  std::uint32_t m_arrivals = 0;
};

} // namespace bxm
