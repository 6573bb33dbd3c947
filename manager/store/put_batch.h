#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace bxm {

/// Messages that were put and are not stored yet, in the order of the puts. Up to 26 MiB stay in
/// memory, what is beyond goes to an unlinked file in the folder given. Not thread-safe.
class PutBatch {
public:
  explicit PutBatch(std::string folder) : m_folder(std::move(folder)) {}
  ~PutBatch();
  PutBatch(const PutBatch&) = delete;
  PutBatch& operator=(const PutBatch&) = delete;

  /// Throws Failure (2056, 2102) when the file cannot take it, or bad_alloc; the batch is then as
  /// it was.
  void append(std::uint32_t queue, int priority, std::string_view header, std::string_view data,
              bool expires = false);

  struct Entry {
    std::uint32_t queue;
    int priority;
    std::string_view stored; ///< valid during the call
  };
  /// Calls visit for every message in order. Throws Failure when the file cannot be read.
  void forEach(const std::function<void(const Entry&)>& visit) const;
  /// The same in runs of whole items (see message.h), as a log holds them, each valid during the
  /// call; last says that none follows.
  void forEachRun(const std::function<void(std::string_view run, bool last)>& visit) const;

  bool empty() const { return m_counts.empty(); }
  /// About what it takes to store them.
  std::uint64_t bytes() const { return m_fileSize + m_memory.size(); }
  /// How many messages there are for each queue, by priority.
  using Counts = std::array<std::uint64_t, 10>;
  const std::map<std::uint32_t, Counts>& counts() const { return m_counts; }
  void clear();

private:
  void spill();

  std::string m_folder;
  std::string m_memory;
  std::map<std::uint32_t, Counts> m_counts;
  int m_file = -1;
  std::uint64_t m_fileSize = 0;
};

} // namespace bxm
