#include "manager/store/lmdb/unwritten_pages.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace bxm {

namespace {

// The library's layout, as far as it leads to the list of free pages: a tree whose values are
// arrays of page numbers, the highest first, that begin with their count.
constexpr std::uint64_t kRootInMeta = 80, kLastPageInMeta = 136, kTransactionInMeta = 144;
constexpr std::size_t kPageHeader = 16, kFlagsInPage = 10, kLowerInPage = 12, kNodeHeader = 8;
constexpr std::uint16_t kBranch = 1, kLeaf = 2, kValueElsewhere = 1;

struct Node {
  std::uint16_t low, high, flags, keySize;
};
static_assert(sizeof(Node) == kNodeHeader);

/// Throws std::out_of_range for what is not within the bytes.
template <typename Number>
Number at(const std::string& bytes, std::size_t offset) {
  Number number;
  if (offset + sizeof number > bytes.size()) throw std::out_of_range("it ends before");
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

class FreeList {
public:
  explicit FreeList(const FileEnd& end) : m_end(end), m_missing(end.last + 1 - end.present) {}

  bool coversMissing() {
    const std::string meta = read(m_end.transaction % 2 * m_end.pageSize, m_end.pageSize);
    if (at<std::uint64_t>(meta, kTransactionInMeta) != m_end.transaction ||
        at<std::uint64_t>(meta, kLastPageInMeta) != m_end.last)
      return false;
    m_unvisited = {at<std::uint64_t>(meta, kRootInMeta)};
    for (std::uint64_t visited = 0; m_missing > 0 && !m_unvisited.empty(); ++visited) {
      if (visited > m_end.present) return false;
      const std::uint64_t page = m_unvisited.back();
      m_unvisited.pop_back();
      visit(page);
    }
    return m_missing == 0;
  }

private:
  std::string read(std::uint64_t offset, std::uint64_t size) const {
    if (size > m_end.present * m_end.pageSize) throw std::out_of_range("it is too long");
    std::string bytes(size, '\0');
    if (::pread(m_end.file, bytes.data(), size, static_cast<off_t>(offset)) !=
        static_cast<ssize_t>(size))
      throw std::out_of_range("it lies behind the end");
    return bytes;
  }

  void visit(std::uint64_t number) {
    if (number >= m_end.present) throw std::out_of_range("it lies behind the end");
    const std::string page = read(number * m_end.pageSize, m_end.pageSize);
    const auto flags = at<std::uint16_t>(page, kFlagsInPage);
    const auto lower = at<std::uint16_t>(page, kLowerInPage);
    for (std::size_t i = kPageHeader; i < lower; i += sizeof(std::uint16_t)) {
      const auto offset = at<std::uint16_t>(page, i);
      const auto node = at<Node>(page, offset);
      const std::uint64_t value = node.low | std::uint64_t{node.high} << 16;
      if (flags & kBranch)
        m_unvisited.push_back(value | std::uint64_t{node.flags} << 32);
      else if (flags & kLeaf)
        count(number * m_end.pageSize, page, offset + kNodeHeader + node.keySize, node.flags);
    }
  }

  void count(std::uint64_t pageBegin, const std::string& page, std::size_t offset,
             std::uint16_t flags) {
    std::uint64_t begin = pageBegin + offset;
    if (flags & kValueElsewhere)
      begin = at<std::uint64_t>(page, offset) * m_end.pageSize + kPageHeader;
    const std::uint64_t length = at<std::uint64_t>(read(begin, sizeof length), 0);
    const std::uint64_t most = std::min(length, m_missing) * sizeof length;
    const std::string numbers = read(begin + sizeof length, most);
    for (std::size_t i = 0; i < most; i += sizeof length)
      if (at<std::uint64_t>(numbers, i) >= m_end.present) --m_missing;
  }

  const FileEnd& m_end;
  std::uint64_t m_missing;
  std::vector<std::uint64_t> m_unvisited;
};

} // namespace

bool lacksOnlyFreePages(const FileEnd& end) {
  try {
    return FreeList(end).coversMissing();
  } catch (const std::out_of_range&) {
    return false;
  }
}

} // namespace bxm
