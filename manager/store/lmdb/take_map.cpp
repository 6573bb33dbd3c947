#include "manager/store/lmdb/take_map.h"

#include "bx/bx.h"
#include "manager/store/failure.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <unistd.h>

namespace bxm {

namespace {

constexpr std::uint64_t kEntrySize = sizeof(std::uint32_t);
constexpr std::uint64_t kHeaderSize = 4096;
constexpr std::uint64_t kPieceSize = std::uint64_t{4} << 20;
constexpr std::uint64_t kPieceEntries = kPieceSize / kEntrySize;
constexpr int kMostTouched = 3;
constexpr std::uint64_t kAllocationStep = std::uint64_t{256} << 10;
constexpr const char* kPrefix = "takes-";

/// Where the entry ends in the file.
constexpr std::uint64_t endOf(std::uint64_t index) {
  return kHeaderSize + (index + 1) * kEntrySize;
}

std::string pathOf(const std::string& folder, std::uint32_t queueId) {
  return folder + "/" + kPrefix + std::to_string(queueId);
}

} // namespace

TakeMap::TakeMap(const std::string& folder, std::uint32_t queueId, std::uint64_t base)
    : m_path(pathOf(folder, queueId)), m_base(base) {
  m_file = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  if (m_file < 0) failWithErrno(errno, BXRC_RESOURCE_PROBLEM, "cannot open " + m_path);
  try {
    if (const int error = ::posix_fallocate(m_file, 0, kAllocationStep))
      failWithErrno(error, BXRC_STORAGE_FULL, "cannot extend " + m_path);
    m_allocated = reinterpret_cast<std::atomic<std::uint64_t>*>(piece(0));
  } catch (const Failure&) {
    ::close(m_file);
    throw;
  }
  std::uint64_t none = 0;
  m_allocated->compare_exchange_strong(none, kAllocationStep);
}

TakeMap::~TakeMap() {
  for (const auto& [number, piece] : m_pieces) ::munmap(piece.entries, kPieceSize);
  ::close(m_file);
}

std::atomic<std::uint32_t>* TakeMap::piece(std::uint64_t number) {
  if (const Piece* last = m_last.load(std::memory_order_acquire); last && last->number == number)
    return last->entries;
  const std::lock_guard guard(m_mutex);
  auto found = m_pieces.find(number);
  if (found == m_pieces.end()) {
    void* mapped = ::mmap(nullptr, kPieceSize, PROT_READ | PROT_WRITE, MAP_SHARED, m_file,
                          static_cast<off_t>(number * kPieceSize));
    if (mapped == MAP_FAILED) failWithErrno(errno, BXRC_RESOURCE_PROBLEM, "cannot map " + m_path);
    found =
        m_pieces
            .emplace(number, Piece{number, static_cast<std::atomic<std::uint32_t>*>(mapped), false})
            .first;
  }
  if (!found->second.touched) {
    if (++m_touched > kMostTouched) letGo();
    found->second.touched = true;
  }
  m_last.store(&found->second, std::memory_order_release);
  return found->second.entries;
}

void TakeMap::letGo() {
  for (auto& [number, piece] : m_pieces) {
    if (piece.touched) ::madvise(piece.entries, kPieceSize, MADV_DONTNEED);
    piece.touched = false;
  }
  m_touched = 1;
}

/// A page that the disk has no room for would end the process when it is touched.
void TakeMap::allocate(std::uint64_t bytes) {
  const std::uint64_t wanted = (bytes + kAllocationStep - 1) / kAllocationStep * kAllocationStep;
  std::uint64_t present = m_allocated->load();
  if (present >= wanted) return;
  if (const int error = ::posix_fallocate(m_file, static_cast<off_t>(present),
                                          static_cast<off_t>(wanted - present)))
    failWithErrno(error, BXRC_STORAGE_FULL, "cannot extend " + m_path);
  while (present < wanted && !m_allocated->compare_exchange_weak(present, wanted)) {
  }
}

std::atomic<std::uint32_t>& TakeMap::entry(std::uint64_t index) {
  const std::uint64_t place = index + kHeaderSize / kEntrySize;
  return piece(place / kPieceEntries)[place % kPieceEntries];
}

std::uint32_t TakeMap::load(std::uint64_t sequence) {
  if (sequence < m_base) return TakeEntry::deleted();
  const std::uint64_t index = sequence - m_base;
  return endOf(index) > m_allocated->load() ? 0 : entry(index).load();
}

void TakeMap::reserve(std::uint64_t sequence) {
  const std::uint64_t end = endOf(sequence - m_base);
  if (end > m_allocated->load()) allocate(end);
}

std::atomic<std::uint32_t>& TakeMap::at(std::uint64_t sequence) {
  reserve(sequence);
  return entry(sequence - m_base);
}

void TakeMap::forEachOf(
    std::uint32_t access, std::uint64_t lowest, std::uint64_t highest,
    const std::function<void(std::uint64_t, std::atomic<std::uint32_t>&)>& visit) {
  const std::uint64_t present = (m_allocated->load() - kHeaderSize) / kEntrySize;
  if (highest < m_base) return;
  const std::uint64_t last = std::min(highest, m_base + present - 1);
  for (std::uint64_t sequence = std::max(lowest, m_base); sequence <= last; ++sequence) {
    auto& entry = at(sequence);
    const std::uint32_t value = entry.load();
    const auto state = TakeEntry::stateOf(value);
    if ((state == TakeEntry::kTaken || state == TakeEntry::kConsumed) &&
        TakeEntry::accessOf(value) == access)
      visit(sequence, entry);
  }
}

void TakeMap::forget(std::uint64_t below) {
  if (below <= m_base) return;
  // Up to where the entry itself begins: it may be taken.
  const std::uint64_t bytes = endOf(below - m_base - 1) / kPieceSize * kPieceSize;
  const std::uint64_t from = std::max(m_forgotten, kHeaderSize);
  if (bytes <= from || bytes >= m_allocated->load()) return;
  ::fallocate(m_file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(from),
              static_cast<off_t>(bytes - from));
  m_forgotten = bytes;
}

void removeTakeMap(const std::string& folder, std::uint32_t queueId) {
  ::unlink(pathOf(folder, queueId).c_str());
}

void removeTakeMaps(const std::string& folder) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    if (entry.path().filename().string().starts_with(kPrefix))
      std::filesystem::remove(entry.path(), ignored);
}

} // namespace bxm
