#include "manager/store/log/queue_table.h"

#include "bx/bx.h"
#include "manager/base/bytes.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/queue_index.h"
#include "manager/store/log/waiting.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <map>

namespace bxm {

namespace {

/// How long somebody may take to decide what he has begun before others undo it.
constexpr std::chrono::milliseconds kUndecided{200};
constexpr std::size_t kSlotBytes = sizeof QueueSlot::definition;

std::uint32_t hashOf(std::string_view name) { return crc32c(name) | 1; }

/// length u8 | name | definition
std::string encodeNamed(const QueueDefinition& definition) {
  std::string out;
  appendLittle(out, static_cast<std::uint8_t>(definition.name.size()));
  return out + definition.name + encodeDefinition(definition);
}

QueueDefinition decodeNamed(std::string_view bytes) {
  const std::size_t length = bytes.empty() ? 0 : static_cast<std::uint8_t>(bytes[0]);
  if (length + 1 > bytes.size()) throw Failure(BXRC_OBJECT_DAMAGED, "a queue's name is cut short");
  return decodeDefinition(bytes.substr(1, length), bytes.substr(1 + length));
}

/// What a slot holds of a queue; nullopt when that is torn, or of another one.
std::optional<QueueDefinition> decodeSlot(std::string_view bytes, std::uint32_t id) {
  const char* p = bytes.data();
  const auto checksum = takeLittle<std::uint32_t>(p);
  const std::size_t size = static_cast<std::uint8_t>(*p);
  bytes.remove_prefix(sizeof checksum);
  if (size + 1 > bytes.size() || crc32c(bytes.substr(0, size + 1), id) != checksum)
    return std::nullopt;
  QueueDefinition definition = decodeNamed(bytes.substr(1, size));
  definition.id = id;
  return definition;
}

} // namespace

// ---- The slots ----------------------------------------------------------------------------------

/// crc u32 | length u8 | length u8 | name | definition, word by word: others may read it at the
/// same time, and two may alter it. Who finds it torn reads the queue's file.
void QueueTable::fill(QueueSlot& slot, const QueueDefinition& definition) {
  std::string bytes = encodeNamed(definition);
  bytes.insert(0, 1, static_cast<char>(bytes.size()));
  std::string checksum;
  appendLittle(checksum, crc32c(bytes, definition.id));
  bytes.insert(0, checksum);
  bytes.resize(kSlotBytes);
  for (std::size_t i = 0; i < kSlotBytes / 8; ++i) {
    std::uint64_t word = 0;
    std::memcpy(&word, &bytes[i * 8], sizeof word);
    slot.definition[i] = word;
  }
}

std::optional<QueueDefinition> QueueTable::read(std::uint32_t number) const {
  const QueueSlot& slot = m_runtime.queue(number);
  const QueueState before = slot.now();
  std::string bytes(kSlotBytes, '\0');
  for (std::size_t i = 0; i < kSlotBytes / 8; ++i) {
    const std::uint64_t word = slot.definition[i].load();
    std::memcpy(&bytes[i * 8], &word, sizeof word);
  }
  if (slot.now().id != before.id || before.id == 0) return std::nullopt;
  auto definition = decodeSlot(bytes, before.id);
  if (!definition) definition = decodeFile(m_folder.read(fileName(before.id)), before.id);
  if (definition) definition->slot = number;
  return definition;
}

std::optional<std::uint32_t> QueueTable::slotOf(std::string_view name) const {
  const std::uint32_t hash = hashOf(name), limit = m_runtime.queueLimit();
  for (std::uint32_t slot = 0; slot < limit; ++slot) {
    const QueueSlot& candidate = m_runtime.queue(slot);
    if (candidate.nameHash.load() != hash || !candidate.holds(candidate.now().id)) continue;
    const auto definition = read(slot);
    if (definition && definition->name == name && candidate.holds(definition->id)) return slot;
  }
  return std::nullopt;
}

std::optional<QueueDefinition> QueueTable::find(std::string_view name) const {
  const auto slot = slotOf(name);
  return slot ? read(*slot) : std::nullopt;
}

std::vector<QueueDefinition> QueueTable::list() const {
  std::vector<QueueDefinition> queues;
  const std::uint32_t limit = m_runtime.queueLimit();
  for (std::uint32_t slot = 0; slot < limit; ++slot) {
    const auto definition = read(slot);
    if (definition && m_runtime.queue(slot).holds(definition->id)) queues.push_back(*definition);
  }
  std::sort(queues.begin(), queues.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  return queues;
}

bool QueueTable::step(std::uint32_t slot, QueueState from, QueueState to) const {
  std::uint64_t seen = from.packed();
  return m_runtime.queue(slot).state.compare_exchange_strong(seen, to.packed());
}

std::uint32_t QueueTable::claimSlot(QueueDefinition& definition, std::uint32_t connection) const {
  const auto owner = static_cast<std::uint16_t>(connection);
  for (std::uint32_t slot = 0;; ++slot) {
    m_runtime.growQueues(slot);
    if (!step(slot, {}, {QueueKind::kClaimed, owner, definition.id})) continue;
    QueueSlot& claimed = m_runtime.queue(slot);
    definition.slot = slot;
    claimed.priorities = 0;
    claimed.nextExpiry = QueueSlot::kNever;
    fill(claimed, definition);
    claimed.nameHash = hashOf(definition.name);
    BXM_KILL_POINT("queue-claimed");
    return slot;
  }
}

// ---- The files ----------------------------------------------------------------------------------

namespace {
constexpr std::size_t kCopyAt = 4096;            ///< one damaged page leaves the other
constexpr std::uint32_t kFileMagic = 0x514D5842; // "BXMQ"
} // namespace

std::optional<std::uint32_t> QueueTable::idIn(const std::string& name) {
  constexpr std::string_view kStem = "queue-";
  std::uint32_t id = 0;
  if (!name.starts_with(kStem)) return std::nullopt;
  std::from_chars(name.data() + kStem.size(), name.data() + name.size(), id);
  return fileName(id) == name ? std::optional(id) : std::nullopt;
}

/// magic u32 | crc u32 | id u32 | size u32 | length u8 | name | definition, twice
std::string QueueTable::encodeFile(const QueueDefinition& definition) {
  const std::string named = encodeNamed(definition);
  std::string rest;
  appendLittle(rest, definition.id);
  appendLittle(rest, static_cast<std::uint32_t>(named.size()));
  rest += named;
  std::string out;
  appendLittle(out, kFileMagic);
  appendLittle(out, crc32c(rest));
  out += rest;
  const std::string copy = out;
  out.resize(kCopyAt);
  return out + copy;
}

std::optional<QueueDefinition> QueueTable::decodeFile(std::string_view bytes,
                                                      std::uint32_t wanted) {
  for (const std::size_t at : {std::size_t{0}, kCopyAt}) {
    if (bytes.size() < at + 16) continue;
    const char* p = bytes.data() + at;
    const auto magic = takeLittle<std::uint32_t>(p), crc = takeLittle<std::uint32_t>(p);
    const auto id = takeLittle<std::uint32_t>(p), size = takeLittle<std::uint32_t>(p);
    if (magic != kFileMagic || id != wanted || size > bytes.size() - at - 16) continue;
    if (crc32c(bytes.substr(at + 8, std::size_t{8} + size)) != crc) continue;
    QueueDefinition definition = decodeNamed(bytes.substr(at + 16, size));
    definition.id = id;
    return definition;
  }
  return std::nullopt;
}

/// All of it or nothing: after a power cut a file that is cut short would be a damaged queue.
void QueueTable::store(const QueueDefinition& definition) const {
  m_folder.replace(fileName(definition.id), encodeFile(definition));
  BXM_KILL_POINT("queue-written");
}

void QueueTable::load(const std::function<bool(std::uint32_t id)>& used) {
  std::map<std::string, QueueDefinition> queues;
  for (const std::string& name : m_folder.list()) {
    const auto id = idIn(name);
    if (!id) continue;
    auto definition = decodeFile(m_folder.read(name), *id);
    if (!definition) throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, m_folder.pathOf(name) + " is damaged");
    m_runtime.noteQueueId(definition->id);
    // Of two of one name, one was never said to exist: nothing is on it.
    const auto [known, added] = queues.emplace(definition->name, *definition);
    if (!added && !used(known->second.id)) known->second = *definition;
  }
  for (auto& [name, definition] : queues) {
    const std::uint32_t slot = claimSlot(definition, 0);
    step(slot, {QueueKind::kClaimed, 0, definition.id}, {QueueKind::kLive, 0, definition.id});
  }
}

// ---- Making -------------------------------------------------------------------------------------

bool QueueTable::create(QueueDefinition& definition, std::uint32_t connection) {
  const auto owner = static_cast<std::uint16_t>(connection);
  definition.created = definition.altered = static_cast<std::int64_t>(::time(nullptr));
  for (;;) {
    if (slotOf(definition.name)) return false;
    definition.id = m_runtime.nextQueueId();
    const std::uint32_t slot = claimSlot(definition, connection);
    const QueueState prepared{QueueKind::kPrepared, owner, definition.id};
    bool live = false;
    try {
      clearName(definition.name, slot);
      store(definition);
      step(slot, {QueueKind::kClaimed, owner, definition.id}, prepared);
      BXM_KILL_POINT("queue-prepared");
      live =
          contest(slot, definition) && step(slot, prepared, {QueueKind::kLive, 0, definition.id});
      BXM_KILL_POINT("queue-live");
    } catch (...) {
      finish(slot);
      throw;
    }
    if (live) return true;
    finish(slot);
  }
}

/// False when another one of that name has been made. One that only is about to be made gives way,
/// at once where it has the higher slot, else when it does not decide.
bool QueueTable::contest(std::uint32_t mine, const QueueDefinition& definition) {
  Patience patience("another process that makes queue " + definition.name);
  for (std::uint32_t slot = 0; slot < m_runtime.queueLimit(); ++slot) {
    QueueSlot& other = m_runtime.queue(slot);
    while (slot != mine && other.nameHash.load() == hashOf(definition.name)) {
      const QueueState seen = other.now();
      const auto its = read(slot);
      if (!its || its->id != seen.id || its->name != definition.name) break;
      if (other.holds(seen.id)) return false;
      if (seen.kind != QueueKind::kPrepared) break;
      if (slot < mine && patience.waited() < kUndecided) {
        patience.wait();
      } else if (step(slot, seen, {QueueKind::kDeleted, seen.owner, seen.id})) {
        m_folder.remove(fileName(seen.id));
        m_folder.sync();
      }
    }
  }
  return true;
}

/// Files of queues of this name that are deleted but for them must not come back beside the new
/// one.
void QueueTable::clearName(std::string_view name, std::uint32_t besides) {
  for (std::uint32_t slot = 0; slot < m_runtime.queueLimit(); ++slot) {
    const QueueState seen = m_runtime.queue(slot).now();
    if (slot == besides || seen.kind != QueueKind::kDeleted) continue;
    const auto definition = read(slot);
    if (definition && definition->name == name) m_folder.remove(fileName(seen.id));
  }
}

// ---- Altering -----------------------------------------------------------------------------------

/// Within the file that is there, one of its copies after the other: a file that is made anew could
/// bring back a queue that is being deleted.
bool QueueTable::alter(QueueDefinition& definition) {
  definition.altered = static_cast<std::int64_t>(::time(nullptr));
  const std::string name = fileName(definition.id);
  const File file = m_folder.open(name, Folder::Access::kWrite);
  if (!file) return false;
  const std::string bytes = encodeFile(definition);
  const std::string_view copy = std::string_view(bytes).substr(kCopyAt);
  for (const std::size_t at : {kCopyAt, std::size_t{0}}) {
    int error = file.write(copy.data(), copy.size(), at);
    if (!error) error = file.sync();
    if (error) failWithErrno(error, BXRC_UNEXPECTED, "cannot write " + m_folder.pathOf(name));
    BXM_KILL_POINT("queue-altered");
  }
  QueueSlot& slot = m_runtime.queue(definition.slot);
  if (!slot.holds(definition.id)) return false;
  fill(slot, definition);
  slot.alterations.fetch_add(1);
  announceArrival(slot); // who waits sees at once that he may not
  return true;
}

// ---- Deleting -----------------------------------------------------------------------------------

std::uint64_t QueueTable::depthOf(const Runtime& runtime, std::uint32_t slot, std::uint32_t id) {
  std::uint64_t depth = 0;
  for (std::uint32_t i = 0; i < runtime.accessLimit(); ++i) {
    const AccessSlot& access = runtime.access(i);
    if (access.queueId.load() == id && access.queueSlot.load() == slot)
      depth += access.puts.load() - access.gets.load();
  }
  return depth;
}

bool QueueTable::remove(const QueueDefinition& definition, bool purge, std::uint32_t connection) {
  const auto owner = static_cast<std::uint16_t>(connection);
  const QueueState live{QueueKind::kLive, 0, definition.id};
  const QueueState deleting{QueueKind::kDeleting, owner, definition.id};
  const QueueState deleted{QueueKind::kDeleted, owner, definition.id};
  const std::uint32_t slot = definition.slot;
  if (purge) {
    while (!step(slot, live, deleted)) {
      if (!m_runtime.queue(slot).holds(definition.id)) return true; // by somebody else
      keepAlive(slot, definition.id);
    }
  } else {
    while (!step(slot, live, deleting)) {
      if (!m_runtime.queue(slot).holds(definition.id)) return true;
      keepAlive(slot, definition.id);
    }
    BXM_KILL_POINT("delete-begin");
    // From here on a put is seen to be counted, or its maker sees that this goes on.
    if (depthOf(m_runtime, slot, definition.id) > 0) {
      step(slot, deleting, live);
      return false;
    }
    if (!step(slot, deleting, deleted)) return false;
  }
  BXM_KILL_POINT("delete-decided");
  try {
    m_folder.remove(fileName(definition.id));
  } catch (const Failure&) {
    step(slot, deleted, live);
    throw;
  }
  finish(slot);
  return true;
}

void QueueTable::keepAlive(std::uint32_t slot, std::uint32_t id) {
  Patience patience("another process that deletes a queue");
  for (;;) {
    const QueueState seen = m_runtime.queue(slot).now();
    if (seen.id != id || seen.kind != QueueKind::kDeleting) return;
    if (patience.waited() >= kUndecided)
      step(slot, seen, {QueueKind::kLive, 0, id});
    else
      patience.wait();
  }
}

/// Takes away what is left of a queue that is not, or not any more.
void QueueTable::finish(std::uint32_t slot) {
  QueueSlot& finished = m_runtime.queue(slot);
  const std::uint32_t id = finished.now().id;
  m_folder.remove(fileName(id));
  QueueIndex::remove(m_folder, id);
  m_folder.sync();
  BXM_KILL_POINT("delete-synced");
  m_runtime.recountWanted() = 1; // its messages' files
  finished.nameHash = 0;
  finished.state = 0;
  announceArrival(finished);
}

void QueueTable::recover(std::uint32_t connection) {
  for (std::uint32_t slot = 0; slot < m_runtime.queueLimit(); ++slot) {
    const QueueState seen = m_runtime.queue(slot).now();
    if (seen.owner != connection || seen.kind == QueueKind::kFree || seen.kind == QueueKind::kLive)
      continue;
    if (seen.kind == QueueKind::kDeleting)
      step(slot, seen, {QueueKind::kLive, 0, seen.id});
    else
      finish(slot);
  }
}

} // namespace bxm
