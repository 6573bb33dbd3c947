#pragma once

#include "tests/manager/admin/programs.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>

/// One connection to a console, byte by byte.
class Client {
public:
  explicit Client(int port, in_addr_t from = INADDR_LOOPBACK)
      : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{}, source{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    source.sin_family = AF_INET;
    source.sin_addr.s_addr = htonl(from);
    const int isPortLeft = 1; // to connect(), which takes them again at once
    ::setsockopt(m_socket, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &isPortLeft, sizeof isPortLeft);
    const timeval limit{15, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (::bind(m_socket, reinterpret_cast<sockaddr*>(&source), sizeof source) != 0 ||
        ::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      throw std::runtime_error("cannot connect to the console");
  }
  ~Client() { ::close(m_socket); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Client& send(const std::string& bytes) {
    static_cast<void>(::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    return *this;
  }
  Client& endOfInput() { return ::shutdown(m_socket, SHUT_WR), *this; }
  /// All up to a text, or to the end.
  std::string readTo(const std::string& text) {
    std::string got;
    char bytes[4096];
    while (text.empty() || got.find(text) == std::string::npos) {
      const ssize_t count = ::recv(m_socket, bytes, sizeof bytes, 0);
      if (count <= 0) break;
      got.append(bytes, static_cast<std::size_t>(count));
    }
    return got;
  }
  std::string rest() { return readTo(""); }

private:
  const int m_socket;
};

struct Answer {
  explicit Answer(const std::string& text) {
    const std::size_t end = text.find("\r\n\r\n");
    if (text.size() > 12) status = std::atoi(text.c_str() + 9);
    head = text.substr(0, end);
    if (end != std::string::npos) body = text.substr(end + 4);
  }
  nlohmann::json json() const { return nlohmann::json::parse(body, nullptr, false); }
  std::string header(const std::string& name) const {
    const std::size_t at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) return "";
    const std::size_t begin = at + name.size() + 4;
    return head.substr(begin, head.find("\r\n", begin) - begin);
  }
  int status = 0;
  std::string head, body;
};
inline void PrintTo(const Answer& answer, std::ostream* out) {
  *out << answer.head << "\n" << answer.body;
}

MATCHER_P2(Says, status, text, "") {
  return arg.status == status && (arg.head + arg.body).find(text) != std::string::npos;
}

/// `bxadm serve` over a manager ORDERS with a queue JOBS.
class Consoles : public Programs {
protected:
  static constexpr const char* kJobs = "?manager=ORDERS&queue=JOBS";
#if defined(__SANITIZE_THREAD__) ||                                                                \
    defined(__SANITIZE_ADDRESS__) // which have things to do at an end
  static constexpr std::chrono::seconds kMostToEnd{9};
#else
  static constexpr std::chrono::seconds kMostToEnd{1};
#endif
  static constexpr const char* kChange = "BX-Console: change\r\n";

  /// store: of a manager in a database; empty for one in a folder.
  explicit Consoles(const std::string& store = "") {
    std::vector<std::string> words{"manager", "create", "ORDERS", "--default"};
    if (!store.empty()) words.insert(words.end(), {"--store", store});
    done(words);
    done({"queue", "create", "JOBS"});
  }
  void serve(std::vector<std::string> options = {"--allow-changes"}) {
    options.insert(options.begin(),
                   {support::binDir() + "/bxadm", "serve", "--listen", "127.0.0.1:0"});
    console = std::make_unique<support::Process>(options);
    console->environment("BXM_HOME", home).start();
    ASSERT_TRUE(support::eventually([this] { return console->out().ends_with("/\n"); }))
        << console->err();
    const std::string line = console->out();
    port = std::atoi(line.c_str() + line.rfind(':') + 1);
  }
  Answer ask(const std::string& raw) const {
    return Answer(Client(port).send(raw).endOfInput().rest());
  }
  Answer request(const std::string& method, const std::string& target, const std::string& body,
                 const std::string& headers) const {
    return ask(method + " " + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" +
               headers +
               (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") +
               "\r\n" + body);
  }
  Answer get(const std::string& target, const std::string& headers = "") const {
    return request("GET", target, "", headers);
  }
  Answer change(const std::string& method, const std::string& target, const std::string& body,
                const std::string& headers = kChange) const {
    return request(method, target, body, headers);
  }
  /// Of the manager's own programs.
  std::string shown(const std::string& queue) const { return run("ferry", {"-p", queue}).out; }
  void put(const std::string& lines) const {
    ASSERT_EQ(support::Process({support::binDir() + "/ferry", "-f", "JOBS"})
                  .environment("BXM_HOME", home)
                  .input(lines)
                  .run()
                  .status,
              0);
  }
  support::Result ended(int signal) {
    console->signal(signal);
    return console->wait(kMostToEnd); // who takes longer is killed
  }

  std::unique_ptr<support::Process> console;
  int port = 0;
};
