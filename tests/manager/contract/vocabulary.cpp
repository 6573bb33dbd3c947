#include "tests/manager/contract/vocabulary.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace contract {

namespace {

template <std::size_t size>
void fill(BXCHAR (&field)[size], const std::string& text) {
  std::memset(field, ' ', size);
  std::memcpy(field, text.data(), std::min(size, text.size()));
}

void fill(BXBYTE (&identifier)[BX_IDENTIFIER_LENGTH], const std::string& text) {
  std::memset(identifier, 0, sizeof identifier);
  std::memcpy(identifier, text.data(), std::min(sizeof identifier, text.size()));
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Codes& codes) {
  return out << codes.completion << '/' << codes.reason;
}

// ---- Queues -------------------------------------------------------------------------------------

Codes Queue::put(std::string_view text, const PutHow& how) const {
  BXMD descriptor = BXMD_DEFAULT;
  BXPMO options = BXPMO_DEFAULT;
  options.options = how.options;
  descriptor.priority = how.priority;
  descriptor.expiry = how.expiry;
  fill(descriptor.messageId, how.messageId);
  fill(descriptor.correlationId, how.correlationId);
  Codes result;
  api->BXPUT(connection, object, &descriptor, &options, static_cast<BXLONG>(text.size()),
             text.data(), &result.completion, &result.reason);
  return result;
}

Codes Queue::put(BXMD& descriptor, std::string_view text) const {
  BXPMO options = BXPMO_DEFAULT;
  Codes result;
  api->BXPUT(connection, object, &descriptor, &options, static_cast<BXLONG>(text.size()),
             text.data(), &result.completion, &result.reason);
  return result;
}

Message Queue::get(const GetHow& how) const {
  Message message;
  message.descriptor.version = BXMD_VERSION_2;
  message.text.resize(how.room);
  BXGMO options = BXGMO_DEFAULT;
  options.version = BXGMO_VERSION_3;
  options.options = how.options;
  options.waitInterval = how.wait;
  fill(message.descriptor.messageId, how.messageId);
  fill(message.descriptor.correlationId, how.correlationId);
  api->BXGET(connection, object, &message.descriptor, &options, static_cast<BXLONG>(how.room),
             message.text.data(), &message.length, &message.codes.completion,
             &message.codes.reason);
  message.text.resize(options.returnedLength > 0 ? static_cast<std::size_t>(options.returnedLength)
                                                 : 0);
  return message;
}

Message Queue::underCursor(const GetHow& how) const {
  GetHow with = how;
  with.options |= BXGMO_MESSAGE_UNDER_CURSOR;
  return get(with);
}

std::vector<std::string> Queue::drain() const {
  std::vector<std::string> texts;
  for (Message m = get(); m.codes == kOk; m = get()) texts.push_back(m.text);
  return texts;
}

std::vector<std::string> Queue::browse() const {
  std::vector<std::string> texts;
  for (Message m = browseFirst(); m.codes == kOk; m = browseNext()) texts.push_back(m.text);
  return texts;
}

Codes Queue::close() {
  Codes result;
  api->BXCLOSE(connection, &object, BXCO_NONE, &result.completion, &result.reason);
  return result;
}

// ---- Bags ---------------------------------------------------------------------------------------

Bag::Bag(const Api& api) : m_api(api) {
  Codes result;
  m_api.bxCreateBag(BXCBO_ADMIN_BAG, &m_handle, &result.completion, &result.reason);
}

Bag::~Bag() {
  Codes result;
  m_api.bxDeleteBag(&m_handle, &result.completion, &result.reason);
}

Bag& Bag::add(BXLONG selector, BXLONG value) {
  Codes result;
  m_api.bxAddInteger(m_handle, selector, value, &result.completion, &result.reason);
  return *this;
}

Bag& Bag::add(BXLONG selector, const std::string& value) {
  Codes result;
  m_api.bxAddString(m_handle, selector, BX_NULL_TERMINATED, value.c_str(), &result.completion,
                    &result.reason);
  return *this;
}

Bag& Bag::ask(BXLONG selector) {
  Codes result;
  m_api.bxAddInquiry(m_handle, selector, &result.completion, &result.reason);
  return *this;
}

// ---- Connections --------------------------------------------------------------------------------

Connection::Connection(const Api& api, const std::string& manager) : m_api(&api) {
  m_api->BXCONN(manager.c_str(), &handle, &codes.completion, &codes.reason);
}

Connection::Connection(Connection&& other) noexcept
    : codes(other.codes), handle(std::exchange(other.handle, BXHC_UNUSABLE)), m_api(other.m_api) {}

Connection::~Connection() {
  if (handle != BXHC_UNUSABLE) disconnect();
}

Queue Connection::open(const std::string& queue, BXLONG options, const std::string& manager) {
  Queue opened{m_api, handle};
  BXOD descriptor = BXOD_DEFAULT;
  fill(descriptor.objectName, queue);
  fill(descriptor.managerName, manager);
  m_api->BXOPEN(handle, &descriptor, options, &opened.object, &opened.codes.completion,
                &opened.codes.reason);
  return opened;
}

Codes Connection::commit() {
  Codes result;
  m_api->BXCMIT(handle, &result.completion, &result.reason);
  return result;
}

Codes Connection::backout() {
  Codes result;
  m_api->BXBACK(handle, &result.completion, &result.reason);
  return result;
}

Codes Connection::disconnect() {
  Codes result;
  m_api->BXDISC(&handle, &result.completion, &result.reason);
  return result;
}

// ---- Commands -----------------------------------------------------------------------------------

namespace {

void readAttributes(const Api& api, BXHBAG nested, Answer& answer) {
  Codes done;
  for (const BXLONG selector :
       {BXIA_CURRENT_DEPTH, BXIA_DEFAULT_PERSISTENCE, BXIA_DEFAULT_PRIORITY, BXIA_INHIBIT_GET,
        BXIA_INHIBIT_PUT, BXIA_MAX_MESSAGE_LENGTH, BXIA_MAX_DEPTH, BXIA_QUEUE_TYPE,
        BXIA_OPEN_INPUT_COUNT, BXIA_OPEN_OUTPUT_COUNT, BXIA_UNCOMMITTED, BXIA_OLDEST_AGE}) {
    BXLONG value = 0;
    api.bxInquireInteger(nested, selector, 0, &value, &done.completion, &done.reason);
    if (done == kOk) answer.numbers[selector] = value;
  }
  for (const BXLONG selector :
       {BXCA_CREATION_DATE, BXCA_CREATION_TIME, BXCA_QUEUE_NAME, BXCA_MANAGER_NAME,
        BXCA_ALTERATION_DATE, BXCA_ALTERATION_TIME, BXCA_CLUSTER_NAME, BXCA_PUT_COUNT,
        BXCA_GET_COUNT}) {
    char text[64];
    BXLONG length = 0;
    api.bxInquireString(nested, selector, 0, sizeof text, text, &length, nullptr, &done.completion,
                        &done.reason);
    if (done == kOk) answer.texts[selector] = std::string(text, static_cast<std::size_t>(length));
  }
}

} // namespace

Answer Connection::command(BXLONG command, Bag& arguments) {
  Bag response(*m_api);
  Answer answer;
  m_api->bxExecute(handle, command, BXHB_NONE, arguments.handle(), response.handle(), BXHO_NONE,
                   BXHO_NONE, &answer.codes.completion, &answer.codes.reason);
  BXHBAG nested = BXHB_UNUSABLE;
  Codes done;
  m_api->bxInquireBag(response.handle(), BXHA_RESPONSE, 0, &nested, &done.completion, &done.reason);
  if (done != kOk) return answer;
  m_api->bxInquireInteger(nested, BXIA_COMPLETION, 0, &answer.own.completion, &done.completion,
                          &done.reason);
  m_api->bxInquireInteger(nested, BXIA_REASON, 0, &answer.own.reason, &done.completion,
                          &done.reason);
  readAttributes(*m_api, nested, answer);
  return answer;
}

/// The command's own codes, or those of the call when it did not get as far.
Codes Connection::createQueue(const std::string& queue, const std::map<BXLONG, BXLONG>& attributes,
                              BXLONG how) {
  Bag arguments(*m_api);
  arguments.add(BXCA_QUEUE_NAME, queue).add(BXIA_QUEUE_TYPE, BXQT_LOCAL);
  for (const auto& [selector, value] : attributes) arguments.add(selector, value);
  const Answer answer = command(how, arguments);
  return answer.codes == failed(BXRC_COMMAND_FAILED) ? answer.own : answer.codes;
}

Codes Connection::deleteQueue(const std::string& queue, BXLONG purge) {
  Bag arguments(*m_api);
  arguments.add(BXCA_QUEUE_NAME, queue);
  if (purge != BXPO_NO) arguments.add(BXIA_PURGE, purge);
  const Answer answer = command(BXCMD_DELETE_QUEUE, arguments);
  return answer.codes == failed(BXRC_COMMAND_FAILED) ? answer.own : answer.codes;
}

Answer Connection::inquire(const std::string& queue) {
  Bag arguments(*m_api);
  arguments.add(BXCA_QUEUE_NAME, queue);
  return command(BXCMD_INQUIRE_QUEUE, arguments);
}

BXLONG Connection::depth(const std::string& queue) {
  Bag arguments(*m_api);
  arguments.add(BXCA_QUEUE_NAME, queue).ask(BXIA_CURRENT_DEPTH);
  const Answer answer = command(BXCMD_INQUIRE_QUEUE, arguments);
  const auto found = answer.numbers.find(BXIA_CURRENT_DEPTH);
  return found == answer.numbers.end() ? -1 : found->second;
}

std::vector<std::string> numbered(const std::string& stem, int count) {
  std::vector<std::string> texts;
  for (int i = 0; i < count; ++i) texts.push_back(stem + "-" + std::to_string(i));
  return texts;
}

} // namespace contract
