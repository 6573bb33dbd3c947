#pragma once

#include <xercesc/util/XercesDefs.hpp>

#include "ferry/text/unicode_string.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
XERCES_CPP_NAMESPACE_END

/// Reads a document, with the limits that CCMEXML::parse_pob states; the caller releases it. Throws
/// VRK_Exception or the XML libraries' own exceptions.
xercesc::DOMDocument* parseDocument(const UnicodeString& text);
