#include "manager/store/lmdb/runtime.h"

#include "bx/bx.h"
#include "manager/store/failure.h"
#include "manager/store/kill_point.h"
#include "manager/store/lmdb/first_line.h"
#include "manager/store/lmdb/take_journal.h"

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
constexpr std::uint32_t kLayoutVersion = 1;
constexpr std::uint64_t kOpeningByte = 0;
constexpr std::uint64_t kConnectionBytes = 1; ///< byte 1 + slot

/// The kernel's own name for this boot. Without it nothing can be trusted to be of this boot.
std::string bootId() { return firstLine("/proc/sys/kernel/random/boot_id"); }

struct flock lockOf(short type, std::uint64_t byte) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(byte);
  lock.l_len = 1;
  return lock;
}

long futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value,
           const timespec* timeout) {
  return ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), operation, value, timeout,
                   nullptr, 0);
}

} // namespace

// ---- Opening ------------------------------------------------------------------------------------

Runtime::Runtime(const std::string& folder) : m_folder(folder) {
  const std::string file = folder + "/runtime";
  m_file = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  if (m_file < 0) failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot open " + file);
}

Runtime::~Runtime() {
  if (m_layout) ::munmap(m_layout, sizeof(Layout));
  if (m_file >= 0) ::close(m_file);
}

Runtime::OpeningLock::OpeningLock(Runtime& runtime) : m_runtime(runtime) {
  if (!m_runtime.lockByte(kOpeningByte, true))
    failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE,
                  "cannot lock " + m_runtime.m_folder + "/runtime");
}

Runtime::OpeningLock::~OpeningLock() { m_runtime.unlockByte(kOpeningByte); }

bool Runtime::isCurrent(std::uint64_t storeId,
                        const std::function<std::uint64_t()>& lastTransaction) const {
  alignas(Header) char bytes[sizeof(Header)];
  struct stat status {};
  if (::fstat(m_file, &status) != 0 || status.st_size != sizeof(Layout)) return false;
  if (::pread(m_file, bytes, sizeof bytes, 0) != sizeof bytes) return false;
  const auto& header = *reinterpret_cast<const Header*>(bytes);
  const std::string boot = bootId();
  const bool ours =
      std::memcmp(header.magic, kMagic, sizeof kMagic) == 0 && header.version == kLayoutVersion &&
      header.sealed == 1 && header.storeId == storeId && !boot.empty() &&
      boot == std::string(header.bootId, ::strnlen(header.bootId, sizeof header.bootId));
  if (!ours) return false;
  if (header.newestTransaction.load() <= lastTransaction()) return true; // asked after the header
  // A copy was put back, and no power was cut: it is served as it is.
  if (!othersConnected()) removeTakeJournals(m_folder);
  return false;
}

void Runtime::remake(std::uint64_t storeId) {
  if (othersConnected())
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, m_folder + " is in use by another version");
  removeTakeMaps(m_folder);
  if (::ftruncate(m_file, 0) != 0 || ::ftruncate(m_file, sizeof(Layout)) != 0)
    failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot write " + m_folder + "/runtime");
  // A page that the disk has no room for would end the process when it is touched.
  if (const int error = ::posix_fallocate(m_file, 0, sizeof(Layout)))
    failWithErrno(error, BXRC_Q_MGR_NOT_AVAILABLE, "cannot write " + m_folder + "/runtime");
  map();
  std::memcpy(m_layout->header.magic, kMagic, sizeof kMagic);
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
  if (m_layout) return;
  void* mapped = ::mmap(nullptr, sizeof(Layout), PROT_READ | PROT_WRITE, MAP_SHARED, m_file, 0);
  if (mapped == MAP_FAILED)
    failWithErrno(errno, BXRC_RESOURCE_PROBLEM, "cannot map " + m_folder + "/runtime");
  m_layout = static_cast<Layout*>(mapped);
}

