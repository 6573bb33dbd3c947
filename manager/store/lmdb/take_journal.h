#pragma once

#include "manager/store/store.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bxm {

/// What one connection has got for good, on the disk before its commit returns: for managers that
/// are set to full synchronisation. One flush a commit, where a durable transaction needs two.
///
/// A ring of blocks in a file of fixed size. A record begins at a block:
///
///   magic u32 | entries u32 | store id u64 | checksum u64 | message keys, 12 bytes each
///
/// Records are never taken back: after a power cut the messages that they name are deleted, and one
/// that was deleted long before is simply not there, since sequences are not used again.
class TakeJournal {
public:
  static constexpr std::size_t kBlockSize = 512;
  static constexpr std::size_t kBlocks = 2048;

  /// Makes the file, all of it written, or opens the one that an earlier connection left. Throws
  /// Failure.
  TakeJournal(const std::string& folder, std::uint32_t connection, std::uint64_t storeId);
  ~TakeJournal();
  TakeJournal(const TakeJournal&) = delete;
  TakeJournal& operator=(const TakeJournal&) = delete;

  struct Entry {
    std::uint32_t queue;
    Position position;
  };
  /// Writes one record and waits for the disk. Throws Failure.
  void append(const std::vector<Entry>& entries);

  /// True when half of the ring was written since settled(): the messages of the older half must be
  /// deleted for good before more is written.
  bool isHalfFull() const { return m_unsettled >= kBlocks / 2; }
  void settled() { m_unsettled = 0; }

private:
  int m_file = -1;
  std::uint64_t m_storeId;
  std::size_t m_next = 0;
  std::size_t m_unsettled = 0;
  std::string m_record;
};

/// Visits the entries of all journals in a folder. What is not a whole record of this store is
/// passed over.
void readTakeJournals(const std::string& folder, std::uint64_t storeId,
                      const std::function<void(const TakeJournal::Entry&)>& visit);
/// Removes them; only when what they name is deleted for good.
void removeTakeJournals(const std::string& folder);

} // namespace bxm
