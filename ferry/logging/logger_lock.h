#pragma once

#include <mutex>
#include <shared_mutex>

/// The readers-writer lock of one logger: messages under way share it, whoever changes what they
/// are routed by has it alone. Waiting changes go before new messages, so that a steady flow of
/// them does not keep a change out.
class CLoggerLock {
public:
  enum class Mode { Shared, Exclusive };

  /// Has the lock for a scope. No thread takes it twice: an inner scope of the same thread, as in a
  /// writer that logs, lives on the outer one's lock.
  ///
  /// An inner scope that wants the lock alone, as in a writer that reloads, gives the shared one
  /// back while it waits, so two such writers do not wait for each other. From then on the thread
  /// has it alone up to the end of its outer scope: what is left of its message goes to writers
  /// that the change has replaced, while nobody else writes.
  class Hold {
  public:
    Hold(CLoggerLock& obLock, Mode eMode);
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

  private:
    Hold* Outer_pob() const;

    CLoggerLock& m_obLock;
    Hold* const m_pobNext; // of the scopes by which this thread has locks
    bool m_bOuter = false;
    Mode m_eMode = Mode::Shared;
  };

private:
  void Take_v(Mode eMode, bool bInTurn);

  std::mutex m_obTurn; // had by who waits for a change; new messages queue up behind
  std::shared_mutex m_obLock;
};
