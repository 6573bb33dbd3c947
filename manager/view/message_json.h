#pragma once

#include "manager/view/json.h"

#include <cstdint>
#include <string>
#include <string_view>

/// A message as JSON tells it: all that is known of it and its data, exactly.
namespace bxm {

/// stored: see manager/store/message.h.
///
///   {"id": "42584d...", "priority": 4, "put": "2026-11-22T09:30:00.125Z",
///    "expires": "2026-11-23T09:30:00.125Z", "persistent": false, "correlation": "...",
///    "format": "BXSTR", "reply_to_queue": "ANSWERS", ..., "text": "one line"}
///
/// What is as in most messages is left out. Bytes that are no UTF-8 are told in hexadecimal, by a
/// key that ends in _hex; such data is "base64" instead of "text".
Json jsonOf(int priority, std::string_view stored);

struct JsonMessage {
  int priority = 0;
  std::string stored;
};
/// The same message again, from the text of its JSON. Throws Failure that says what is wrong with
/// it.
JsonMessage messageOf(const std::string& text);

/// "42584d20..." of a message's identifier.
std::string identifierOf(std::string_view stored);

/// "ff00" of two bytes.
std::string hexOf(std::string_view bytes);
/// Throws Failure where the text is not what base64 makes of bytes.
std::string bytesOfBase64(const std::string& text);

} // namespace bxm
