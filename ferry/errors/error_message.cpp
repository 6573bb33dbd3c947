#include "ferry/errors/error_message.h"

namespace {

// The parameter that the three code units at i name, or -1.
int32_t placeholderAt(const UnicodeString& s, int32_t i, size_t parameters) {
  if (s[i] != u'{' || s[i + 2] != u'}') return -1;
  UChar digit = s[i + 1];
  if (digit < u'0' || digit > u'9') return -1;
  int32_t index = digit - u'0';
  return static_cast<size_t>(index) < parameters ? index : -1;
}

} // namespace

KELErrorMessage::KELErrorMessage(const UnicodeString& id, const UnicodeString& messageTemplate,
                                 const std::vector<UnicodeString>& parameters)
    : KELErrorMessage(id, messageTemplate, resolve(messageTemplate, parameters), parameters) {}

KELErrorMessage::KELErrorMessage(const UnicodeString& id, const UnicodeString& messageTemplate,
                                 const UnicodeString& text,
                                 const std::vector<UnicodeString>& parameters)
    : m_sId(id), m_sTemplate(messageTemplate), m_sText(text), m_aParameters(parameters) {}

KELErrorMessage KELErrorMessage::generic(const UnicodeString& text) {
  return {u"0000E", u"{0}", {text}};
}

UnicodeString KELErrorMessage::resolve(const UnicodeString& messageTemplate,
                                       const std::vector<UnicodeString>& parameters) {
  UnicodeString text(messageTemplate);
  for (int32_t i = 0; i + 2 < text.length();) {
    int32_t index = placeholderAt(text, i, parameters.size());
    if (index < 0) {
      ++i;
      continue;
    }
    const UnicodeString& value = parameters[static_cast<size_t>(index)];
    text.replace(i, 3, value);
    i += value.length();
  }
  return text;
}
