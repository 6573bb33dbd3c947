// A client library without a queue manager; see recording_client.h.
#include "tests/support/recording_client.h"

#include <cstring>

using support::ClientScript;
using support::FIRST_NESTED_BAG;

namespace {

ClientScript s_script;

// The reason first, as the interface promises: both may be one variable.
template <typename... Arguments>
bool called(const char* name, BXLONG* completion, BXLONG* reason, const Arguments&... arguments) {
  std::string call = name;
  ((call += ' ', call += arguments), ...);
  s_script.calls.push_back(call);
  ClientScript::Codes codes;
  if (auto& answers = s_script.answers[name]; !answers.empty()) {
    codes = answers.front();
    answers.pop_front();
  }
  *reason = codes.reason;
  *completion = codes.completion;
  return codes.completion != BXCC_FAILED;
}

std::string text(BXLONG number) { return std::to_string(number); }
std::string name(const BXCHAR (&field)[BX_NAME_LENGTH]) {
  return std::string(field, strnlen(field, sizeof field));
}

void fail(BXLONG why, BXLONG* completion, BXLONG* reason) {
  *reason = why;
  *completion = BXCC_FAILED;
}

} // namespace

extern "C" {

ClientScript* clientScript() { return &s_script; }

void BXBACK(BXHCONN, BXLONG* cc, BXLONG* rc) { called("BXBACK", cc, rc); }
void BXBEGIN(BXHCONN, BXBO*, BXLONG* cc, BXLONG* rc) { called("BXBEGIN", cc, rc); }
void BXCMIT(BXHCONN, BXLONG* cc, BXLONG* rc) { called("BXCMIT", cc, rc); }

void BXCLOSE(BXHCONN c, BXHOBJ* object, BXLONG options, BXLONG* cc, BXLONG* rc) {
  called("BXCLOSE", cc, rc, text(c), text(*object), text(options));
  *object = BXHO_UNUSABLE;
}

void BXCONN(const BXCHAR* manager, BXHCONN* c, BXLONG* cc, BXLONG* rc) {
  *c = called("BXCONN", cc, rc, std::string(manager)) ? 7 : BXHC_UNUSABLE;
}

void BXCONNX(const BXCHAR* manager, BXCNO* options, BXHCONN* c, BXLONG* cc, BXLONG* rc) {
  s_script.connectOptions = *options;
  *c = called("BXCONNX", cc, rc, std::string(manager)) ? 7 : BXHC_UNUSABLE;
}

void BXDISC(BXHCONN* c, BXLONG* cc, BXLONG* rc) {
  called("BXDISC", cc, rc, text(*c));
  *c = BXHC_UNUSABLE;
}

void BXOPEN(BXHCONN, BXOD* od, BXLONG options, BXHOBJ* object, BXLONG* cc, BXLONG* rc) {
  *object = called("BXOPEN", cc, rc, name(od->objectName), text(options)) ? 8 : BXHO_UNUSABLE;
}

void BXPUT(BXHCONN, BXHOBJ, BXMD* md, BXPMO* options, BXLONG length, const void* buffer, BXLONG* cc,
           BXLONG* rc) {
  s_script.putDescriptor = *md;
  s_script.putOptions = *options;
  s_script.putData.assign(static_cast<const char*>(buffer), static_cast<size_t>(length));
  called("BXPUT", cc, rc, text(length));
}

void BXGET(BXHCONN, BXHOBJ, BXMD* md, BXGMO* options, BXLONG length, void* buffer,
           BXLONG* dataLength, BXLONG* cc, BXLONG* rc) {
  s_script.getDescriptor = *md;
  s_script.getOptions = *options;
  if (!called("BXGET", cc, rc, text(options->options), text(length))) return;
  if (*cc != BXCC_OK) return;
  if (s_script.messages.empty()) return fail(BXRC_NO_MESSAGE_AVAILABLE, cc, rc);
  const std::string& message = s_script.messages.front();
  *dataLength = static_cast<BXLONG>(message.size());
  if (*dataLength > length) return fail(BXRC_TRUNCATED_FAILED, cc, rc);
  std::memcpy(buffer, message.data(), message.size());
  s_script.messages.pop_front();
}

void bxCreateBag(BXLONG options, BXHBAG* bag, BXLONG* cc, BXLONG* rc) {
  if (!called("bxCreateBag", cc, rc, text(options))) return;
  *bag = ++s_script.lastBag;
  ++s_script.openBags;
}

void bxDeleteBag(BXHBAG* bag, BXLONG* cc, BXLONG* rc) {
  called("bxDeleteBag", cc, rc, text(*bag));
  --s_script.openBags;
  *bag = BXHB_UNUSABLE;
}

void bxAddInquiry(BXHBAG, BXLONG selector, BXLONG* cc, BXLONG* rc) {
  called("bxAddInquiry", cc, rc, text(selector));
}

void bxAddInteger(BXHBAG, BXLONG selector, BXLONG value, BXLONG* cc, BXLONG* rc) {
  called("bxAddInteger", cc, rc, text(selector), text(value));
}

void bxAddString(BXHBAG, BXLONG selector, BXLONG length, const BXCHAR* buffer, BXLONG* cc,
                 BXLONG* rc) {
  called("bxAddString", cc, rc, text(selector), text(length), std::string(buffer));
}

void bxCountItems(BXHBAG, BXLONG, BXLONG* count, BXLONG* cc, BXLONG* rc) {
  called("bxCountItems", cc, rc);
  *count = s_script.nestedBags;
}

void bxExecute(BXHCONN c, BXLONG command, BXHBAG options, BXHBAG, BXHBAG, BXHOBJ admin,
               BXHOBJ response, BXLONG* cc, BXLONG* rc) {
  called("bxExecute", cc, rc, text(c), text(command), text(options), text(admin), text(response));
}

void bxInquireBag(BXHBAG, BXLONG, BXLONG index, BXHBAG* nested, BXLONG* cc, BXLONG* rc) {
  called("bxInquireBag", cc, rc, text(index));
  *nested = FIRST_NESTED_BAG + index;
}

void bxInquireInteger(BXHBAG bag, BXLONG selector, BXLONG, BXLONG* value, BXLONG* cc, BXLONG* rc) {
  called("bxInquireInteger", cc, rc, text(selector));
  const auto found = s_script.integers.find({bag, selector});
  if (found == s_script.integers.end()) return fail(BXRC_SELECTOR_ERROR, cc, rc);
  *value = found->second;
}

void bxInquireString(BXHBAG bag, BXLONG selector, BXLONG, BXLONG length, BXCHAR* buffer,
                     BXLONG* stringLength, BXLONG*, BXLONG* cc, BXLONG* rc) {
  called("bxInquireString", cc, rc, text(selector), text(length));
  const auto found = s_script.strings.find({bag, selector});
  if (found == s_script.strings.end()) return fail(BXRC_SELECTOR_ERROR, cc, rc);
  std::memset(buffer, ' ', static_cast<size_t>(length));
  std::memcpy(buffer, found->second.data(), found->second.size());
  *stringLength = static_cast<BXLONG>(found->second.size());
}

#ifndef WITHOUT_TRIM
void bxTrim(BXLONG length, const BXCHAR* buffer, BXCHAR* string, BXLONG* cc, BXLONG* rc) {
  called("bxTrim", cc, rc);
  std::string trimmed(buffer, static_cast<size_t>(length));
  trimmed.erase(trimmed.find_last_not_of(' ') + 1);
  std::memcpy(string, trimmed.c_str(), trimmed.size() + 1);
}
#endif

} // extern "C"
