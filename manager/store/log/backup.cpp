#include "manager/store/log/backup.h"

#include "bx/bx.h"
#include "manager/base/bytes.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/log_survey.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <thread>
#include <unistd.h>

namespace bxm {

namespace {

constexpr int kMostPasses = 100;
constexpr std::chrono::milliseconds kSettled{500};

/// Files are only appended to, and made free once nothing in them is needed. So a copy of all of
/// them is right as long as none was made free while it was made:
///
/// - A message is in the copy of its file; if it has been moved meanwhile, perhaps in two, and the
///   later says so. A take that the copy lacks was committed since the beginning, and with it all
///   that was put in the same unit.
/// - A unit of several pieces is there as a whole or does not count: its last piece is taken only
///   if it was there when the ends of all files were first read, and the other pieces, which are
///   on the disk before it, up to where the ends were when they were read again. Seals make pieces
///   count that are below, so those are read before the ends.
/// - What was got and is not in any log yet stands in the index. Who lives logs it within a moment,
///   for which the beginning waits; what then is left gets a log file of its own in the copy.
///
/// If a file was made free, what has changed is copied once more, and nobody frees any meanwhile.
class Backup {
public:
  Backup(LogStore& store, const Folder& target)
      : m_store(store), m_runtime(store.runtime()), m_source(store.folder()), m_target(target) {}

  std::vector<std::string> run();

private:
  struct Source {
    std::string page;
    Generation generation = 0; ///< 0: the header is damaged
    std::uint32_t sure = kDataStart, end = kDataStart;
  };
  struct Copied {
    std::string page;
    Generation generation = 0;
    std::uint64_t end = kDataStart;
  };
  using Sources = std::map<std::uint32_t, Source>;

  struct Seen {
    std::shared_ptr<QueueShare> share; ///< keeps the entry mapped
    QueueIndex::Word* entry;
    std::uint64_t word;
  };
  void findUnlogged();
  std::vector<Seen> entriesIn(Entry::State state) const;
  bool pass(bool first);
  Sources look() const;
  void addPages(Sources& sources, bool sealed) const;
  bool copy(std::uint32_t number, const Source& source);
  std::uint32_t cutIn(const File& file, std::uint32_t number, const Source& source) const;
  void writeUnlogged();
  void writeQueues() const;
  std::vector<std::string> finish();
  void sync(const std::string& name, const File& file, int error) const;

