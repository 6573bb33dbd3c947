#pragma once

#include <cstdint>

namespace bxm {

/// The storage library numbers pages that a transaction took and gave back, and never writes them:
/// at the end of the file they are missing although nothing is lost.
struct FileEnd {
  int file;
  std::uint64_t pageSize;
  std::uint64_t present;     ///< whole pages in the file
  std::uint64_t last;        ///< number of the last page that the library speaks of
  std::uint64_t transaction; ///< the newest one
  bool isWhole() const { return present > last; }
};

/// True when all pages behind the end of the file are in the list of free ones. Reads the file
/// itself, since in the map a list that lies behind the end, too, would end the process. To be
/// asked within a write transaction.
bool lacksOnlyFreePages(const FileEnd& end);

} // namespace bxm
