#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What the console's parts know of HTTP.
namespace bxm::console {

/// Who asks: without a token everybody is anybody.
enum class Caller { kNobody, kAnybody, kToken, kSession };

struct Request {
  std::string method, path;
  std::multimap<std::string, std::string> query;
  std::map<std::string, std::string> headers; ///< by their names in lower case; no name twice
  std::string peer;                           ///< the address that it came from
  std::size_t mostBody = 0;                   ///< bytes, as its head says
  std::string body{};
  Caller caller = Caller::kNobody; ///< where that had to be known

  bool isRead() const { return method == "GET" || method == "HEAD"; }
  /// Empty where there is none.
  std::string header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
  }
  std::optional<std::string> parameter(const std::string& name) const {
    const auto found = query.find(name);
    return found == query.end() ? std::nullopt : std::optional(found->second);
  }
};

/// Where a response that has no end yet goes.
class Output {
public:
  virtual ~Output() = default;
  /// False when the client is gone, or took nothing for too long.
  virtual bool write(std::string_view bytes) = 0;
  /// Whether the client is still there, and the server goes on.
  virtual bool isOpen() = 0;
};

struct Response {
  int status = 200;
  std::string type, body;
  std::vector<std::pair<std::string, std::string>> headers{};
  /// Writes the body piece by piece instead; false: it ends before it is whole, which the client
  /// can tell.
  std::function<bool(Output&)> stream{};
  /// Kept until it is written, or the client is gone.
  std::shared_ptr<void> slot{};
};

/// Answers requests, several at a time. Must not throw.
class RequestHandler {
public:
  virtual ~RequestHandler() = default;
  /// Of a request whose body has not been read: what it is answered with instead of reading on.
  /// Learns its caller.
  virtual std::optional<Response> refuse(Request& request) = 0;
  virtual Response answer(const Request& request) = 0;
  /// Of one that was not refused, and whose body cannot be had.
  virtual Response fault(const Request& request, int status, const std::string& detail) = 0;
  /// For what is no request.
  virtual Response fault(int status, const std::string& detail) = 0;
};

} // namespace bxm::console
