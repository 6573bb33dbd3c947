#include "manager/store/log/check.h"

#include "bx/bx.h"
#include "manager/base/bytes.h"
#include "manager/base/failure.h"
#include "manager/store/log/log_reader.h"
#include "manager/store/log/log_survey.h"

#include <algorithm>

namespace bxm {

namespace {

// ---- The manager's file -------------------------------------------------------------------------

std::uint64_t storeIdIn(const Folder& folder, const std::string& name) {
  FileHeader header;
  const File file = folder.open(name, Folder::Access::kRead);
  if (!file || file.read(&header, sizeof header, 0) != sizeof header) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(&header), sizeof header);
  return decodeFileHeader(bytes, header.file, header.storeId) ? header.storeId : 0;
}

/// As most of the log files say; 0 when none says any.
std::uint64_t storeIdInLogs(const Folder& folder) {
  std::map<std::uint64_t, std::size_t> votes;
  for (const std::string& name : folder.list())
    if (LogFiles::numberIn(name) >= 0)
      if (const std::uint64_t id = storeIdIn(folder, name)) ++votes[id];
  const auto most = std::max_element(
      votes.begin(), votes.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  return most == votes.end() ? 0 : most->first;
}

void checkManagerFile(const Folder& folder, Checked& checked) {
  try {
    checked.manager = ManagerFile::read(folder);
  } catch (const Failure& failure) {
    const std::string text = folder.read(ManagerFile::kName);
    checked.manager = ManagerFile();
    checked.manager.storeId = storeIdInLogs(folder);
    const bool lost = text.empty() && checked.manager.storeId == 0;
    if (lost || ManagerFile::isOfOtherFormat(text) || failure.reason() == BXRC_NOT_AUTHORIZED)
      throw;
    checked.managerDamaged = true;
    checked.manager.syncFull = text.find("\nsync full\n") != std::string::npos;
    checked.manager.commandServerStopped =
        text.find("\ncommand-server stopped\n") != std::string::npos;
    checked.findings.damages.emplace_back(failure.what());
  }
}

// ---- Queues -------------------------------------------------------------------------------------

void checkQueueFile(const Folder& folder, const std::string& name, Checked& checked) {
  const auto id = QueueTable::idIn(name);
  if (!id) return;
  const std::string bytes = folder.read(name);
  const auto definition = QueueTable::decodeFile(bytes, *id);
  if (bytes.empty() && !folder.has(name)) return; // just deleted
  ++checked.findings.queues;
  if (definition) checked.queues[*id] = *definition;
  if (!definition)
    checked.findings.damages.push_back(folder.pathOf(name) + " is damaged");
  else if (QueueTable::encodeFile(*definition) != bytes)
    checked.findings.damages.push_back(folder.pathOf(name) + ": one of its two copies is damaged");
}

// ---- Logs ---------------------------------------------------------------------------------------

/// Calls visit(place, item) for each message that is whole and there.
template <typename Visit>
void forEachMessage(const Folder& folder, std::uint64_t storeId, const LogSurvey& survey,
                    Visit visit) {
  for (const LogSurvey::LogFile& file : survey.files()) {
    const File opened = folder.open(LogFiles::fileName(file.number), Folder::Access::kRead);
    if (!opened || file.generation == 0) continue;
    LogScan(opened, file.number, storeId)
        .run(
            [&](const RecordView& record, LogScan::Known) {
              if (!survey.counts(record, file) || !record.isSound()) return;
              record.forEachMessage(
                  [&](Place place, const ItemHeader& item, std::string_view payload) {
                    if (survey.isThere(place, record.header().generation) &&
                        crc32c(payload) == item.crc)
                      visit(place, item);
                  });
            },
            [](auto, auto) {});
  }
}

/// What two looks find alike is no record that was being written, and no file that was being freed.
std::vector<std::string> inBoth(const std::vector<std::string>& one, const LogSurvey& other) {
  std::vector<std::string> both;
  for (const std::string& damage : one)
    if (std::count(other.damages().begin(), other.damages().end(), damage) > 0)
      both.push_back(damage);
  return both;
}

void checkLogs(const Folder& folder, Checked& checked) {
  const std::uint64_t storeId = checked.manager.storeId;
  const LogSurvey survey(folder, storeId);
  auto damages = survey.damages();
  if (!damages.empty()) damages = inBoth(damages, LogSurvey(folder, storeId));
  auto& all = checked.findings.damages;
  all.insert(all.end(), damages.begin(), damages.end());
  checked.findings.logFiles = survey.files().size();
  forEachMessage(folder, storeId, survey,
                 [&](Place, const ItemHeader& item) { ++checked.messages[item.queue]; });
  for (const auto& [id, count] : checked.messages)
    if (checked.queues.contains(id)) checked.findings.messages += count;
}

} // namespace

Checked checkFiles(const Folder& folder) {
  Checked checked;
  checkManagerFile(folder, checked);
  for (const std::string& name : folder.list()) checkQueueFile(folder, name, checked);
  checkLogs(folder, checked);
  return checked;
}

// ---- The index ----------------------------------------------------------------------------------

namespace {

class IndexCheck {
public:
  IndexCheck(LogStore& store, Checked& checked)
      : m_store(store), m_runtime(store.runtime()), m_reader(store.files()), m_checked(checked) {}

