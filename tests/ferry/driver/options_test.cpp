#include "ferry/driver/options.h"

#include "tests/support/process.h"
#include "tests/support/redirect.h"

#include <gtest/gtest.h>

using namespace support;

namespace {

struct Parsed : CFerryOptions {
  std::string notices;
  int debugs = 0;
};

Parsed parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "ferry");
  const TempFolder folder;
  Parsed parsed;
  {
    const Redirect err(2, folder / "err", O_WRONLY | O_CREAT);
    static_cast<CFerryOptions&>(parsed) = ParseOptions(
        static_cast<int>(arguments.size()), arguments.data(), [&parsed] { ++parsed.debugs; });
  }
  parsed.notices = readFile(folder / "err");
  return parsed;
}

} // namespace

TEST(Options, TakeAttachedAndDetachedValues) {
  const Parsed p =
      parse({"ignored", "-fQ1", "-m", "QM", "-c7x", "-t", "250", "-l9", "-o60", "", "-T"});
  EXPECT_EQ(p.nOperation, CFerryOptions::OP_FILE_TO_QUEUE);
  EXPECT_EQ(p.sQueue, u"Q1");
  EXPECT_EQ(p.sManager, u"QM");
  EXPECT_EQ(p.nCount, 7);
  EXPECT_EQ(p.nPause, 250);
  EXPECT_EQ(p.nPriority, 9);
  EXPECT_EQ(p.nExpire, 60);
  EXPECT_TRUE(p.bCreateFlag);
  EXPECT_EQ(p.notices, "");
}

TEST(Options, LastOneWinsAndPeekStays) {
  const Parsed p = parse({"-k", "Q1", "-p", "Q2", "-i", "S", "-r", "Q3", "-d"});
  EXPECT_EQ(p.nOperation, CFerryOptions::OP_QUEUE_TO_FILE);
  EXPECT_EQ(p.sQueue, u"Q3");
  EXPECT_EQ(p.sSection, "S");
  EXPECT_TRUE(p.bPeek);
  EXPECT_EQ(p.debugs, 1);
  EXPECT_FALSE(parse({"-r", "Q", "-h"}).bPeek);
  EXPECT_EQ(parse({"-r", "Q", "-h"}).nOperation, CFerryOptions::OP_USAGE);
  EXPECT_EQ(parse({"-x", "Q", "-h", "-x", "Q"}).nOperation, CFerryOptions::OP_DELETE);
}

TEST(Options, NeedAnArgumentBehindThemEvenWithAValueAttached) {
  const std::string notice = "Invalid number of parameters.\n";
  for (const char* last : {"-f", "-fQ1", "-c5", "-iS", "-mQM", "-o"}) {
    const Parsed p = parse({"-r", "Q", last});
    EXPECT_EQ(p.notices, notice) << last;
    EXPECT_EQ(p.nOperation, CFerryOptions::OP_USAGE) << last;
  }
  const Parsed p = parse({"-r", "Q", "-o5"}); // all but the expiry
  EXPECT_EQ(p.nExpire, 5);
  EXPECT_EQ(p.notices, "");
}

TEST(Options, UnknownOnesAreToldAndResetTheOperation) {
  const Parsed p = parse({"-f", "Q1", "-z", "-"});
  EXPECT_EQ(p.notices, std::string("Invalid flag [z]\nInvalid flag [\0]\n", 34));
  EXPECT_EQ(p.nOperation, CFerryOptions::OP_USAGE);
  EXPECT_EQ(parse({"-z", "-f", "Q1"}).nOperation, CFerryOptions::OP_FILE_TO_QUEUE);
  EXPECT_EQ(parse({"-F", "Q1"}).notices, "Invalid flag [F]\n");
}

TEST(Options, NumbersGoAsFarAsTheyAreNumbers) {
  EXPECT_EQ(ParseNumber_n(""), -1);
  EXPECT_EQ(ParseNumber_n("abc"), 0);
  EXPECT_EQ(ParseNumber_n(" -12x"), -12);
  EXPECT_EQ(ParseNumber_n("+5"), 5);
  EXPECT_EQ(ParseNumber_n("2147483648"), 2147483647);
  EXPECT_EQ(ParseNumber_n("-99999999999999999999"), -2147483648L);
}
