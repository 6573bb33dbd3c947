#include "manager/store/lmdb/durable.h"

#include "manager/store/bytes.h"
#include "manager/store/failure.h"
#include "manager/store/lmdb/disk_room.h"
#include "manager/store/lmdb/unwritten_pages.h"
#include "manager/store/random_number.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bxm {

namespace {

constexpr std::uint32_t kFormatVersion = 1;
constexpr unsigned kMaxReaders = 4096;
constexpr unsigned kReaderSize = 64; ///< in the library's table, whose header takes up to four
constexpr const char* kFileName = "/durable.mdb";
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::size_t kMapSize = std::size_t{64} << 30;
#else
constexpr std::size_t kMapSize = std::size_t{1} << 40;
#endif
constexpr std::size_t kMostPassed = std::size_t{8} << 20;
/// What a write transaction may have touched of the map: pages of the tree that it changes.
constexpr std::size_t kTransactionTouches = std::size_t{256} << 10;
constexpr std::size_t kSmallestMap = std::size_t{1} << 30;

void check(int result, const char* what) {
  if (result != MDB_SUCCESS) failWithLmdb(result, what);
}

MDB_val toVal(std::string_view text) { return {text.size(), const_cast<char*>(text.data())}; }

std::string_view toView(const MDB_val& value) {
  return {static_cast<const char*>(value.mv_data), value.mv_size};
}

std::string bigEndian(std::uint32_t number) {
  std::string out;
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(number >> shift);
  return out;
}

template <typename Number>
std::string littleEndian(Number number) {
  std::string out;
  appendLittle(out, number);
  return out;
}

void syncFolder(const std::string& folder) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool done = fd >= 0 && ::fsync(fd) == 0;
  const int error = errno;
  if (fd >= 0) ::close(fd);
  if (!done) failWithErrno(error, BXRC_Q_MGR_NOT_AVAILABLE, "cannot sync " + folder);
}

} // namespace

void failWithLmdb(int error, const char* what) {
  switch (error) {
  case MDB_MAP_FULL:
    throw Failure(BXRC_STORAGE_FULL, std::string(what) + ": the store's map is full");
  case MDB_READERS_FULL:
    throw Failure(BXRC_MAX_CONNECTIONS, std::string(what) + ": too many connections");
  case MDB_CORRUPTED:
  case MDB_PAGE_NOTFOUND:
  case MDB_INVALID:
  case MDB_VERSION_MISMATCH:
    throw Failure(BXRC_OBJECT_DAMAGED, std::string(what) + ": " + ::mdb_strerror(error));
  case MDB_PANIC:
    throw Failure(BXRC_CONNECTION_BROKEN, std::string(what) + ": the store failed earlier");
  default:
    if (error > 0) failWithErrno(error, BXRC_UNEXPECTED, what);
    throw Failure(BXRC_UNEXPECTED, std::string(what) + ": " + ::mdb_strerror(error));
  }
}

// ---- Keys ---------------------------------------------------------------------------------------

MessageKey::MessageKey(std::uint32_t queue, const Position& position) {
  for (int i = 0; i < 4; ++i) m_bytes[i] = static_cast<unsigned char>(queue >> (8 * (3 - i)));
  const std::uint64_t rest =
      (static_cast<std::uint64_t>(BXPRI_MAXIMUM - position.priority) << 56) | position.sequence;
  for (int i = 0; i < 8; ++i) m_bytes[4 + i] = static_cast<unsigned char>(rest >> (8 * (7 - i)));
}

std::uint32_t MessageKey::queueOf(const MDB_val& key) {
  std::uint32_t number;
  std::memcpy(&number, key.mv_data, sizeof number);
  return __builtin_bswap32(number);
}

Position MessageKey::positionOf(const MDB_val& key) {
  std::uint64_t number;
  std::memcpy(&number, static_cast<const char*>(key.mv_data) + 4, sizeof number);
  number = __builtin_bswap64(number);
  return {BXPRI_MAXIMUM - static_cast<int>(number >> 56), number & kMaxSequence};
}

// ---- Environment --------------------------------------------------------------------------------

Durable::Durable(const std::string& folder, Open how) : m_file(folder + kFileName) {
  const bool create = how == Open::kCreate;
  struct stat status {};
  if (!create && ::stat(m_file.c_str(), &status) != 0)
    failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "no store in " + folder);
  if (!create && status.st_size == 0) // the library would make a new store of it
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, "the store in " + folder + " is empty");
  const StopSignalsWait stopsWait; // the library locks out who else opens or closes
  try {
    openEnvironment(folder);
    openTables(create);
    if (create) syncFolder(folder);
  } catch (const Failure& failure) {
    if (m_env) ::mdb_env_close(m_env);
    if (failure.reason() == BXRC_NOT_AUTHORIZED || failure.reason() == BXRC_MAX_CONNECTIONS) throw;
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE,
                  "the store in " + folder + " cannot be opened: " + failure.what());
  }
}

