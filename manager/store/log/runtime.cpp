#include "manager/store/log/runtime.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/waiting.h"
#include "manager/store/message.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bxm {

namespace {

constexpr char kMagic[8] = {'B', 'X', 'M', 'R', 'U', 'N', '\n', 0};
constexpr std::uint32_t kLayoutVersion = 5;
constexpr const char* kFileName = "runtime";
constexpr std::uint64_t kOpeningByte = 0;
constexpr std::uint64_t kConnectionBytes = 1; ///< byte 1 + slot

/// The kernel's own name for this boot. Without it nothing can be trusted to be of this boot.
std::string bootId() {
  char text[64];
  const File file(::open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
  const std::string read(text, file ? file.read(text, sizeof text, 0) : 0);
  return read.substr(0, read.find('\n'));
}

struct flock lockOf(short type, std::uint64_t byte) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(byte);
  lock.l_len = 1;
  return lock;
}

/// True when another process holds any connection's byte.
bool anyConnected(const File& file) {
  struct flock lock = lockOf(F_WRLCK, kConnectionBytes);
  lock.l_len = kConnectionSlots;
  return file && ::fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

long futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value,
           const timespec* timeout) {
  return ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), operation, value, timeout,
                   nullptr, 0);
}

} // namespace

// ---- Opening ------------------------------------------------------------------------------------

/// Whoever makes the file anew has it; the others wait.
class Runtime::OpeningLock {
public:
  explicit OpeningLock(Runtime& runtime) : m_runtime(runtime) {
    Patience patience("another process to read the store in " + runtime.m_folder.path());
    while (!m_runtime.lockByte(kOpeningByte)) patience.wait();
  }
  ~OpeningLock() { m_runtime.unlockByte(kOpeningByte); }
  OpeningLock(const OpeningLock&) = delete;
  OpeningLock& operator=(const OpeningLock&) = delete;

private:
  StopSignalsWait m_stopsWait;
  Runtime& m_runtime;
};

Runtime::Runtime(const Folder& folder, std::uint64_t storeId,
                 const std::function<void(Runtime&)>& rebuild)
    : m_folder(folder), m_file(folder.open(kFileName, Folder::Access::kMake)) {
  const OpeningLock lock(*this);
  if (isCurrent(m_file, storeId)) {
    map();
  } else {
    remake(storeId);
    rebuild(*this);
    seal();
  }
}

Runtime::~Runtime() {
  if (m_layout) ::munmap(m_layout, sizeof(Layout));
}

bool Runtime::isCurrent(const File& file, std::uint64_t storeId) {
  alignas(Header) char bytes[sizeof(Header)];
  if (file.size() != sizeof(Layout)) return false;
  if (file.read(bytes, sizeof bytes, 0) != sizeof bytes) return false;
  const auto& header = *reinterpret_cast<const Header*>(bytes);
  const std::string boot = bootId();
  return std::memcmp(header.magic, kMagic, sizeof kMagic) == 0 &&
         header.version == kLayoutVersion && header.sealed == 1 && header.storeId == storeId &&
         !boot.empty() &&
         boot == std::string(header.bootId, ::strnlen(header.bootId, sizeof header.bootId));
}

void Runtime::remake(std::uint64_t storeId) {
  if (othersConnected())
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, m_folder.path() + " is in use by another version");
  if (::ftruncate(m_file.get(), 0) != 0 || ::ftruncate(m_file.get(), sizeof(Layout)) != 0)
    failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot write " + m_folder.pathOf(kFileName));
  map();
  makeTouchable(m_layout, sizeof(Header));
  std::memcpy(m_layout->header.magic, kMagic, sizeof kMagic);
  m_layout->header.made = clockNow();
  m_layout->header.version = kLayoutVersion;
  m_layout->header.storeId = storeId;
  const std::string boot = bootId();
  std::memcpy(m_layout->header.bootId, boot.data(),
              std::min(boot.size(), sizeof m_layout->header.bootId - 1));
}

void Runtime::seal() {
  BXM_KILL_POINT("runtime-before-seal");
  std::atomic_thread_fence(std::memory_order_seq_cst);
  m_layout->header.sealed = 1;
}

void Runtime::map() {
  void* mapped =
      ::mmap(nullptr, sizeof(Layout), PROT_READ | PROT_WRITE, MAP_SHARED, m_file.get(), 0);
  if (mapped == MAP_FAILED)
    failWithErrno(errno, BXRC_RESOURCE_PROBLEM, "cannot map " + m_folder.pathOf(kFileName));
  m_layout = static_cast<Layout*>(mapped);
}

