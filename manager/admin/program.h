#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// What the operator's programs share: their arguments and how they end.
namespace bxm::admin {

/// The command line is wrong; the usage is shown.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// The words of a command line, taken one by one. Everything throws a UsageError.
class Arguments {
public:
  Arguments(int count, char** values) : m_words(values + 1, values + count) {}
  std::string takeWord();
  std::string takeName();
  bool takeFlag(const std::string& flag);
  /// The word after an option that must be there, or may be.
  std::string takeValue(const std::string& option);
  std::optional<std::string> takeOptionalValue(const std::string& option);
  bool empty() const { return m_words.empty(); }
  void expectEnd() const;

private:
  std::vector<std::string> m_words;
};

/// Runs body; status 0, 1 with one line on standard error for a failure, 2 with the usage.
int runProgram(const char* name, const char* usage, int count, char** values,
               const std::function<int(Arguments&)>& body);

} // namespace bxm::admin
