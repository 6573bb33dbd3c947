#include "ferry/driver/line_reader.h"

#include "ferry/errors/exception.h"
#include "tests/support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pty.h>

using namespace support;
using ::testing::ElementsAre;

namespace {

constexpr size_t PIECE = 409599;

/// All pieces of an input that comes at once.
std::vector<std::string> pieces(const std::string& input) {
  const TempFolder folder;
  writeFile(folder / "in", input);
  const int file = ::open((folder / "in").c_str(), O_RDONLY);
  std::vector<std::string> found;
  {
    CLineReader reader(file, [] {});
    for (std::string_view line; reader.Read_b(line);) found.emplace_back(line);
  }
  ::close(file);
  return found;
}

std::vector<size_t> lengths(const std::string& input) {
  std::vector<size_t> found;
  for (const std::string& piece : pieces(input)) found.push_back(piece.size());
  return found;
}

} // namespace

TEST(LineReader, ReturnsLinesWithTheirNewlines) {
  EXPECT_THAT(pieces("a\n\nb"), ElementsAre("a\n", "\n", "b"));
  EXPECT_THAT(pieces(std::string("\0\n\0", 3)),
              ElementsAre(std::string("\0\n", 2), std::string("\0", 1)));
}

TEST(LineReader, CutsLongLines) {
  EXPECT_THAT(lengths(std::string(PIECE - 1, 'x') + "\ny"), ElementsAre(PIECE, 1));
  EXPECT_THAT(lengths(std::string(PIECE, 'x') + "\ny"), ElementsAre(PIECE, 1, 1));
  EXPECT_THAT(lengths(std::string(2 * PIECE, 'x')), ElementsAre(PIECE, PIECE));
}

TEST(LineReader, DoesNotCutACharacter) {
  const std::string pad(PIECE - 1, 'x');
  EXPECT_THAT(lengths(pad + "\xc3\xbc"), ElementsAre(PIECE - 1, 2));
  EXPECT_THAT(lengths(pad + "\xf0\x9f\x98\x80"), ElementsAre(PIECE - 1, 4));
  EXPECT_THAT(lengths(pad.substr(2) + "\xe2\x82\xac!"), ElementsAre(PIECE, 1));
  EXPECT_THAT(lengths(std::string(PIECE + 9, '\x80')), ElementsAre(PIECE, 9)); // no text at all
}

TEST(LineReader, TellsBeforeItWaits) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(::write(ends[1], "one\ntw", 6), 6);
  int waits = 0;
  CLineReader reader(ends[0], [&] {
    ++waits;
    EXPECT_EQ(::write(ends[1], "o\n", 2), 2);
  });
  std::string_view line;
  EXPECT_TRUE(reader.Read_b(line));
  EXPECT_EQ(waits, 0);
  EXPECT_TRUE(reader.Read_b(line));
  EXPECT_EQ(line, "two\n");
  EXPECT_EQ(waits, 1);
  ::close(ends[1]);
  EXPECT_FALSE(reader.Read_b(line));
  ::close(ends[0]);
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

TEST(LineReader, ThrowsWhatCannotBeRead) {
  const int folder = ::open("/", O_RDONLY);
  CLineReader reader(folder, [] {});
  std::string_view line;
  try {
    reader.Read_b(line);
    ADD_FAILURE() << "read a folder";
  } catch (const VRK_Exception& e) {
    EXPECT_STREQ(e.what(), "Cannot read standard input: Is a directory");
  }
  ::close(folder);
}
