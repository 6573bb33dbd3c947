#pragma once

#include "ferry/errors/exception.h"
#include "ferry/text/unicode_string.h"

#include <memory>
#include <new>
#include <xalanc/PlatformSupport/XSLException.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

/// The XML libraries' process-wide state. Whoever works with them holds a share: the first one
/// starts them, and the last one, at the process's end at the earliest, ends them.
class CXMLRuntime {
public:
  /// May be called from any thread. Throws VRK_Exception when the libraries cannot be started.
  static std::shared_ptr<CXMLRuntime> Share_rob();

  ~CXMLRuntime();
  CXMLRuntime(const CXMLRuntime&) = delete;
  CXMLRuntime& operator=(const CXMLRuntime&) = delete;

private:
  CXMLRuntime();
};

/// The exception of a failure in this folder: one entry of a major error.
inline VRK_Exception xmlError(const char* function, const UnicodeString& text) {
  return VRK_Exception::genericError(function, text, 0, VRK_MAJOR_ERROR);
}

/// Runs body and turns what the XML libraries throw into the program's own exception.
template <typename Body>
auto guardXml(const char* function, Body body) {
  try {
    return body();
  } catch (const xercesc::XMLException& error) {
    throw xmlError(function, error.getMessage());
  } catch (const xercesc::SAXException& error) {
    throw xmlError(function, error.getMessage());
  } catch (const xercesc::DOMException& error) {
    throw xmlError(function, error.getMessage());
  } catch (const xercesc::OutOfMemoryException&) {
    throw std::bad_alloc();
  } catch (const xalanc::XSLException& error) {
    throw xmlError(function, error.getMessage().c_str());
  }
}

/// The text as XML 1.0 can hold it: each character that it has no way to write (control characters
/// but tab, line feed and carriage return; NUL; lone surrogates; U+FFFE and U+FFFF) becomes the
/// replacement character U+FFFD, so that a reader sees that something stood there.
UnicodeString xmlText(const UnicodeString& text);

/// The text as it is; the XML libraries judge it. Throws VRK_Exception when it holds a NUL, at
/// which they would cut it.
const UnicodeString& wholeText(const UnicodeString& text);
