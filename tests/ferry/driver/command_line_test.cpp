#include "tests/support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace support;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

const std::string FRAME(79, '*');

/// The program as built, on a client library that only pretends and writes down its calls.
class CommandLine : public ::testing::Test {
protected:
  std::unique_ptr<Process> ferry(std::vector<std::string> arguments,
                                 const std::string& answers = "", int messages = 0) {
    arguments.insert(arguments.begin(), binDir() + "/ferry");
    auto process = std::make_unique<Process>(arguments);
    process->environment("LD_LIBRARY_PATH", CLIENTS_DIR);
    process->environment("BX_ANSWERS", answers);
    process->environment("BX_MESSAGES", std::to_string(messages));
    process->environment("BX_CALLS", m_folder / "calls");
    return process;
  }
  std::string calls() const { return readFile(m_folder / "calls"); }
  long called(const std::string& name) const {
    std::istringstream lines(calls());
    long count = 0;
    for (std::string line; std::getline(lines, line);) count += line.starts_with(name);
    return count;
  }

  /// Waits until a call was made and is not made any more.
  bool comesToRest(const std::string& name) const {
    return eventually([&] {
      const long count = called(name);
      std::this_thread::sleep_for(100ms);
      return count > 0 && called(name) == count;
    });
  }

  TempFolder m_folder;
};

} // namespace

TEST_F(CommandLine, ShowsItsUsage) {
  const Result r = ferry({})->run();
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_THAT(r.err, StartsWith(FRAME + "\n**  ferry "));
  const size_t frameEnd = r.err.rfind(FRAME);
  EXPECT_EQ(r.err.find("\n**\n"), std::string::npos);
  EXPECT_EQ(r.err.substr(frameEnd + FRAME.size()),
            "\n\nUsage:\n"
            " ferry -C qname [-m manager]\n"
            " ferry -f qname [-m manager] [-c count] [-t pause] [-l priority] [-o expire]\n"
            " ferry -i configsection\n"
            " ferry -k qname [-m manager] [-c count]\n"
            " ferry -p qname [-m manager] [-c count]\n"
            " ferry -r qname [-m manager] [-c count]\n"
            " ferry -s qname [-m manager]\n"
            " ferry -X qname [-m manager]\n"
            "\nOperations:\n"
            " -C          Create queue\n"
            " -f qname    Copy records from stdin in\n"
            " -i section  Send to multiple queues based on section in ferry.ini\n"
            " -k qname    Delete records\n"
            " -p qname    Peek records to stdout\n"
            " -r qname    Read records to stdout (records are removed)\n"
            " -s qname    Display status\n"
            " -X qname    Delete queue\n"
            "\nModifiers:\n"
            " -m manager  Specifies non-default queue manager\n"
            " -c count    Limit operation to count records\n"
            " -t pause    Milliseconds to wait between record operations\n"
            " -l priority Priority level of records\n"
            " -o expire   Number of seconds before a record expires.\n");
}

TEST_F(CommandLine, WithoutAQueueIsIncompleteAndTouchesNoManager) {
  const std::string usage = ferry({})->run().err;
  EXPECT_EQ(ferry({"-f", "", "-c", "5"})->run().err, "Invalid number of parameters.\n" + usage);
  EXPECT_EQ(ferry({"-f"})->run().err, "Invalid number of parameters.\n" + usage);
  EXPECT_EQ(ferry({"-c", "5"})->run().err, usage);
  EXPECT_EQ(calls(), "");
}

TEST_F(CommandLine, RefusesAQueueThatDoesNotExist) {
  for (const char* option : {"-f", "-r", "-p", "-k", "-s", "-X"}) {
    const Result r = ferry({option, "Q1", "-m", "QM"}, "BXOPEN=2:2085")->run();
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Queue Q1 does not exist. Use -C to create it.\n");
  }
}

TEST_F(CommandLine, CreatesAndDeletes) {
  Result r = ferry({"-C", "Q1", "-T"}, "BXOPEN=2:2085")->run();
  EXPECT_EQ(r.err, "Queue Q1 created.\n");
  r = ferry({"-C", "Q1", "-T"})->run();
  EXPECT_EQ(r.err, "Queue already exists.\n");
  EXPECT_EQ(r.status, 0);
  r = ferry({"-X", "Q1", "-T"})->run();
  EXPECT_EQ(r.out, "Queue Q1 deleted.\n");
  r = ferry({"-X", "Q1", "-T"}, "bxCreateBag=2:2049")->run();
  EXPECT_EQ(r.err, "Could not delete queue [-1]\n");
  EXPECT_EQ(r.status, 0);
}