/// A page that the disk has no room for would end the process when it is touched.
void Runtime::makeTouchable(const void* begin, std::size_t size) const {
  const auto offset = static_cast<const char*>(begin) - reinterpret_cast<const char*>(m_layout);
  if (const int error = ::posix_fallocate(m_file.get(), offset, static_cast<off_t>(size)))
    failWithErrno(error, BXRC_Q_MGR_NOT_AVAILABLE, "cannot write " + m_folder.pathOf(kFileName));
}

template <typename Slot>
void Runtime::grow(Slot* table, std::uint32_t slot, std::atomic<std::uint32_t>& limit) const {
  if (slot < limit.load()) return;
  makeTouchable(table + slot, sizeof(Slot));
  raiseTo(limit, slot + 1);
}

void Runtime::growQueues(std::uint32_t slot) const {
  if (slot >= kQueueSlots)
    throw Failure(BXRC_RESOURCE_PROBLEM,
                  "there are " + std::to_string(kQueueSlots) + " queues already");
  grow(m_layout->queues, slot, m_layout->header.queueLimit);
}

void Runtime::growFiles(std::uint32_t slot) const {
  if (slot >= kFileSlots)
    throw Failure(BXRC_STORAGE_FULL,
                  "there are " + std::to_string(kFileSlots) + " log files already");
  grow(m_layout->files, slot, m_layout->header.fileLimit);
}

void Runtime::noteNumber(std::uint64_t number) const {
  raiseTo(m_layout->header.lastNumber, number);
}

void Runtime::noteQueueId(std::uint32_t id) const { raiseTo(m_layout->header.lastQueueId, id); }

bool Runtime::lockByte(std::uint64_t byte) const {
  struct flock lock = lockOf(F_WRLCK, byte);
  if (::fcntl(m_file.get(), F_SETLK, &lock) == 0) return true;
  if (errno == EAGAIN || errno == EACCES) return false;
  failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot lock " + m_folder.pathOf(kFileName));
}

void Runtime::unlockByte(std::uint64_t byte) const {
  struct flock lock = lockOf(F_UNLCK, byte);
  ::fcntl(m_file.get(), F_SETLK, &lock);
}