  void run() {
    const bool quiet = isQuiet();
    for (const QueueDefinition& queue : m_store.queues().list())
      if (const auto share = m_store.share(queue.id, queue.slot)) checkQueue(queue, *share, quiet);
  }

private:
  /// True when nobody is connected, and nobody dead has left anything undone.
  bool isQuiet() const {
    for (std::uint32_t slot = 0; slot < m_runtime.connectionLimit(); ++slot)
      if (m_runtime.connection(slot).used.load()) return false;
    return true;
  }
  void checkQueue(const QueueDefinition& queue, const QueueShare& share, bool quiet);
  std::string faultOf(const QueueDefinition& queue, int priority, Place place);
  void damageOfIndex(const std::string& text) {
    m_checked.indexDamaged = true;
    damage(text);
  }
  void damage(const std::string& text) { m_checked.findings.damages.push_back(text); }

  LogStore& m_store;
  Runtime& m_runtime;
  LogReader m_reader;
  Checked& m_checked;
};

/// Empty where a message of the queue is. An entry that names one keeps its file from being used
/// again.
std::string IndexCheck::faultOf(const QueueDefinition& queue, int priority, Place place) {
  const FileSlot& file = m_runtime.file(place.file);
  const bool inside = place.file < m_runtime.fileLimit() && place.offset < file.end.load();
  const auto item = m_reader.read(place);
  if (item && inside && item->header.queue == queue.id && item->header.priority == priority)
    return {};
  if (item || !inside) m_checked.indexDamaged = true;
  return item || !inside ? "there is none" : "it cannot be read";
}

void IndexCheck::checkQueue(const QueueDefinition& queue, const QueueShare& share, bool quiet) {
  std::uint64_t count = 0;
  share.index.forEach([&](int priority, std::uint64_t sequence, QueueIndex::Word& entry) {
    const std::uint64_t word = entry.load();
    const auto state = Entry::stateOf(word);
    if (state == Entry::kDamaged) ++count;
    if (state != Entry::kAvailable && state != Entry::kTaken) return;
    ++count;
    const Place place = Entry::placeOf(word);
    const bool before = m_checked.indexDamaged;
    const std::string fault = faultOf(queue, priority, place);
    if (entry.load() != word)
      m_checked.indexDamaged = before;
    else if (!fault.empty())
      damage(m_store.folder().pathOf(LogFiles::fileName(place.file)) + ", byte " +
             std::to_string(place.offset) + ": message " + std::to_string(sequence) + " of queue " +
             queue.name + ", " + fault);
  });
  if (!quiet || !isQuiet()) return;
  const std::uint64_t depth = QueueTable::depthOf(m_runtime, queue.slot, queue.id);
  const auto logged = m_checked.messages.find(queue.id);
  const std::uint64_t there = logged == m_checked.messages.end() ? 0 : logged->second;
  if (count != depth)
    damageOfIndex("queue " + queue.name + " has depth " + std::to_string(depth) + ", its index " +
                  std::to_string(count) + " messages");
  if (count < there)
    damageOfIndex("queue " + queue.name + " has " + std::to_string(there) +
                  " messages in the logs, its index " + std::to_string(count));
}

} // namespace

void checkIndex(LogStore& store, Checked& checked) { IndexCheck(store, checked).run(); }

} // namespace bxm
