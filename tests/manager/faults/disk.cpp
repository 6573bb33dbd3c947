#include "tests/manager/faults/disk.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace faults {

std::vector<Event> readRecording(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<Event> events;
  for (Event event; in.read(reinterpret_cast<char*>(&event.header), sizeof event.header);) {
    event.data.resize(event.header.length);
    if (!in.read(event.data.data(), static_cast<std::streamsize>(event.data.size()))) break;
    events.push_back(event);
  }
  return events;
}

void Disk::put(std::string& bytes, const Write& write) {
  bytes.resize(std::max(bytes.size(), write.offset + write.data.size()));
  bytes.replace(write.offset, write.data.size(), write.data);
}

/// Each sector of the write reaches the disk or not, or, as often, all up to one.
void Disk::tear(std::string& bytes, const Write& write, std::mt19937& random) {
  const std::size_t sector = random() % 2 ? 512 : 4096;
  const std::size_t upTo = random() % (write.data.size() / sector + 1) * sector;
  const bool scattered = random() % 2;
  std::size_t done = 0;
  while (done < write.data.size()) {
    // Sectors lie on the disk, not in the write.
    const std::size_t size =
        std::min(write.data.size() - done, sector - (write.offset + done) % sector);
    if (scattered ? random() % 2 == 0 : done < upTo)
      put(bytes, {write.offset + done, write.data.substr(done, size)});
    done += size;
  }
}

void Disk::apply(const Event& event) {
  if (event.header.type == kMark) return;
  File& file = m_files[event.header.file];
  if (event.header.type == kWrite) file.waiting.push_back({event.header.offset, event.data});
  if (event.header.type == kSyncWrite) put(file.flushed, {event.header.offset, event.data});
  if (event.header.type != kSync) return;
  for (const Write& write : file.waiting) put(file.flushed, write);
  file.waiting.clear();
}

std::map<std::string, std::string> Disk::afterCut(Unflushed how, const Event* inFlight,
                                                  std::mt19937& random) const {
  std::map<std::string, std::string> found;
  for (const auto& [name, file] : m_files) {
    std::string& bytes = found[name] = file.flushed;
    std::vector<Write> waiting = file.waiting;
    if (inFlight && name == inFlight->header.file && !inFlight->data.empty())
      waiting.push_back({inFlight->header.offset, inFlight->data});
    for (const Write& write : waiting) {
      const auto dice = random() % 3;
      if (how == Unflushed::kKept || (how == Unflushed::kTorn && dice == 0)) put(bytes, write);
      if (how == Unflushed::kTorn && dice == 1) tear(bytes, write, random);
    }
  }
  return found;
}

} // namespace faults
