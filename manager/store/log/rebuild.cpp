#include "manager/store/log/rebuild.h"

#include "bx/bx.h"
#include "manager/base/bytes.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/log_survey.h"
#include "manager/store/log/queue_index.h"
#include "manager/store/log/waiting.h"
#include "manager/store/message.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <memory>
#include <queue>

namespace bxm {

namespace {

constexpr std::size_t kWindow = 64 << 10;
constexpr std::uint32_t kPromised = 1024; ///< entries at a time: each promise asks the file system

/// The records of a file, one after the other, in little memory.
class RecordStream {
public:
  RecordStream(const Folder& folder, std::uint64_t storeId, const LogSurvey::LogFile& file)
      : m_file(folder.open(LogFiles::fileName(file.number), Folder::Access::kRead)), m_said(file),
        m_number(file.number), m_storeId(storeId), m_generation(file.generation) {
    findNext();
  }

  /// False at the end.
  explicit operator bool() const { return m_at != 0; }
  const RecordHeader& header() const { return m_header; }
  const LogSurvey::LogFile& file() const { return m_said; }
  /// Calls visit(record) with the present one, then moves on.
  template <typename Visit>
  void take(Visit visit) {
    if (const char* const bytes = need(m_header.length))
      if (const auto record =
              RecordView::at({bytes, m_header.length}, {m_number, m_at}, m_storeId, m_generation))
        visit(*record);
    m_next = m_at + m_header.length;
    if (m_large.size() > kWindow) m_large = {};
    findNext();
  }

private:
  void findNext() {
    for (m_at = m_next; m_at + sizeof m_header <= m_said.end; m_at += 8)
      if (const char* const bytes = need(sizeof m_header)) {
        std::memcpy(&m_header, bytes, sizeof m_header);
        if (RecordView::isHeader(m_header, {m_number, m_at}, m_storeId, m_generation) &&
            m_at + std::uint64_t{m_header.length} <= m_said.size)
          return;
      }
    m_at = 0;
  }
  /// So many bytes from the present place on; null when they are not there.
  const char* need(std::size_t size) {
    if (size <= kWindow) {
      if (m_at < m_begin || m_at + size > m_begin + m_window.size()) {
        m_window.resize(kWindow);
        m_begin = m_at;
        m_window.resize(m_file.read(m_window.data(), kWindow, m_at));
      }
      return size <= m_window.size() ? m_window.data() + (m_at - m_begin) : nullptr;
    }
    m_large.resize(size);
    return m_file.read(m_large.data(), size, m_at) == size ? m_large.data() : nullptr;
  }

  File m_file;
  const LogSurvey::LogFile& m_said;
  const std::uint32_t m_number;
  const std::uint64_t m_storeId;
  const Generation m_generation;
  std::uint32_t m_next = kDataStart, m_at = 0, m_begin = 0;
  RecordHeader m_header;
  std::string m_window, m_large;
};

class Rebuild {
public:
  Rebuild(LogFiles& files, QueueTable& queues)
      : m_files(files), m_runtime(files.runtime()), m_folder(files.folder()), m_queues(queues) {}

  void run() {
    removeRemains();
    const LogSurvey survey(m_folder, m_files.storeId());
    for (const std::string& damage : survey.damages()) notice(damage);
    m_runtime.noteNumber(survey.lastNumber());
    m_queues.load([&survey](std::uint32_t id) { return survey.isUsed(id); });
    for (const QueueDefinition& queue : m_queues.list())
      m_index[queue.id].open(m_folder, m_runtime, queue);
    enterMessages(survey);
    BXM_KILL_POINT("rebuild-entered");
    for (auto& [id, queue] : m_index) {
      queue.giveBack();
      queue.count(m_runtime);
    }
    for (const LogSurvey::LogFile& file : survey.files()) setUp(file);
    m_runtime.recountWanted() = 1;
  }

private:
  struct Indexed {
    QueueDefinition definition;
    QueueSlot* slot = nullptr;
    std::unique_ptr<QueueIndex> index;
    std::uint64_t entered = 0;
    std::array<std::uint32_t, kPriorities> promised{}; ///< and not entered yet
    void open(const Folder& folder, const Runtime& runtime, const QueueDefinition& queue) {
      definition = queue;
      slot = &runtime.queue(queue.slot);
      index = std::make_unique<QueueIndex>(folder, *slot, queue.id);
    }
    void enter(int priority, std::uint64_t word) {
      auto& left = promised[static_cast<std::size_t>(priority)];
      if (left == 0) index->promise(priority, left = kPromised);
      index->enter(priority, word, nullptr);
      --left;
      ++entered;
    }
    void giveBack() const {
      for (int priority = 0; priority < kPriorities; ++priority)
        if (const auto left = promised[static_cast<std::size_t>(priority)]; left > 0)
          index->giveBack(priority, left);
    }
    /// What is on the queue is counted as left by an earlier connection.
    void count(Runtime& runtime) const {
      if (entered == 0) return;
      const std::uint32_t access = runtime.claimAccess(0, definition.slot, definition.id);
      runtime.access(access).puts = runtime.access(access).committed = entered;
      runtime.releaseAccess(access);
    }
  };

  void removeRemains() const {
    for (const std::string& name : m_folder.list())
      if (QueueIndex::isFileName(name) || name.starts_with(LogFiles::kNewPrefix) ||
          name.starts_with(".queue-"))
        m_folder.remove(name);
  }
  void enterMessages(const LogSurvey& survey);
  void enterRecord(const LogSurvey& survey, const RecordView& record);
  void enterCopiesBefore(const LogSurvey& survey, const OrderKey& key);
  void enter(std::uint32_t queue, int priority, Place place, std::int64_t expiry);
  void setUp(const LogSurvey::LogFile& file);
  void seal(const LogSurvey::LogFile& file) const;
  void clear(const LogSurvey::LogFile& file) const;
  void write(const LogSurvey::LogFile& file, std::string_view bytes, std::uint32_t at) const;

