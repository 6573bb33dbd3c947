#include "manager/store/put_batch.h"

#include "manager/base/bytes.h"
#include "manager/base/descriptor.h"
#include "manager/base/failure.h"
#include "manager/store/message.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace bxm {

namespace {

/// The largest unit of work of the tool's loops, 16 MiB, with what goes with records of 100 bytes.
constexpr std::size_t kMemoryLimit = 26 << 20;
constexpr std::size_t kDoubled = 4 << 20; ///< from here on all of it is reserved

int openUnlinked(const std::string& folder) {
  const int file =
      apartFromStandardStreams(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (file >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return file;
  std::string name = folder + "/.batch-XXXXXX"; // a file system without O_TMPFILE
  const int named = apartFromStandardStreams(::mkostemp(name.data(), O_CLOEXEC));
  if (named >= 0) ::unlink(name.c_str());
  return named;
}

} // namespace

PutBatch::~PutBatch() {
  if (m_file >= 0) ::close(m_file);
}

void PutBatch::append(std::uint32_t queue, int priority, std::string_view header,
                      std::string_view data, bool expires) {
  if (m_memory.size() + header.size() + data.size() > kMemoryLimit && !m_memory.empty()) spill();
  const std::size_t before = m_memory.size();
  try {
    if (before > kDoubled && m_memory.capacity() < kMemoryLimit) m_memory.reserve(kMemoryLimit);
    m_memory.append(sizeof(ItemHeader), '\0').append(header).append(data);
    ItemHeader item;
    item.size = static_cast<std::uint32_t>(header.size() + data.size());
    item.queue = queue;
    item.crc = crc32c(std::string_view(m_memory).substr(before + sizeof item));
    item.priority = static_cast<std::uint8_t>(priority);
    item.flags = expires ? kItemExpires : 0;
    std::memcpy(&m_memory[before], &item, sizeof item);
    m_memory.append(padded8(item.size) - item.size, '\0');
    ++m_counts[queue].at(item.priority);
  } catch (const std::exception&) {
    m_memory.resize(before);
    throw;
  }
}

void PutBatch::spill() {
  if (m_file < 0) m_file = openUnlinked(m_folder);
  if (m_file < 0)
    failWithErrno(errno, BXRC_RESOURCE_PROBLEM, "cannot make a temporary file in " + m_folder);
  std::size_t done = 0;
  while (done < m_memory.size()) {
    const ssize_t n = ::pwrite(m_file, m_memory.data() + done, m_memory.size() - done,
                               static_cast<off_t>(m_fileSize + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0)
      failWithErrno(n < 0 ? errno : ENOSPC, BXRC_RESOURCE_PROBLEM,
                    "cannot write a temporary file in " + m_folder);
    done += static_cast<std::size_t>(n);
  }
  m_fileSize += m_memory.size();
  m_memory.clear();
}

void PutBatch::forEach(const std::function<void(const Entry&)>& visit) const {
  forEachRun([&visit](std::string_view run, bool) {
    forEachItem(run, [&visit](const ItemHeader& item, std::string_view record) {
      visit({item.queue, item.priority, record});
    });
  });
}

void PutBatch::forEachRun(const std::function<void(std::string_view run, bool last)>& visit) const {
  if (m_fileSize > 0) {
    void* mapped = ::mmap(nullptr, m_fileSize, PROT_READ, MAP_SHARED, m_file, 0);
    if (mapped == MAP_FAILED)
      failWithErrno(errno, BXRC_RESOURCE_PROBLEM, "cannot read a temporary file");
    ::madvise(mapped, m_fileSize, MADV_SEQUENTIAL);
    struct Unmap {
      void* address;
      std::size_t size;
      ~Unmap() { ::munmap(address, size); }
    } unmap{mapped, m_fileSize};
    visit({static_cast<const char*>(mapped), m_fileSize}, m_memory.empty());
  }
  if (!m_memory.empty()) visit(m_memory, true);
}

void PutBatch::clear() {
  m_counts.clear();
  m_memory.clear();
  if (m_memory.capacity() > kMemoryLimit + kDoubled) m_memory.shrink_to_fit();
  if (m_file >= 0) ::close(m_file);
  m_file = -1;
  m_fileSize = 0;
}

} // namespace bxm
