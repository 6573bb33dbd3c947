#pragma once

#include "ferry/text/unicode_string.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>
#include <xercesc/util/XercesDefs.hpp>

// The XML libraries work recursively and expand entities in memory. These bounds keep whatever they
// are given well inside a thread's stack and a process's memory.

/// Levels of elements in a document, the root being the first.
constexpr int MAX_XML_DEPTH = 1000;
/// Characters that a document's entities may expand to: the longest one's times all uses.
constexpr std::size_t MAX_XML_EXPANSION = 1024 * 1024;
/// Length of an XPath expression in characters (64 KiB).
constexpr std::int32_t MAX_XPATH_LENGTH = 32 * 1024;
/// Brackets and parentheses of an XPath expression that stand open at once.
constexpr int MAX_XPATH_DEPTH = 1000;
/// Steps and operators of an XPath expression.
constexpr int MAX_XPATH_OPERATORS = 4000;
/// Digits of a number that an XPath expression holds, and any number that it makes a value.
constexpr int MAX_XPATH_DIGITS = 60;
constexpr double MAX_XPATH_NUMBER = 1e60;

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
/// leave the document as it was. Among the latter are expressions that exceed a limit above, fail
/// while they are evaluated or use a variable, a prefix or a function of stylesheets. The limits
/// bound memory and stack, not time: what many nested steps select may take long to find.
class CCMEXMLNode {
public:
  /// Appends an empty child element, or one that holds text. Throws VRK_Exception beyond
  /// MAX_XML_DEPTH levels.
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
  /// MAX_XPATH_NUMBER.
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

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
XERCES_CPP_NAMESPACE_END

class CXMLRuntime;

/// An XML document of at most MAX_XML_DEPTH levels. It owns its nodes. Different documents may be
/// used by different threads at once.
class CCMEXML {
public:
  /// A document with an empty root element. Throws VRK_Exception when the name is no XML name.
  explicit CCMEXML(const UnicodeString& rootName);
  /// Reads an XML 1.0 document; its encoding declaration does not matter. Nothing outside of the
  /// text is ever loaded. Entities that it declares are expanded, after that its document type
  /// declaration is dropped, so that it is written without one.
  ///
  /// Throws VRK_Exception when the text is not well-formed, holds a character that XML has not, is
  /// nested too deeply, refers to an entity that it does not declare or might expand to more than
  /// MAX_XML_EXPANSION characters, and when it has parameter entities or attribute list
  /// declarations.
  static std::unique_ptr<CCMEXML> parse_pob(const UnicodeString& text);
  ~CCMEXML();
  CCMEXML(const CCMEXML&) = delete;
  CCMEXML& operator=(const CCMEXML&) = delete;

  /// Never null.
  CCMEXMLNode* getRoot();

  /// The document, or one element of it, as text: no XML declaration, so that it is right in
  /// whatever encoding the text is then stored in, and no white space added. Throws VRK_Exception
  /// when it cannot be written.
  UnicodeString dump() const;
  UnicodeString dump(const CCMEXMLNode* node) const;

private:
  friend class CCMEXMLNode;
  struct Release {
    void operator()(xercesc::DOMDocument* document) const;
  };
  using Document = std::unique_ptr<xercesc::DOMDocument, Release>;

  explicit CCMEXML(Document document);
  static Document create(const UnicodeString& rootName);
  CCMEXMLNode* nodeOf(xercesc::DOMElement& element);

  std::shared_ptr<CXMLRuntime> m_pobRuntime; // first: it must outlive the document
  Document m_pobDocument;
  std::unordered_map<xercesc::DOMElement*, std::unique_ptr<CCMEXMLNode>> m_obNodes;
};
