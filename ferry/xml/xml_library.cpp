#include "ferry/xml/xml_library.h"

#include <unicode/utf16.h>
#include <xalanc/XPath/XPathEvaluator.hpp>
#include <xercesc/util/PlatformUtils.hpp>

namespace {

bool fitsXml(UChar32 c) {
  if (c < 0x20) return c == u'\t' || c == u'\n' || c == u'\r';
  return !U_IS_SURROGATE(c) && c != 0xFFFE && c != 0xFFFF;
}

} // namespace

CXMLRuntime::CXMLRuntime() {
  xercesc::XMLPlatformUtils::Initialize();
  xalanc::XPathEvaluator::initialize();
}

CXMLRuntime::~CXMLRuntime() {
  xalanc::XPathEvaluator::terminate();
  xercesc::XMLPlatformUtils::Terminate();
}

std::shared_ptr<CXMLRuntime> CXMLRuntime::Share_rob() {
  // Neither library may be initialised by two threads at a time; a local static is made by one. Its
  // share keeps them from being ended and started again with every document.
  static const std::shared_ptr<CXMLRuntime> runtime = guardXml("CXMLRuntime", [] {
    return std::shared_ptr<CXMLRuntime>(new CXMLRuntime); // the constructor is private
  });
  return runtime;
}

UnicodeString xmlText(const UnicodeString& text) {
  UnicodeString result;
  for (int32_t i = 0; i < text.length();) {
    UChar32 c = text.char32At(i);
    i += U16_LENGTH(c);
    result.append(fitsXml(c) ? c : UChar32{0xFFFD});
  }
  return result;
}

const UnicodeString& wholeText(const UnicodeString& text) {
  if (text.indexOf(u'\0') >= 0)
    throw xmlError("wholeText", u"Names and expressions must not contain NUL");
  return text;
}