  LogFiles& m_files;
  Runtime& m_runtime;
  const Folder& m_folder;
  QueueTable& m_queues;
  std::map<std::uint32_t, Indexed> m_index; ///< by queue id
  Indexed* m_latest = nullptr;
  std::map<std::uint32_t, std::uint32_t> m_live; ///< by file
  std::size_t m_nextCopy = 0;
};

/// Of all files the record with the lowest number comes next; a file is only open while its commits
/// have their turn.
void Rebuild::enterMessages(const LogSurvey& survey) {
  std::vector<const LogSurvey::LogFile*> waiting;
  for (const LogSurvey::LogFile& file : survey.files())
    if (file.generation != 0 && file.total > 0) waiting.push_back(&file);
  std::sort(waiting.begin(), waiting.end(),
            [](const auto* a, const auto* b) { return a->firstNumber < b->firstNumber; });
  const auto later = [](const auto& a, const auto& b) {
    return std::pair(a->header().number, a->header().piece) >
           std::pair(b->header().number, b->header().piece);
  };
  std::priority_queue<std::shared_ptr<RecordStream>, std::vector<std::shared_ptr<RecordStream>>,
                      decltype(later)>
      open(later);
  for (auto next = waiting.begin(); next != waiting.end() || !open.empty();) {
    while (next != waiting.end() &&
           (open.empty() || (*next)->firstNumber <= open.top()->header().number)) {
      auto stream = std::make_shared<RecordStream>(m_folder, m_files.storeId(), **next++);
      if (*stream) open.push(stream);
    }
    if (open.empty()) continue;
    const auto stream = open.top();
    open.pop();
    stream->take([&](const RecordView& record) {
      if (survey.counts(record, stream->file()) && record.isSound()) enterRecord(survey, record);
    });
    if (*stream) open.push(stream);
  }
  enterCopiesBefore(survey, {UINT64_MAX, UINT64_MAX});
}

void Rebuild::enterRecord(const LogSurvey& survey, const RecordView& record) {
  const RecordHeader& header = record.header();
  record.forEachMessage([&](Place place, const ItemHeader& item, std::string_view payload) {
    if (item.flags & kItemCopied) return;
    if (!survey.isThere(place, header.generation)) return;
    enterCopiesBefore(survey, {header.number, rankOf(header, place)});
    const bool readable = (item.flags & kItemExpires) != 0 && crc32c(payload) == item.crc;
    enter(item.queue, item.priority, place, readable ? messageExpiry(payload) : 0);
  });
}

void Rebuild::enterCopiesBefore(const LogSurvey& survey, const OrderKey& key) {
  for (; m_nextCopy < survey.copies().size() && survey.copies()[m_nextCopy].key < key;
       ++m_nextCopy) {
    const LogSurvey::Copy& copy = survey.copies()[m_nextCopy];
    enter(copy.queue, copy.priority, copy.place, copy.expiry);
  }
}

void Rebuild::enter(std::uint32_t queue, int priority, Place place, std::int64_t expiry) {
  if (!m_latest || m_latest->definition.id != queue) {
    const auto found = m_index.find(queue);
    if (found == m_index.end()) return; // deleted
    m_latest = &found->second;
  }
  m_latest->enter(priority, Entry::available(place, expiry != 0));
  if (expiry != 0 && expiry < m_latest->slot->nextExpiry.load())
    m_latest->slot->nextExpiry = expiry;
  ++m_live[place.file];
}

void Rebuild::setUp(const LogSurvey::LogFile& file) {
  m_runtime.growFiles(file.number);
  FileSlot& slot = m_runtime.file(file.number);
  slot.end = slot.allocated = file.end;
  slot.total = file.total;
  slot.takes = file.takes;
  slot.generation = file.generation;
  startLive(slot, file.generation, m_live[file.number]);
  if (file.generation == 0 || file.size < kFileSize)
    slot.state = FileState{FileKind::kBroken, 0}.packed();
  else if (file.end == kDataStart && file.size == kFileSize)
    slot.state = FileState{FileKind::kFree, 0}.packed();
  else
    m_files.release(file.number, true);
  if (file.generation == 0) return;
  if (file.behind > file.end) clear(file);
  if (file.sealed < file.end) seal(file);
}

/// What was found to count counts from now on without the files that say so.
void Rebuild::seal(const LogSurvey::LogFile& file) const {
  const Seal seal = makeSeal(file.generation, file.end);
  write(file, {reinterpret_cast<const char*>(&seal), sizeof seal}, kSealAt);
}

/// Pieces that do not count, behind the next commit, would say that it had been flushed.
void Rebuild::clear(const LogSurvey::LogFile& file) const {
  write(file, std::string(file.behind - file.end, '\0'), file.end);
}

void Rebuild::write(const LogSurvey::LogFile& file, std::string_view bytes,
                    std::uint32_t at) const {
  const std::string name = LogFiles::fileName(file.number);
  const File opened = m_folder.open(name, Folder::Access::kWrite);
  int error = opened ? opened.write(bytes.data(), bytes.size(), at) : ENOENT;
  if (!error) error = opened.sync();
  if (error) failWithErrno(error, BXRC_UNEXPECTED, "cannot write " + m_folder.pathOf(name));
}

} // namespace

void rebuild(LogFiles& files, QueueTable& queues) { Rebuild(files, queues).run(); }

} // namespace bxm
