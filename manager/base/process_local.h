#pragma once

#include <pthread.h>

namespace bxm {

/// The one object of a type in this process. Never destroyed, because a program may hold
/// connections until its very end. A child process after fork() finds a fresh one: locks,
/// environments and threads are not inherited, and using the parent's would damage the parent's
/// work.
template <typename Object>
class ProcessLocal {
public:
  static Object& get() {
    static const bool registered = [] {
      current() = new Object;
      return ::pthread_atfork(nullptr, nullptr, [] { current() = new Object; }) == 0;
    }();
    static_cast<void>(registered);
    return *current();
  }

private:
  static Object*& current() {
    static Object* object = nullptr;
    return object;
  }
};

} // namespace bxm
