#include "ferry/logging/logger_lock.h"

namespace {

thread_local CLoggerLock::Hold* g_pobHolds = nullptr;

} // namespace

void CLoggerLock::Take_v(Mode eMode, bool bInTurn) {
  std::unique_lock obTurn(m_obTurn, std::defer_lock);
  if (bInTurn) obTurn.lock();
  if (eMode == Mode::Shared)
    m_obLock.lock_shared();
  else
    m_obLock.lock();
}

CLoggerLock::Hold::Hold(CLoggerLock& obLock, Mode eMode) : m_obLock(obLock), m_pobNext(g_pobHolds) {
  Hold* pobOuter = Outer_pob();
  if (!pobOuter) {
    // A message under way to another logger does not wait behind a change: the change might wait
    // for that very message.
    m_obLock.Take_v(eMode, eMode == Mode::Exclusive || !g_pobHolds);
    m_bOuter = true;
    m_eMode = eMode;
    g_pobHolds = this;
  } else if (eMode == Mode::Exclusive && pobOuter->m_eMode == Mode::Shared) {
    m_obLock.m_obLock.unlock_shared();
    m_obLock.Take_v(Mode::Exclusive, true);
    pobOuter->m_eMode = Mode::Exclusive;
  }
}

CLoggerLock::Hold::~Hold() {
  if (!m_bOuter) return;
  g_pobHolds = m_pobNext;
  if (m_eMode == Mode::Shared)
    m_obLock.m_obLock.unlock_shared();
  else
    m_obLock.m_obLock.unlock();
}

// The scope of this thread by which it has the lock already.
CLoggerLock::Hold* CLoggerLock::Hold::Outer_pob() const {
  Hold* pobHold = g_pobHolds;
  while (pobHold && &pobHold->m_obLock != &m_obLock) pobHold = pobHold->m_pobNext;
  return pobHold;
}
