#include "tests/manager/faults/words.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace faults {

namespace {

constexpr std::size_t kRoom = 1 << 20;

struct Bag {
  BXHBAG handle = BXHB_UNUSABLE;
  Codes codes;
  Bag() { bxCreateBag(BXCBO_ADMIN_BAG, &handle, &codes.completion, &codes.reason); }
  ~Bag() { bxDeleteBag(&handle, &codes.completion, &codes.reason); }
  Bag(const Bag&) = delete;
  Bag& operator=(const Bag&) = delete;
  Bag& queue(const std::string& name) {
    bxAddString(handle, BXCA_QUEUE_NAME, BX_NULL_TERMINATED, name.c_str(), &codes.completion,
                &codes.reason);
    return *this;
  }
  Bag& number(BXLONG selector, BXLONG value) {
    bxAddInteger(handle, selector, value, &codes.completion, &codes.reason);
    return *this;
  }
  BXLONG nestedNumber(BXLONG selector) {
    BXHBAG nested = BXHB_UNUSABLE;
    BXLONG value = -1;
    bxInquireBag(handle, BXHA_RESPONSE, 0, &nested, &codes.completion, &codes.reason);
    bxInquireInteger(nested, selector, 0, &value, &codes.completion, &codes.reason);
    return value;
  }
};

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
  Codes codes;
  m_opened.clear();
  BXCONN(manager.c_str(), &m_connection, &codes.completion, &codes.reason);
  return codes;
}

Codes Connection::disconnect() {
  Codes codes;
  BXDISC(&m_connection, &codes.completion, &codes.reason);
  return codes;
}

Codes Connection::commit() {
  Codes codes;
  BXCMIT(m_connection, &codes.completion, &codes.reason);
  return codes;
}

Codes Connection::backout() {
  Codes codes;
  BXBACK(m_connection, &codes.completion, &codes.reason);
  return codes;
}

Codes Connection::open(const std::string& queue, BXHOBJ& object) {
  const auto found = std::find_if(m_opened.begin(), m_opened.end(),
                                  [&](const Opened& opened) { return opened.queue == queue; });
  if (found != m_opened.end()) {
    object = found->object;
    return {};
  }
  BXOD descriptor = BXOD_DEFAULT;
  std::memcpy(descriptor.objectName, queue.data(), std::min<std::size_t>(queue.size(), 48));
  Codes codes;
  BXOPEN(m_connection, &descriptor, BXOO_INPUT_SHARED | BXOO_BROWSE | BXOO_OUTPUT, &object,
         &codes.completion, &codes.reason);
  if (codes.good()) m_opened.push_back({queue, object});
  return codes;
}

Codes Connection::put(const std::string& queue, const std::string& name, const How& how) {
  BXHOBJ object = BXHO_UNUSABLE;
  Codes codes = open(queue, object);
  if (!codes.good()) return codes;
  const std::string content = contentOf(name);
  BXMD descriptor = BXMD_DEFAULT;
  descriptor.priority = how.priority;
  descriptor.expiry = how.expiry;
  BXPMO options = BXPMO_DEFAULT;
  options.options = how.syncpoint ? BXPMO_SYNCPOINT : BXPMO_NO_SYNCPOINT;
  BXPUT(m_connection, object, &descriptor, &options, static_cast<BXLONG>(content.size()),
        content.data(), &codes.completion, &codes.reason);
  if (codes.reason == BXRC_Q_DELETED)
    std::erase_if(m_opened, [&](auto& o) { return o.queue == queue; });
  return codes;
}

Codes Connection::read(const std::string& queue, BXLONG options, BXLONG wait, std::string& name) {
  BXHOBJ object = BXHO_UNUSABLE;
  Codes codes = open(queue, object);
  if (!codes.good()) return codes;
  static std::string buffer(kRoom, '\0');
  BXMD descriptor = BXMD_DEFAULT;
  BXGMO how = BXGMO_DEFAULT;
  how.options = options | (wait ? BXGMO_WAIT : 0);
  how.waitInterval = wait;
  BXLONG length = 0;
  BXGET(m_connection, object, &descriptor, &how, static_cast<BXLONG>(buffer.size()), buffer.data(),
        &length, &codes.completion, &codes.reason);
  if (codes.good()) name = nameOf(buffer.substr(0, static_cast<std::size_t>(length)));
  if (codes.reason == BXRC_Q_DELETED)
    std::erase_if(m_opened, [&](auto& o) { return o.queue == queue; });
  return codes;
}

Codes Connection::get(const std::string& queue, bool syncpoint, BXLONG wait, std::string& name) {
  return read(queue, syncpoint ? BXGMO_SYNCPOINT : BXGMO_NO_SYNCPOINT, wait, name);
}

Codes Connection::browse(const std::string& queue, std::vector<std::string>& names) {
  std::string name;
  Codes codes = read(queue, BXGMO_BROWSE_FIRST, 0, name);
  for (; codes.good(); codes = read(queue, BXGMO_BROWSE_NEXT, 0, name)) names.push_back(name);
  return codes.reason == BXRC_NO_MESSAGE_AVAILABLE ? Codes{} : codes;
}

Codes Connection::execute(BXLONG command, BXHBAG arguments, BXHBAG answer) {
  Codes codes;
  bxExecute(m_connection, command, BXHB_NONE, arguments, answer, BXHO_NONE, BXHO_NONE,
            &codes.completion, &codes.reason);
  return codes;
}

Codes Connection::create(const std::string& queue, BXLONG maxDepth) {
  Bag arguments, answer;
  arguments.queue(queue).number(BXIA_QUEUE_TYPE, BXQT_LOCAL).number(BXIA_MAX_DEPTH, maxDepth);
  Codes codes = execute(BXCMD_CREATE_QUEUE, arguments.handle, answer.handle);
  if (codes.reason == BXRC_COMMAND_FAILED) codes.reason = answer.nestedNumber(BXIA_REASON);
  return codes;
}

Codes Connection::remove(const std::string& queue, bool purge) {
  std::erase_if(m_opened, [&](auto& opened) { return opened.queue == queue; });
  Bag arguments, answer;
  arguments.queue(queue).number(BXIA_PURGE, purge ? BXPO_YES : BXPO_NO);
  Codes codes = execute(BXCMD_DELETE_QUEUE, arguments.handle, answer.handle);
  if (codes.reason == BXRC_COMMAND_FAILED) codes.reason = answer.nestedNumber(BXIA_REASON);
  return codes;
}

Codes Connection::depth(const std::string& queue, BXLONG& depth) {
  Bag arguments, answer;
  arguments.queue(queue);
  const Codes codes = execute(BXCMD_INQUIRE_QUEUE, arguments.handle, answer.handle);
  if (codes.good()) depth = answer.nestedNumber(BXIA_CURRENT_DEPTH);
  return codes;
}

} // namespace faults
