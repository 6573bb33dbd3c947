#pragma once

#include <map>
#include <string>
#include <string_view>

namespace bxm::console {

/// What stands before a request's body, checked more strictly than the library does that reads it
/// next: what two programs might understand differently is refused.
struct RequestHead {
  std::string method;
  bool isOld = false;                         ///< HTTP/1.0, which knows no chunks
  std::map<std::string, std::string> headers; ///< by their names in lower case
  /// The head for the library: without what it would do on its own (ranges, compression, waiting
  /// for an approval), and always with a length where a body may follow.
  std::string text;
  std::size_t mostBody = 0; ///< bytes that it may have, as far as the head says; may be too many
  int status = 0;           ///< what to answer where it is refused
  const char* fault = "";

  bool isRefused() const { return status != 0; }
};

constexpr std::size_t kMostHead = 32 << 10, kMostHeaders = 100, kMostTarget = 4 << 10;
constexpr std::size_t kMostBody = 8 << 20;
constexpr std::size_t kSmallBody = 4 << 10; ///< costs next to nothing

/// text: with the empty line at its end.
RequestHead parseHead(std::string_view text);

} // namespace bxm::console