bool Runtime::lockByte(std::uint64_t byte, bool wait) const {
  struct flock lock = lockOf(F_WRLCK, byte);
  int result;
  do {
    result = ::fcntl(m_file, wait ? F_SETLKW : F_SETLK, &lock);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

void Runtime::unlockByte(std::uint64_t byte) const {
  struct flock lock = lockOf(F_UNLCK, byte);
  ::fcntl(m_file, F_SETLK, &lock);
}

bool Runtime::heldByOther(std::uint64_t byte) const {
  struct flock lock = lockOf(F_WRLCK, byte);
  return ::fcntl(m_file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void Runtime::noteTransaction(std::uint64_t transaction) const {
  auto& newest = m_layout->header.newestTransaction;
  std::uint64_t seen = newest.load();
  while (seen < transaction && !newest.compare_exchange_weak(seen, transaction)) {
  }
}

// ---- Connections --------------------------------------------------------------------------------

std::uint32_t Runtime::claimConnection() {
  const std::lock_guard guard(m_mutex);
  for (std::uint32_t slot = 0; slot < kConnectionSlots; ++slot) {
    if (m_mine[slot] || connection(slot).used.load() || !lockByte(kConnectionBytes + slot, false))
      continue;
    if (connection(slot).used.load()) { // its owner died between the two looks: left to a recoverer
      unlockByte(kConnectionBytes + slot);
      continue;
    }
    connection(slot).committing = 0;
    connection(slot).deletingQueue = 0;
    connection(slot).process = static_cast<std::uint32_t>(::getpid());
    connection(slot).used = 1;
    BXM_KILL_POINT("connection-claimed");
    std::uint32_t limit = m_layout->header.connectionLimit.load();
    while (limit <= slot &&
           !m_layout->header.connectionLimit.compare_exchange_weak(limit, slot + 1)) {
    }
    m_mine[slot] = true;
    return slot;
  }
  throw Failure(BXRC_MAX_CONNECTIONS,
                "all " + std::to_string(kConnectionSlots) + " connections are in use");
}

void Runtime::releaseConnection(std::uint32_t slot) {
  const std::lock_guard guard(m_mutex);
  connection(slot).committing = 0;
  connection(slot).used = 0;
  unlockByte(kConnectionBytes + slot);
  m_mine[slot] = false;
}

bool Runtime::isInPlace() const {
  struct stat opened {
  }, named{};
  return ::fstat(m_file, &opened) == 0 && ::stat((m_folder + "/runtime").c_str(), &named) == 0 &&
         opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

bool Runtime::isInUse(const std::string& folder) {
  const int file = ::open((folder + "/runtime").c_str(), O_RDWR | O_CLOEXEC);
  if (file < 0) return false;
  struct flock lock = lockOf(F_WRLCK, kConnectionBytes);
  lock.l_len = kConnectionSlots;
  const bool held = ::fcntl(file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
  ::close(file);
  return held;
}

void Runtime::abandonConnection(std::uint32_t slot) {
  const std::lock_guard guard(m_mutex);
  unlockByte(kConnectionBytes + slot);
  m_mine[slot] = false;
}

bool Runtime::claimDead(std::uint32_t slot) {
  if (!connection(slot).used.load()) return false;
  const std::lock_guard guard(m_mutex);
  if (m_mine[slot] || !lockByte(kConnectionBytes + slot, false)) return false;
  if (!connection(slot).used.load()) { // another recoverer was first
    unlockByte(kConnectionBytes + slot);
    return false;
  }
  m_mine[slot] = true;
  return true;
}

bool Runtime::hasDied(std::uint32_t slot) const {
  if (!connection(slot).used.load() || m_mine[slot].load()) return false;
  return !heldByOther(kConnectionBytes + slot) && connection(slot).used.load() &&
         !m_mine[slot].load();
}

bool Runtime::othersConnected() const {
  struct flock lock = lockOf(F_WRLCK, kConnectionBytes);
  lock.l_len = kConnectionSlots;
  return ::fcntl(m_file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// ---- Accesses and queues ------------------------------------------------------------------------

std::uint32_t Runtime::claimAccess(std::uint32_t connectionSlot,
                                   const QueueDefinition& definition) {
  for (std::uint32_t slot = 0; slot < kAccessSlots; ++slot) {
    AccessSlot& candidate = access(slot);
    if (candidate.connection.load()) continue;
    // Before the slot is claimed: who dies in between leaves nothing that recovery does not see.
    std::uint32_t limit = m_layout->header.accessLimit.load();
    while (limit <= slot && !m_layout->header.accessLimit.compare_exchange_weak(limit, slot + 1)) {
    }
    std::uint32_t none = 0;
    if (!candidate.connection.compare_exchange_strong(none, connectionSlot + 1)) continue;
    BXM_KILL_POINT("access-claimed");
    candidate.queueSlot = definition.slot;
    candidate.lowest = UINT64_MAX;
    candidate.highest = 0;
    candidate.queueId = definition.id;
    return slot;
  }
  throw Failure(BXRC_RESOURCE_PROBLEM,
                "all " + std::to_string(kAccessSlots) + " open queues are in use");
}

void Runtime::releaseAccess(std::uint32_t slot) {
  AccessSlot& released = access(slot);
  released.uncommitted = 0;
  released.consumed = 0;
  released.settling = 0;
  released.queueId = 0;
  released.connection = 0;
}

void Runtime::prepareQueue(const QueueDefinition& definition, std::uint64_t base,
                           std::uint32_t priorities) const {
  QueueSlot& slot = queue(definition.slot);
  slot.queueId = 0;
  slot.priorities = priorities;
  slot.base = base;
  // A generation of its own: a scan of the slot's former queue must not raise these floors.
  for (auto& floor : slot.floors) floor = ((floor.load() >> 48) + 1) << 48;
  slot.queueId = definition.id;
}

void raiseFloor(std::atomic<std::uint64_t>& floor, std::uint64_t seen, std::uint64_t sequence) {
  if (sequence <= floorSequence(seen)) return;
  floor.compare_exchange_strong(seen, seen - floorSequence(seen) + sequence);
}

void lowerFloor(std::atomic<std::uint64_t>& floor, std::uint64_t sequence) {
  std::uint64_t seen = floor.load();
  std::uint64_t lowered;
  do {
    const std::uint64_t generation = (seen >> 48) + 1;
    lowered = (generation << 48) | std::min(floorSequence(seen), sequence);
  } while (!floor.compare_exchange_weak(seen, lowered));
}

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
