#include "manager/console/client_stream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace bxm::console {

namespace {
using namespace std::chrono_literals;
constexpr auto kWriteLimit = 10s;
constexpr auto kGlance = 250ms; ///< how long a wait may overlook that the server stops
constexpr auto kLinger = 500ms;
constexpr std::string_view kHeadEnd = "\r\n\r\n";
} // namespace

ClientStream::ClientStream(int socket, const std::atomic<bool>& isStopping)
    : m_socket(socket), m_isStopping(isStopping) {
  const int yes = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  ::setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &yes, sizeof yes);
  const timeval limit{10, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool ClientStream::waitFor(short events, Clock::time_point until) const {
  while (!m_isStopping) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    if (left <= 0ms) return false;
    pollfd waiting{m_socket, events, 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(std::min<>(left, {kGlance}).count()));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
  return false;
}

ssize_t ClientStream::receive(Clock::time_point until) {
  char bytes[16 << 10];
  for (;;) {
    if (!waitFor(POLLIN, until)) return -1;
    const ssize_t count = ::recv(m_socket, bytes, sizeof bytes, MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count > 0) m_got.append(bytes, static_cast<std::size_t>(count));
    return std::max<ssize_t>(count, 0);
  }
}

ClientStream::Head ClientStream::readHead(std::chrono::milliseconds idle,
                                          std::chrono::milliseconds limit) {
  m_exceededBody = false;
  m_bodyLeft = 0;
  if (m_got.empty() && receive(Clock::now() + idle) <= 0) return Head::kEnded;
  const auto until = Clock::now() + limit;
  for (std::size_t searched = 0;;) {
    const std::size_t end = m_got.find(kHeadEnd, searched);
    if (end != std::string::npos && end + kHeadEnd.size() <= kMostHead) {
      m_head = m_got.substr(0, end + kHeadEnd.size());
      m_got.erase(0, m_head.size());
      return Head::kRead;
    }
    if (m_got.size() >= kMostHead) return Head::kTooLong;
    searched = m_got.size() - std::min(m_got.size(), kHeadEnd.size() - 1);
    const ssize_t count = receive(until);
    if (count <= 0) return count < 0 ? Head::kLate : Head::kEnded;
  }
}

void ClientStream::replaceHead(std::string text) {
  m_replacementLeft = text.size();
  m_got.insert(0, text);
}

void ClientStream::limitBody(std::chrono::milliseconds time, std::size_t bytes) {
  m_bodyEnd = Clock::now() + time;
  m_bodyLeft = bytes;
}

ssize_t ClientStream::read(char* to, std::size_t size) {
  if (m_replacementLeft == 0) {
    if (m_bodyLeft == 0) {
      m_exceededBody = true;
      return -1;
    }
    size = std::min(size, m_bodyLeft);
    if (m_got.empty())
      if (const ssize_t count = receive(m_bodyEnd); count <= 0) return count;
  }
  const std::size_t count = std::min(size, m_replacementLeft ? m_replacementLeft : m_got.size());
  std::memcpy(to, m_got.data(), count);
  m_got.erase(0, count);
  (m_replacementLeft ? m_replacementLeft : m_bodyLeft) -= count;
  return static_cast<ssize_t>(count);
}

ssize_t ClientStream::write(const char* from, std::size_t size) {
  std::size_t done = 0;
  for (auto until = Clock::now() + kWriteLimit; done < size && !m_failed;) {
    const ssize_t count = ::send(m_socket, from + done, size - done, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count > 0) {
      done += static_cast<std::size_t>(count);
      until = Clock::now() + kWriteLimit;
    } else if (!(count < 0 && (errno == EAGAIN || errno == EINTR)) || !waitFor(POLLOUT, until)) {
      m_failed = true;
    }
  }
  return m_failed ? -1 : static_cast<ssize_t>(done);
}

bool ClientStream::isOpen() const {
  if (m_failed || m_isStopping) return false;
  char byte = 0;
  const ssize_t count = ::recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

void ClientStream::linger() {
  ::shutdown(m_socket, SHUT_WR);
  const auto until = Clock::now() + kLinger;
  do m_got.clear();
  while (receive(until) > 0);
}

} // namespace bxm::console
