#pragma once

#include "bx/bx.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

namespace bxm {

/// Numbers for objects, counted from 1 and not used again before they run out. Thread-safe; an
/// object in use by another thread outlives its removal.
template <typename Object>
class HandleTable {
public:
  BXLONG add(std::shared_ptr<Object> object) {
    const std::unique_lock lock(m_mutex);
    do m_last = m_last == INT32_MAX ? 1 : m_last + 1;
    while (m_objects.count(m_last) > 0);
    m_objects.emplace(m_last, std::move(object));
    return m_last;
  }

  /// Null when the number names nothing.
  std::shared_ptr<Object> find(BXLONG handle) const {
    const std::shared_lock lock(m_mutex);
    const auto found = m_objects.find(handle);
    return found == m_objects.end() ? nullptr : found->second;
  }

  std::shared_ptr<Object> remove(BXLONG handle) {
    const std::unique_lock lock(m_mutex);
    const auto found = m_objects.find(handle);
    if (found == m_objects.end()) return nullptr;
    auto object = std::move(found->second);
    m_objects.erase(found);
    m_removals.fetch_add(1);
    return object;
  }

  /// find for callers that come again and again with the same handle: remembers the last one of
  /// each thread. An object may live a little longer for that. One table for each type of object.
  std::shared_ptr<Object>& findAgain(BXLONG handle) const {
    static thread_local struct {
      const HandleTable* table = nullptr;
      BXLONG handle = 0;
      std::uint64_t removals = 0;
      std::shared_ptr<Object> object;
    } last;
    const std::uint64_t removals = m_removals.load();
    if (last.table != this || last.handle != handle || last.removals != removals || !last.object) {
      last.object = find(handle);
      last.table = this;
      last.handle = handle;
      last.removals = removals;
    }
    return last.object;
  }

private:
  mutable std::shared_mutex m_mutex;
  std::unordered_map<BXLONG, std::shared_ptr<Object>> m_objects;
  std::atomic<std::uint64_t> m_removals{0};
  BXLONG m_last = 0;
};

} // namespace bxm
