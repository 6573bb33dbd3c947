#include "manager/store/log/repair.h"

#include "bx/bx.h"
#include "manager/base/bytes.h"
#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/base/random_number.h"
#include "manager/store/log/log_reader.h"
#include "manager/store/log/log_session.h"
#include "manager/store/log/log_survey.h"
#include "manager/store/log/rebuild.h"
#include "manager/store/log/set_aside.h"
#include "manager/store/log/waiting.h"
#include "manager/store/message.h"
#include "manager/store/put_batch.h"

#include <algorithm>
#include <memory>
#include <optional>

namespace bxm {

namespace {

constexpr std::size_t kMostTogether = 1 << 20; ///< bytes

Failure inUse(const std::string& name) { return Failure(BXRC_OBJECT_IN_USE, name + " is in use"); }

/// What a person wants to see of a message.
std::string_view textOf(const ItemHeader& item, std::string_view payload) {
  try {
    return messageData(storedIn(item, payload));
  } catch (const Failure&) {
    return payload;
  }
}

class StoreRepair {
public:
  StoreRepair(const std::string& name, const Folder& broken, const Folder& made)
      : m_name(name), m_broken(broken), m_made(made), m_checked(checkFiles(broken)),
        m_aside(broken) {}

  Catalog::Repair run(const std::function<void()>& replace);

private:
  void settleDead();
  void mendHeader(std::uint32_t number, const FileSlot& slot);
  void mendDefinitions();
  void mendQueueFile(std::uint32_t id);
  void recreateQueue(std::uint32_t id);
  void write(const QueueDefinition& definition) const;
  void change(const std::string& what) { m_said.changes.push_back(what); }

  void keepMessages(LogFiles& files, const QueueTable& queues);
  void keepMessagesOf(const QueueDefinition& queue, LogFiles& files, StoreSession& session);
  void commit(StoreSession& session, PutBatch& batch);

  void setAsideDamaged();
  void setAsideIn(const LogSurvey& survey, const LogSurvey::LogFile& file);
  void setAsideBytes(const LogSurvey& survey, const LogSurvey::LogFile& file, std::uint32_t begin,
                     std::uint32_t end);
  void setAsideMessage(Place place, const ItemHeader& item, std::string_view payload,
                       const std::string& fault);
  void setAsideRest(const LogSurvey::LogFile& file, std::uint64_t at, std::string_view bytes);
  void finish();

