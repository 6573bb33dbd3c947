#pragma once

#include "tests/support/temp_folder.h"

#include <array>
#include <atomic>
#include <cstring>
#include <list>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace faults {

/// Stands between programs and a database server, on a socket of its own, and cuts one connection
/// at a message of the protocol. Those that are made later go through.
class CuttingProxy {
public:
  explicit CuttingProxy(std::string serversFolder) : m_server(std::move(serversFolder)) {
    ::listen(m_listener, 16);
    m_thread = std::thread([this] { relay(); });
  }
  ~CuttingProxy() {
    m_stops = true;
    m_thread.join();
    for (Link& link : m_links) cut(link);
    ::close(m_listener);
  }
  std::string folder() const { return m_folder.path().string(); }

  /// Of the messages from now on, in either direction, this one is the last of its connection.
  void cutAfter(int message) { m_left = message; }
  bool hasCut() const { return m_left < 0; }

private:
  struct Link {
    std::array<int, 2> ends; ///< the program's, the server's
    std::array<std::string, 2> read;
    bool hasStarted = false;
  };
  /// A socket that is bound or connected to the one that programs of the database look for.
  static int socketIn(const std::string& folder,
                      int (*bindOrConnect)(int, const sockaddr*, socklen_t)) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = ""};
    (folder + "/.s.PGSQL.5432").copy(address.sun_path, sizeof address.sun_path - 1);
    const int made = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bindOrConnect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return made;
  }

  void relay() {
    while (!m_stops) {
      std::vector<pollfd> ready{{m_listener, POLLIN, 0}};
      for (const Link& link : m_links)
        for (const int end : link.ends) ready.push_back({end, POLLIN, 0});
      ::poll(ready.data(), ready.size(), 20);
      auto event = ready.begin() + 1;
      for (auto link = m_links.begin(); link != m_links.end();) {
        bool lives = true;
        for (std::size_t from : {0U, 1U})
          if ((event++)->revents != 0 && lives) lives = pass(*link, from);
        lives ? ++link : (cut(*link), link = m_links.erase(link));
      }
      if (ready[0].revents != 0)
        m_links.push_back(
            {{::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC), socketIn(m_server, ::connect)},
             {}});
    }
  }
  bool pass(Link& link, std::size_t from) {
    char bytes[65536];
    const ssize_t n = ::recv(link.ends[from], bytes, sizeof bytes, 0);
    if (n <= 0) return false;
    std::string& read = link.read[from].append(bytes, static_cast<std::size_t>(n));
    // A type and a length that counts itself; the first message has no type.
    for (std::size_t type; type = from == 0 && !link.hasStarted ? 0 : 1, read.size() >= type + 4;) {
      std::uint32_t length = 0;
      std::memcpy(&length, read.data() + type, 4);
      const std::size_t size = type + __builtin_bswap32(length);
      if (read.size() < size) break;
      link.hasStarted = true;
      const bool isLast = m_left >= 0 && m_left-- == 0;
      ::send(link.ends[1 - from], read.data(), size, MSG_NOSIGNAL);
      if (isLast) return false;
      read.erase(0, size);
    }
    return true;
  }
  static void cut(const Link& link) {
    for (const int end : link.ends) ::close(end);
  }

  support::TempFolder m_folder;
  const std::string m_server;
  const int m_listener = socketIn(folder(), ::bind);
  std::list<Link> m_links;
  std::atomic<int> m_left{-1};
  std::atomic<bool> m_stops{false};
  std::thread m_thread;
};

} // namespace faults
