#include "tests/manager/faults/words.h"

#include <cstdlib>

namespace faults {

namespace {

Codes read(const contract::Queue& queue, contract::GetHow how, std::string& name) {
  how.room = 1024; // most are small, and a sanitizer looks at every byte of a buffer
  contract::Message message = queue.get(how);
  if (message.codes.reason == BXRC_TRUNCATED_FAILED) {
    how.room = 1 << 20; // by now it may be another one, and larger
    message = queue.get(how);
  }
  if (message.codes == kOk) name = nameOf(message.text);
  return message.codes;
}

} // namespace

std::string contentOf(const std::string& name) {
  const auto at = name.find('@');
  if (at == std::string::npos) return name;
  std::string content = name + '|';
  const auto size = static_cast<std::size_t>(std::atoll(name.c_str() + at + 1));
  for (std::size_t i = content.size(); i < size; ++i)
    content += static_cast<char>('a' + (i * 7 + i / 256 + name.size()) % 26);
  return content;
}

std::string nameOf(std::string content) {
  if (content.ends_with('\n')) content.pop_back();
  const std::string name = content.substr(0, content.find('|'));
  return contentOf(name) == content ? name : "DAMAGED";
}

Codes Connection::connect(const std::string& manager) {
  static const contract::Api own("");
  abandon();
  m_opened.clear();
  return m_connection.emplace(own, manager).codes;
}

void Connection::abandon() {
  if (m_connection) m_connection->handle = BXHC_UNUSABLE;
}

Codes Connection::on(const std::string& queue,
                     const std::function<Codes(const contract::Queue&)>& call) {
  auto found = m_opened.find(queue);
  if (found == m_opened.end()) {
    const contract::Queue opened = m_connection->open(queue);
    if (opened.codes != kOk) return opened.codes;
    found = m_opened.emplace(queue, opened).first;
  }
  const Codes codes = call(found->second);
  if (codes.reason == BXRC_Q_DELETED) m_opened.erase(found);
  return codes;
}

Codes Connection::put(const std::string& queue, const std::string& name,
                      const contract::PutHow& how) {
  return on(queue, [&](const contract::Queue& q) { return q.put(contentOf(name), how); });
}

Codes Connection::get(const std::string& queue, bool syncpoint, BXLONG wait, std::string& name) {
  return on(queue, [&](const contract::Queue& q) {
    contract::GetHow how = syncpoint ? contract::kTake : contract::GetHow{};
    how.options |= wait ? BXGMO_WAIT : 0;
    how.wait = wait;
    return read(q, how, name);
  });
}

Codes Connection::browse(const std::string& queue, std::vector<std::string>& names) {
  const Codes codes = on(queue, [&](const contract::Queue& q) {
    std::string name;
    Codes told = read(q, {.options = BXGMO_BROWSE_FIRST}, name);
    for (; told == kOk; told = read(q, {.options = BXGMO_BROWSE_NEXT}, name)) names.push_back(name);
    return told;
  });
  return codes.reason == BXRC_NO_MESSAGE_AVAILABLE ? kOk : codes;
}

Codes Connection::create(const std::string& queue, BXLONG maxDepth) {
  return m_connection->createQueue(queue, {{BXIA_MAX_DEPTH, maxDepth}});
}

Codes Connection::change(const std::string& queue, BXLONG maxDepth) {
  return m_connection->createQueue(queue, {{BXIA_MAX_DEPTH, maxDepth}}, BXCMD_CHANGE_QUEUE);
}

Codes Connection::remove(const std::string& queue, bool purge) {
  m_opened.erase(queue);
  return m_connection->deleteQueue(queue, purge ? BXPO_YES : BXPO_NO);
}

Codes Connection::depth(const std::string& queue, BXLONG& depth) {
  const contract::Answer answer = m_connection->inquire(queue);
  if (answer.codes == kOk) depth = answer.numbers.at(BXIA_CURRENT_DEPTH);
  return answer.codes;
}

} // namespace faults
