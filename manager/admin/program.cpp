#include "manager/admin/program.h"

#include <algorithm>
#include <csignal>
#include <cstdio>

namespace bxm::admin {

std::string Arguments::takeWord() {
  if (m_words.empty()) throw UsageError("a word is missing");
  const std::string word = m_words.front();
  m_words.erase(m_words.begin());
  return word;
}

std::string Arguments::takeName() {
  const std::string name = takeWord();
  if (name.starts_with("-")) throw UsageError("unknown option '" + name + "'");
  return name;
}

bool Arguments::takeFlag(const std::string& flag) {
  const auto found = std::find(m_words.begin(), m_words.end(), flag);
  if (found == m_words.end()) return false;
  m_words.erase(found);
  return true;
}

std::string Arguments::takeValue(const std::string& option) {
  const auto value = takeOptionalValue(option);
  if (!value) throw UsageError(option + " is missing");
  return *value;
}

std::optional<std::string> Arguments::takeOptionalValue(const std::string& option) {
  const auto found = std::find(m_words.begin(), m_words.end(), option);
  if (found == m_words.end()) return std::nullopt;
  if (found + 1 == m_words.end()) throw UsageError(option + " lacks its value");
  const std::string value = found[1];
  m_words.erase(found, found + 2);
  return value;
}

void Arguments::expectEnd() const {
  if (!m_words.empty()) throw UsageError("'" + m_words.front() + "' is too much");
}

int runProgram(const char* name, const char* usage, int count, char** values,
               const std::function<int(Arguments&)>& body) {
  std::signal(SIGXFSZ, SIG_IGN); // a file at its limit is an error like a full disk
  try {
    Arguments arguments(count, values);
    const int status = body(arguments);
    if (std::fflush(stdout) == 0) return status;
    std::fprintf(stderr, "%s: cannot write to standard output\n", name);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "%s: %s\n%s", name, error.what(), usage);
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", name, error.what());
  }
  return 1;
}

} // namespace bxm::admin
