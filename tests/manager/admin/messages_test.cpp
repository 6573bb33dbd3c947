#include "tests/manager/admin/programs.h"

#include <csignal>
#include <set>
#include <thread>

namespace {

using testing::HasSubstr;
using namespace std::string_literals;

/// Messages with all that an operator's commands do with them.
class Messages : public Programs {
protected:
  Messages() {
    for (const char* queue : {"A", "B"}) done({"queue", "create", queue, "--max-depth", "100000"});
  }
  void load(const std::string& queue, const std::string& lines,
            const std::vector<std::string>& how = {}) const {
    std::vector<std::string> words{support::binDir() + "/ferry", "-f", queue};
    words.insert(words.end(), how.begin(), how.end());
    EXPECT_EQ(support::Process(words).environment("BXM_HOME", home).input(lines).run().status, 0);
  }
  std::string shown(const std::string& queue) const { return run("ferry", {"-p", queue}).out; }
  std::string exported(const std::string& queue) const { return bxadm({"export", queue}).out; }
  support::Result import(const std::string& queue, const std::string& lines) const {
    return support::Process({support::binDir() + "/bxadm", "import", queue})
        .environment("BXM_HOME", home)
        .input(lines)
        .run();
  }
  static std::string numbers(int count) {
    std::string lines;
    for (int i = 1; i <= count; ++i) lines += std::to_string(i) + "\n";
    return lines;
  }
};

TEST_F(Messages, AreMovedAsTheyAre) {
  load("A", "first\nsecond\n");
  load("A", "urgent\n", {"-l", "7"});
  load("A", "gone some day\n", {"-o", "9999"});
  load("B", "was here\n", {"-l", "7"});
  const std::string before = exported("A");
  EXPECT_EQ(done({"move", "A", "B", "--matching", "econ"}), "1 message moved from A to B.\n");
  EXPECT_EQ(shown("B"), "was here\nsecond\n");
  EXPECT_EQ(done({"move", "A", "B", "--count", "2"}), "2 messages moved from A to B.\n");
  EXPECT_EQ(shown("B"), "was here\nurgent\nsecond\nfirst\n");
  EXPECT_EQ(done({"move", "A", "B"}), "1 message moved from A to B.\n");
  std::istringstream lines(before);
  for (std::string line; std::getline(lines, line);) EXPECT_THAT(exported("B"), HasSubstr(line));
  done({"queue", "create", "SMALL", "--max-depth", "2"});
  done({"queue", "create", "SHUT", "--inhibit-put", "yes", "--inhibit-get", "yes"});
  EXPECT_THAT(bxadm({"move", "B", "SHUT"}), FailsWithOneLine("puts to queue SHUT are inhibited"));
  EXPECT_THAT(bxadm({"move", "SHUT", "B"}), FailsWithOneLine("gets from queue SHUT"));
  EXPECT_THAT(bxadm({"move", "B", "NONE"}), FailsWithOneLine("no queue NONE"));
  EXPECT_THAT(bxadm({"move", "B", "B"}), FailsWithOneLine("itself"));
  const auto full = bxadm({"move", "B", "SMALL"});
  EXPECT_EQ(full.out, "2 messages moved from B to SMALL.\n");
  EXPECT_THAT(full.err, HasSubstr("queue SMALL is full"));
  EXPECT_EQ(done({"queue", "purge", "B", "--force"}), "Queue B purged of 3 messages.\n");
  EXPECT_EQ(shown("B") + shown("SMALL"), "was here\nurgent\n");
  load("B", "one\n");
  EXPECT_EQ(done({"move", "B", "SMALL", "--matching", "none of them"}),
            "0 messages moved from B to SMALL.\n");
  done({"queue", "create", "SHORT", "--max-length", "4", "--max-depth", "1"});
  EXPECT_EQ(done({"move", "B", "SHORT"}), "1 message moved from B to SHORT.\n");
  done({"queue", "alter", "SHORT", "--max-depth", "9"});
  load("B", "two\nthree\nfour\n");
  const auto tooLong = bxadm({"move", "B", "SHORT"});
  EXPECT_EQ(tooLong.out, "1 message moved from B to SHORT.\n");
  EXPECT_THAT(tooLong.err, HasSubstr("up to 4 bytes; the next one has 6"));
  EXPECT_EQ(shown("SHORT") + shown("B"), "one\ntwo\nthree\nfour\n");
}

TEST_F(Messages, AreExportedAndImportedByteForByte) {
  load("A", "zero \0 byte\nnot \xFF UTF-8\n\n\"quoted\\\" \xC3\xA9\n"s, {"-l", "3"});
  load("A", "expires\n", {"-o", "9999"});
  const std::string lines = exported("A");
  EXPECT_EQ(import("B", lines).out, "5 messages imported to queue B.\n");
  EXPECT_EQ(exported("B"), lines);
  EXPECT_EQ(shown("B"), shown("A"));
  const std::string whole =
      R"({"id":"000102030405060708090a0b0c0d0e0f1011121314151617","priority":9,)"
      R"("put":"2026-11-22T09:30:00.125Z","persistent":false,)"
      R"("correlation":"ff0102030405060708090a0b0c0d0e0f1011121314151617",)"
      R"("format":"OTHER","message_type":1,"reply_to_queue":"ANSWERS","user_hex":)"
      R"("ff2020202020202020202020","sequence_number":7,"base64":"/wBh"})"
      "\n";
  EXPECT_EQ(import("B", whole).status, 0);
  EXPECT_EQ(exported("B"), whole + lines);
  const std::string id = whole.substr(0, whole.find(','));
  for (const auto& [line, text] : std::vector<std::pair<std::string, std::string>>{
           {"{", "line 2: at column 2 it"},
           {"[]", "not a JSON object"},
           {"{}", "neither text nor base64"},
           {R"({"text":"x"})", "no id"},
           {id + R"(,"text":"x","priority":10})", "from 0 to 9"},
           {id + R"(,"text":"x","priority":4294967301})", "from 0 to 9"},
           {id + R"(,"text":"x","flags":1.5})", "'flags' is a whole number"},
           {id + R"(,"text":7})", "'text' is a text"},
           {id + R"(,"text":"x","put":"yesterday"})", "'yesterday' is no time"},
           {id + R"(,"text":"x","put":"2026-11-22T24:00:00.000Z"})", "is no time"},
           {id + R"(,"text":"x","expires":"1970-01-01T00:00:00.000Z"})", "not after 1970"},
           {id + R"(,"base64":"Yg==Yg=="})", "not base64"},
           {id + R"(,"text":"x","base64":"Yg=="})", "both text and base64"},
           {id + R"(,"base64":"?"})", "not base64"},
           {id + R"(,"text":"x","user":"longer than 12 bytes"})", "'user' has 12 bytes"},
           {id + R"(,"text":"x","frob":1})", "'frob' is not known"}})
    EXPECT_THAT(import("B", whole + line + "\n"), FailsWithOneLine(text)) << line;
  support::Process fromFolder({support::binDir() + "/bxadm", "import", "B"});
  fromFolder.environment("BXM_HOME", home).redirect(0, home, O_RDONLY);
  EXPECT_THAT(fromFolder.run(), FailsWithOneLine("standard input"));
  EXPECT_EQ(exported("B"), whole + lines) << "nothing was imported";
  load("A", numbers(100)); // more than is buffered
  support::Process toFullDisk({support::binDir() + "/bxadm", "export", "A"});
  toFullDisk.environment("BXM_HOME", home).redirect(1, "/dev/full", O_WRONLY);
  EXPECT_THAT(toFullDisk.run(), FailsWithOneLine("standard output"));
}

TEST_F(Messages, AreOnOneOfTheTwoQueuesWhenAMoveIsKilled) {
  constexpr int kCount = 30'000;
  load("A", numbers(kCount));
  for (int kills = 0; kills < 20;) {
    for (const char* from : {"A", "B"}) {
      support::Process move({support::binDir() + "/bxadm", "move", from, *from == 'A' ? "B" : "A"});
      move.environment("BXM_HOME", home).start();
      std::this_thread::sleep_for(std::chrono::milliseconds(5 + kills * 7 % 60));
      move.signal(SIGKILL);
      kills += move.wait().killed ? 1 : 0;
    }
  }
  std::set<std::string> seen;
  int count = 0;
  std::istringstream lines(exported("A") + exported("B"));
  for (std::string line; std::getline(lines, line); ++count) seen.insert(line);
  EXPECT_EQ(count, kCount);
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kCount));
}

} // namespace
