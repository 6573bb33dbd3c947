#include "tests/manager/faults/model.h"

#include <algorithm>
#include <sstream>

namespace faults {

void Model::append(const Item& item) {
  m_priorities[item.name] = item.priority;
  auto& queue = m_committed[item.queue];
  const auto behind = std::find_if(queue.begin(), queue.end(), [&](const std::string& name) {
    return m_priorities[name] < item.priority;
  });
  queue.insert(behind, item.name);
}

void Model::commit() {
  for (const Item& item : m_takes) std::erase(m_committed[item.queue], item.name);
  for (const Item& item : m_puts) append(item);
  m_takes.clear();
  m_puts.clear();
}

std::string Model::first(const std::string& queue) const {
  const auto found = m_committed.find(queue);
  if (found == m_committed.end()) return "";
  for (const std::string& name : found->second)
    if (std::none_of(m_takes.begin(), m_takes.end(),
                     [&](const Item& item) { return item.name == name; }))
      return name;
  return "";
}

void Model::apply(const std::string& words, const std::string& read) {
  std::istringstream in(words);
  std::string verb, queue, name, size;
  in >> verb >> queue;
  if (verb == "sputn") {
    int count = 0;
    in >> name >> count >> size;
    for (int i = 0; i < count; ++i) m_puts.push_back({queue, name + std::to_string(i) + size, 0});
  }
  if (verb == "put" || verb == "sput") {
    int priority = 0;
    in >> name >> priority;
    verb == "put" ? append({queue, name, priority}) : m_puts.push_back({queue, name, priority});
  }
  if (verb == "sget") m_takes.push_back({queue, read, 0});
  if (verb == "get") std::erase(m_committed[queue], read);
  if (verb == "commit" || verb == "disconnect") commit();
  if (verb == "backout") m_takes.clear(), m_puts.clear();
  if (verb == "create") m_committed[queue];
  if (verb == "delete") m_committed.erase(queue);
}

} // namespace faults
