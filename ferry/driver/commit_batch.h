#pragma once

#include "ferry/queue/queue.h"

#include <vector>

/// The units of work that a loop has open on its queues, kept from growing: each is committed after
/// 1,000 records or 1 MiB of its own, and all of them whenever the loop is to wait or to report.
/// Each queue is a connection of its own, so committing them together would not be cheaper.
///
/// A commit that fails is thrown as VRK_Exception. The queues must outlive the batch.
class CCommitBatch {
public:
  explicit CCommitBatch(const std::vector<CCMEBX*>& aQueues);

  /// A record of that many bytes was put on a queue, or taken from it.
  void Add_v(size_t nQueue, size_t nBytes);
  /// Commits what is open on all queues.
  void Commit_v();

private:
  struct Work {
    CCMEBX* pobQueue;
    size_t nRecords = 0;
    size_t nBytes = 0;
  };
  static void Commit_v(Work& obWork);

  std::vector<Work> m_aWork;
};

/// Commits one queue's unit of work; throws VRK_Exception when that fails.
void CommitOrThrow_v(CCMEBX& obQueue);
