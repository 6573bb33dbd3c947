#pragma once

#include "manager/console/http.h"

#include <chrono>
#include <memory>
#include <string>

namespace bxm::console {

struct Address {
  std::string host; ///< in numbers
  int port = 0;     ///< 0: whichever is free
  bool isLoopback() const;
};
/// "127.0.0.1:8733", "[::1]:8733" or "localhost:8733"; nullopt for anything else.
std::optional<Address> addressOf(const std::string& text);
/// An address as a URL has it: with brackets where it has colons.
std::string urlHostOf(const std::string& host);

/// A server whose every connection is bounded, whatever its client does:
///
///   connections at a time   512, further ones are closed at once; a thread each
///   a request's head        5 seconds (1 when three quarters of the connections are taken), 32 KiB
///   its body                4 KiB: as its head; else 30 seconds, 8 MiB, 16 such bodies at a time
///   a response              a client that takes nothing for 10 seconds is dropped
///   between requests        5 seconds, at most 100 requests a connection
///
/// What changes something ends its connection, so that what follows it is never taken for a
/// request.
class HttpServer {
public:
  /// Listens from here on. Throws std::runtime_error where it cannot.
  HttpServer(const Address& address, RequestHandler& handler);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  int port() const;
  /// Answers on threads of its own from here on.
  void start();
  /// Ends all connections; false when some are still at work after that time, and use the handler.
  bool stop(std::chrono::milliseconds limit);

private:
  class Library;
  const std::unique_ptr<Library> m_library;
};

} // namespace bxm::console
