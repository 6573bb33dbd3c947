#pragma once

#include "tests/support/temp_folder.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace support {

inline std::string readFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

inline void writeFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// The folder of the built programs (libraries), from the environment of the test.
inline std::string binDir() {
  const char* dir = std::getenv("FERRY_BIN_DIR");
  return dir ? dir : "../bin";
}
inline std::string libDir() {
  const char* dir = std::getenv("FERRY_LIB_DIR");
  return dir ? dir : "../lib";
}

/// What is left of a program that ended.
struct Result {
  int status = -1;     ///< exit status, or 128 + the signal that ended it
  bool killed = false; ///< by a signal
  std::string out;
  std::string err;
};

/// One run of a program. Set it up, start it, talk to it, wait for its end:
///
///     Process p({binDir() + "/ferry", "-f", "Q"});
///     Result r = p.input("one\n").run();
///
/// Output goes to files, so that a program never waits for the test to read. Without an input the
/// standard input is empty. A program that still runs at the end of the scope is killed.
class Process {
public:
  explicit Process(std::vector<std::string> arguments) : m_arguments(std::move(arguments)) {
    writeFile(m_folder / "0", "");
    redirect(0, m_folder / "0", O_RDONLY);
    redirect(1, m_folder / "1", O_WRONLY | O_CREAT | O_APPEND);
    redirect(2, m_folder / "2", O_WRONLY | O_CREAT | O_APPEND);
    libraries(libDir());
  }
  ~Process() {
    for (const auto& [descriptor, pipe] : m_pipes) close(descriptor);
    if (m_pid <= 0) return;
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// Where a program finds its client library when it is not the build's.
  Process& libraries([[maybe_unused]] const std::string& folder) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // Its dlopen is the caller of the real one, so that the program's own RUNPATH is not searched.
    environment("LD_LIBRARY_PATH", std::filesystem::absolute(folder).string());
#endif
    return *this;
  }
  Process& environment(const std::string& name, const std::string& value) {
    m_environment[name] = value;
    return *this;
  }
  Process& input(const std::string& text) {
    writeFile(m_folder / "0", text);
    return *this;
  }
  Process& redirect(int descriptor, const std::string& path, int flags) {
    m_files[descriptor] = {path, flags};
    return *this;
  }
  Process& inherit(int descriptor) {
    m_files.erase(descriptor);
    return *this;
  }
  /// The folder that the program starts in.
  Process& in(const std::string& folder) {
    m_startFolder = folder;
    return *this;
  }
  /// A group that nobody controls could not be stopped by SIGTSTP.
  Process& inOwnGroup() {
    m_ownGroup = true;
    return *this;
  }
  /// Gives the program a pipe; the test keeps the other end until close().
  Process& pipe(int descriptor) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    m_files.erase(descriptor);
    m_pipes[descriptor] = {ends[descriptor == 0 ? 0 : 1], ends[descriptor == 0 ? 1 : 0]};
    return *this;
  }

  Process& start() {
    m_pid = ::fork();
    if (m_pid == 0) become();
    for (auto& [descriptor, pipe] : m_pipes) ::close(std::exchange(pipe.theirs, -1));
    return *this;
  }
  void write(const std::string& text) {
    if (::write(m_pipes.at(0).ours, text.data(), text.size()) != ssize_t(text.size()))
      throw std::runtime_error("write to the program failed");
  }
  void close(int descriptor) {
    auto& pipe = m_pipes.at(descriptor);
    if (pipe.theirs >= 0) ::close(std::exchange(pipe.theirs, -1));
    if (pipe.ours >= 0) ::close(std::exchange(pipe.ours, -1));
  }
  void signal(int number) const { ::kill(m_pid, number); }
  /// Waits until a signal has stopped it; false when it has ended.
  bool waitForStop() {
    int status = 0;
    ::waitpid(m_pid, &status, WUNTRACED);
    if (!WIFSTOPPED(status)) m_pid = -1;
    return WIFSTOPPED(status);
  }
  pid_t pid() const { return m_pid; }
  /// The test's end of a pipe.
  int end(int descriptor) const { return m_pipes.at(descriptor).ours; }
  std::string out() const { return readFile(m_folder / "1"); }
  std::string err() const { return readFile(m_folder / "2"); }

  /// Waits for the end; a program that takes longer is killed.
  Result wait(std::chrono::milliseconds limit = std::chrono::seconds(120)) {
    int status = 0;
    const auto end = std::chrono::steady_clock::now() + limit;
    while (::waitpid(m_pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > end) ::kill(m_pid, SIGKILL);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    m_pid = -1;
    for (auto& [descriptor, pipe] : m_pipes) close(descriptor);
    const bool killed = WIFSIGNALED(status);
    return {killed ? 128 + WTERMSIG(status) : WEXITSTATUS(status), killed, out(), err()};
  }
  Result run() { return start().wait(); }

private:
  struct File {
    std::string path;
    int flags = 0;
  };
  struct Pipe {
    int theirs = -1;
    int ours = -1;
  };

  [[noreturn]] void become() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGPIPE})
      ::signal(number, SIG_DFL); // whatever the tests were started by
    if (m_ownGroup) ::setpgid(0, 0);
    for (const auto& [descriptor, pipe] : m_pipes) ::dup2(pipe.theirs, descriptor);
    for (const auto& [descriptor, file] : m_files) {
      ::close(descriptor);
      const int opened = ::open(file.path.c_str(), file.flags, 0600);
      if (opened != descriptor) {
        ::dup2(opened, descriptor);
        ::close(opened);
      }
    }
    if (!m_startFolder.empty() && ::chdir(m_startFolder.c_str()) != 0) ::_exit(127);
    for (const auto& [name, value] : m_environment) ::setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> arguments;
    for (auto& argument : m_arguments) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }

  TempFolder m_folder;
  std::vector<std::string> m_arguments;
  std::string m_startFolder;
  bool m_ownGroup = false;
  std::map<std::string, std::string> m_environment;
  std::map<int, File> m_files;
  std::map<int, Pipe> m_pipes;
  pid_t m_pid = -1;
};

/// Waits until something holds; false when it does not within the limit.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(30)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

} // namespace support
