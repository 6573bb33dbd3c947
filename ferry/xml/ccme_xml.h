#pragma once

#include <memory>
#include <unordered_map>
#include <xercesc/util/XercesDefs.hpp>

#include "ferry/text/unicode_string.h"
#include "ferry/xml/ccme_xml_node.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
XERCES_CPP_NAMESPACE_END

class CXMLRuntime;

/// An XML document of at most kMaxXmlDepth levels (xml_limits.h). It owns its nodes. Different
/// documents may be used by different threads at once.
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
  /// kMaxXmlExpansion characters, and when it has parameter entities or attribute list
  /// declarations.
  static std::unique_ptr<CCMEXML> parse_pob(const UnicodeString& text);
  ~CCMEXML();
  CCMEXML(const CCMEXML&) = delete;
  CCMEXML& operator=(const CCMEXML&) = delete;

  CCMEXMLNode* getRoot();

  /// The document, or one element of it, as text: no XML declaration, so that it is right in
  /// whatever encoding the text is then stored in, and no white space added.
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
