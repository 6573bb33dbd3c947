#include "ferry/xml/ccme_xml.h"

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "ferry/xml/xml_errors.h"
#include "ferry/xml/xml_runtime.h"
#include "ferry/xml/xml_text.h"

static_assert(std::is_same_v<XMLCh, UChar>);

namespace {

const XMLCh* const kNativeUtf16 = U_IS_BIG_ENDIAN ? u"UTF-16BE" : u"UTF-16LE";

xercesc::DOMImplementation& implementation() {
  return *xercesc::DOMImplementationRegistry::getDOMImplementation(u"LS");
}

// Throws what the parser would otherwise only count.
class StrictHandler : public xercesc::HandlerBase {
public:
  void error(const xercesc::SAXParseException& error) override { throw error; }
  void fatalError(const xercesc::SAXParseException& error) override { throw error; }
};

xercesc::DOMDocument* parseText(const UnicodeString& text) {
  xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.getBuffer()),
                                    static_cast<XMLSize_t>(text.length()) * sizeof(UChar), "text");
  source.setEncoding(kNativeUtf16); // over whatever the declaration says
  StrictHandler handler;
  xercesc::SecurityManager limits; // stops entities that expand without end
  xercesc::XercesDOMParser parser;
  parser.setErrorHandler(&handler);
  parser.setSecurityManager(&limits);
  parser.setLoadExternalDTD(false);
  parser.setDisableDefaultEntityResolution(true);
  parser.setCreateEntityReferenceNodes(false);
  parser.parse(source);
  return parser.adoptDocument();
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
    UnicodeString name = xmlName(rootName);
    return Document(implementation().createDocument(nullptr, name.getTerminatedBuffer(), nullptr));
  });
}

std::unique_ptr<CCMEXML> CCMEXML::parse_pob(const UnicodeString& text) {
  auto runtime = CXMLRuntime::Share_rob();
  Document document(guardXml("CCMEXML::parse_pob", [&] { return parseText(text); }));
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