  LogStore& m_store;
  Runtime& m_runtime;
  const Folder& m_source;
  const Folder& m_target;
  std::vector<TakeGroup> m_unlogged;
  std::map<std::uint32_t, Copied> m_copied;
};

std::vector<std::string> Backup::run() {
  findUnlogged();
  for (int count = 1; !pass(count == 1); ++count)
    if (count == kMostPasses)
      throw Failure(BXRC_RESOURCE_PROBLEM, "log files are made free faster than they are copied");
  m_runtime.resumeReclaim();
  writeUnlogged();
  writeQueues();
  return finish();
}

// ---- What is in the index alone -----------------------------------------------------------------

/// What was got and is not logged after a while, either: who got it was stopped.
void Backup::findUnlogged() {
  std::vector<Seen> waiting = entriesIn(Entry::kConsumed);
  const auto until = std::chrono::steady_clock::now() + kSettled;
  while (!waiting.empty() && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::erase_if(waiting, [](const Seen& each) { return each.entry->load() != each.word; });
  }
  std::set<std::uint32_t> stopped; // in the middle of a unit that counts
  for (const Seen& each : waiting) {
    addTake(m_unlogged, m_runtime, Entry::placeOf(each.word));
    const std::uint32_t owner = Entry::ownerOf(each.word);
    if (m_runtime.connection(owner).phase.load() == Phase::kConsuming) stopped.insert(owner);
  }
  if (stopped.empty()) return;
  for (const Seen& each : entriesIn(Entry::kTaken))
    if (stopped.contains(Entry::ownerOf(each.word)))
      addTake(m_unlogged, m_runtime, Entry::placeOf(each.word));
}

std::vector<Backup::Seen> Backup::entriesIn(Entry::State state) const {
  std::vector<Seen> found;
  m_store.forEachEntry([&](const auto& share, QueueIndex::Word& entry) {
    const std::uint64_t word = entry.load();
    if (Entry::stateOf(word) == state) found.push_back({share, &entry, word});
  });
  return found;
}

// ---- The log files ------------------------------------------------------------------------------

/// Adds those that are not known yet. Without its seal a file says nothing of what it holds.
void Backup::addPages(Sources& sources, bool sealed) const {
  for (const std::string& name : m_source.list()) {
    const std::int64_t found = LogFiles::numberIn(name);
    const auto number = static_cast<std::uint32_t>(found);
    if (found < 0 || sources.contains(number)) continue;
    const File file = m_source.open(name, Folder::Access::kRead);
    if (!file) continue;
    Source source;
    source.page.resize(kDataStart);
    file.read(source.page.data(), kDataStart, 0);
    if (const auto header = decodeFileHeader(source.page, number, m_store.files().storeId()))
      source.generation = header->generation;
    if (!sealed && source.generation != 0)
      source.page.replace(kSealAt, sizeof(Seal), sizeof(Seal), '\0');
    sources[number] = std::move(source);
  }
}

Backup::Sources Backup::look() const {
  Sources sources;
  addPages(sources, true);
  const auto endOf = [this](std::uint32_t number) {
    return std::max(kDataStart, m_runtime.file(number).end.load());
  };
  for (auto& [number, source] : sources) source.sure = endOf(number);
  addPages(sources, false);
  for (auto& [number, source] : sources) {
    source.end = endOf(number);
    source.sure = std::min(source.sure, source.end);
    BXM_KILL_POINT("backup-looked");
  }
  return sources;
}

/// False when a file was made free meanwhile.
bool Backup::pass(bool first) {
  if (!first) m_runtime.pauseReclaim();
  const Sources sources = look();
  for (const auto& [number, source] : sources) {
    if (!first) m_runtime.pauseReclaim();
    if (!copy(number, source)) return false;
    BXM_KILL_POINT("backup-copied");
  }
  std::erase_if(m_copied, [&](const auto& copied) {
    if (sources.contains(copied.first)) return false;
    m_target.remove(LogFiles::fileName(copied.first));
    return true;
  });
  Sources after;
  addPages(after, true);
  return std::all_of(sources.begin(), sources.end(), [&after](const auto& source) {
    const auto found = after.find(source.first);
    return found != after.end() && found->second.generation == source.second.generation;
  });
}

/// False when the file is gone.
bool Backup::copy(std::uint32_t number, const Source& source) {
  const std::string name = LogFiles::fileName(number);
  const File from = m_source.open(name, Folder::Access::kRead);
  if (!from) return false;
  const std::uint64_t end = source.generation == 0 ? from.size() : cutIn(from, number, source);
  Copied& copied = m_copied[number];
  if (copied.generation != source.generation || copied.end > end) copied = {};
  if (copied.end == kDataStart) m_target.remove(name);
  copied.page = source.page;
  copied.generation = source.generation;
  const File to = m_target.open(name, Folder::Access::kMake);
  int error = ::ftruncate(to.get(), static_cast<off_t>(from.size())) == 0 ? 0 : errno;
  if (!error) error = to.copy(from, copied.end, std::min(end, from.size()));
  if (error) sync(name, to, error);
  copied.end = std::max<std::uint64_t>(copied.end, end);
  return true;
}

/// Where a unit of several pieces ends of which nobody knows whether all others are copied.
std::uint32_t Backup::cutIn(const File& file, std::uint32_t number, const Source& source) const {
  std::uint32_t at = source.sure;
  RecordHeader header;
  while (at < source.end && file.read(&header, sizeof header, at) == sizeof header &&
         RecordView::isHeader(header, {number, at}, m_store.files().storeId(), source.generation) &&
         (header.piece == 0 || !(header.flags & RecordHeader::kFinal)))
    at += header.length;
  return std::min(at, source.end);
}

/// A file with nothing but takes.
void Backup::writeUnlogged() {
  if (m_unlogged.empty()) return;
  const std::uint32_t number = m_copied.empty() ? 0 : m_copied.rbegin()->first + 1;
  const Generation generation = m_runtime.nextNumber();
  const std::uint64_t storeId = m_store.files().storeId();
  std::string takes;
  for (const TakeGroup& group : m_unlogged) appendTakes(takes, group);
  RecordHeader header;
  header.length = static_cast<std::uint32_t>(sizeof header + takes.size());
  header.takesSize = static_cast<std::uint32_t>(takes.size());
  header.storeId = storeId;
  header.number = m_runtime.nextNumber();
  header.generation = generation;
  header.place = Place{number, kDataStart}.packed();
  header.flags = RecordHeader::kFinal;
  sealRecord(header, crc32c(takes));
  const std::string name = LogFiles::fileName(number);
  const File file = m_target.open(name, Folder::Access::kMakeNew);
  const std::string bytes =
      std::string(reinterpret_cast<const char*>(&header), sizeof header) + takes;
  int error = file.write(bytes.data(), bytes.size(), kDataStart);
  const std::size_t size = std::max<std::size_t>(kFileSize, padded8(kDataStart + bytes.size()));
  if (!error && ::ftruncate(file.get(), static_cast<off_t>(size)) != 0) error = errno;
  if (error) sync(name, file, error);
  std::string page = encodeFileHeader(number, storeId, generation);
  page.resize(kDataStart);
  m_copied[number] = {page, generation, kDataStart + bytes.size()};
}

// ---- The rest -----------------------------------------------------------------------------------

/// As those who use them see them: a file may belong to a queue that is being made or deleted.
void Backup::writeQueues() const {
  for (const QueueDefinition& queue : m_store.queues().list())
    m_target.replace(QueueTable::fileName(queue.id), QueueTable::encodeFile(queue));
}

void Backup::sync(const std::string& name, const File& file, int error) const {
  if (!error) error = file.sync();
  if (error) failWithErrno(error, BXRC_UNEXPECTED, "cannot write " + m_target.pathOf(name));
}

/// All that counts is sealed, so that damage in it is told from a commit that a power cut cut off.
/// The manager's file comes last: a folder without it is no backup.
std::vector<std::string> Backup::finish() {
  for (const auto& [number, copied] : m_copied) {
    const File file = m_target.open(LogFiles::fileName(number), Folder::Access::kWrite);
    const int error = file.write(copied.page.data(), copied.page.size(), 0);
    if (error) sync(LogFiles::fileName(number), file, error);
  }
  const LogSurvey survey(m_target, m_store.files().storeId());
  for (const LogSurvey::LogFile& each : survey.files()) {
    const std::string name = LogFiles::fileName(each.number);
    const File file = m_target.open(name, Folder::Access::kWrite);
    const Seal seal = makeSeal(each.generation, each.end);
    const bool wanted = each.generation != 0 && each.sealed < each.end;
    sync(name, file, wanted ? file.write(&seal, sizeof seal, kSealAt) : 0);
  }
  m_target.sync();
  BXM_KILL_POINT("backup-synced");
  ManagerFile::read(m_source).write(m_target);
  return survey.damages();
}

} // namespace

std::vector<std::string> backUpStore(LogStore& store, const Folder& target) {
  return Backup(store, target).run();
}

void copyBackup(const Folder& source, const Folder& target) {
  ManagerFile::read(source);
  for (const std::string& name : source.list())
    if (LogFiles::numberIn(name) >= 0 || QueueTable::idIn(name) || name == ManagerFile::kName)
      target.copy(source, name);
  target.sync();
}

} // namespace bxm