bool Runtime::heldByOther(std::uint64_t byte) const {
  struct flock lock = lockOf(F_WRLCK, byte);
  return ::fcntl(m_file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// ---- Connections --------------------------------------------------------------------------------

std::uint32_t Runtime::claimConnection() {
  const std::lock_guard guard(m_mutex);
  for (std::uint32_t slot = 0; slot < kConnectionSlots; ++slot) {
    grow(m_layout->connections, slot, m_layout->header.connectionLimit);
    ConnectionSlot& candidate = connection(slot);
    if (m_mine[slot] || candidate.used.load() || !lockByte(kConnectionBytes + slot)) continue;
    if (candidate.used.load()) { // its owner died between the two looks: left to a recoverer
      unlockByte(kConnectionBytes + slot);
      continue;
    }
    candidate.phase = Phase::kNone;
    candidate.copyNumber = candidate.copyPlace = 0;
    candidate.process = static_cast<std::uint32_t>(::getpid());
    candidate.used = 1;
    BXM_KILL_POINT("connection-claimed");
    m_mine[slot] = true;
    return slot;
  }
  throw Failure(BXRC_MAX_CONNECTIONS,
                "all " + std::to_string(kConnectionSlots) + " connections are in use");
}

void Runtime::releaseConnection(std::uint32_t slot) {
  const std::lock_guard guard(m_mutex);
  connection(slot).phase = Phase::kNone;
  connection(slot).used = 0;
  unlockByte(kConnectionBytes + slot);
  m_mine[slot] = false;
}

bool Runtime::isInPlace() const { return m_file.isNamed(); }

bool Runtime::isInUse(const Folder& folder) {
  return anyConnected(folder.open(kFileName, Folder::Access::kWrite));
}

bool Runtime::isKept(const Folder& folder, std::uint64_t storeId) {
  const File file = folder.open(kFileName, Folder::Access::kRead);
  return file && isCurrent(file, storeId);
}

/// Who has the file open and connects later finds it replaced.
bool Runtime::discard(const Folder& folder) {
  const File file = folder.open(kFileName, Folder::Access::kWrite);
  if (!file) return true;
  if (anyConnected(file)) return false;
  constexpr const char* kGone = ".runtime";
  folder.rename(kFileName, kGone);
  if (anyConnected(file)) {
    folder.rename(kGone, kFileName);
    return false;
  }
  folder.remove(kGone);
  return true;
}

namespace {

constexpr std::chrono::nanoseconds kPause = std::chrono::seconds(3);

std::int64_t nowSinceBoot() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

} // namespace

void Runtime::pauseReclaim() const {
  m_layout->header.reclaimPausedUntil = nowSinceBoot() + kPause.count();
}

bool Runtime::isReclaimPaused() const {
  const std::int64_t left = m_layout->header.reclaimPausedUntil.load() - nowSinceBoot();
  return left > 0 && left <= kPause.count();
}

void Runtime::abandonConnection(std::uint32_t slot) {
  const std::lock_guard guard(m_mutex);
  unlockByte(kConnectionBytes + slot);
  m_mine[slot] = false;
}

bool Runtime::claimDead(std::uint32_t slot) {
  if (!connection(slot).used.load()) return false;
  const std::lock_guard guard(m_mutex);
  if (m_mine[slot] || !lockByte(kConnectionBytes + slot)) return false;
  if (!connection(slot).used.load()) { // another recoverer was first
    unlockByte(kConnectionBytes + slot);
    return false;
  }
  m_mine[slot] = true;
  return true;
}

bool Runtime::hasDied(std::uint32_t slot) const {
  slot %= kConnectionSlots;
  if (!connection(slot).used.load() || m_mine[slot].load()) return false;
  return !heldByOther(kConnectionBytes + slot) && connection(slot).used.load() &&
         !m_mine[slot].load();
}

bool Runtime::othersConnected() const { return anyConnected(m_file); }

// ---- Accesses -----------------------------------------------------------------------------------

std::uint32_t Runtime::claimAccess(std::uint32_t connectionSlot, std::uint32_t queueSlot,
                                   std::uint32_t queueId) {
  // First what somebody left of this queue, then what nobody needs any more.
  for (const bool left : {true, false})
    for (std::uint32_t slot = 0; slot < kAccessSlots; ++slot) {
      if (slot >= accessLimit()) {
        if (left) break;
        grow(m_layout->accesses, slot, m_layout->header.accessLimit);
      }
      AccessSlot& candidate = access(slot);
      const std::uint32_t id = candidate.queueId.load();
      const bool fits =
          left ? id == queueId : id == 0 || !queue(candidate.queueSlot.load()).holds(id);
      std::uint32_t nobody = 0;
      if (!fits || candidate.connection.load() != 0 ||
          !candidate.connection.compare_exchange_strong(nobody, connectionSlot + 1))
        continue;
      if (candidate.queueId.load() != id) { // another one claimed and left it in between
        candidate.connection = 0;
        continue;
      }
      BXM_KILL_POINT("access-claimed");
      candidate.single = 0;
      candidate.uses = 0;
      candidate.committedNext = candidate.getsNext = UINT64_MAX;
      if (left) return slot;
      candidate.queueId = 0;
      candidate.puts = candidate.committed = candidate.gets = 0;
      candidate.queueSlot = queueSlot;
      candidate.queueId = queueId;
      queue(queueSlot).accesses.fetch_add(1);
      return slot;
    }
  throw Failure(BXRC_RESOURCE_PROBLEM,
                "all " + std::to_string(kAccessSlots) + " open queues are in use");
}

void Runtime::releaseAccess(std::uint32_t slot) { access(slot).connection = 0; }

// ---- Waiting ------------------------------------------------------------------------------------

void announceArrival(QueueSlot& queue) {
  queue.arrivals.fetch_add(1);
  if (queue.waiters.load() > 0) futex(queue.arrivals, FUTEX_WAKE, INT_MAX, nullptr);
}

void awaitArrival(QueueSlot& queue, std::uint32_t seen,
                  std::chrono::steady_clock::time_point until) {
  using namespace std::chrono;
  // Nobody announces what a dead process gives back, so a look now and then is needed.
  const auto left = std::min<nanoseconds>(until - steady_clock::now(), milliseconds(500));
  if (left <= nanoseconds(0)) return;
  const timespec timeout{static_cast<time_t>(left.count() / 1'000'000'000),
                         static_cast<long>(left.count() % 1'000'000'000)};
  queue.waiters.fetch_add(1);
  futex(queue.arrivals, FUTEX_WAIT, seen, &timeout);
  queue.waiters.fetch_sub(1);
}

} // namespace bxm
