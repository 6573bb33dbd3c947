// Runs the transcripts beside it: what a user types, and what must come of it.
//
//     == What the transcript shows
//     # why, where that is not plain
//     $ a command; bash runs it in a folder and with managers of the transcript's own
//     | a line of its standard output
//     ! a line of its standard error
//     ? its exit status, unless that is 0
//
// In what is expected "..." stands for anything, over several lines too.
#include "tests/support/postgres_cluster.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

const char* const WORDS =
    "ini() { printf '%s\\n' '[S]' \"$@\" > new.ini && mv new.ini ferry.ini; }\n"
    "eventually() { for n in {1..400}; do \"$@\" >&/dev/null && return; sleep .03; done\n"
    "  echo \"never: $*\" >&2; }\n"
    "on_terminal() { script -qec \"stty cols $1; $2\" /dev/null | cat -v; }\n"
    // A copy of the tool has no other client library beside it.
    "apart() { [ -x bin/ferry ] || install -D \"$(command -v ferry)\" bin/ferry\n"
    "  LD_LIBRARY_PATH=$1 bin/ferry \"${@:2}\"; }\n"
    "answering() { ANSWERS=$1 apart \"$ANSWERING\" \"${@:2}\"; }\n";

struct Step {
  std::string command;
  std::string expected;
};
struct Transcript {
  std::string file;
  int line;
  std::string title;
  std::vector<Step> steps;
};
void PrintTo(const Transcript& transcript, std::ostream* out) {
  *out << transcript.title << " (" << transcript.file << ":" << transcript.line << ")";
}

std::string nameOf(const ::testing::TestParamInfo<Transcript>& info) {
  std::string title = info.param.title;
  std::erase_if(title, [](unsigned char c) { return std::isalnum(c) == 0; });
  return info.param.file + "_" + title;
}

void readLine(std::vector<Transcript>& all, const std::string& line) {
  if (line.starts_with("$ "))
    all.back().steps.push_back({line.substr(2), ""});
  else if (line.starts_with("| ") || line.starts_with("! ") || line.starts_with("? "))
    all.back().steps.back().expected += line + "\n";
  else
    throw std::runtime_error(all.back().file + ": what is this? " + line);
}

std::vector<Transcript> readAll() {
  std::vector<Transcript> all;
  for (const auto& entry : std::filesystem::directory_iterator(TRANSCRIPTS)) {
    if (entry.path().extension() != ".transcript") continue;
    std::ifstream file(entry.path());
    std::string line;
    for (int n = 1; std::getline(file, line); ++n)
      if (line.starts_with("== "))
        all.push_back({entry.path().stem(), n, line.substr(3), {}});
      else if (!line.empty() && !line.starts_with("#"))
        readLine(all, line);
  }
  return all;
}

std::string prefixed(const std::string& prefix, const std::string& text) {
  std::istringstream lines(text);
  std::string all;
  for (std::string line; std::getline(lines, line);) all += prefix + line + "\n";
  return text.empty() || text.ends_with('\n') ? all : all + "(without a newline)\n";
}

std::string outcome(const Result& r) {
  const std::string status = r.status == 0 ? "" : "? " + std::to_string(r.status) + "\n";
  return prefixed("| ", r.out) + prefixed("! ", r.err) + status;
}

bool matches(std::string_view pattern, std::string_view text) {
  const size_t dots = pattern.find("...");
  if (dots == std::string_view::npos) return pattern == text;
  if (!text.starts_with(pattern.substr(0, dots))) return false;
  pattern.remove_prefix(dots + 3);
  for (text.remove_prefix(dots); !matches(pattern, text); text.remove_prefix(1))
    if (text.empty()) return false;
  return true;
}

/// Where the transcript's managers are: in a folder, or, where TRANSCRIPTS_ON says so, in a
/// database that only the tool of a client installation reaches.
class Managers {
public:
  Managers() {
    if (!inDatabase()) return;
    static int number = 0;
    m_database = "transcript_" + std::to_string(++number);
    cluster().psql("postgres", "CREATE DATABASE " + m_database);
    std::filesystem::create_directory(m_folder / "managers");
    writeFile(m_folder / "managers/bxclient.ini",
              "[managers]\ndefault = DEFAULT\nDEFAULT = " + cluster().uri(m_database) + "\n");
  }
  ~Managers() {
    if (inDatabase()) cluster().psql("postgres", "DROP DATABASE " + m_database + " WITH (FORCE)");
  }
  std::string home() const { return m_folder / "managers"; }
  /// What makes another manager live there, too.
  std::string store() const { return inDatabase() ? "--store " + cluster().uri(m_database) : ""; }
  static std::string client() {
    return std::filesystem::absolute(libDir()) / (inDatabase() ? "libbxic_r.so" : "libbxm_r.so");
  }
  static std::string answering() {
    return std::string(ANSWERING) + (inDatabase() ? "_postgres" : "");
  }
  static std::string libraries() { return libDir() + (inDatabase() ? "/../client/lib" : ""); }
  static std::string path() {
    const std::string bin = std::filesystem::absolute(binDir()).string();
    return (inDatabase() ? bin + "/../client/bin:" : "") + bin + ":" + std::getenv("PATH");
  }

private:
  static bool inDatabase() { return std::getenv("TRANSCRIPTS_ON") != nullptr; }
  static PostgresCluster& cluster() {
    static PostgresCluster one;
    return one;
  }
  TempFolder m_folder;
  std::string m_database;
};

class Transcripts : public ::testing::TestWithParam<Transcript> {};

} // namespace

TEST_P(Transcripts, ShowWhatHappens) {
  const TempFolder folder;
  const Managers managers;
  for (const auto& [command, expected] : GetParam().steps) {
    Process bash({"/bin/bash", "-o", "pipefail", "-c", WORDS + command});
    bash.libraries(Managers::libraries())
        .environment("PATH", Managers::path())
        .environment("BXM_HOME", managers.home())
        .environment("STORE", managers.store())
        .environment("CLIENT", Managers::client())
        .environment("ANSWERING", Managers::answering());
    const std::string actual = outcome(bash.in(folder.path().string()).run());
    if (!matches(expected, actual)) {
      EXPECT_EQ(expected, actual) << "$ " << command;
    }
  }
}
INSTANTIATE_TEST_SUITE_P(OfTheTool, Transcripts, ::testing::ValuesIn(readAll()), nameOf);
