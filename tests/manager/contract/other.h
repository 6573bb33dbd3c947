#pragma once

#include "tests/manager/contract/binding.h"
#include "tests/manager/contract/vocabulary.h"
#include "tests/support/process.h"

#include <memory>
#include <string>

namespace contract {

/// Another process that works on the same managers, one command a line (see other_main.cpp). It
/// starts connected to the default manager. Killed at the end of the scope, if not before.
class Other {
public:
  explicit Other(const Binding& binding);

  /// Sends a command and waits for the answer.
  std::string ask(const std::string& command);
  /// The same for commands that answer with codes first.
  Codes tell(const std::string& command);
  /// The two halves of ask, for what takes its time.
  void send(const std::string& command) { m_process->write(command + "\n"); }
  std::string receive();
  void kill();

private:
  std::unique_ptr<support::Process> m_process;
};

} // namespace contract