Durable::~Durable() {
  const StopSignalsWait stopsWait;
  ::mdb_env_close(m_env);
}

namespace {

/// The library's table of connections is a file with holes; on a full disk the first connection in
/// one would end its process. Where there is no room for all of it now, it stays as it is.
void allocateReaders(const std::string& file) {
  const int table = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  if (table < 0) return; // the library tells why
  struct stat status {};
  const bool known = ::fstat(table, &status) == 0 && status.st_size > 0; // others may map it so
  ::posix_fallocate(table, 0, known ? status.st_size : (kMaxReaders + 4) * kReaderSize);
  ::close(table);
}

} // namespace

void Durable::openEnvironment(const std::string& folder) {
  const std::string file = folder + kFileName;
  allocateReaders(file + "-lock");
  struct stat status {};
  const std::size_t present =
      ::stat(file.c_str(), &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
  // A limit on address space, or a tool that watches memory, may refuse the largest map.
  for (std::size_t size = kMapSize;; size /= 4) {
    check(::mdb_env_create(&m_env), "making an environment");
    ::mdb_env_set_maxdbs(m_env, 8);
    ::mdb_env_set_maxreaders(m_env, kMaxReaders);
    ::mdb_env_set_mapsize(m_env, size);
    const int result = ::mdb_env_open(m_env, file.c_str(), MDB_NOSUBDIR | MDB_NOTLS, 0660);
    if (result == MDB_SUCCESS) {
      ::fcntl(fileEnd().file, F_SETFD, FD_CLOEXEC); // the only one that the library does not mark
      return checkLength();
    }
    ::mdb_env_close(m_env);
    m_env = nullptr;
    if ((result != ENOMEM && result != EINVAL) || size / 4 < kSmallestMap || size / 4 < 2 * present)
      check(result, "opening the environment");
  }
}

/// A file that lost its end would end the process at the first touch of a missing page.
void Durable::checkLength() const {
  if (fileEnd().isWhole()) return;
  const WriteTransaction othersWait(*this);
  const FileEnd end = fileEnd();
  if (end.isWhole()) return;
  if (!lacksOnlyFreePages(end))
    throw Failure(BXRC_OBJECT_DAMAGED, m_file + " is shorter than it says");
  // Spares the next ones the look. Where there is no room, they look.
  const auto present = static_cast<off_t>(end.present * end.pageSize);
  ::posix_fallocate(end.file, present, static_cast<off_t>((end.last + 1) * end.pageSize) - present);
}

FileEnd Durable::fileEnd() const {
  MDB_envinfo info;
  MDB_stat shape;
  int file = -1;
  check(::mdb_env_info(m_env, &info), "reading the store's state");
  check(::mdb_env_stat(m_env, &shape), "reading the store's state");
  check(::mdb_env_get_fd(m_env, &file), "reading the store's state");
  struct stat status {};
  if (::fstat(file, &status) != 0) failWithErrno(errno, BXRC_UNEXPECTED, m_file);
  return {file, shape.ms_psize, static_cast<std::uint64_t>(status.st_size) / shape.ms_psize,
          info.me_last_pgno, info.me_last_txnid};
}

void Durable::openTables(bool create) {
  const unsigned flag = create ? MDB_CREATE : 0;
  MDB_txn* txn = nullptr;
  check(::mdb_txn_begin(m_env, nullptr, create ? 0 : MDB_RDONLY, &txn), "reading the store");
  try {
    check(::mdb_dbi_open(txn, "settings", flag, &settings), "settings");
    if (create) {
      writeSetting(txn, *this, kSettingFormat, littleEndian(kFormatVersion));
      writeSetting(txn, *this, kSettingStoreId, littleEndian(randomNumber()));
      writeSetting(txn, *this, kSettingNextQueue, littleEndian(std::uint32_t{1}));
    }
    const auto version = readSetting(txn, *this, kSettingFormat);
    if (!version || version->size() != sizeof kFormatVersion)
      throw Failure(BXRC_OBJECT_DAMAGED, "it is no store of ours");
    const char* p = version->data();
    if (const auto found = takeLittle<std::uint32_t>(p); found > kFormatVersion)
      throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, "it has format " + std::to_string(found) +
                                                  ", this program knows " +
                                                  std::to_string(kFormatVersion));
    const auto id = readSetting(txn, *this, kSettingStoreId);
    if (!id || id->size() != sizeof m_storeId)
      throw Failure(BXRC_OBJECT_DAMAGED, "it has no identity");
    std::memcpy(&m_storeId, id->data(), sizeof m_storeId);
    check(::mdb_dbi_open(txn, "queues", flag, &queues), "queues");
    check(::mdb_dbi_open(txn, "counts", flag, &counts), "counts");
    check(::mdb_dbi_open(txn, "messages", flag, &messages), "messages");
  } catch (const Failure&) {
    ::mdb_txn_abort(txn);
    throw;
  }
  check(::mdb_txn_commit(txn), "opening the tables");
}

