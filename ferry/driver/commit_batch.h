#pragma once

#include "ferry/errors/exception.h"
#include "ferry/queue/queue.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

/// The units of work that a loop has open on its queues, and the account of what counts on them.
///
/// Each is committed when it holds 1,000 records or 1 MiB and at least four times as long has
/// passed since the last commit as that one took, whichever queue's it was: a slow disk costs no
/// more than a fifth of the time. Whatever that means it is committed after 100 ms, so that readers
/// get what they wait for, and at 16 MiB, which several queues share. The clock is looked at every
/// 8 lines or 64 KiB: a unit may be older and larger by as much as these take. All of them are
/// committed whenever the loop is to wait or to report. Each queue is a connection of its own, so
/// committing them together would not be cheaper.
///
/// When a commit fails, the others are still made, but for what begins behind it in an input that
/// is given back: it would be sent twice. Then one VRK_Exception tells how many records count on
/// each queue, and the batch takes no more. The queues must outlive it.
class CCommitBatch {
public:
  /// pDone says what becomes of a record, as in "what was sent since does not". bGivenBack: what
  /// FirstOpen_n tells is the place from which the input is given back.
  CCommitBatch(const std::vector<CCMEBX*>& aQueues, const char* pDone, bool bGivenBack = false);

  /// A record was put on a queue, or taken from it. One that came from an input began there.
  void Add_v(size_t nQueue, size_t nBytes, uint64_t nBegin = 0);
  /// A line of the input went to no queue.
  void Pass_v(size_t nBytes) { Look_v(nBytes); }
  /// Commits what is open on all queues.
  void Commit_v();
  /// Runs a loop and commits what it leaves open, also when it fails: the failure's error stack
  /// then tells how many records count.
  template <typename Loop>
  void Run_v(Loop obLoop) {
    try {
      obLoop();
      Commit_v();
    } catch (VRK_Exception& obFailure) {
      Explain_v(obFailure);
      throw;
    } catch (const std::exception& obError) {
      auto obFailure = VRK_Exception::genericError("", obError.what(), 0, VRK_CRITICAL_ERROR);
      Explain_v(obFailure);
      throw obFailure;
    }
  }
  /// Where in the input the first record begins that is not known to count; nEnd when all do.
  uint64_t FirstOpen_n(uint64_t nEnd) const;

  using Clock = std::chrono::steady_clock;
  /// What tells the time; a test can turn it by hand.
  static inline Clock::time_point (*m_pNow)() = [] { return Clock::now(); };

private:
  enum STATE { OPEN, UNDONE, FAILED, UNKNOWN };
  struct Work {
    CCMEBX* pobQueue = nullptr;
    STATE nState = OPEN;
    uint64_t nCounting = 0; // records that are committed
    uint64_t nRecords = 0;  // since then
    size_t nBytes = 0;
    uint64_t nBegin = 0;                     // of the first of these
    std::optional<Clock::time_point> obSeen; // when a look first found any of these
  };
  static bool Failed_b(const Work& obWork) { return obWork.nState >= FAILED; }
  template <typename Wanted>
  Work* Oldest_p(Wanted obWanted);
  void Look_v(size_t nBytes);
  bool Due_b(Work& obWork, Clock::time_point obNow) const;
  bool Commit_b(Work& obWork);
  int TimedCommit_n(CCMEBX& obQueue);
  static void Undo_v(Work& obWork, STATE nState);
  [[noreturn]] void Fail_v();
  void Explain_v(VRK_Exception& obFailure);
  UnicodeString Account_s() const;
  UnicodeString Account_s(const Work& obWork) const;

  std::vector<Work> m_aWork;
  const char* const m_pDone;
  const bool m_bGivenBack;
  size_t m_nLines = 0; // since the last look
  size_t m_nBytes = 0;
  Clock::time_point m_obCommitted; // the end of the last commit
  Clock::duration m_obTook{0};
};
