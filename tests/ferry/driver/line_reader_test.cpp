#include "ferry/driver/line_reader.h"

#include "tests/support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pty.h>

using namespace support;
using ::testing::ElementsAre;

namespace {

constexpr size_t PIECE = 409599;

/// The lengths of all pieces of an input that comes at once.
std::vector<size_t> lengths(const std::string& input) {
  const TempFolder folder;
  writeFile(folder / "in", input);
  const int file = ::open((folder / "in").c_str(), O_RDONLY);
  std::vector<size_t> found;
  {
    CLineReader reader(file, [] {});
    for (std::string_view line; reader.Read_b(line);) found.push_back(line.size());
  }
  ::close(file);
  return found;
}

} // namespace

TEST(LineReader, CutsLongLinesBetweenCharacters) {
  const std::string pad(PIECE - 1, 'x');
  EXPECT_THAT(lengths(std::string("a\0\n\n\0", 5)), ElementsAre(3, 1, 1));
  EXPECT_THAT(lengths(pad + "\ny"), ElementsAre(PIECE, 1));
  EXPECT_THAT(lengths(pad + "x\ny"), ElementsAre(PIECE, 1, 1));
  EXPECT_THAT(lengths(pad + "x" + pad + "x"), ElementsAre(PIECE, PIECE));
  EXPECT_THAT(lengths(pad + "\xc3\xbc"), ElementsAre(PIECE - 1, 2));
  EXPECT_THAT(lengths(pad + "\xf0\x9f\x98\x80"), ElementsAre(PIECE - 1, 4));
  EXPECT_THAT(lengths(pad.substr(2) + "\xe2\x82\xac!"), ElementsAre(PIECE, 1));
  EXPECT_THAT(lengths(std::string(PIECE + 9, '\x80')), ElementsAre(PIECE, 9)); // no text at all
}

TEST(LineReader, EndsWithATerminalsFirstEnd) {
  int ours = -1, theirs = -1;
  ASSERT_EQ(::openpty(&ours, &theirs, nullptr, nullptr, nullptr), 0);
  ASSERT_EQ(::write(ours, "abc\4\4def\n", 9), 9);
  CLineReader reader(theirs, [] {});
  std::string_view line;
  EXPECT_TRUE(reader.Read_b(line));
  EXPECT_EQ(line, "abc");
  EXPECT_FALSE(reader.Read_b(line));
  ::close(ours);
  ::close(theirs);
}
