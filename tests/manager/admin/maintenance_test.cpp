#include "tests/manager/admin/programs.h"

#include <sstream>

namespace {

using testing::HasSubstr;

/// A manager M, and what becomes of its records.
class Maintenance : public Programs {
protected:
  Maintenance() {
    done({"manager", "create", "M", "--default"});
    done({"queue", "create", "Q", "--max-depth", "100000"});
  }
  static std::vector<std::string> records(int count) {
    std::vector<std::string> all;
    for (int i = 1; i <= count; ++i) all.push_back("record number " + std::to_string(i));
    return all;
  }
  /// A program that loads so many.
  struct Load : support::Process {
    Load(const std::string& home, int count) : Process({support::binDir() + "/ferry", "-f", "Q"}) {
      std::string text;
      for (const std::string& record : records(count)) text += record + "\n";
      environment("BXM_HOME", home).input(text);
    }
  };
  std::vector<std::string> readAll(const std::string& queue, const std::string& manager) const {
    std::istringstream lines(run("ferry", {"-r", queue, "-m", manager}).out);
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);) all.push_back(line);
    return all;
  }
};

TEST_F(Maintenance, ABackupDuringALoadHoldsWhatWasCommitted) {
  const int count = 60'000;
  Load load(home, count);
  load.start();
  const auto committed = [this] { // the depth counts what is not
    const std::string shown = run("ferry", {"-p", "Q"}).out;
    return static_cast<int>(std::count(shown.begin(), shown.end(), '\n'));
  };
  int before = 0;
  ASSERT_TRUE(support::eventually([&] { return (before = committed()) > 0; }));
  EXPECT_THAT(done({"backup", folder / "B"}), HasSubstr("written"));
  EXPECT_THAT(done({"check"}), HasSubstr(" 0 damages.")) << "also during the load";
  ASSERT_EQ(load.wait().status, 0);
  done({"restore", folder / "B", "N"});
  EXPECT_THAT(done({"check", "N"}), HasSubstr(" 0 damages."));
  const auto restored = readAll("Q", "N");
  EXPECT_GE(restored.size(), static_cast<std::size_t>(before));
  EXPECT_EQ(restored, records(static_cast<int>(restored.size())));
  EXPECT_EQ(readAll("Q", "M"), records(count));

  EXPECT_THAT(bxadm({"backup", folder / "B"}), FailsWithOneLine("exists"));
  EXPECT_THAT(bxadm({"backup", home + "/M/B"}), FailsWithOneLine("among the queue managers"));
  EXPECT_THAT(bxadm({"restore", folder / "B", "N"}), FailsWithOneLine("N already"));
  EXPECT_THAT(bxadm({"restore", home, "O"}), FailsWithOneLine("no store"));
  EXPECT_EQ(managers(), "M* N ");
}

TEST_F(Maintenance, AManagerInUseIsCheckedAndNotRepaired) {
  support::Process user({support::binDir() + "/ferry", "-f", "Q"});
  user.environment("BXM_HOME", home).pipe(0).start();
  user.write("one\n");
  ASSERT_TRUE(support::eventually([this] {
    return done({"queue", "list"}).find(" 1 ") != std::string::npos;
  }));
  EXPECT_THAT(done({"check"}), HasSubstr("1 queue, 1 message, 0 damages"));
  EXPECT_THAT(bxadm({"repair", "M"}), FailsWithOneLine("in use"));
  EXPECT_THAT(bxadm({"restore", home + "/M", "N"}), FailsWithOneLine("in use"));
  user.close(0);
  EXPECT_EQ(user.wait().status, 0);
}

} // namespace
