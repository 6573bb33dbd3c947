#include "manager/store/lmdb/disk_room.h"

#include "manager/store/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace bxm {

namespace {

constexpr std::uint64_t kLittle = 1 << 20;
constexpr std::uint64_t kKept = 256 << 10;
constexpr MDB_dbi kFreePages = 0; ///< the library's own table, which it shows to readers only

void check(int result) {
  if (result != MDB_SUCCESS) failWithLmdb(result, "looking for room");
}

int fileOf(const Durable& durable) {
  int file = -1;
  check(::mdb_env_get_fd(durable.env(), &file));
  return file;
}

/// The bytes of the free pages within the file, as far as they matter below a limit.
std::uint64_t freePages(const Durable& durable, std::uint64_t pageSize, std::uint64_t limit) {
  Reader reader(durable);
  const Reader::Snapshot snapshot(reader);
  MDB_cursor* cursor = nullptr;
  check(::mdb_cursor_open(snapshot.txn(), kFreePages, &cursor));
  const std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)> closes(cursor, ::mdb_cursor_close);
  MDB_val key{}, value{};
  std::uint64_t bytes = 0;
  while (bytes < limit && ::mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == MDB_SUCCESS) {
    std::size_t pages = 0; // each value is a list that begins with its length
    std::memcpy(&pages, value.mv_data, sizeof pages);
    bytes += pages * pageSize;
  }
  return bytes;
}

} // namespace

bool isDiskFull(const Durable& durable) {
  struct statvfs room {};
  return ::fstatvfs(fileOf(durable), &room) == 0 &&
         std::uint64_t{room.f_bavail} * room.f_frsize < kLittle;
}

int causeOfShortWrite(const Durable& durable) {
  struct rlimit most {};
  struct stat status {};
  if (isDiskFull(durable)) return ENOSPC;
  if (::getrlimit(RLIMIT_FSIZE, &most) != 0 || ::fstat(fileOf(durable), &status) != 0) return EIO;
  return most.rlim_cur < static_cast<std::uint64_t>(status.st_size) + kLittle ? EFBIG : EIO;
}

void keepRoomToDelete(const Durable& durable, std::uint64_t bytes) {
  if (!isDiskFull(durable)) return;
  MDB_envinfo info;
  MDB_stat shape;
  struct stat status {};
  check(::mdb_env_info(durable.env(), &info));
  check(::mdb_env_stat(durable.env(), &shape));
  if (::fstat(fileOf(durable), &status) != 0) return;
  const std::uint64_t size = static_cast<std::uint64_t>(status.st_size);
  const std::uint64_t pages = (info.me_last_pgno + 1) * shape.ms_psize;
  // A page may be half full. Free pages behind the end of the file are no room.
  const std::uint64_t needed = 2 * bytes + kKept + pages - std::min(size, pages);
  const std::uint64_t behind = size - std::min(size, pages);
  if (behind + freePages(durable, shape.ms_psize, needed) < needed)
    throw Failure(BXRC_STORAGE_FULL, "the disk is full but for what deletions need");
}

} // namespace bxm
