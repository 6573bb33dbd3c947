// A program that does with a manager what it is told, one line on standard input at a time, and
// answers each with a line "completion reason [more]". Whoever talks to it sees by the missing
// answer in the middle of which call it died.

#include "tests/manager/faults/load.h"
#include "tests/manager/faults/words.h"

#include <iostream>
#include <sstream>
#include <unistd.h>

namespace {

using faults::Codes;
using faults::Connection;
using faults::kOk;

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : " ") + name;
  return text;
}

class Interpreter {
public:
  std::string answer(const std::string& line) {
    std::istringstream in(line);
    std::string verb;
    in >> verb;
    m_more.clear();
    const Codes codes = run(verb, in);
    return std::to_string(codes.completion) + " " + std::to_string(codes.reason) +
           (m_more.empty() ? "" : " " + m_more);
  }

private:
  Codes run(const std::string& verb, std::istringstream& in) {
    if (verb == "disconnect") return m_connection.disconnect();
    if (verb == "commit") return m_connection.commit();
    if (verb == "backout") return m_connection.backout();
    std::string queue;
    in >> queue;
    if (verb == "connect") return m_connection.connect(queue); // a manager, or none
    if (verb == "put" || verb == "sput" || verb == "eput") return put(verb, queue, in);
    if (verb == "sputn") return putMany(queue, in);
    if (verb == "sgetn") return getMany(queue, in);
    if (verb == "get" || verb == "sget") return get(verb == "sget", queue, in);
    if (verb == "browse") return browse(queue);
    return administer(verb, queue, in);
  }

  Codes put(const std::string& verb, const std::string& queue, std::istringstream& in) {
    std::string name;
    contract::PutHow how{.options = verb == "sput" ? BXPMO_SYNCPOINT : BXPMO_NONE};
    in >> name;
    if (BXLONG number; in >> number) (verb == "eput" ? how.expiry : how.priority) = number;
    return m_connection.put(queue, name, how);
  }

  Codes putMany(const std::string& queue, std::istringstream& in) {
    std::string stem, size;
    int count = 0;
    in >> stem >> count >> size;
    Codes codes = kOk;
    for (int i = 0; i < count && codes == kOk; ++i)
      codes = m_connection.put(queue, stem + std::to_string(i) + size, contract::kPutLater);
    return codes;
  }

  Codes getMany(const std::string& queue, std::istringstream& in) {
    std::string name;
    int count = 0;
    in >> count;
    Codes codes = kOk;
    while (count-- > 0 && codes == kOk) codes = m_connection.get(queue, true, 0, name);
    return codes;
  }

  Codes get(bool syncpoint, const std::string& queue, std::istringstream& in) {
    BXLONG wait = 0;
    in >> wait;
    return m_connection.get(queue, syncpoint, wait, m_more);
  }

  Codes browse(const std::string& queue) {
    std::vector<std::string> names;
    const Codes codes = m_connection.browse(queue, names);
    m_more = joined(names);
    return codes;
  }

  Codes administer(const std::string& verb, const std::string& queue, std::istringstream& in) {
    BXLONG number = 0;
    in >> number;
    if (verb == "create") return m_connection.create(queue, number ? number : 100000);
    if (verb == "change") return m_connection.change(queue, number);
    if (verb == "delete") return m_connection.remove(queue, number != 0);
    if (verb != "depth") return {BXCC_FAILED, -1};
    const Codes codes = m_connection.depth(queue, number);
    m_more = std::to_string(number);
    return codes;
  }

  Connection m_connection;
  std::string m_more;
};

} // namespace

int main(int count, char** values) {
  if (count > 1) return faults::runLoad({values + 1, values + count});
  Interpreter interpreter;
  for (std::string line; std::getline(std::cin, line);)
    std::cout << interpreter.answer(line) << std::endl;
  ::_exit(0); // an end of input is not a disconnect: what is open dies with the process
}
