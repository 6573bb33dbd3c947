#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace faults {

/// Where the programs beside the test were built.
std::string clientProgram();
std::string preloadLibrary();

using Environment = std::map<std::string, std::string>;

/// Starts the client program with an environment; its standard error goes to a file when one is
/// given.
pid_t startClient(const std::vector<std::string>& arguments, const Environment& environment,
                  int input, int output, const std::string& errors = "");

/// A client program that waits for words. It is killed with its scope.
class Peer {
public:
  explicit Peer(const std::string& home, Environment environment = {},
                const std::string& errors = "");
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  /// The answer, or nullopt when the program died over it. Throws std::runtime_error when there is
  /// neither for ten seconds.
  std::optional<std::string> ask(const std::string& words);
  void tell(const std::string& words);
  std::optional<std::string> answer(std::chrono::milliseconds limit = std::chrono::seconds(10));
  /// The answer's part behind "0 0", each word; throws when the answer is another.
  std::vector<std::string> words(const std::string& question);

  void signal(int number) const;
  /// Waits for the end; true when a signal ended it.
  bool waitForDeath();
  pid_t pid() const { return m_pid; }

private:
  pid_t m_pid = -1;
  int m_in = -1, m_out = -1;
  std::string m_read;
};

/// How long something takes.
template <typename Body>
std::chrono::milliseconds timed(Body body) {
  const auto begin = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               begin);
}

/// A number from the environment of the test.
int setting(const char* name, int byDefault);

std::vector<std::string> split(const std::string& text);

} // namespace faults
