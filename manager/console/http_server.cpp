#include "manager/console/http_server.h"

#include "manager/console/client_stream.h"
#include "manager/console/slots.h"

#include <arpa/inet.h>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <httplib.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <set>
#include <stdexcept>
#include <thread>

namespace bxm::console {

namespace {

using namespace std::chrono_literals;
constexpr std::size_t kMostConnections = 512, kMostRequests = 100, kMostLargeBodies = 16;
constexpr std::size_t kStack =
    1 << 20; ///< of a connection's thread; the rest of it is never touched

/// The library's view of a client.
class LibraryStream : public httplib::Stream {
public:
  LibraryStream(ClientStream& client, int socket) : m_client(client), m_socket(socket) {}

  bool is_readable() const override { return true; }
  bool is_writable() const override { return true; }
  ssize_t read(char* to, size_t size) override { return m_client.read(to, size); }
  ssize_t write(const char* from, size_t size) override { return m_client.write(from, size); }
  void get_remote_ip_and_port(std::string& ip, int& port) const override {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    char text[INET6_ADDRSTRLEN] = "";
    ::getpeername(m_socket, reinterpret_cast<sockaddr*>(&peer), &size);
    if (peer.ss_family == AF_INET6)
      ::inet_ntop(AF_INET6, &reinterpret_cast<sockaddr_in6*>(&peer)->sin6_addr, text, sizeof text);
    else
      ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(&peer)->sin_addr, text, sizeof text);
    ip = text;
    port = 0;
  }
  void get_local_ip_and_port(std::string&, int&) const override {}
  /// The library refuses those that select() could not take, which nothing here uses.
  socket_t socket() const override { return INVALID_SOCKET; }

private:
  ClientStream& m_client;
  const int m_socket;
};

class ClientOutput : public Output {
public:
  ClientOutput(ClientStream& client, httplib::DataSink& sink) : m_client(client), m_sink(sink) {}
  bool write(std::string_view bytes) override {
    return m_sink.write(bytes.data(), bytes.size()), isOpen();
  }
  bool isOpen() override { return m_client.isOpen(); }

private:
  ClientStream& m_client;
  httplib::DataSink& m_sink;
};

/// A function on a thread that nobody waits for; false when there is none to be had.
bool runApart(std::function<void()> body) {
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setstacksize(&attributes, kStack);
  ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  auto handed = std::make_unique<std::function<void()>>(std::move(body));
  pthread_t thread;
  const int error = ::pthread_create(
      &thread, &attributes,
      [](void* argument) -> void* {
        const std::unique_ptr<std::function<void()>> run(
            static_cast<std::function<void()>*>(argument));
        (*run)();
        return nullptr;
      },
      handed.get());
  ::pthread_attr_destroy(&attributes);
  if (error == 0) static_cast<void>(handed.release());
  return error == 0;
}

/// What the library's callbacks on this thread are about.
struct Current {
  ClientStream* client = nullptr;
  const RequestHead* head = nullptr;
  std::optional<Request> request{}; ///< whose body is to be read
  std::shared_ptr<void> body{};     ///< the right to have a large one in memory
  std::shared_ptr<void> response{}; ///< the same
};
thread_local Current current;

} // namespace

