#include "manager/store/lmdb/take_journal.h"

#include "manager/store/bytes.h"
#include "manager/store/failure.h"
#include "manager/store/kill_point.h"
#include "manager/store/lmdb/durable.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace bxm {

namespace {

constexpr std::uint32_t kMagic = 0x4A4D5842; // "BXMJ"
constexpr std::size_t kHeaderSize = 4 + 4 + 8 + 8;
constexpr std::size_t kFileSize = TakeJournal::kBlockSize * TakeJournal::kBlocks;
constexpr const char* kPrefix = "journal-";

/// FNV-1a: what it has to tell is a record that reached the disk in part.
std::uint64_t checksumOf(std::string_view bytes) {
  std::uint64_t sum = 0xCBF29CE484222325;
  for (const char byte : bytes) sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  return sum;
}

void writeAll(int file, const std::string& bytes, std::size_t offset) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t n =
        ::pwrite(file, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) failWithErrno(n < 0 ? errno : ENOSPC, BXRC_UNEXPECTED, "cannot write a journal");
    done += static_cast<std::size_t>(n);
  }
}

void sync(int file) {
  if (::fdatasync(file) != 0) failWithErrno(errno, BXRC_UNEXPECTED, "cannot sync a journal");
}

void syncFolder(const std::string& folder) {
  const int file = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (file < 0) failWithErrno(errno, BXRC_UNEXPECTED, "cannot open " + folder);
  ::fsync(file);
  ::close(file);
}

/// The record at p, which has room bytes at most; empty when there is none.
std::string_view recordAt(const char* p, std::size_t room, std::uint64_t storeId) {
  if (room < kHeaderSize) return {};
  const char* field = p;
  if (takeLittle<std::uint32_t>(field) != kMagic) return {};
  const std::size_t size = takeLittle<std::uint32_t>(field) * MessageKey::kSize;
  if (takeLittle<std::uint64_t>(field) != storeId || size > room - kHeaderSize) return {};
  const auto checksum = takeLittle<std::uint64_t>(field);
  const std::string_view keys(field, size);
  return checksumOf(keys) == checksum ? keys : std::string_view{};
}

template <typename Visit>
void forEachJournal(const std::string& folder, Visit visit) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    if (entry.path().filename().string().starts_with(kPrefix)) visit(entry.path());
}

} // namespace

TakeJournal::TakeJournal(const std::string& folder, std::uint32_t connection, std::uint64_t storeId)
    : m_storeId(storeId) {
  const std::string path = folder + "/" + kPrefix + std::to_string(connection);
  m_file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  if (m_file < 0) failWithErrno(errno, BXRC_UNEXPECTED, "cannot open " + path);
  struct stat status {};
  if (::fstat(m_file, &status) == 0 && static_cast<std::size_t>(status.st_size) == kFileSize)
    return;
  // Written once in full, so that a flush of a record has nothing else to bring to the disk.
  try {
    writeAll(m_file, std::string(kFileSize, '\0'), 0);
    sync(m_file);
    syncFolder(folder);
  } catch (const Failure&) {
    ::close(m_file);
    throw;
  }
}

TakeJournal::~TakeJournal() { ::close(m_file); }

void TakeJournal::append(const std::vector<Entry>& entries) {
  std::string keys;
  for (const Entry& entry : entries) {
    MessageKey key(entry.queue, entry.position);
    const MDB_val value = key.value();
    keys.append(static_cast<const char*>(value.mv_data), value.mv_size);
  }
  m_record.clear();
  appendLittle(m_record, kMagic);
  appendLittle(m_record, static_cast<std::uint32_t>(entries.size()));
  appendLittle(m_record, m_storeId);
  appendLittle(m_record, checksumOf(keys));
  m_record += keys;
  const std::size_t blocks = (m_record.size() + kBlockSize - 1) / kBlockSize;
  if (m_next + blocks > kBlocks) m_next = 0;
  m_record.resize(blocks * kBlockSize);
  writeAll(m_file, m_record, m_next * kBlockSize);
  BXM_KILL_POINT("journal-written");
  sync(m_file);
  BXM_KILL_POINT("journal-synced");
  m_next += blocks;
  m_unsettled += blocks;
}

void readTakeJournals(const std::string& folder, std::uint64_t storeId,
                      const std::function<void(const TakeJournal::Entry&)>& visit) {
  forEachJournal(folder, [&](const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (std::size_t offset = 0; offset < bytes.size(); offset += TakeJournal::kBlockSize) {
      std::string_view keys = recordAt(bytes.data() + offset, bytes.size() - offset, storeId);
      for (; !keys.empty(); keys.remove_prefix(MessageKey::kSize)) {
        const MDB_val key{MessageKey::kSize, const_cast<char*>(keys.data())};
        visit({MessageKey::queueOf(key), MessageKey::positionOf(key)});
      }
    }
  });
}

void removeTakeJournals(const std::string& folder) {
  std::vector<std::filesystem::path> paths;
  forEachJournal(folder, [&](const std::filesystem::path& path) { paths.push_back(path); });
  std::error_code ignored;
  for (const auto& path : paths) std::filesystem::remove(path, ignored);
}

} // namespace bxm
