#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace bxm {

/// An entry of a take map, one for each message by its sequence: free (all zero), taken by or
/// consumed by an access slot, or deleted.
struct TakeEntry {
  enum State : std::uint32_t { kFree = 0, kTaken = 1, kConsumed = 2, kDeleted = 3 };
  static constexpr std::uint32_t make(State state, std::uint32_t access, int priority) {
    return (static_cast<std::uint32_t>(state) << 20) |
           (static_cast<std::uint32_t>(priority) << 16) | (access + 1);
  }
  static constexpr std::uint32_t deleted() { return static_cast<std::uint32_t>(kDeleted) << 20; }
  static constexpr State stateOf(std::uint32_t entry) {
    return static_cast<State>(entry >> 20 & 3);
  }
  static constexpr int priorityOf(std::uint32_t entry) {
    return static_cast<int>(entry >> 16 & 15);
  }
  /// The access slot; only for taken and consumed entries.
  static constexpr std::uint32_t accessOf(std::uint32_t entry) { return (entry & 0xFFFF) - 1; }
};

/// Who has taken which message of one queue: a sparse file of 32-bit entries that all processes
/// map, in pieces, behind a page that tells how far it may be touched. Thread-safe; entries are
/// reached without a lock once their piece is mapped.
class TakeMap {
public:
  /// base: the sequence of the first entry; the same for everybody who opens the file.
  TakeMap(const std::string& folder, std::uint32_t queueId, std::uint64_t base);
  ~TakeMap();
  TakeMap(const TakeMap&) = delete;
  TakeMap& operator=(const TakeMap&) = delete;

  /// The entry's value; 0 where the file has none yet.
  std::uint32_t load(std::uint64_t sequence);
  /// Extends the file to hold an entry. Throws Failure 2056 when the disk is full.
  void reserve(std::uint64_t sequence);
  /// The entry itself, the file extended to hold it. Throws Failure 2056 when the disk is full.
  std::atomic<std::uint32_t>& at(std::uint64_t sequence);
  /// Visits the entries of one access slot between two sequences.
  void forEachOf(
      std::uint32_t access, std::uint64_t lowest, std::uint64_t highest,
      const std::function<void(std::uint64_t sequence, std::atomic<std::uint32_t>& entry)>& visit);
  /// Gives the space of everything below a sequence back to the file system. Only for sequences
  /// below which the durable store holds no message.
  void forget(std::uint64_t below);

private:
  struct Piece {
    std::uint64_t number;
    std::atomic<std::uint32_t>* entries;
    bool touched; ///< since letGo
  };
  std::atomic<std::uint32_t>* piece(std::uint64_t number);
  std::atomic<std::uint32_t>& entry(std::uint64_t index);
  /// Lets go of the pages of all pieces, which stay in the system's cache: who walks through a
  /// long queue should not be seen to hold all of its map.
  void letGo();
  void allocate(std::uint64_t bytes);

  std::string m_path;
  std::uint64_t m_base;
  int m_file = -1;
  std::mutex m_mutex;
  std::map<std::uint64_t, Piece> m_pieces; ///< nodes stay where they are
  std::atomic<const Piece*> m_last{nullptr};
  int m_touched = 0;                                 ///< pieces
  std::atomic<std::uint64_t>* m_allocated = nullptr; ///< in the file's first page
  std::uint64_t m_forgotten = 0;                     ///< bytes
};

/// Removes the file of a deleted queue, or of all queues.
void removeTakeMap(const std::string& folder, std::uint32_t queueId);
void removeTakeMaps(const std::string& folder);

} // namespace bxm
