#include "tests/manager/faults/peer.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace faults {

namespace {

std::string besideTests(const char* name) {
  const char* folder = std::getenv("FAULTS_PROGRAMS");
  return std::string(folder ? folder : ".") + "/" + name;
}

} // namespace

std::string clientProgram() { return besideTests("faults_client"); }
std::string preloadLibrary() { return besideTests("libfaults_preload.so"); }

std::unique_ptr<support::Process> client(std::vector<std::string> arguments,
                                         const Environment& environment) {
  arguments.insert(arguments.begin(), clientProgram());
  auto program = std::make_unique<support::Process>(std::move(arguments));
  program->inOwnGroup().inherit(2);
  for (const auto& [name, value] : environment) program->environment(name, value);
  if (environment.contains("LD_PRELOAD")) // a sanitizer would have itself be first
    program->environment("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0");
  return program;
}

Peer::Peer(const std::string& home, Environment environment, const std::string& errors) {
  environment["BXM_HOME"] = home;
  m_program = client({}, environment);
  if (!errors.empty()) m_program->redirect(2, errors, O_WRONLY | O_CREAT | O_APPEND);
  m_program->pipe(0).pipe(1).start();
}

void Peer::tell(const std::string& words) {
  const std::string line = words + "\n";
  ::signal(SIGPIPE, SIG_IGN);
  [[maybe_unused]] const ssize_t n = ::write(m_program->end(0), line.data(), line.size());
}

std::optional<std::string> Peer::answer(std::chrono::milliseconds limit) {
  for (;;) {
    if (const auto end = m_read.find('\n'); end != std::string::npos) {
      std::string line = m_read.substr(0, end);
      m_read.erase(0, end + 1);
      return line;
    }
    pollfd ready{m_program->end(1), POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(limit.count())) == 0)
      throw std::runtime_error("no answer in time");
    char bytes[65536];
    const ssize_t n = ::read(ready.fd, bytes, sizeof bytes);
    if (n <= 0) return std::nullopt;
    m_read.append(bytes, static_cast<std::size_t>(n));
  }
}

std::optional<std::string> Peer::ask(const std::string& words) {
  tell(words);
  return answer();
}

std::vector<std::string> Peer::words(const std::string& question) {
  const auto got = ask(question);
  if (!got || !got->starts_with("0 0"))
    throw std::runtime_error(question + ": " + got.value_or("it died"));
  return split(got->substr(3));
}

int setting(const char* name, int byDefault) {
  const char* value = std::getenv(name);
  return value ? std::atoi(value) : byDefault;
}

std::vector<std::string> split(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

} // namespace faults
