#pragma once

#include <cstddef>
#include <pthread.h>

/// What a thread is to be like, set before it starts; get() goes to pthread_create. One thread
/// works on one object at a time.
class CThreadAttribute {
public:
  CThreadAttribute();
  ~CThreadAttribute();
  CThreadAttribute(const CThreadAttribute&) = delete;
  CThreadAttribute& operator=(const CThreadAttribute&) = delete;

  /// Bytes of stack that the thread gets.
  size_t stackSize() const;
  /// False when the system refuses the size; the old one then stays.
  bool setStackSize(size_t nBytes);
  const pthread_attr_t* get() const { return &m_obAttribute; }

private:
  pthread_attr_t m_obAttribute;
};

/// Gives a thread that has not started yet at least 2 MiB of stack.
void setupThread(CThreadAttribute& thread);
