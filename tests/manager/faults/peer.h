#pragma once

#include "tests/support/process.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace faults {

/// Where the programs beside the test were built.
std::string clientProgram();
std::string preloadLibrary();

using Environment = std::map<std::string, std::string>;

/// The client program, not yet started.
std::unique_ptr<support::Process> client(std::vector<std::string> arguments,
                                         const Environment& environment);

/// A client program that waits for words. It is killed with its scope.
class Peer {
public:
  /// Its standard error goes to a file when one is given.
  explicit Peer(const std::string& home, Environment environment = {},
                const std::string& errors = "");

  /// The answer, or nullopt when the program died over it. Throws std::runtime_error when there is
  /// neither for two minutes.
  std::optional<std::string> ask(const std::string& words);
  void tell(const std::string& words);
  std::optional<std::string> answer(std::chrono::milliseconds limit = std::chrono::seconds(120));
  /// The answer's part behind "0 0", each word; throws when the answer is another.
  std::vector<std::string> words(const std::string& question);

  void signal(int number) const { m_program->signal(number); }
  /// Waits for the end; true when a signal ended it.
  bool waitForDeath() { return m_program->wait().killed; }
  bool waitForStop() { return m_program->waitForStop(); }
  pid_t pid() const { return m_program->pid(); }

private:
  std::unique_ptr<support::Process> m_program;
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
