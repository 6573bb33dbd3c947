#include "tests/manager/faults/history.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace faults {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Logs written by hand, a call a line without its times.
class AHistory : public ::testing::Test {
public:
  AHistory& process(const std::string& name, const std::vector<std::string>& lines) {
    std::string log;
    for (const std::string& line : lines) log += std::to_string(m_time += 10) + " " + line + "\n";
    support::writeFile(m_folder / name, log);
    m_history.read(m_folder / name);
    return *this;
  }
  std::vector<std::string> faults() { return m_history.faults(); }

  support::TempFolder m_folder;
  History m_history;
  std::int64_t m_time = 0;
};

const std::vector<std::string> kPuts{"i put Q s w1-1-p0", "o 0 0 ", "i put Q s w1-2-p0", "o 0 0 ",
                                     "i commit",          "o 0 0 "};

TEST_F(AHistory, IsSoundWhenEverythingIsDeliveredOnceOrLeft) {
  process("w1", kPuts).process("w2", {"i get Q d", "o 0 0 w1-1-p0"});
  m_history.left("Q", {"w1-2-p0"});
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(AHistory, ShowsALossAndADoubleDelivery) {
  process("w1", kPuts).process("w2", {"i get Q d", "o 0 0 w1-1-p0", "i get Q d", "o 0 0 w1-1-p0"});
  EXPECT_THAT(faults(),
              ElementsAre(HasSubstr("w1-1-p0 was delivered 2"), HasSubstr("w1-2-p0 is lost")));
}

TEST_F(AHistory, ShowsAGhost) {
  process("w1", {"i put Q s w1-1-p0", "o 0 0 ", "i backout", "o 0 0 "});
  m_history.left("Q", {"w1-1-p0", "w9-1-p0"});
  EXPECT_THAT(faults(), ElementsAre(HasSubstr("w1-1-p0 was backed out and is there"),
                                    HasSubstr("w9-1-p0 was never put")));
}

TEST_F(AHistory, ShowsAnOvertakingUnlessTheMessageWasHeld) {
  process("w1", kPuts);
  process("w2", {"i get Q d", "o 0 0 w1-2-p0", "i get Q d", "o 0 0 w1-1-p0"});
  EXPECT_THAT(faults(), ElementsAre(HasSubstr("got w1-1-p0 after w1-2-p0")));
  process("w3",
          {"i put R s w3-1-p0", "o 0 0 ", "i put R s w3-2-p0", "o 0 0 ", "i commit", "o 0 0 "});
  process("w4", {"i get R s", "o 0 0 w3-1-p0", "i commit"}); // died holding it
  process("w5", {"i get R d", "o 0 0 w3-2-p0", "i get R d", "o 0 0 w3-1-p0"});
  EXPECT_EQ(faults().size(), 1U);
}

TEST_F(AHistory, LetsAnUnknownCommitHaveHappenedOrNot) {
  process("w1", kPuts);
  process("w2", {"i get Q s", "o 0 0 w1-1-p0", "i put R s w2-1-p0", "o 0 0 ", "i commit"});
  m_history.left("Q", {"w1-1-p0", "w1-2-p0"});
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(AHistory, ShowsHalfOfAnUnknownCommit) {
  process("w1", kPuts);
  process("w2", {"i get Q s", "o 0 0 w1-1-p0", "i put R s w2-1-p0", "o 0 0 ", "i commit"});
  m_history.left("Q", {"w1-1-p0", "w1-2-p0"});
  m_history.left("R", {"w2-1-p0"});
  EXPECT_THAT(faults(), Contains(HasSubstr("w1-1-p0 came back though its unit of work counts")));
}

TEST_F(AHistory, ShowsABrowseOfWhatIsGone) {
  process("w1", kPuts);
  process("w2", {"i get Q d", "o 0 0 w1-1-p0", "i browse Q", "o 0 0 w1-1-p0 w1-2-p0"});
  m_history.left("Q", {"w1-2-p0"});
  EXPECT_THAT(faults(), ElementsAre(HasSubstr("w1-1-p0 was browsed after it was gone")));
}

} // namespace
} // namespace faults
