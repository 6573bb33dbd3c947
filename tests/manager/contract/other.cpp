#include "tests/manager/contract/other.h"

#include <csignal>
#include <sstream>

namespace contract {

Other::Other(const Binding& binding)
    : m_process(std::make_unique<support::Process>(std::vector<std::string>{
          support::binDir() + "/../tests/contract_other", binding.client})) {
  ::signal(SIGPIPE, SIG_IGN);
  m_process->pipe(0).pipe(1).start();
}

std::string Other::receive() {
  std::string line;
  for (std::string c = m_process->read(1); !c.empty() && c != "\n"; c = m_process->read(1))
    line += c;
  return line;
}

std::string Other::ask(const std::string& command) {
  send(command);
  return receive();
}

Codes Other::tell(const std::string& command) {
  std::istringstream answer(ask(command));
  Codes codes;
  answer >> codes.completion >> codes.reason;
  return codes;
}

void Other::kill() {
  m_process->signal(SIGKILL);
  m_process->wait();
}

} // namespace contract