/// LMDB does not tell where it has mapped the file, the kernel does.
Durable::Mapping Durable::findMapping(const std::string& file) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (!line.ends_with(file)) continue;
    char* end = nullptr;
    const std::uintptr_t from = std::strtoull(line.c_str(), &end, 16);
    const std::uintptr_t to = *end == '-' ? std::strtoull(end + 1, nullptr, 16) : 0;
    if (to <= from) break;
    return {reinterpret_cast<void*>(from), to - from}; // NOLINT(performance-no-int-to-ptr)
  }
  return {};
}

void Durable::passedThrough(std::size_t bytes) const noexcept {
  if (m_passed.fetch_add(bytes, std::memory_order_relaxed) + bytes < kMostPassed) return;
  m_passed.store(0, std::memory_order_relaxed);
  const std::lock_guard guard(m_mappingMutex);
  try {
    if (!m_mapping) m_mapping = findMapping(m_file);
  } catch (const std::exception&) {
    return; // the next time will do
  }
  if (m_mapping->address) ::madvise(m_mapping->address, m_mapping->size, MADV_DONTNEED);
}

std::uint64_t Durable::lastTransaction() const {
  MDB_envinfo info;
  check(::mdb_env_info(m_env, &info), "reading the store's state");
  return info.me_last_txnid;
}

void Durable::clearStaleReaders() const {
  const StopSignalsWait stopsWait;
  int dead = 0;
  ::mdb_reader_check(m_env, &dead);
}

// ---- Transactions -------------------------------------------------------------------------------

WriteTransaction::WriteTransaction(const Durable& durable) : m_durable(durable) {
  check(::mdb_txn_begin(durable.env(), nullptr, 0, &m_txn), "beginning a transaction");
}

WriteTransaction::~WriteTransaction() {
  if (m_txn) ::mdb_txn_abort(m_txn);
}

void WriteTransaction::commit() {
  MDB_txn* txn = m_txn;
  m_txn = nullptr;
  const int result = ::mdb_txn_commit(txn);
  if (result == MDB_SUCCESS) return m_durable.passedThrough(kTransactionTouches);
  m_durable.noteFailedCommit();
  failWithLmdb(result == EIO ? causeOfShortWrite(m_durable) : result, "committing a transaction");
}

Reader::~Reader() {
  if (m_cursor) ::mdb_cursor_close(m_cursor);
  if (m_txn) ::mdb_txn_abort(m_txn);
}

void Reader::begin() {
  if (m_txn) {
    check(::mdb_txn_renew(m_txn), "reading the store");
    check(::mdb_cursor_renew(m_txn, m_cursor), "reading the store");
    return;
  }
  const StopSignalsWait stopsWait; // a lock guards the table of readers
  check(::mdb_txn_begin(m_durable.env(), nullptr, MDB_RDONLY, &m_txn), "reading the store");
  if (const int result = ::mdb_cursor_open(m_txn, m_durable.messages, &m_cursor)) {
    ::mdb_txn_abort(m_txn);
    m_txn = nullptr;
    failWithLmdb(result, "reading the messages");
  }
}

void Reader::end() {
  if (m_txn) ::mdb_txn_reset(m_txn);
}

bool Reader::Snapshot::refresh() {
  const std::size_t seen = ::mdb_txn_id(m_reader.m_txn);
  if (m_reader.m_durable.lastTransaction() == seen) return false;
  m_reader.end();
  m_reader.begin();
  return true;
}

// ---- Small tables -------------------------------------------------------------------------------

bool readCountsIfThere(MDB_txn* txn, const Durable& durable, std::uint32_t queue,
                       QueueCounts& counts) {
  const std::string keyBytes = bigEndian(queue);
  MDB_val key = toVal(keyBytes), value{};
  const int result = ::mdb_get(txn, durable.counts, &key, &value);
  if (result == MDB_NOTFOUND) return false;
  check(result, "reading a queue's counts");
  if (value.mv_size != sizeof counts)
    throw Failure(BXRC_OBJECT_DAMAGED, "a queue's counts are not readable");
  std::memcpy(&counts, value.mv_data, sizeof counts);
  return true;
}

