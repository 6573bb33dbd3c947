// Loaded before the C library: records what a process does to a manager's durable files, lets such
// a call fail, ends the process at one, and turns the clock.
//
//   FAULTS_RECORD=file      append every call and mark to file (see recording.h)
//   FAULTS_DIE=n:after      end at the n-th storage call when it is done ...
//   FAULTS_DIE=n:half       ... or when half of it is written
//   FAULTS_FAIL=n:errno     the n-th storage call fails; n+ all from the n-th on
//   FAULTS_CLOCK=file       an int64 of seconds in file is added to the time of day

#include "tests/manager/faults/recording.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

using faults::EventHeader;

namespace {

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

constexpr int kMostFiles = 4096;
struct Watched {
  bool is = false;
  char name[55] = ""; ///< empty for a folder
};
Watched g_watched[kMostFiles];
std::mutex g_mutex;
int g_calls = 0;

int logFile() {
  static const int file = [] {
    const char* path = std::getenv("FAULTS_RECORD");
    return path ? next<int(const char*, int, ...)>("open")(
                      path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)
                : -1;
  }();
  return file;
}

void record(char type, const std::string& name, std::uint64_t offset, const std::string& data) {
  if (logFile() < 0) return;
  EventHeader header{};
  header.type = type;
  header.offset = offset;
  header.length = data.size();
  header.micros = std::chrono::duration_cast<std::chrono::microseconds>(
                      std::chrono::steady_clock::now().time_since_epoch())
                      .count();
  name.copy(header.file, sizeof header.file - 1);
  std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
  bytes += data;
  [[maybe_unused]] const ssize_t n =
      next<ssize_t(int, const void*, size_t)>("write")(logFile(), bytes.data(), bytes.size());
}

struct Order {
  int at = 0;
  bool onwards = false;
  std::string what;
  explicit Order(const char* variable) {
    const char* value = std::getenv(variable);
    if (!value) return;
    at = std::atoi(value);
    onwards = std::strchr(value, '+') != nullptr;
    if (const char* colon = std::strchr(value, ':')) what = colon + 1;
  }
  bool isNow(int call) const { return at > 0 && (call == at || (onwards && call > at)); }
};

/// What is to happen at this storage call.
enum class Fate { kNone, kFail, kDieHalfway, kDieAfter };
Fate fateOfCall() {
  static const Order die("FAULTS_DIE"), fail("FAULTS_FAIL");
  ++g_calls;
  if (die.isNow(g_calls)) return die.what == "half" ? Fate::kDieHalfway : Fate::kDieAfter;
  if (!fail.isNow(g_calls)) return Fate::kNone;
  errno = std::atoi(fail.what.c_str());
  return Fate::kFail;
}

bool isWatched(int file) { return file >= 0 && file < kMostFiles && g_watched[file].is; }

/// What has a name in the end: some files are made under another one.
std::string durableName(const std::string& path) {
  std::string name = path.substr(path.rfind('/') + 1);
  if (name.starts_with(".new-")) name = name.substr(5);
  if (name.starts_with(".")) name = name.substr(1, name.rfind('-') - 1); // the maker's process id
  const bool durable = name == "manager" || name.starts_with("log-") || name.starts_with("queue-");
  return durable ? name : "";
}
bool isFinal(const std::string& path) {
  return path.substr(path.rfind('/') + 1) == durableName(path);
}

/// A call that is a storage call if it concerns anything durable.
template <typename Call, typename Record>
int storageCall(bool concerned, Call call, Record record) {
  if (!concerned) return call();
  const std::lock_guard guard(g_mutex);
  const Fate fate = fateOfCall();
  if (fate == Fate::kFail) return -1;
  const int result = call();
  if (result >= 0) record(result);
  if (fate != Fate::kNone) ::kill(::getpid(), SIGKILL);
  return result;
}

ssize_t storageWrite(int file, const std::string& data, off_t offset) {
  const std::lock_guard guard(g_mutex);
  auto* const write = next<ssize_t(int, const void*, size_t, off_t)>("pwrite");
  const Fate fate = fateOfCall();
  if (fate == Fate::kFail) return -1;
  const std::size_t size = fate == Fate::kDieHalfway ? data.size() / 2 / 512 * 512 : data.size();
  const ssize_t n = write(file, data.data(), size, offset);
  if (n > 0)
    record(faults::kWrite, g_watched[file].name, static_cast<std::uint64_t>(offset),
           data.substr(0, static_cast<std::size_t>(n)));
  if (fate != Fate::kNone) ::kill(::getpid(), SIGKILL);
  return n;
}

int sync(int file, const char* call) {
  return storageCall(
      isWatched(file), [=] { return next<int(int)>(call)(file); },
      [=](int) { record(faults::kSync, g_watched[file].name, 0, ""); });
}

template <typename Open>
int watchedOpen(const char* path, int flags, Open open) {
  const std::string name = durableName(path);
  const int file = storageCall(!name.empty() && (flags & O_EXCL) != 0, open, [&](int) {
    record(faults::kMake, name, 0, "");
    if (isFinal(path)) record(faults::kName, name, 0, "");
  });
  if (file < 0 || file >= kMostFiles) return file;
  // What is opened to be listed is closed unseen.
  const bool folder = (flags & O_TMPFILE) == O_DIRECTORY && std::strcmp(path, ".") != 0;
  g_watched[file] = {folder || !name.empty(), ""};
  name.copy(g_watched[file].name, sizeof g_watched[file].name - 1);
  return file;
}

std::int64_t clockShift() {
  static const std::atomic<std::int64_t>* shift = [] {
    const char* path = std::getenv("FAULTS_CLOCK");
    const int file = path ? ::open(path, O_RDONLY | O_CLOEXEC) : -1;
    void* mapped = file < 0 ? MAP_FAILED : ::mmap(nullptr, 8, PROT_READ, MAP_SHARED, file, 0);
    return mapped == MAP_FAILED ? nullptr : static_cast<const std::atomic<std::int64_t>*>(mapped);
  }();
  return shift ? shift->load() : 0;
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) void faultsMark(const char* text) {
  const std::lock_guard guard(g_mutex);
  record(faults::kMark, "", 0, text);
}

#define VISIBLE __attribute__((visibility("default")))

#define MODE_OF(flags)                                                                             \
  va_list more;                                                                                    \
  va_start(more, flags);                                                                           \
  const mode_t mode = ((flags) & (O_CREAT | O_TMPFILE)) ? va_arg(more, mode_t) : 0;                \
  va_end(more)

VISIBLE int open(const char* path, int flags, ...) {
  MODE_OF(flags);
  return watchedOpen(path, flags,
                     [=] { return next<int(const char*, int, ...)>("open")(path, flags, mode); });
}

VISIBLE int openat(int folder, const char* path, int flags, ...) {
  MODE_OF(flags);
  return watchedOpen(path, flags, [=] {
    return next<int(int, const char*, int, ...)>("openat")(folder, path, flags, mode);
  });
}

VISIBLE int close(int file) {
  if (file >= 0 && file < kMostFiles) g_watched[file] = {};
  return next<int(int)>("close")(file);
}

VISIBLE int renameat(int from, const char* old, int to, const char* path) noexcept {
  return storageCall(
      !durableName(path).empty(),
      [=] {
        return next<int(int, const char*, int, const char*)>("renameat")(from, old, to, path);
      },
      [=](int) { record(faults::kName, durableName(path), 0, ""); });
}

VISIBLE int unlinkat(int folder, const char* path, int flags) noexcept {
  return storageCall(
      !durableName(path).empty() && isFinal(path),
      [=] { return next<int(int, const char*, int)>("unlinkat")(folder, path, flags); },
      [=](int) { record(faults::kRemove, durableName(path), 0, ""); });
}

/// A write of nothing where the file is to end: what is before reads as zeros.
VISIBLE int posix_fallocate(int file, off_t offset, off_t size) {
  const int result = storageCall(
      isWatched(file),
      [=] {
        const int error = next<int(int, off_t, off_t)>("posix_fallocate")(file, offset, size);
        errno = error;
        return error ? -1 : 0;
      },
      [=](int) {
        record(faults::kWrite, g_watched[file].name, static_cast<std::uint64_t>(offset + size), "");
      });
  return result < 0 ? errno : 0;
}

VISIBLE ssize_t pwrite(int file, const void* data, size_t size, off_t offset) {
  if (!isWatched(file))
    return next<ssize_t(int, const void*, size_t, off_t)>("pwrite")(file, data, size, offset);
  return storageWrite(file, {static_cast<const char*>(data), size}, offset);
}

VISIBLE int ftruncate(int file, off_t size) noexcept {
  return storageCall(
      isWatched(file), [=] { return next<int(int, off_t)>("ftruncate")(file, size); },
      [=](int) {
        record(faults::kCut, g_watched[file].name, static_cast<std::uint64_t>(size), "");
      });
}

VISIBLE int fdatasync(int file) { return sync(file, "fdatasync"); }
VISIBLE int fsync(int file) { return sync(file, "fsync"); }

VISIBLE int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static auto* const real = next<int(clockid_t, timespec*)>("clock_gettime");
  const int result = real(clock, time);
  if (result == 0 && clock == CLOCK_REALTIME) time->tv_sec += clockShift();
  return result;
}
}
