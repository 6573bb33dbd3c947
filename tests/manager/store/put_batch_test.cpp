#include "manager/base/failure.h"
#include "manager/store/put_batch.h"
#include "tests/support/temp_folder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

namespace bxm {

namespace {

constexpr std::size_t kBeyondMemory = 27 << 20;

std::vector<std::size_t> sizesIn(const PutBatch& batch) {
  std::vector<std::size_t> sizes;
  batch.forEach([&sizes](const PutBatch::Entry& entry) { sizes.push_back(entry.stored.size()); });
  return sizes;
}

TEST(PutBatch, KeepsQueuePriorityAndOrderAlsoWhereItSpills) {
  const support::TempFolder folder;
  PutBatch batch(folder.path().string());
  const std::string data(1 << 20, 'd');
  for (std::uint32_t i = 0; i < 50; ++i)
    batch.append(1 + i % 3, static_cast<int>(i % 10), std::string(i, 'h'), data);
  std::uint32_t next = 0;
  batch.forEach([&](const PutBatch::Entry& entry) {
    EXPECT_EQ(entry.queue, 1 + next % 3);
    EXPECT_EQ(entry.priority, static_cast<int>(next % 10));
    EXPECT_EQ(entry.stored, std::string(next, 'h') + data);
    ++next;
  });
  EXPECT_EQ(next, 50U);
  ASSERT_EQ(batch.counts().size(), 3U);
  EXPECT_EQ(batch.counts().at(3), (PutBatch::Counts{1, 2, 2, 1, 2, 2, 1, 2, 2, 1}));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path())) << "what it spills has no name";
  std::vector<bool> last;
  batch.forEachRun([&last](std::string_view, bool is) { last.push_back(is); });
  EXPECT_EQ(last, (std::vector<bool>{false, true}));

  batch.clear();
  EXPECT_TRUE(batch.empty());
  EXPECT_TRUE(sizesIn(batch).empty());
  batch.append(4, 0, "", "again");
  EXPECT_EQ(sizesIn(batch), std::vector<std::size_t>{5});
}

TEST(PutBatch, IsAsItWasWhenTheFileCannotTakeIt) {
  PutBatch batch("/nonexistent/folder");
  batch.append(1, 0, "", std::string(kBeyondMemory, 'x'));
  EXPECT_THROW(batch.append(2, 0, "", "one more"), Failure);
  EXPECT_EQ(sizesIn(batch), std::vector<std::size_t>{kBeyondMemory});
  EXPECT_EQ(batch.counts(), (std::map<std::uint32_t, PutBatch::Counts>{{1, {1}}}));
}

} // namespace

} // namespace bxm
