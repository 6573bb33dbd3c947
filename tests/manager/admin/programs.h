#pragma once

#include "tests/support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

/// The operator's programs as an operator runs them, over an empty home.
class Programs : public testing::Test {
protected:
  support::Result run(const std::string& program, std::vector<std::string> words = {}) const {
    words.insert(words.begin(), support::binDir() + "/" + program);
    return support::Process(std::move(words)).environment("BXM_HOME", home).run();
  }
  support::Result bxadm(std::vector<std::string> words) const { return run("bxadm", words); }

  /// The command is to succeed; what it said.
  std::string done(std::vector<std::string> words) const {
    const auto result = bxadm(std::move(words));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  /// The managers' names, the default one's with a star.
  std::string managers() const {
    std::istringstream table(done({"manager", "list"}));
    std::string line, name, isDefault, names;
    for (std::getline(table, line); table >> name >> isDefault && std::getline(table, line);)
      names += name + (isDefault == "yes" ? "* " : " ");
    return names;
  }

  support::TempFolder folder;
  std::string home = folder / "home"; ///< made by the first command that needs it
};

/// Status 1, nothing on standard output, and one line that begins with the program's name and
/// contains a text.
MATCHER_P(FailsWithOneLine, text, "") {
  return arg.status == 1 && !arg.killed && arg.out.empty() &&
         std::count(arg.err.begin(), arg.err.end(), '\n') == 1 && arg.err.ends_with('\n') &&
         arg.err.find(": ") != std::string::npos && arg.err.find(text) != std::string::npos;
}

namespace support {
inline void PrintTo(const Result& result, std::ostream* out) {
  *out << "status " << result.status << ", out '" << result.out << "', err '" << result.err << "'";
}
} // namespace support
