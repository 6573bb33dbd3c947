#pragma once

#include <vector>
#include <xercesc/util/XercesDefs.hpp>

#include "ferry/text/unicode_string.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMElement;
XERCES_CPP_NAMESPACE_END

class CCMEXML;

/// One element of a document, owned by it and valid as long as it is.
///
/// Text and attribute values may hold anything; what XML cannot hold becomes U+FFFD. Names must be
/// XML names. A document and its nodes are used by one thread at a time.
///
/// Functions throw VRK_Exception (major error) for a name or an XPath expression that is none, and
/// leave the document as it was. Among the latter are expressions that exceed a limit of
/// xml_limits.h, fail while they are evaluated or use a variable, a prefix or a function of
/// stylesheets. The limits bound memory and stack, not time: what many nested steps select may take
/// long to find.
class CCMEXMLNode {
public:
  /// Appends an empty child element, or one that holds text. Throws VRK_Exception beyond
  /// kMaxXmlDepth levels.
  CCMEXMLNode* addChild(const UnicodeString& name);
  CCMEXMLNode* addChild(const UnicodeString& name, const UnicodeString& text);
  void setAttribute(const UnicodeString& name, const UnicodeString& value);
  /// Replaces everything in the element. Elements that were in it stay valid but are no longer part
  /// of the document; XPath expressions cannot start from them. Narrow text is in the default code
  /// page.
  void setText(const UnicodeString& text);
  void setText(const char* text);

  UnicodeString getName() const;
  /// "" when there is no such attribute.
  UnicodeString getAttribute(const UnicodeString& name) const;
  /// The text of the element and all elements in it.
  UnicodeString getText() const;
  std::vector<CCMEXMLNode*> getChildren() const;

  /// The elements that an XPath expression selects from here, in document order. The expression
  /// must select nodes.
  std::vector<CCMEXMLNode*> selectNodes(const UnicodeString& xpath) const;
  /// The first of them, or null.
  CCMEXMLNode* selectNode(const UnicodeString& xpath) const;
  /// The expression's value as text, "" when it selects nothing. Numbers are at most
  /// kMaxXPathNumber.
  UnicodeString evaluate(const UnicodeString& xpath) const;

  CCMEXMLNode(const CCMEXMLNode&) = delete;
  CCMEXMLNode& operator=(const CCMEXMLNode&) = delete;

private:
  friend class CCMEXML;
  CCMEXMLNode(CCMEXML& document, xercesc::DOMElement& element)
      : m_obDocument(document), m_obElement(element) {}

  CCMEXML& m_obDocument;
  xercesc::DOMElement& m_obElement;
};
