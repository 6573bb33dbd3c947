#include "manager/store/log/folder.h"

#include "bx/bx.h"
#include "manager/base/failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace bxm {

// ---- File ---------------------------------------------------------------------------------------

namespace {
/// In one call: above 4 MiB ext4 (Linux 6.18) is five times as slow.
constexpr std::size_t kMostWritten = 1 << 20;
} // namespace

File::~File() {
  if (m_descriptor >= 0) ::close(m_descriptor);
}

std::size_t File::read(void* bytes, std::size_t size, std::uint64_t offset) const {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::pread(m_descriptor, static_cast<char*>(bytes) + done, size - done,
                              static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  return done;
}

int File::write(const void* bytes, std::size_t size, std::uint64_t offset) const {
  for (std::size_t done = 0; done < size;) {
    const ssize_t n =
        ::pwrite(m_descriptor, static_cast<const char*>(bytes) + done,
                 std::min(size - done, kMostWritten), static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n < 0 ? errno : ENOSPC;
    if (size > kMostWritten) // so that the disk is at work before it is waited for
      ::sync_file_range(m_descriptor, static_cast<off_t>(offset + done), n, SYNC_FILE_RANGE_WRITE);
    done += static_cast<std::size_t>(n);
  }
  return 0;
}

int File::copy(const File& from, std::uint64_t begin, std::uint64_t end) const {
  std::string bytes(std::size_t{1} << 20, '\0');
  while (begin < end) {
    const std::size_t size =
        from.read(bytes.data(), std::min<std::uint64_t>(bytes.size(), end - begin), begin);
    if (size == 0) return EIO;
    if (const int error = write(bytes.data(), size, begin)) return error;
    begin += size;
  }
  return 0;
}

int File::sync() const { return ::fdatasync(m_descriptor) == 0 ? 0 : errno; }

namespace {

/// Nothing but what is asked for: where the kernel keeps fine times, the first write after somebody
/// has looked at them makes the inode dirty, and its flush takes half as long again.
struct statx look(int descriptor, unsigned what) {
  struct statx status {};
  if (::statx(descriptor, "", AT_EMPTY_PATH, what, &status) != 0) return {};
  return status;
}

} // namespace

bool File::isNamed() const { return look(m_descriptor, STATX_NLINK).stx_nlink > 0; }

bool File::isRegular() const { return S_ISREG(look(m_descriptor, STATX_TYPE).stx_mode); }

std::uint64_t File::size() const { return look(m_descriptor, STATX_SIZE).stx_size; }

// ---- Folder -------------------------------------------------------------------------------------

namespace {

/// For whom a folder that is a group's does not let in: who may, and how to become that.
std::string remedy(int error, const std::string& path) {
  struct stat status {};
  if (error != EACCES || ::stat(path.c_str(), &status) != 0 || !(status.st_mode & S_IWGRP))
    return "";
  std::array<char, 16 << 10> names{};
  struct group entry {};
  struct group* found = nullptr;
  ::getgrgid_r(status.st_gid, &entry, names.data(), names.size(), &found);
  if (!found) return "";
  const std::string name = found->gr_name;
  return ", which is for members of the group " + name + " ('adduser USER " + name +
         "' as root, then log in again)";
}

} // namespace

Folder::Folder(std::string path)
    : m_path(std::move(path)),
      m_folder(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (m_folder) return;
  const int error = errno;
  failWithErrno(error, BXRC_Q_MGR_NOT_AVAILABLE,
                "cannot open the folder " + m_path + remedy(error, m_path));
}

Folder::Folder(const Folder& parent, const std::string& name)
    : m_path(parent.pathOf(name)),
      m_folder(::openat(parent.m_folder.get(), name.c_str(),
                        O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
  if (!m_folder) parent.fail(errno, "cannot open the folder", name);
}

void Folder::fail(int error, const char* what, const std::string& name) const {
  failWithErrno(error, BXRC_Q_MGR_NOT_AVAILABLE, std::string(what) + " " + pathOf(name));
}

namespace {

/// A folder that is its group's makes files that are its group's, whatever the program's mask.
mode_t modeIn(const struct stat& folder, mode_t bits) {
  return folder.st_mode & S_IWGRP ? bits : bits & S_IRWXU;
}

/// Gives what was made to whom the folder belongs. Who may not keeps it, and keeps it alone.
void giveTo(int made, const struct stat& folder, mode_t mode) {
  struct stat status {};
  if (::fstat(made, &status) != 0) return;
  const uid_t owner = ::geteuid() == 0 ? folder.st_uid : status.st_uid;
  if ((owner != status.st_uid || folder.st_gid != status.st_gid) &&
      ::fchown(made, owner, folder.st_gid) != 0)
    mode &= S_IRWXU; // the group would be another one: everybody may make files in /tmp
  if ((status.st_mode & 07777) != mode) ::fchmod(made, mode);
}

} // namespace

void Folder::adopt(const File& file, const std::string& name) const {
  struct stat folder {};
  if (::fstat(m_folder.get(), &folder) != 0) fail(errno, "cannot look at the folder of", name);
  giveTo(file.get(), folder, modeIn(folder, 0660));
}

void Folder::make(const Folder& parent, const std::string& name) {
  struct stat above {};
  if (::fstat(parent.m_folder.get(), &above) != 0 ||
      ::mkdirat(parent.m_folder.get(), name.c_str(), 0700) != 0)
    parent.fail(errno, "cannot make the folder", name);
  const Folder made(parent, name);
  giveTo(made.m_folder.get(), above, modeIn(above, 0770) | (above.st_mode & S_ISGID));
}

/// It gets its name last. Others look for it at the same time, and who dies in between must not
/// leave one that is closed to them.
File Folder::makeForAll(const std::string& name) const {
  File file(::openat(m_folder.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!file) return open(name, Access::kMakeNew); // not every file system can
  adopt(file, name);
  const std::string unnamed = "/proc/self/fd/" + std::to_string(file.get());
  if (::linkat(AT_FDCWD, unnamed.c_str(), m_folder.get(), name.c_str(), AT_SYMLINK_FOLLOW) == 0)
    return file;
  return errno == EEXIST ? File() : open(name, Access::kMakeNew);
}

File Folder::open(const std::string& name, Access access) const {
  const int how = access == Access::kRead      ? O_RDONLY
                  : access == Access::kMakeNew ? O_RDWR | O_CREAT | O_EXCL
                                               : O_RDWR;
  // Without waiting: a pipe in the place of a file has perhaps nobody at its other end.
  constexpr int kAlways = O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  File file(::openat(m_folder.get(), name.c_str(), how | kAlways, 0600));
  if (!file && access == Access::kMake && errno == ENOENT) {
    file = makeForAll(name);
    return file ? std::move(file) : open(name, Access::kWrite); // somebody else was first
  }
  if (!file && ((errno == ENOENT && access != Access::kMakeNew) ||
                (errno == EEXIST && access == Access::kMakeNew)))
    return file;
  if (!file) fail(errno, errno == ELOOP ? "there is a link in the place of" : "cannot open", name);
  if (!file.isRegular()) throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, pathOf(name) + " is not a file");
  if (access == Access::kMakeNew) adopt(file, name);
  return file;
}

std::string Folder::read(const std::string& name) const {
  constexpr std::size_t kMost = 64 << 10;
  const File file = open(name, Access::kRead);
  if (!file) return {};
  std::string bytes(std::min<std::uint64_t>(file.size(), kMost), '\0');
  bytes.resize(file.read(bytes.data(), bytes.size(), 0));
  return bytes;
}

void Folder::replace(const std::string& name, std::string_view bytes) const {
  const std::string made = "." + name + "-" + std::to_string(::getpid());
  remove(made);
  {
    const File file = open(made, Access::kMakeNew);
    if (!file) fail(EEXIST, "cannot make", made);
    int error = file.write(bytes.data(), bytes.size(), 0);
    if (!error) error = file.sync();
    if (error) {
      remove(made);
      fail(error, "cannot write", name);
    }
  }
  rename(made, name);
  sync();
}

bool Folder::has(const std::string& name) const {
  struct stat status {};
  if (::fstatat(m_folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return true;
  if (errno != ENOENT && errno != ENAMETOOLONG) fail(errno, "cannot look at", name);
  return false;
}

void Folder::remove(const std::string& name) const {
  if (::unlinkat(m_folder.get(), name.c_str(), 0) != 0 && errno != ENOENT)
    fail(errno, "cannot remove", name);
}

void Folder::removeTree(const std::string& name) const {
  if (!has(name)) return;
  // An empty one may be closed to us: its maker died before it was the group's.
  if (::unlinkat(m_folder.get(), name.c_str(), AT_REMOVEDIR) == 0) return;
  const Folder inner(*this, name);
  for (const std::string& file : inner.list()) inner.remove(file);
  if (::unlinkat(m_folder.get(), name.c_str(), AT_REMOVEDIR) != 0)
    fail(errno, "cannot remove", name);
}

void Folder::rename(const std::string& from, const std::string& to) const {
  if (::renameat(m_folder.get(), from.c_str(), m_folder.get(), to.c_str()) != 0)
    fail(errno, "cannot rename", from);
}

void Folder::exchange(const std::string& one, const std::string& other) const {
  if (::renameat2(m_folder.get(), one.c_str(), m_folder.get(), other.c_str(), RENAME_EXCHANGE) != 0)
    fail(errno, "cannot exchange", one);
}

void Folder::copy(const Folder& from, const std::string& name) const {
  const File source = from.open(name, Access::kRead);
  const File made = open(name, Access::kMakeNew);
  if (!source) from.fail(ENOENT, "cannot open", name);
  int error = made ? made.copy(source, 0, source.size()) : EEXIST;
  if (!error) error = made.sync();
  if (error) fail(error, "cannot write", name);
}

void Folder::sync() const {
  if (::fsync(m_folder.get()) != 0)
    failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot sync the folder " + m_path);
}

std::vector<std::string> Folder::list() const {
  const int descriptor = ::openat(m_folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(
      descriptor < 0 ? nullptr : ::fdopendir(descriptor), ::closedir);
  if (!folder) failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot read the folder " + m_path);
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  return names;
}

} // namespace bxm