  const std::string m_name;
  const Folder& m_broken;
  const Folder& m_made;
  Checked m_checked;
  SetAside m_aside;
  Catalog::Repair m_said;
};

/// Everything that is read is read, and the folders are exchanged, before anybody else can open the
/// store: in the place where it is set up after a boot.
Catalog::Repair StoreRepair::run(const std::function<void()>& replace) {
  if (Runtime::isInUse(m_broken)) throw inUse(m_name);
  settleDead();
  if (!Runtime::discard(m_broken)) throw inUse(m_name);
  mendDefinitions();
  bool done = false;
  const Runtime alone(m_broken, m_checked.manager.storeId, [&](Runtime& runtime) {
    LogFiles files(m_broken, runtime, m_checked.manager.storeId);
    QueueTable queues(m_broken, runtime);
    rebuild(files, queues);
    keepMessages(files, queues);
    setAsideDamaged();
    finish();
    BXM_KILL_POINT("repair-made");
    replace();
    BXM_KILL_POINT("repair-replaced");
    done = true;
  });
  if (!done) throw inUse(m_name);
  return m_said;
}

/// What somebody had got who is dead by now is only in the memory that is about to go. Damaged, it
/// says nothing.
void StoreRepair::settleDead() {
  if (m_checked.managerDamaged || !Runtime::isKept(m_broken, m_checked.manager.storeId)) return;
  try {
    const auto store = std::make_shared<LogStore>(m_name, Folder(m_broken.path()));
    checkIndex(*store, m_checked);
    if (m_checked.indexDamaged)
      return change("the index is damaged: what was got at last may be there again");
    store->connect();
    for (const QueueDefinition& queue : store->queues().list())
      m_checked.queues.emplace(queue.id, queue);
    for (std::uint32_t number = 0; number < store->runtime().fileLimit(); ++number)
      mendHeader(number, store->runtime().file(number));
  } catch (const Failure& failure) {
    change(failure.what());
  }
}

/// The memory knows what a file is for whose first page is lost.
void StoreRepair::mendHeader(std::uint32_t number, const FileSlot& slot) {
  const std::uint64_t storeId = m_checked.manager.storeId;
  const Generation generation = slot.generation.load();
  const File file = m_broken.open(LogFiles::fileName(number), Folder::Access::kWrite);
  if (!file || generation == 0 || LogScan(file, number, storeId).generation() != 0) return;
  const std::string header = encodeFileHeader(number, storeId, generation);
  const Seal seal = makeSeal(generation, slot.end.load());
  int error = file.write(header.data(), header.size(), 0);
  if (!error) error = file.write(&seal, sizeof seal, kSealAt);
  if (!error) error = file.sync();
  if (error) failWithErrno(error, BXRC_UNEXPECTED, "cannot write " + m_broken.pathOf("log files"));
  change(m_broken.pathOf(LogFiles::fileName(number)) + " has a header again");
}

// ---- Definitions --------------------------------------------------------------------------------

void StoreRepair::mendDefinitions() {
  ManagerFile& manager = m_checked.manager;
  if (m_checked.managerDamaged) {
    while (manager.storeId == 0) manager.storeId = randomNumber();
    const std::string bytes = m_broken.read(ManagerFile::kName);
    m_aside.add({ManagerFile::kName, 0, 0, "", 0, "the manager's file is damaged", bytes, bytes});
    manager.write(m_broken);
    change("the manager's file is new: sync " + std::string(manager.syncFull ? "full" : "batch"));
  }
  manager.write(m_made);
  for (const std::string& name : m_broken.list())
    if (const auto id = QueueTable::idIn(name)) mendQueueFile(*id);
}

void StoreRepair::mendQueueFile(std::uint32_t id) {
  const auto known = m_checked.queues.find(id);
  if (known == m_checked.queues.end()) {
    recreateQueue(id);
  } else if (m_broken.read(QueueTable::fileName(id)) != QueueTable::encodeFile(known->second)) {
    write(known->second);
    change("the file of queue " + known->second.name + " is whole again");
  }
}

/// A queue whose name is lost, but not all of its messages.
void StoreRepair::recreateQueue(std::uint32_t id) {
  const std::string name = QueueTable::fileName(id), bytes = m_broken.read(name);
  m_aside.add({name, 0, id, "", 0, "the queue's file is damaged", bytes, bytes});
  m_aside.finish();
  if (!m_checked.messages.contains(id)) {
    m_broken.remove(name);
    change("the queue of " + name + " is gone; it had no messages");
    return;
  }
  QueueDefinition queue;
  queue.id = id;
  queue.name = "RECOVERED." + std::to_string(id);
  const auto hasName = [&queue](const auto& other) { return other.second.name == queue.name; };
  while (std::any_of(m_checked.queues.begin(), m_checked.queues.end(), hasName)) queue.name += ".";
  queue.maxDepth = kMaxDepthLimit;
  queue.maxMessageLength = kMessageLengthLimit;
  write(queue);
  m_checked.queues[id] = queue;
  change("the queue of " + name + " has lost its name and is now " + queue.name);
}

void StoreRepair::write(const QueueDefinition& definition) const {
  m_broken.replace(QueueTable::fileName(definition.id), QueueTable::encodeFile(definition));
}

// ---- Messages that are kept ---------------------------------------------------------------------

/// Put anew, in the order of their queue.
void StoreRepair::keepMessages(LogFiles& files, const QueueTable& queues) {
  const auto all = queues.list();
  for (const QueueDefinition& queue : all)
    m_made.replace(QueueTable::fileName(queue.id), QueueTable::encodeFile(queue));
  const auto store = std::make_shared<LogStore>(m_name, Folder(m_made.path()));
  const auto session = store->connect();
  for (const QueueDefinition& queue : all) keepMessagesOf(queue, files, *session);
}

void StoreRepair::keepMessagesOf(const QueueDefinition& queue, LogFiles& files,
                                 StoreSession& session) {
  const auto to = session.open(*session.findQueue(queue.name));
  const QueueIndex index(m_broken, files.runtime().queue(queue.slot), queue.id);
  LogReader reader(files);
  PutBatch batch(session.scratchFolder());
  index.forEach([&](int priority, std::uint64_t, QueueIndex::Word& entry) {
    const Place place = Entry::placeOf(entry.load());
    const auto item = reader.read(place);
    if (!item) return; // is set aside with its record
    batch.append(queue.id, priority, "", storedIn(item->header, item->payload),
                 (item->header.flags & kItemExpires) != 0);
    ++m_said.messages;
    if (batch.bytes() >= kMostTogether) commit(session, batch);
  });
  commit(session, batch);
}

void StoreRepair::commit(StoreSession& session, PutBatch& batch) {
  BXLONG reason = BXRC_NONE;
  if (!batch.empty() && session.put(batch, reason) != Committed::kDone)
    throw Failure(reason, "cannot write messages to " + m_made.path());
}

// ---- What is set aside --------------------------------------------------------------------------

void StoreRepair::setAsideDamaged() {
  const LogSurvey survey(m_broken, m_checked.manager.storeId);
  for (const LogSurvey::LogFile& file : survey.files()) setAsideIn(survey, file);
}

void StoreRepair::setAsideIn(const LogSurvey& survey, const LogSurvey::LogFile& file) {
  const File opened = m_broken.open(LogFiles::fileName(file.number), Folder::Access::kRead);
  const LogScan scan(opened, file.number, m_checked.manager.storeId);
  scan.run(
      [&](const RecordView& record, LogScan::Known known) {
        const std::uint32_t begin = record.place().offset;
        if (!record.isSound()) {
          if (known != LogScan::Known::kLast || file.generation == 0)
            setAsideBytes(survey, file, begin, begin + record.header().length);
          return;
        }
        if (file.generation != 0 && !survey.counts(record, file)) return;
        record.forEachMessage([&](Place place, const ItemHeader& item, std::string_view payload) {
          if (!survey.isThere(place, record.header().generation)) return;
          if (file.generation == 0)
            setAsideMessage(place, item, payload, "nobody knows whether it had been got");
          else if (crc32c(payload) != item.crc)
            setAsideMessage(place, item, payload, "the message is damaged");
        });
      },
      [&](std::uint32_t begin, std::uint32_t end) { setAsideBytes(survey, file, begin, end); });
}

/// Messages whose record is damaged are looked for one by one: nobody knows whether they counted.
void StoreRepair::setAsideBytes(const LogSurvey& survey, const LogSurvey::LogFile& file,
                                std::uint32_t begin, std::uint32_t end) {
  const File opened = m_broken.open(LogFiles::fileName(file.number), Folder::Access::kRead);
  std::string read(end - begin, '\0');
  read.resize(opened.read(read.data(), read.size(), begin));
  const std::string_view bytes = read;
  std::size_t rest = 0, at = 0;
  while (at + sizeof(ItemHeader) < bytes.size()) {
    const ItemHeader item = itemHeaderAt(bytes.data() + at);
    const std::string_view payload = bytes.substr(at + sizeof item).substr(0, item.size);
    const Place place{file.number, begin + static_cast<std::uint32_t>(at)};
    const bool whole = item.size > 0 && payload.size() == item.size &&
                       item.priority < kPriorities && crc32c(payload) == item.crc;
    if (!whole) {
      at += 8;
      continue;
    }
    setAsideRest(file, begin + rest, bytes.substr(rest, at - rest));
    if (survey.isThere(place, file.generation))
      setAsideMessage(place, item, payload, "the record around it is damaged");
    rest = at += itemSize(item.size);
  }
  if (rest < bytes.size()) setAsideRest(file, begin + rest, bytes.substr(rest));
}

void StoreRepair::setAsideMessage(Place place, const ItemHeader& item, std::string_view payload,
                                  const std::string& fault) {
  const auto queue = m_checked.queues.find(item.queue);
  if (queue == m_checked.queues.end()) return; // deleted
  m_aside.add({LogFiles::fileName(place.file), place.offset, item.queue, queue->second.name,
               item.priority, fault, textOf(item, payload), payload});
}

void StoreRepair::setAsideRest(const LogSurvey::LogFile& file, std::uint64_t at,
                               std::string_view bytes) {
  if (bytes.find_first_not_of('\0') == std::string_view::npos) return;
  m_aside.add({LogFiles::fileName(file.number), at, 0, "", 0, "no message", bytes, bytes});
}

/// What is not the store's own goes along, with what was set aside now and before.
void StoreRepair::finish() {
  m_aside.finish();
  m_said.setAside = m_aside.fileName();
  m_said.setAsideCount = m_aside.count();
  for (const std::string& name : m_broken.list())
    if (SetAside::isFileName(name)) m_made.copy(m_broken, name);
  const Checked checked = checkFiles(m_made);
  if (!checked.findings.damages.empty() || checked.findings.messages != m_said.messages)
    throw Failure(BXRC_UNEXPECTED, "what was repaired is damaged again");
  for (const std::string& name : m_made.list())
    if (QueueIndex::isFileName(name)) m_made.remove(name);
  Runtime::discard(m_made);
  m_made.sync();
}

} // namespace

Catalog::Repair repairStore(const std::string& name, const std::string& broken,
                            const std::string& made, const std::function<void()>& replace) {
  const Folder from(broken), to(made);
  return StoreRepair(name, from, to).run(replace);
}

} // namespace bxm
