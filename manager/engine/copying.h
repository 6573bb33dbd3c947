#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace bxm {

struct CopiedQueue {
  std::string name;
  std::uint64_t messages = 0; ///< that both managers have
};

/// Copies all queues of one manager with their messages to another one, whole and in order; the
/// first stays as it is. What an earlier call had begun, however it ended, is gone on with. Then
/// both are read again: told is called for each queue that is the same. Messages that expire
/// meanwhile are on neither side. Throws Failure, before anything was written when a queue of the
/// target has messages of its own.
void copyManager(const std::string& from, const std::string& to,
                 const std::function<void(const CopiedQueue&)>& told);

} // namespace bxm
