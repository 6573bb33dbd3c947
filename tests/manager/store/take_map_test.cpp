#include "manager/store/lmdb/take_map.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

namespace bxm {

namespace {

/// What lies below a sequence goes in whole pieces of the file; nothing else may go with it.
TEST(TakeMap, ForgetsOnlyWhatIsBelow) {
  const support::TempFolder folder;
  constexpr std::uint64_t kBase = 7, kPiece = 1 << 20; // entries
  TakeMap map(folder.path().string(), 1, kBase);
  const std::uint32_t taken = TakeEntry::make(TakeEntry::kTaken, 3, 0);
  map.reserve(kBase + 3 * kPiece);
  for (std::uint64_t piece = 1; piece <= 2; ++piece)
    for (std::uint64_t edge = kBase + piece * kPiece - 2048; edge < kBase + piece * kPiece;
         ++edge) {
      map.at(edge - 1).store(TakeEntry::deleted());
      map.at(edge).store(taken);
      map.forget(edge);
      ASSERT_EQ(map.load(edge), taken) << edge;
    }
  EXPECT_EQ(map.load(kBase + 1024), TakeEntry::kFree);
}

} // namespace

} // namespace bxm
