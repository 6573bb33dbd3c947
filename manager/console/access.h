#pragma once

#include "manager/console/http.h"

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace bxm::console {

/// The token in a file. Throws std::runtime_error where the file's owner, mode or content is wrong.
std::string tokenIn(const std::string& file);

/// Who may ask for what. Any number of threads.
class Access {
public:
  static constexpr std::size_t kMostSessions = 1000;
  static constexpr std::size_t kMostGuesses = 5;         ///< wrong tokens a second of one address
  static constexpr std::size_t kMostGuessesOfAll = 1000; ///< of all of them together

  /// host: where the console listens. An empty token: everybody may.
  Access(std::string host, bool isLoopback, std::string token)
      : m_host(std::move(host)), m_isLoopback(isLoopback), m_token(std::move(token)) {}
  void listensOn(int port) { m_cookie = "bx-console-" + std::to_string(port); }

  bool needsToken() const { return !m_token.empty(); }

  /// Whether the request is for this console and no page of elsewhere had it sent. Throws Problem.
  void checkOrigin(const Request& request) const;

  /// Throws Problem 429.
  Caller callerOf(const Request& request);
  /// Throws Problem 401 where there is a token and the caller does not know it.
  Caller require(const Request& request);

  /// For a token: the cookie to set. Throws Problem 401, 429.
  std::string signIn(const Request& request, std::string_view token);
  /// The cookie to set.
  std::string signOut(const Request& request);

private:
  using Clock = std::chrono::steady_clock;
  static constexpr auto kSessionLife = std::chrono::hours(12);

  struct Guess {
    Clock::time_point time;
    std::string peer;
  };

  bool isToken(const Request& request, std::string_view word);
  bool isOurs(std::string_view host) const;
  std::string sessionIn(const Request& request) const;
  std::string cookieOf(const std::string& session, std::chrono::seconds life) const;
  void forgetEnded(Clock::time_point now);

  const std::string m_host;
  const bool m_isLoopback;
  const std::string m_token;
  std::string m_cookie; ///< its name: browsers do not tell ports apart
  std::mutex m_mutex;
  std::map<std::string, Clock::time_point, std::less<>> m_sessions; ///< when each ends
  std::deque<Guess> m_guesses; ///< wrong ones of the last second
};

/// "session", "token", "anybody", "nobody".
const char* nameOf(Caller caller);

} // namespace bxm::console
