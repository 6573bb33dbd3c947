#include "manager/view/message_json.h"

#include "manager/base/failure.h"
#include "manager/base/names.h"
#include "manager/store/message.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <vector>

namespace bxm {

namespace {

[[noreturn]] void fail(const std::string& what) { throw Failure(BXRC_MD_ERROR, what); }

// ---- Bytes --------------------------------------------------------------------------------------

int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::string bytesOfHex(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    const int high = digitOf(hex[i]), low = digitOf(hex[i + 1]);
    if (high < 0 || low < 0) break;
    bytes += static_cast<char>(high << 4 | low);
  }
  if (bytes.size() * 2 != hex.size()) fail("'" + hex + "' is not hexadecimal");
  return bytes;
}

constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64Of(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    for (std::size_t k = 0; k < 3; ++k)
      group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    for (std::size_t k = 0; k < 4; ++k)
      text += k <= count ? kBase64[group >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

// ---- Values -------------------------------------------------------------------------------------

Json parsed(const std::string& text) {
  try {
    return Json::parse(text);
  } catch (const Json::parse_error& fault) {
    fail("at column " + std::to_string(fault.byte) + " it is not JSON");
  } catch (const Json::out_of_range&) {
    fail("a number in it is too large");
  }
}

std::string textIn(const char* key, const Json& value) {
  if (!value.is_string()) fail(fmt::format("'{}' is a text", key));
  return value.get<std::string>();
}

BXLONG numberIn(const char* key, const Json& value,
                BXLONG least = std::numeric_limits<BXLONG>::min(),
                BXLONG most = std::numeric_limits<BXLONG>::max()) {
  const auto number = wholeNumber(value, least, most);
  if (!number) fail(fmt::format("'{}' is a whole number from {} to {}", key, least, most));
  return static_cast<BXLONG>(*number);
}

// ---- Fields of the descriptor -------------------------------------------------------------------

constexpr BXMD kPlain = BXMD_DEFAULT;

enum class Kind { kNumber, kText, kBytes };

/// What is told under its own name where it is not as in most messages.
struct Field {
  const char* key;
  Kind kind;
  std::size_t at, size;
};

#define BXM_FIELD(key, kind, member)                                                               \
  Field { key, kind, offsetof(BXMD, member), sizeof(BXMD::member) }
constexpr std::array kFields = {
    BXM_FIELD("correlation", Kind::kBytes, correlationId),
    BXM_FIELD("format", Kind::kText, format),
    BXM_FIELD("report", Kind::kNumber, report),
    BXM_FIELD("message_type", Kind::kNumber, messageType),
    BXM_FIELD("feedback", Kind::kNumber, feedback),
    BXM_FIELD("encoding", Kind::kNumber, encoding),
    BXM_FIELD("character_set", Kind::kNumber, characterSet),
    BXM_FIELD("reply_to_queue", Kind::kText, replyToQueue),
    BXM_FIELD("reply_to_manager", Kind::kText, replyToManager),
    BXM_FIELD("user", Kind::kText, userId),
    BXM_FIELD("accounting", Kind::kBytes, accountingToken),
    BXM_FIELD("application_identity", Kind::kText, applicationIdentity),
    BXM_FIELD("application_type", Kind::kNumber, putApplicationType),
    BXM_FIELD("application_name", Kind::kText, putApplicationName),
    BXM_FIELD("application_origin", Kind::kText, applicationOrigin),
    BXM_FIELD("group", Kind::kBytes, groupId),
    BXM_FIELD("sequence_number", Kind::kNumber, sequenceNumber),
    BXM_FIELD("offset", Kind::kNumber, offset),
    BXM_FIELD("flags", Kind::kNumber, messageFlags),
    BXM_FIELD("original_length", Kind::kNumber, originalLength),
};
#undef BXM_FIELD

std::string_view bytesIn(const BXMD& descriptor, const Field& field) {
  return {reinterpret_cast<const char*>(&descriptor) + field.at, field.size};
}

void tell(const Field& field, std::string_view bytes, Json& json) {
  if (field.kind == Kind::kNumber) {
    BXLONG number = 0;
    std::memcpy(&number, bytes.data(), sizeof number);
    json[field.key] = number;
  } else if (field.kind == Kind::kText && isUtf8(bytes)) {
    bytes.remove_suffix(bytes.size() - (bytes.find_last_not_of(' ') + 1));
    json[field.key] = bytes;
  } else {
    json[field.key + std::string(field.kind == Kind::kText ? "_hex" : "")] = hexOf(bytes);
  }
}

/// The fixed field that a value fills.
void fill(const Field& field, const Json& value, bool isHex, BXMD& descriptor) {
  char* to = reinterpret_cast<char*>(&descriptor) + field.at;
  if (field.kind == Kind::kNumber) {
    const BXLONG number = numberIn(field.key, value);
    std::memcpy(to, &number, sizeof number);
    return;
  }
  const bool isBytes = isHex || field.kind == Kind::kBytes;
  const std::string text = textIn(field.key, value);
  const std::string bytes = isBytes ? bytesOfHex(text) : text;
  if (bytes.size() > field.size || (isBytes && bytes.size() != field.size))
    fail(std::string("'") + field.key + "' has " + std::to_string(field.size) + " bytes");
  padInto(to, field.size, bytes);
}

// ---- Times --------------------------------------------------------------------------------------

std::int64_t timeOf(const std::string& text) {
  using namespace std::chrono;
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, ms = 0;
  std::sscanf(text.c_str(), "%4d-%d-%dT%d:%d:%d.%3dZ", &y, &mo, &d, &h, &mi, &s, &ms);
  const year_month_day date{year(y), month(static_cast<unsigned>(mo)),
                            day(static_cast<unsigned>(d))};
  const auto time = sys_days(date) + hours(h) + minutes(mi) + seconds(s) + milliseconds(ms);
  const std::int64_t told = time.time_since_epoch().count();
  if (y < 0 || utcTime(told) != text) // what is beyond a month, a day or an hour runs into the next
    fail("'" + text + "' is no time like 2026-11-22T09:30:00.125Z");
  return told;
}

} // namespace

std::string hexOf(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    hex += kDigits[static_cast<unsigned char>(c) >> 4];
    hex += kDigits[c & 15];
  }
  return hex;
}

std::string bytesOfBase64(const std::string& text) {
  std::string bytes;
  std::uint32_t group = 0, bits = 0;
  const std::size_t end = std::min(text.find('='), text.size());
  for (std::size_t i = 0; i < end; ++i) {
    const std::size_t digit = kBase64.find(text[i]);
    if (digit == std::string_view::npos) fail("the data is not base64");
    group = group << 6 | static_cast<std::uint32_t>(digit);
    bits += 6;
    if (bits >= 8) bytes += static_cast<char>(group >> (bits -= 8) & 0xFF);
  }
  if (base64Of(bytes) != text) fail("the data is not base64");
  return bytes;
}

std::string identifierOf(std::string_view stored) {
  BXMD descriptor = kPlain;
  decodeMessage(stored, 1, descriptor);
  return hexOf({reinterpret_cast<const char*>(descriptor.messageId), BX_IDENTIFIER_LENGTH});
}

Json jsonOf(int priority, std::string_view stored) {
  BXMD descriptor = kPlain;
  descriptor.version = BXMD_VERSION_2;
  const std::string_view data = decodeMessage(stored, 1, descriptor);
  Json json;
  json["id"] = identifierOf(stored);
  json["priority"] = priority;
  json["put"] = utcTime(messagePutTime(stored));
  if (const std::int64_t expiry = messageExpiry(stored)) json["expires"] = utcTime(expiry);
  if (descriptor.persistence == BXPER_NOT_PERSISTENT) json["persistent"] = false;
  if (descriptor.characterSet == BXCS_UTF8) descriptor.characterSet = kPlain.characterSet;
  for (const Field& field : kFields)
    if (const auto bytes = bytesIn(descriptor, field); bytes != bytesIn(kPlain, field))
      tell(field, bytes, json);
  if (isUtf8(data))
    json["text"] = data;
  else
    json["base64"] = base64Of(data);
  return json;
}

JsonMessage messageOf(const std::string& text) {
  const Json json = parsed(text);
  if (!json.is_object()) fail("it is not a JSON object");
  BXMD descriptor = kPlain;
  descriptor.version = BXMD_VERSION_2;
  MessageTimes times;
  times.put = clockNow();
  JsonMessage message;
  std::optional<std::string> data;
  constexpr Field kId{"id", Kind::kBytes, offsetof(BXMD, messageId), BX_IDENTIFIER_LENGTH};
  for (const auto& [key, value] : json.items()) {
    const bool isHex = key.ends_with("_hex");
    const std::string name = isHex ? key.substr(0, key.size() - 4) : key;
    const auto field = std::find_if(kFields.begin(), kFields.end(), [&](const Field& each) {
      return name == each.key && (!isHex || each.kind == Kind::kText);
    });
    if (field != kFields.end()) {
      if (isHex && json.contains(name)) fail(fmt::format("it has both {} and {}", name, key));
      fill(*field, value, isHex, descriptor);
    } else if (key == kId.key) {
      fill(kId, value, false, descriptor);
    } else if (key == "priority") {
      message.priority = numberIn("priority", value, 0, BXPRI_MAXIMUM);
    } else if (key == "put") {
      times.put = timeOf(textIn("put", value));
    } else if (key == "expires") {
      times.expires = timeOf(textIn("expires", value));
      if (times.expires <= 0) fail("'expires' is not after 1970 began"); // 0 is never
    } else if (key == "persistent") {
      if (!value.is_boolean()) fail("'persistent' is true or false");
      descriptor.persistence = value.get<bool>() ? BXPER_PERSISTENT : BXPER_NOT_PERSISTENT;
    } else if (key == "text" || key == "base64") {
      if (data) fail("it has both text and base64");
      data = textIn(key.c_str(), value);
      if (key == "base64") data = bytesOfBase64(*data);
    } else {
      fail("'" + key + "' is not known");
    }
  }
  if (!data) fail("it has neither text nor base64");
  if (isZero(descriptor.messageId)) fail("it has no id");
  encodeMessageHeader(descriptor, times, {}, message.stored);
  message.stored += *data;
  return message;
}

} // namespace bxm
