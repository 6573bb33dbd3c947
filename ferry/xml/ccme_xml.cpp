#include "ferry/xml/ccme_xml.h"

#include "ferry/xml/xml_library.h"

#include <algorithm>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/DTD/DTDEntityDecl.hpp>

static_assert(std::is_same_v<XMLCh, UChar>);

namespace {

const XMLCh* const NATIVE_UTF16 = U_IS_BIG_ENDIAN ? u"UTF-16BE" : u"UTF-16LE";

[[noreturn]] void refuse(const UnicodeString& text) { throw xmlError("parseDocument", text); }

// Throws what the parser would otherwise only count.
class StrictHandler : public xercesc::HandlerBase {
public:
  void error(const xercesc::SAXParseException& error) override { throw error; }
  void fatalError(const xercesc::SAXParseException& error) override { throw error; }
};

// Refuses while it reads what could not be held or written afterwards. Of a document type's
// declarations it takes entities; parameter entities and attribute defaults would multiply text
// where the library offers no way to count it.
class BoundedParser : public xercesc::XercesDOMParser {
public:
  BoundedParser() {
    setErrorHandler(&m_obHandler);
    setSecurityManager(&m_obLimits);
    setLoadExternalDTD(false);
    setDisableDefaultEntityResolution(true);
    setCreateEntityReferenceNodes(false);
  }

  void XMLDecl(const XMLCh* const version, const XMLCh* const encoding,
               const XMLCh* const standalone, const XMLCh* const actualEncoding) override {
    // Later versions have characters that could only be written with a declaration.
    if (UnicodeString(version) != xercesc::XMLUni::fgVersion1_0)
      refuse(u"The document is not in XML 1.0");
    XercesDOMParser::XMLDecl(version, encoding, standalone, actualEncoding);
  }

  void doctypeDecl(const xercesc::DTDElementDecl& root, const XMLCh* const publicId,
                   const XMLCh* const systemId, const bool hasInternal,
                   const bool hasExternal) override {
    XercesDOMParser::doctypeDecl(root, publicId, systemId, hasInternal, hasExternal);
    // Otherwise entities that an unread part might declare would vanish without a word.
    getScanner()->setHasNoDTD(true);
  }

  void startAttList(const xercesc::DTDElementDecl&) override {
    refuse(u"Attribute list declarations are not supported");
  }

  void entityDecl(const xercesc::DTDEntityDecl& entity, const bool isParameter,
                  const bool isIgnored) override {
    if (isParameter) refuse(u"Parameter entities are not supported");
    XercesDOMParser::entityDecl(entity, isParameter, isIgnored);
    m_nLongest = std::max(m_nLongest, entity.getValueLen());
  }

  void endIntSubset() override {
    XercesDOMParser::endIntSubset();
    // A reference to a parameter entity takes the mark back.
    if (!getScanner()->getHasNoDTD()) refuse(u"Parameter entities are not supported");
    m_obLimits.setEntityExpansionLimit(
        std::min(m_obLimits.getEntityExpansionLimit(), MAX_XML_EXPANSION / m_nLongest));
    getScanner()->setSecurityManager(&m_obLimits); // it has a copy of the limit
  }

  void endElement(const xercesc::XMLElementDecl& element, const unsigned int uri, const bool isRoot,
                  const XMLCh* const prefix) override {
    --m_nDepth;
    XercesDOMParser::endElement(element, uri, isRoot, prefix);
  }

protected:
  xercesc::DOMElement* createElement(const XMLCh* name) override {
    if (++m_nDepth > MAX_XML_DEPTH) refuse(u"The document is nested too deeply");
    return XercesDOMParser::createElement(name);
  }

private:
  StrictHandler m_obHandler;
  xercesc::SecurityManager m_obLimits; // the number of expansions, whatever their size
  XMLSize_t m_nLongest = 1;            // entity
  int m_nDepth = 0;
};

// The caller releases it. Throws the libraries' own exceptions too.
xercesc::DOMDocument* parseDocument(const UnicodeString& text) {
  if (xmlText(text) != text) refuse(u"The document holds characters that XML has not");
  xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.getBuffer()),
                                    static_cast<XMLSize_t>(text.length()) * sizeof(UChar), "text");
  source.setEncoding(NATIVE_UTF16); // over whatever the declaration says
  BoundedParser parser;
  parser.parse(source);
  xercesc::DOMDocument* document = parser.adoptDocument();
  // Its entities stand expanded in the document, and it would not be written as it was.
  if (auto* type = document->getDoctype()) document->removeChild(type);
  return document;
}

xercesc::DOMImplementation& implementation() {
  return *xercesc::DOMImplementationRegistry::getDOMImplementation(u"LS");
}

UnicodeString dumpNode(const xercesc::DOMNode& node) {
  struct ReleaseSerializer {
    void operator()(xercesc::DOMLSSerializer* serializer) const { serializer->release(); }
  };
  std::unique_ptr<xercesc::DOMLSSerializer, ReleaseSerializer> serializer(
      implementation().createLSSerializer());
  serializer->getDomConfig()->setParameter(xercesc::XMLUni::fgDOMXMLDeclaration, false);
  struct ReleaseText {
    void operator()(XMLCh* text) const { xercesc::XMLString::release(&text); }
  };
  std::unique_ptr<XMLCh, ReleaseText> text(serializer->writeToString(&node));
  if (!text) throw xmlError("CCMEXML::dump", u"The document cannot be written");
  return text.get();
}

} // namespace

void CCMEXML::Release::operator()(xercesc::DOMDocument* document) const { document->release(); }

CCMEXML::CCMEXML(Document document)
    : m_pobRuntime(CXMLRuntime::Share_rob()), m_pobDocument(std::move(document)) {}

CCMEXML::CCMEXML(const UnicodeString& rootName) : CCMEXML(create(rootName)) {}

CCMEXML::~CCMEXML() = default;

CCMEXML::Document CCMEXML::create(const UnicodeString& rootName) {
  auto runtime = CXMLRuntime::Share_rob();
  return guardXml("CCMEXML::CCMEXML", [&] {
    UnicodeString name = wholeText(rootName);
    return Document(implementation().createDocument(nullptr, name.getTerminatedBuffer(), nullptr));
  });
}

std::unique_ptr<CCMEXML> CCMEXML::parse_pob(const UnicodeString& text) {
  auto runtime = CXMLRuntime::Share_rob();
  Document document(guardXml("CCMEXML::parse_pob", [&] { return parseDocument(text); }));
  return std::unique_ptr<CCMEXML>(new CCMEXML(std::move(document)));
}

CCMEXMLNode* CCMEXML::getRoot() { return nodeOf(*m_pobDocument->getDocumentElement()); }

CCMEXMLNode* CCMEXML::nodeOf(xercesc::DOMElement& element) {
  std::unique_ptr<CCMEXMLNode>& node = m_obNodes[&element];
  if (!node) node.reset(new CCMEXMLNode(*this, element));
  return node.get();
}

UnicodeString CCMEXML::dump() const {
  return guardXml("CCMEXML::dump", [&] { return dumpNode(*m_pobDocument); });
}

UnicodeString CCMEXML::dump(const CCMEXMLNode* node) const {
  return guardXml("CCMEXML::dump", [&] { return dumpNode(node->m_obElement); });
}
