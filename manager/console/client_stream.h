#pragma once

#include "manager/console/request_head.h"

#include <atomic>
#include <chrono>
#include <string>
#include <sys/types.h>

namespace bxm::console {

/// One client's socket: reads and writes with limits to time and size. One thread at a time.
class ClientStream {
public:
  using Clock = std::chrono::steady_clock;

  /// isStopping is looked at while it waits. The socket stays its owner's.
  ClientStream(int socket, const std::atomic<bool>& isStopping);

  enum class Head { kRead, kEnded, kLate, kTooLong };
  /// Waits for the next request's head, that of a connection's first one included.
  Head readHead(std::chrono::milliseconds idle, std::chrono::milliseconds limit);
  const std::string& head() const { return m_head; }
  /// From here on read() gives this text, then what follows the head.
  void replaceHead(std::string text);
  void limitBody(std::chrono::milliseconds time, std::size_t bytes);

  ssize_t read(char* to, std::size_t size);
  ssize_t write(const char* from, std::size_t size);
  bool isOpen() const;
  bool exceededBody() const { return m_exceededBody; }

  /// Lets the client read what was written before the socket is closed: reads what it still sends
  /// for a little while.
  void linger();

private:
  bool waitFor(short events, Clock::time_point until) const;
  /// More bytes behind the others in m_got; 0 at the end, -1 too late.
  ssize_t receive(Clock::time_point until);

  const int m_socket;
  const std::atomic<bool>& m_isStopping;
  std::string m_head, m_got; ///< received, and not yet read
  std::size_t m_replacementLeft = 0;
  Clock::time_point m_bodyEnd;
  std::size_t m_bodyLeft = 0;
  bool m_exceededBody = false, m_failed = false;
};

} // namespace bxm::console
