#include "manager/console/access.h"

#include "manager/base/random_number.h"
#include "manager/console/problem.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bxm::console {

namespace {

constexpr std::size_t kLeastToken = 16, kMostToken = 512;

/// Takes as long for any two words of some lengths.
bool isSame(std::string_view word, std::string_view secret) {
  std::size_t different = word.size() ^ secret.size();
  for (std::size_t i = 0; i < word.size(); ++i)
    different |= static_cast<std::size_t>(word[i] ^ secret[i % secret.size()]);
  return different == 0;
}

/// Of names that have no case.
bool isAlike(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Random numbers are looked up by their beginnings, which tells nobody anything.
std::string newSession() { return fmt::format("{:016x}{:016x}", randomNumber(), randomNumber()); }

std::string readTokenFile(int file, const std::string& name) {
  struct stat status {};
  if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
    throw std::runtime_error("the token file " + name + " is no regular file");
  if (status.st_uid != ::geteuid() && status.st_uid != 0)
    throw std::runtime_error("the token file " + name + " belongs to somebody else");
  if ((status.st_mode & 077) != 0)
    throw std::runtime_error("the token file " + name +
                             " can be read or written by others: chmod 600 it");
  char bytes[kMostToken + 3];
  const ssize_t count = ::read(file, bytes, sizeof bytes);
  return {bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

} // namespace

std::string tokenIn(const std::string& name) {
  const int file = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (file < 0)
    throw std::runtime_error("cannot read the token file " + name + ": " + std::strerror(errno));
  std::string token;
  try {
    token = readTokenFile(file, name);
  } catch (...) {
    ::close(file);
    throw;
  }
  ::close(file);
  if (token.ends_with('\n')) token.pop_back();
  if (token.size() < kLeastToken || token.size() > kMostToken ||
      std::any_of(token.begin(), token.end(), [](char c) { return c <= ' ' || c >= '\x7F'; }))
    throw std::runtime_error("the token file " + name +
                             " is not one line of 16 to 512 printable characters without spaces");
  return token;
}

// ---- Where requests come from -------------------------------------------------------------------

bool Access::isOurs(std::string_view host) const {
  if (const std::size_t colon = host.rfind(':');
      colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos)
    host = host.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  return isAlike(host, m_host) || (m_isLoopback && isAlike(host, "localhost"));
}

void Access::checkOrigin(const Request& request) const {
  const std::string host = request.header("host"), origin = request.header("origin");
  if (!needsToken() && !isOurs(host)) throw Problem(403, "this is not the host that was asked for");
  if (request.isRead()) return;
  if (request.header("bx-console") != "change")
    throw Problem(403, "the header BX-Console: change is missing");
  if (!origin.empty() && origin != "http://" + host && origin != "https://" + host)
    throw Problem(403, "a page of elsewhere may not do this");
}

// ---- Who asks -----------------------------------------------------------------------------------

/// Limited for each address, so that who guesses keeps nobody else out.
bool Access::isToken(const Request& request, std::string_view word) {
  const auto now = Clock::now();
  const std::lock_guard lock(m_mutex);
  while (!m_guesses.empty() && now - m_guesses.front().time > std::chrono::seconds(1))
    m_guesses.pop_front();
  const auto own = std::count_if(m_guesses.begin(), m_guesses.end(),
                                 [&](const Guess& guess) { return guess.peer == request.peer; });
  if (static_cast<std::size_t>(own) >= kMostGuesses || m_guesses.size() >= kMostGuessesOfAll)
    throw Problem(429, "too many wrong tokens: try again soon");
  if (isSame(word, m_token)) return true;
  m_guesses.push_back({now, request.peer});
  return false;
}

std::string Access::sessionIn(const Request& request) const {
  const std::string cookies = "; " + request.header("cookie"), name = "; " + m_cookie + "=";
  const std::size_t at = cookies.find(name);
  if (at == std::string::npos) return "";
  const std::size_t begin = at + name.size();
  return cookies.substr(begin, cookies.find(';', begin) - begin);
}

void Access::forgetEnded(Clock::time_point now) {
  std::erase_if(m_sessions, [now](const auto& session) { return session.second <= now; });
}

Caller Access::callerOf(const Request& request) {
  if (!needsToken()) return Caller::kAnybody;
  constexpr std::string_view kScheme = "Bearer ";
  // Any other scheme is between the client and a proxy.
  if (const std::string word = request.header("authorization");
      isAlike(word.substr(0, kScheme.size()), kScheme))
    return isToken(request, word.substr(kScheme.size())) ? Caller::kToken : Caller::kNobody;
  const std::string session = sessionIn(request);
  const std::lock_guard lock(m_mutex);
  const auto found = m_sessions.find(session);
  return found != m_sessions.end() && found->second > Clock::now() ? Caller::kSession
                                                                   : Caller::kNobody;
}

Caller Access::require(const Request& request) {
  const Caller caller = callerOf(request);
  if (caller == Caller::kNobody) throw Problem(401, "the token is missing or wrong");
  return caller;
}

std::string Access::signIn(const Request& request, std::string_view token) {
  if (!isToken(request, token)) throw Problem(401, "the token is wrong");
  const std::string session = newSession();
  const auto now = Clock::now();
  const std::lock_guard lock(m_mutex);
  forgetEnded(now);
  if (m_sessions.size() >= kMostSessions) // the one that would end first
    m_sessions.erase(std::min_element(m_sessions.begin(), m_sessions.end(),
                                      [](auto& a, auto& b) { return a.second < b.second; }));
  m_sessions[session] = now + kSessionLife;
  return cookieOf(session, kSessionLife);
}

std::string Access::signOut(const Request& request) {
  const std::lock_guard lock(m_mutex);
  m_sessions.erase(sessionIn(request));
  return cookieOf("", std::chrono::seconds(0));
}

std::string Access::cookieOf(const std::string& session, std::chrono::seconds life) const {
  return fmt::format("{}={}; Path=/; HttpOnly; SameSite=Strict; Max-Age={}", m_cookie, session,
                     life.count());
}

const char* nameOf(Caller caller) {
  switch (caller) {
  case Caller::kAnybody: return "anybody";
  case Caller::kToken: return "token";
  case Caller::kSession: return "session";
  default: return "nobody";
  }
}

} // namespace bxm::console