TEST_F(CommandLine, TellsAFailureOnBothStreams) {
  Result r = ferry({"-r", "Q1", "-T"}, "BXCONNX=2:2059")->run();
  EXPECT_EQ(r.status, 255);
  EXPECT_THAT(r.err,
              StartsWith("ERROR: BXCONN ended with reason code 2059: BXRC_Q_MGR_NOT_AVAILABLE"));
  EXPECT_THAT(r.out, HasSubstr("\nCRITICAL ERROR[BX-2059]: \n{\n"));
  r = ferry({"-r", "Q1", "-T"}, "BXCONNX=2:2059")->closed(1).run();
  EXPECT_EQ(r.status, 255);
  EXPECT_THAT(r.err, StartsWith("ERROR: BXCONN"));
}

TEST_F(CommandLine, LogsConnectionsOnlyWhenDebugging) {
  EXPECT_EQ(ferry({"-k", "Q1", "-T"})->run().out, "");
  EXPECT_THAT(ferry({"-k", "Q1", "-m", "QM", "-d"})->run().out,
              HasSubstr("Connecting to BX Manager QM\nDisconnecting from BX Manager QM\n"));
}

TEST_F(CommandLine, DeliversEachLineAtOnce) {
  auto p = ferry({"-f", "Q1", "-T"});
  p->pipe(0).start();
  for (long n = 1; n <= 3; ++n) {
    p->write("line\n");
    EXPECT_TRUE(eventually([&] { return called("BXCMIT") == n; }));
  }
  p->close(0);
  const Result r = p->wait();
  EXPECT_EQ(r.err, "(3) Records Sent.\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(called("BXDISC"), 2);
}

TEST_F(CommandLine, EndsWithCommitAndCountOnASignal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    auto p = ferry({"-f", "Q1", "-T"});
    p->pipe(0).start().write("one\ntwo\npart");
    const long before = called("BXCMIT");
    ASSERT_TRUE(eventually([&] { return called("BXCMIT") == before + 1; }));
    p->signal(signal);
    const Result r = p->wait();
    EXPECT_EQ(r.status, 128 + signal);
    EXPECT_FALSE(r.killed);
    EXPECT_EQ(r.err, "(2) Records Sent.\n");
  }
}

TEST_F(CommandLine, PausesUntilASignal) {
  auto p = ferry({"-r", "Q1", "-t", "60000"}, "", 2);
  p->start();
  ASSERT_TRUE(eventually([&] { return p->out() == "1\n"; }));
  p->signal(SIGINT);
  const Result r = p->wait(5s);
  EXPECT_EQ(r.status, 130);
  EXPECT_EQ(r.err, "(1) Records Received.\n");
}

TEST_F(CommandLine, TakesNothingMoreWhileNobodyReads) {
  auto p = ferry({"-r", "Q1", "-T"}, "", 100000);
  p->pipe(1).start();
  ASSERT_TRUE(comesToRest("BXGET"));
  p->signal(SIGTERM);
  const Result r = p->wait(5s);
  EXPECT_EQ(r.status, 128 + SIGTERM);
  EXPECT_THAT(r.err, ::testing::EndsWith(") Records Received.\n"));
}

TEST_F(CommandLine, IsEndedByASecondSignal) {
  auto p = ferry({"-p", "Q1", "-T"}, "", 100000);
  p->pipe(1).start(); // nobody reads: it will not end by itself
  ASSERT_TRUE(comesToRest("BXGET"));
  for (int n = 0; n < 3; ++n) { // a command and its group are signalled both: the same wish
    p->signal(SIGINT);
    std::this_thread::sleep_for(50ms);
  }
  ASSERT_EQ(::waitpid(p->pid(), nullptr, WNOHANG), 0);
  p->signal(SIGTERM);
  const Result r = p->wait(5s);
  EXPECT_TRUE(r.killed);
  EXPECT_EQ(r.status, 128 + SIGTERM);
}

TEST_F(CommandLine, StopsWhenNobodyReads) {
  auto p = ferry({"-r", "Q1", "-T"}, "", 1000000);
  p->pipe(1).start();
  p->read(1);
  p->close(1);
  const Result r = p->wait();
  EXPECT_EQ(r.status, 255);
  EXPECT_THAT(r.err, StartsWith("ERROR: Cannot write to standard output: Broken pipe\n"));
}

TEST_F(CommandLine, FailsClearlyWithoutItsStreams) {
  Result r = ferry({"-f", "Q1", "-T"})->closed(0).run();
  EXPECT_EQ(r.status, 255);
  EXPECT_THAT(r.err, StartsWith("ERROR: Cannot read standard input: "));
  r = ferry({"-r", "Q1", "-T"}, "", 3)->closed(1).run();
  EXPECT_EQ(r.status, 255);
  EXPECT_THAT(r.err, StartsWith("ERROR: Cannot write to standard output: "));
  r = ferry({"-s", "Q1", "-T"}, "bxExecute=2:2101")->redirect(1, "/dev/full", O_WRONLY).run();
  EXPECT_EQ(r.status, 255);
  // A count that nobody can read does not undo what was done.
  r = ferry({"-k", "Q1", "-T"}, "", 3)->closed(2).run();
  EXPECT_EQ(r.status, 0);
}
