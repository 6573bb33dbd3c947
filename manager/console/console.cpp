#include "manager/console/console.h"

#include "bx/bx.h"
#include "manager/console/access.h"
#include "manager/console/change_log.h"
#include "manager/console/changes.h"
#include "manager/console/json_body.h"
#include "manager/console/metrics.h"
#include "manager/console/observer.h"
#include "manager/console/page_files.h"
#include "manager/console/problem.h"
#include "manager/console/queries.h"
#include "manager/console/request_head.h"
#include "manager/console/slots.h"
#include "manager/store/message.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fmt/format.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace bxm::console {

namespace {

using namespace std::chrono_literals;

std::string version() {
  return fmt::format("{}.{}.{}", BX_VERSION_MAJOR, BX_VERSION_MINOR, BX_VERSION_PATCH);
}

/// Who may ask for a path at all.
enum class Needs { kNothing, kToken, kLeaveToChange };

class Console : public RequestHandler {
public:
  explicit Console(const Options& options)
      : m_access(options.address.host, options.address.isLoopback(),
                 options.tokenFile.empty() ? "" : tokenIn(options.tokenFile)),
        m_allowsChanges(options.allowChanges) {}

  void listensOn(int port) { m_access.listensOn(port); }
  void watches(Observer& observer) {
    m_observer = &observer;
    m_queries = std::make_unique<Queries>(observer);
    m_changes = std::make_unique<Changes>(observer);
  }

  std::optional<Response> refuse(Request& request) override try {
    check(request);
    return std::nullopt;
  } catch (const std::exception& error) {
    Response response = problemResponse(error);
    if (response.status == 405) response.headers.emplace_back("Allow", methodsOf(request));
    return finish(request, std::move(response));
  }

  Response answer(const Request& request) override try {
    const Route* route = find(request);
    const bool isQuick = !route || route->needs == Needs::kNothing;
    const auto slot = isQuick ? nullptr : m_requests.take();
    return finish(request, route ? (this->*route->answer)(request) : page(request));
  } catch (const std::exception& error) {
    return finish(request, problemResponse(error));
  }

  Response fault(const Request& request, int status, const std::string& detail) override {
    return finish(request, problemResponse(status, detail));
  }
  Response fault(int status, const std::string& detail) override {
    return secured(problemResponse(status, detail));
  }

private:
  struct Route {
    const char *method, *path;
    Needs needs;
    Response (Console::*answer)(const Request&);
  };
  static constexpr std::size_t kMostStreams = 300, kMostRequests = 64;
  static const Route kRoutes[];

  /// nullptr: there is none, though there may be a file of the page.
  static const Route* find(const Request& request);
  /// That its path may be asked with; empty where there is no such path.
  static std::string methodsOf(const Request& request);

  /// Throws Problem. The caller becomes known on the way.
  void check(Request& request) {
    m_access.checkOrigin(request);
    const Route* route = find(request);
    if (!route) return checkPage(request);
    if (route->needs == Needs::kNothing) return checkSmall(request);
    request.caller = m_access.require(request);
    if (route->needs == Needs::kLeaveToChange && !m_allowsChanges)
      throw Problem(403, "changes are not allowed: the console was started without "
                         "--allow-changes");
  }
  /// Who has not said who he is sends little.
  static void checkSmall(const Request& request) {
    if (request.mostBody > kSmallBody) throw Problem(413, "the body is too long");
  }
  static void checkPage(const Request& request) {
    if (methodsOf(request).empty()) throw Problem(404, "there is no " + request.path);
    if (!fileOf(request) || !request.isRead())
      throw Problem(405, request.path + " cannot be asked this way");
  }