/// Takes from the library how requests are read and responses written; how connections are treated
/// is our own.
class HttpServer::Library : public httplib::Server {
public:
  Library(const Address& address, RequestHandler& handler) : m_handler(handler) {
    // Not the library's own, with which a second console could share the port.
    set_socket_options([](int socket) {
      const int yes = 1;
      ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    set_payload_max_length(kMostBody);
    set_keep_alive_max_count(kMostRequests);
    set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
      return answerHead(request, response);
    });
    const auto answer = [this](const httplib::Request& request, httplib::Response& response) {
      if (request.body.size() > kMostBody)
        return fill(response, m_handler.fault(*current.request, 413, "the body is too long"));
      current.request->body = request.body;
      fill(response, m_handler.answer(*current.request));
    };
    Post(".*", answer).Patch(".*", answer).Delete(".*", answer);
    set_error_handler(
        HandlerWithResponse([this](const httplib::Request&, httplib::Response& response) {
          if (!response.body.empty()) return HandlerResponse::Unhandled;
          const bool isLong = response.status == 413 || current.client->exceededBody();
          const int status = isLong ? 413 : response.status;
          const char* detail = isLong ? "the body is too long" : "the body is malformed";
          fill(response, current.request ? m_handler.fault(*current.request, status, detail)
                                         : m_handler.fault(status, detail));
          return HandlerResponse::Handled;
        }));
    // The library's own tells the client what was thrown.
    set_exception_handler(
        [this](const httplib::Request&, httplib::Response& response, const std::exception_ptr&) {
          fill(response, m_handler.fault(500, "the console could not do it"));
        });
    errno = 0;
    m_port = address.port == 0                          ? bind_to_any_port(address.host)
             : bind_to_port(address.host, address.port) ? address.port
                                                        : -1;
    if (m_port < 0 || ::listen(svr_sock_, SOMAXCONN) != 0 ||
        ::fcntl(svr_sock_, F_SETFL, O_NONBLOCK) != 0)
      throw std::runtime_error("cannot listen on " + urlHostOf(address.host) + ":" +
                               std::to_string(address.port) + ": " + std::strerror(errno));
  }
  ~Library() override {
    stopAll(0ms);
    ::close(svr_sock_);
  }

  int port() const { return m_port; }
  void start() {
    m_listener = std::thread([this] { accept(); });
  }
  bool stopAll(std::chrono::milliseconds limit) {
    m_isStopping = true;
    ::shutdown(svr_sock_, SHUT_RDWR); // wakes who waits for a connection
    if (m_listener.joinable()) m_listener.join();
    std::unique_lock lock(m_mutex);
    for (const int socket : m_sockets) ::shutdown(socket, SHUT_RDWR);
    return m_ended.wait_for(lock, limit, [this] { return m_sockets.empty(); });
  }

private:
  /// The library's own would end for good with the first connection that broke too early.
  void accept() {
    while (!m_isStopping) {
      pollfd waiting{svr_sock_, POLLIN, 0};
      ::poll(&waiting, 1, 1000);
      const int socket = ::accept4(svr_sock_, nullptr, nullptr, SOCK_CLOEXEC);
      if (socket >= 0)
        take(socket);
      else if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
        std::this_thread::sleep_for(10ms);
    }
  }

  void take(int socket) {
    {
      const std::lock_guard lock(m_mutex);
      if (m_sockets.size() >= kMostConnections) return static_cast<void>(::close(socket));
      m_sockets.insert(socket);
    }
    const bool runs = runApart([this, socket] {
      serve(socket);
      current = {}; // an exception may have left it
      end(socket);
    });
    if (!runs) end(socket);
  }

  void end(int socket) {
    const std::lock_guard lock(m_mutex);
    ::close(socket);
    m_sockets.erase(socket);
    m_ended.notify_all(); // under the lock: behind it this object may be gone
  }

  /// For a head, or a small body.
  std::chrono::milliseconds shortLimit() {
    const std::lock_guard lock(m_mutex);
    return m_sockets.size() > kMostConnections * 3 / 4 ? 1s : 5s;
  }

  void serve(int socket) try {
    ClientStream client(socket, m_isStopping);
    LibraryStream stream(client, socket);
    for (std::size_t count = 1; count <= kMostRequests; ++count) {
      const auto limit = shortLimit();
      switch (client.readHead(limit, limit)) {
      case ClientStream::Head::kEnded: return;
      case ClientStream::Head::kLate: return refuse(client, stream, 408, "the request is too slow");
      case ClientStream::Head::kTooLong:
        return refuse(client, stream, 431, "the request's head is too long");
      case ClientStream::Head::kRead: break;
      }
      const RequestHead head = parseHead(client.head());
      if (head.isRefused()) return refuse(client, stream, head.status, head.fault);
      const bool isLast = count == kMostRequests || (head.method != "GET" && head.method != "HEAD");
      if (!serveOne(client, stream, head, isLast)) break;
    }
    client.linger();
  } catch (const std::exception&) { // memory ran out; the connection ends
  }

  /// Whether another request may follow.
  bool serveOne(ClientStream& client, LibraryStream& stream, const RequestHead& head, bool isLast) {
    client.replaceHead(head.text);
    client.limitBody(head.mostBody > kSmallBody ? 30s : shortLimit(),
                     kMostBody + kMostBody / 8); // chunks have heads of their own
    current = {&client, &head};
    bool closes = false;
    const bool isFine = process_request(stream, isLast, closes, nullptr);
    current = {};
    return isFine && !isLast && !closes && client.isOpen();
  }

