#include "ferry/config/thread_attribute.h"

#include "ferry/logging/logger.h"

#include <new>

namespace {

constexpr size_t LEAST_STACK = 2 * 1024 * 1024;

} // namespace

CThreadAttribute::CThreadAttribute() {
  if (::pthread_attr_init(&m_obAttribute) != 0) throw std::bad_alloc();
}

CThreadAttribute::~CThreadAttribute() { ::pthread_attr_destroy(&m_obAttribute); }

size_t CThreadAttribute::stackSize() const {
  size_t nBytes = 0;
  ::pthread_attr_getstacksize(&m_obAttribute, &nBytes);
  return nBytes;
}

bool CThreadAttribute::setStackSize(size_t nBytes) {
  return ::pthread_attr_setstacksize(&m_obAttribute, nBytes) == 0;
}

void setupThread(CThreadAttribute& thread) {
  if (thread.stackSize() < LEAST_STACK && !thread.setStackSize(LEAST_STACK)) return;
  CLogger::TryLog_b(CSeverity::DBUG, u"Thread Stack Size [%u]",
                    static_cast<unsigned>(thread.stackSize()));
}