  Response finish(const Request& request, Response response) const {
    if (!request.isRead() && request.path != "/api/v1/session") logChange(request, response);
    return secured(std::move(response));
  }
  static Response secured(Response response) {
    const bool isKept = std::any_of(response.headers.begin(), response.headers.end(),
                                    [](const auto& each) { return each.first == "Cache-Control"; });
    if (!isKept) response.headers.emplace_back("Cache-Control", "no-store");
    response.headers.insert(
        response.headers.end(),
        {{"Content-Security-Policy",
          "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'"},
         {"X-Content-Type-Options", "nosniff"},
         {"Referrer-Policy", "no-referrer"}});
    return response;
  }

  // ---- The page --------------------------------------------------------------------------------

  static const PageFile* fileOf(const Request& request) {
    return findPageFile(request.path == "/" ? "index.html" : request.path.substr(1));
  }
  static Response page(const Request& request) {
    const PageFile* file = fileOf(request);
    if (!file) throw Problem(404, "there is no " + request.path);
    Response response{200, typeOf(*file), std::string(file->bytes)};
    response.headers = {{"Cache-Control", "no-cache"}, {"ETag", etagOf(*file)}};
    if (request.header("if-none-match") == etagOf(*file)) {
      response.status = 304;
      response.body.clear();
    }
    return response;
  }

  // ---- About the console -----------------------------------------------------------------------

  Response health(const Request&) { return {200, "text/plain; charset=utf-8", "ok\n"}; }
  Response about(const Request& request) {
    return jsonResponse({{"version", version()},
                         {"allow_changes", m_allowsChanges},
                         {"needs_token", m_access.needsToken()},
                         {"signed_in", m_access.callerOf(request) != Caller::kNobody}});
  }
  Response signIn(const Request& request) {
    const Json body = bodyOf(request);
    const auto token = body.find("token");
    if (token == body.end() || !token->is_string()) throw Problem(400, "'token' is missing");
    Response response{204, "", ""};
    if (m_access.needsToken())
      response.headers = {
          {"Set-Cookie", m_access.signIn(request, token->get_ref<const std::string&>())}};
    return response;
  }
  Response signOut(const Request& request) {
    Response response{204, "", ""};
    response.headers = {{"Set-Cookie", m_access.signOut(request)}};
    return response;
  }

  // ---- All queues ------------------------------------------------------------------------------

  Response figures(const Request&) {
    m_observer->noteInterest();
    return {200, "application/json", m_observer->snapshot()->json()};
  }
  Response history(const Request&) {
    return jsonResponse(m_observer->history().depths(clockNow()));
  }
  Response metrics(const Request&) {
    m_observer->noteInterest();
    return {200, kMetricsType, metricsOf(m_observer->managers(), m_observer->streams())};
  }
  Response events(const Request& request) {
    Response response{200, "text/event-stream", ""};
    if (!request.isRead() || request.method == "HEAD") return response;
    const bool mayEnd = request.caller == Caller::kSession;
    response.stream = [this, request, mayEnd, slot = m_streams.take()](Output& output) {
      auto snapshot = m_observer->snapshot();
      const Observer::Stream stream(*m_observer);
      while (output.write(snapshot->event)) {
        std::shared_ptr<const Snapshot> next;
        while (!next) {
          if (!output.isOpen()) return false;
          next = m_observer->waitForOther(snapshot->number, 500ms);
        }
        snapshot = std::move(next);
        if (mayEnd && m_access.callerOf(request) == Caller::kNobody) return true;
      }
      return false;
    };
    return response;
  }

  // ---- One queue -------------------------------------------------------------------------------

  Response queue(const Request& request) { return m_queries->queue(request); }
  Response messages(const Request& request) { return m_queries->messages(request); }
  Response message(const Request& request) { return m_queries->message(request); }
  Response download(const Request& request) { return m_queries->download(request); }
  Response createQueue(const Request& request) { return m_changes->createQueue(request); }
  Response alterQueue(const Request& request) { return m_changes->alterQueue(request); }
  Response deleteQueue(const Request& request) { return m_changes->deleteQueue(request); }
  Response purge(const Request& request) { return m_changes->purge(request); }
  Response move(const Request& request) { return m_changes->move(request); }
  Response put(const Request& request) { return m_changes->put(request); }