QueueCounts readCounts(MDB_txn* txn, const Durable& durable, std::uint32_t queue) {
  QueueCounts counts;
  readCountsIfThere(txn, durable, queue, counts);
  return counts;
}

void writeCounts(MDB_txn* txn, const Durable& durable, std::uint32_t queue,
                 const QueueCounts& counts) {
  const std::string keyBytes = bigEndian(queue);
  MDB_val key = toVal(keyBytes), value{sizeof counts, const_cast<QueueCounts*>(&counts)};
  check(::mdb_put(txn, durable.counts, &key, &value, 0), "writing a queue's counts");
}

std::optional<QueueDefinition> readDefinition(MDB_txn* txn, const Durable& durable,
                                              std::string_view name) {
  if (name.empty()) return std::nullopt;
  MDB_val key = toVal(name), value{};
  const int result = ::mdb_get(txn, durable.queues, &key, &value);
  if (result == MDB_NOTFOUND) return std::nullopt;
  check(result, "reading a queue's definition");
  return decodeDefinition(name, toView(value));
}

std::vector<QueueDefinition> readDefinitions(MDB_txn* txn, const Durable& durable) {
  std::vector<QueueDefinition> definitions;
  MDB_cursor* cursor = nullptr;
  check(::mdb_cursor_open(txn, durable.queues, &cursor), "reading the queues");
  const std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)> closes(cursor, ::mdb_cursor_close);
  MDB_val key{}, value{};
  int result;
  while ((result = ::mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) == MDB_SUCCESS)
    definitions.push_back(decodeDefinition(toView(key), toView(value)));
  if (result != MDB_NOTFOUND) failWithLmdb(result, "reading the queues");
  return definitions;
}

std::vector<QueueDefinition> readPurges(MDB_txn* txn, const Durable& durable) {
  std::vector<QueueDefinition> purges;
  MDB_cursor* cursor = nullptr;
  check(::mdb_cursor_open(txn, durable.settings, &cursor), "reading the settings");
  const std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)> closes(cursor, ::mdb_cursor_close);
  MDB_val key = toVal(kSettingPurgePrefix), value{};
  for (int result = ::mdb_cursor_get(cursor, &key, &value, MDB_SET_RANGE);
       result == MDB_SUCCESS && toView(key).starts_with(kSettingPurgePrefix);
       result = ::mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) {
    QueueDefinition queue;
    queue.id = static_cast<std::uint32_t>(
        std::stoul(std::string(toView(key).substr(kSettingPurgePrefix.size()))));
    if (value.mv_size == sizeof queue.slot)
      std::memcpy(&queue.slot, value.mv_data, sizeof queue.slot);
    purges.push_back(queue);
  }
  return purges;
}

namespace {

std::string purgeKey(std::uint32_t queue) {
  return std::string(kSettingPurgePrefix) + std::to_string(queue);
}

void erase(MDB_txn* txn, MDB_dbi table, std::string_view keyText, const char* what) {
  MDB_val key = toVal(keyText);
  if (const int result = ::mdb_del(txn, table, &key, nullptr);
      result != MDB_SUCCESS && result != MDB_NOTFOUND)
    failWithLmdb(result, what);
}

} // namespace

void deleteDefinition(MDB_txn* txn, const Durable& durable, const QueueDefinition& queue) {
  erase(txn, durable.queues, queue.name, "deleting a queue");
  erase(txn, durable.counts, bigEndian(queue.id), "deleting a queue");
  writeSetting(txn, durable, purgeKey(queue.id), littleEndian(queue.slot));
}

void removePurge(MDB_txn* txn, const Durable& durable, std::uint32_t queue) {
  erase(txn, durable.settings, purgeKey(queue), "deleting a queue");
}

std::optional<std::string> readSetting(MDB_txn* txn, const Durable& durable,
                                       std::string_view keyText) {
  MDB_val key = toVal(keyText), value{};
  const int result = ::mdb_get(txn, durable.settings, &key, &value);
  if (result == MDB_NOTFOUND) return std::nullopt;
  check(result, "reading a setting");
  return std::string(toView(value));
}

void writeSetting(MDB_txn* txn, const Durable& durable, std::string_view keyText,
                  std::string_view valueText) {
  MDB_val key = toVal(keyText), value = toVal(valueText);
  check(::mdb_put(txn, durable.settings, &key, &value, 0), "writing a setting");
}

} // namespace bxm
