#include "tests/manager/faults/peer.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
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

pid_t startClient(const std::vector<std::string>& arguments, const Environment& environment,
                  int input, int output, const std::string& errors) {
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::setpgid(0, 0); // a group that nobody controls could not be stopped by SIGTSTP
  if (input >= 0) ::dup2(input, 0);
  if (output >= 0) ::dup2(output, 1);
  if (!errors.empty()) ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666), 2);
  for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
  if (environment.contains("LD_PRELOAD")) // a sanitizer would have itself be first
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
  const std::string program = clientProgram();
  std::vector<char*> words{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  ::execv(words[0], words.data());
  ::_exit(127);
}

Peer::Peer(const std::string& home, Environment environment, const std::string& errors) {
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
    throw std::runtime_error("pipe2 failed");
  environment["BXM_HOME"] = home;
  m_pid = startClient({}, environment, in[0], out[1], errors);
  ::close(in[0]);
  ::close(out[1]);
  m_in = in[1];
  m_out = out[0];
}

Peer::~Peer() {
  ::close(m_in);
  ::close(m_out);
  if (m_pid <= 0) return;
  ::kill(m_pid, SIGKILL);
  ::waitpid(m_pid, nullptr, 0);
}

void Peer::tell(const std::string& words) {
  const std::string line = words + "\n";
  ::signal(SIGPIPE, SIG_IGN);
  [[maybe_unused]] const ssize_t n = ::write(m_in, line.data(), line.size());
}

std::optional<std::string> Peer::answer(std::chrono::milliseconds limit) {
  for (;;) {
    if (const auto end = m_read.find('\n'); end != std::string::npos) {
      std::string line = m_read.substr(0, end);
      m_read.erase(0, end + 1);
      return line;
    }
    pollfd ready{m_out, POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(limit.count())) == 0)
      throw std::runtime_error("no answer in time");
    char bytes[65536];
    const ssize_t n = ::read(m_out, bytes, sizeof bytes);
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

void Peer::signal(int number) const { ::kill(m_pid, number); }

bool Peer::waitForDeath() {
  int status = 0;
  ::waitpid(m_pid, &status, 0);
  m_pid = -1;
  return WIFSIGNALED(status);
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