  Access m_access;
  const bool m_allowsChanges;
  Observer* m_observer = nullptr;
  std::unique_ptr<Queries> m_queries;
  std::unique_ptr<Changes> m_changes;
  Slots m_requests{kMostRequests, "requests"}, m_streams{kMostStreams, "event streams"};
};

const Console::Route Console::kRoutes[] = {
    {"GET", "/healthz", Needs::kNothing, &Console::health},
    {"GET", "/metrics", Needs::kToken, &Console::metrics},
    {"GET", "/api/v1/console", Needs::kNothing, &Console::about},
    {"POST", "/api/v1/session", Needs::kNothing, &Console::signIn},
    {"DELETE", "/api/v1/session", Needs::kNothing, &Console::signOut},
    {"GET", "/api/v1/figures", Needs::kToken, &Console::figures},
    {"GET", "/api/v1/events", Needs::kToken, &Console::events},
    {"GET", "/api/v1/history", Needs::kToken, &Console::history},
    {"GET", "/api/v1/queue", Needs::kToken, &Console::queue},
    {"GET", "/api/v1/messages", Needs::kToken, &Console::messages},
    {"GET", "/api/v1/message", Needs::kToken, &Console::message},
    {"GET", "/api/v1/export", Needs::kToken, &Console::download},
    {"POST", "/api/v1/queues", Needs::kLeaveToChange, &Console::createQueue},
    {"PATCH", "/api/v1/queue", Needs::kLeaveToChange, &Console::alterQueue},
    {"DELETE", "/api/v1/queue", Needs::kLeaveToChange, &Console::deleteQueue},
    {"POST", "/api/v1/purge", Needs::kLeaveToChange, &Console::purge},
    {"POST", "/api/v1/move", Needs::kLeaveToChange, &Console::move},
    {"POST", "/api/v1/messages", Needs::kLeaveToChange, &Console::put},
};

const Console::Route* Console::find(const Request& request) {
  const std::string method = request.method == "HEAD" ? "GET" : request.method;
  for (const Route& route : kRoutes)
    if (route.path == request.path && route.method == method) return &route;
  return nullptr;
}

std::string Console::methodsOf(const Request& request) {
  constexpr const char* kReads = "GET, HEAD";
  if (fileOf(request)) return kReads;
  std::string methods;
  for (const Route& route : kRoutes)
    if (route.path == request.path)
      methods += (methods.empty() ? "" : ", ") +
                 std::string(route.method == std::string_view("GET") ? kReads : route.method);
  return methods;
}

sigset_t endSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&signals, number);
  return signals;
}

/// For a thread a connection, and what the managers' sessions open.
void raiseFileLimit() {
  constexpr rlim_t kFiles = 4096;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kFiles) return;
  limit.rlim_cur = std::min(kFiles, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// What is large goes back to the system when it is freed: else as much is kept as once was.
void keepNoLargeMemory() {
  constexpr int kLarge = 128 << 10;
  ::mallopt(M_MMAP_THRESHOLD, kLarge);
}

} // namespace

int serve(const Options& options) {
  const sigset_t signals = endSignals(); // for this thread alone
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  raiseFileLimit();
  keepNoLargeMemory();
  Console console(options);
  HttpServer server(options.address, console);
  console.listensOn(server.port());
  Observer observer(options.managers);
  console.watches(observer);
  fmt::print("Listening on http://{}:{}/\n", urlHostOf(options.address.host), server.port());
  if (std::fflush(stdout) != 0) throw std::runtime_error("cannot write to standard output");
  server.start();
  int number = 0;
  ::sigwait(&signals, &number);
  const bool isServed = server.stop(400ms), isQuiet = observer.stop(400ms);
  // A connect to a database whose machine is gone hangs for as long as its network wants. Nothing
  // is lost with it: a change that is not committed is backed out by whoever connects next.
  if (!isServed || !isQuiet) {
    std::fflush(stdout);
    ::_exit(0);
  }
  return 0;
}

} // namespace bxm::console
