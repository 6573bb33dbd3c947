#pragma once

#include <new>
#include <xalanc/PlatformSupport/XSLException.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

#include "ferry/errors/exception.h"

inline VRK_Exception xmlError(const char* function, const UnicodeString& text) {
  return VRK_Exception::genericError(function, text, 0, VRK_MAJOR_ERROR);
}

/// Runs body and turns what the XML libraries throw into the program's own exception.
template <class Body>
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
