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
  const std::size_t end = write.offset + write.data.size();
  bytes.resize(write.cuts ? std::min(bytes.size(), end) : std::max(bytes.size(), end));
  if (!write.cuts) bytes.replace(write.offset, write.data.size(), write.data);
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

void Disk::preset(const std::string& name, const std::string& bytes) {
  m_latest[name] = m_files.size();
  m_names[name] = {m_files.size()};
  m_files.push_back({bytes, {}});
}

void Disk::apply(const Event& event) {
  const std::string name = event.header.file;
  switch (event.header.type) {
  case kMake:
    m_latest[name] = m_files.size();
    m_names.try_emplace(name, 1, kNone);
    m_files.emplace_back();
    break;
  case kName: m_names.at(name).push_back(m_latest.at(name)); break;
  case kRemove: m_names.at(name).push_back(kNone); break;
  case kWrite:
  case kCut:
    m_files[m_latest.at(name)].waiting.push_back(
        {event.header.offset, event.data, event.header.type == kCut});
    break;
  case kSync:
    if (name.empty()) {
      for (auto& [each, files] : m_names) files = {files.back()};
    } else {
      File& file = m_files[m_latest.at(name)];
      for (const Write& write : file.waiting) put(file.flushed, write);
      file.waiting.clear();
    }
    break;
  default: break;
  }
}

std::map<std::string, std::string> Disk::afterCut(Unflushed how, const Event* inFlight,
                                                  std::mt19937& random) const {
  std::map<std::string, std::string> found;
  for (const auto& [name, files] : m_names) {
    const std::size_t last = files.size() - 1;
    const std::size_t file = files[how == Unflushed::kKept || how == Unflushed::kLast ? last
                                   : how == Unflushed::kDropped                       ? 0
                                                                : random() % files.size()];
    if (file == kNone) continue;
    std::string& bytes = found[name] = m_files[file].flushed;
    std::vector<Write> waiting = m_files[file].waiting;
    if (inFlight && inFlight->header.type == kWrite && name == inFlight->header.file &&
        file == m_latest.at(name))
      waiting.push_back({inFlight->header.offset, inFlight->data});
    for (const Write& write : waiting) {
      const auto dice = random() % 3;
      if (how == Unflushed::kKept || (how == Unflushed::kTorn && dice == 0) ||
          (how == Unflushed::kLast && &waiting.back() - &write < 2))
        put(bytes, write);
      if (how == Unflushed::kTorn && dice == 1) tear(bytes, write, random);
    }
  }
  return found;
}

} // namespace faults
