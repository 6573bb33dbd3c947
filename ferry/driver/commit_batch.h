#pragma once

#include "ferry/queue/queue.h"

#include <vector>

/// The units of work that a loop has open on its queues, kept from growing: they are committed
/// together after 1,000 records or 1 MiB, and whenever the loop is to wait or to report.
///
/// A commit that fails is thrown as VRK_Exception. The queues must outlive the batch.
class CCommitBatch {
public:
  explicit CCommitBatch(std::vector<CCMEBX*> aQueues) : m_aQueues(std::move(aQueues)) {
    m_aPending.resize(m_aQueues.size());
  }

  /// A record of that many bytes was put on a queue, or taken from it.
  void Add_v(size_t nQueue, size_t nBytes);
  void Commit_v();

private:
  const std::vector<CCMEBX*> m_aQueues;
  std::vector<bool> m_aPending;
  size_t m_nRecords = 0;
  size_t m_nBytes = 0;
};

/// Commits one queue's unit of work; throws VRK_Exception when that fails.
void CommitOrThrow_v(CCMEBX& obQueue);