  /// What the library would not understand as we do is not handed to it.
  void refuse(ClientStream& client, LibraryStream& stream, int status, const char* detail) {
    const Response response = m_handler.fault(status, detail);
    std::string text = "HTTP/1.1 " + std::to_string(status) + " Refused\r\nConnection: close\r\n" +
                       "Content-Type: " + response.type +
                       "\r\nContent-Length: " + std::to_string(response.body.size()) + "\r\n";
    for (const auto& [name, value] : response.headers) text += name + ": " + value + "\r\n";
    text += "\r\n" + response.body;
    if (stream.write(text.data(), text.size()) > 0) client.linger();
  }

  HandlerResponse answerHead(const httplib::Request& asked, httplib::Response& response) {
    Request request = requestOf(asked);
    if (const auto refusal = m_handler.refuse(request))
      fill(response, *refusal);
    else if (request.isRead())
      fill(response, m_handler.answer(request));
    else if (request.mostBody > kMostBody)
      fill(response, m_handler.fault(request, 413, "the body is too long"));
    else if (request.mostBody > kSmallBody && !(current.body = m_largeBodies.tryTake()))
      fill(response, m_handler.fault(request, 429, "too many requests with a large body at once"));
    else
      return current.request = std::move(request), HandlerResponse::Unhandled;
    return HandlerResponse::Handled;
  }

  static Request requestOf(const httplib::Request& request) {
    return {
        request.method,        request.path,        {request.params.begin(), request.params.end()},
        current.head->headers, request.remote_addr, current.head->mostBody};
  }

  static void fill(httplib::Response& response, Response answer) {
    current.response = std::move(answer.slot);
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers) response.set_header(name, value);
    if (!answer.stream) {
      response.body = std::move(answer.body);
      if (!answer.type.empty()) response.set_header("Content-Type", answer.type);
      return;
    }
    const auto provide = [stream = answer.stream,
                          client = current.client](std::size_t, httplib::DataSink& sink) {
      ClientOutput output(*client, sink);
      const bool isWhole = stream(output);
      if (isWhole) sink.done();
      return isWhole;
    };
    if (current.head->isOld)
      response.set_content_provider(answer.type, provide);
    else
      response.set_chunked_content_provider(answer.type, provide);
  }

  RequestHandler& m_handler;
  int m_port = -1;
  std::thread m_listener;
  std::atomic<bool> m_isStopping{false};
  Slots m_largeBodies{kMostLargeBodies, "large bodies"};
  std::mutex m_mutex;
  std::condition_variable m_ended;
  std::set<int> m_sockets;
};

HttpServer::HttpServer(const Address& address, RequestHandler& handler)
    : m_library(std::make_unique<Library>(address, handler)) {}
HttpServer::~HttpServer() = default;
int HttpServer::port() const { return m_library->port(); }
void HttpServer::start() { m_library->start(); }
bool HttpServer::stop(std::chrono::milliseconds limit) { return m_library->stopAll(limit); }

// ---- Addresses ----------------------------------------------------------------------------------

bool Address::isLoopback() const { return host.starts_with("127.") || host == "::1"; }

std::string urlHostOf(const std::string& host) {
  return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

std::optional<Address> addressOf(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  Address address;
  const char* end = text.data() + text.size();
  const auto [read, error] = std::from_chars(text.data() + colon + 1, end, address.port);
  if (error != std::errc() || read != end || address.port < 0 || address.port > 65535)
    return std::nullopt;
  address.host = text.substr(0, colon);
  if (address.host == "localhost") address.host = "127.0.0.1";
  const bool isInBrackets = address.host.starts_with('[') && address.host.ends_with(']');
  if (isInBrackets) address.host = address.host.substr(1, address.host.size() - 2);
  unsigned char bytes[sizeof(in6_addr)];
  const int family = isInBrackets ? AF_INET6 : AF_INET;
  if (::inet_pton(family, address.host.c_str(), bytes) != 1) return std::nullopt;
  char canonical[INET6_ADDRSTRLEN];
  address.host = ::inet_ntop(family, bytes, canonical, sizeof canonical);
  return address;
}

} // namespace bxm::console
