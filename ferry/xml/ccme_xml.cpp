#include "ferry/xml/ccme_xml.h"

#include <xercesc/dom/DOM.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "ferry/xml/document_parser.h"
#include "ferry/xml/xml_errors.h"
#include "ferry/xml/xml_runtime.h"
#include "ferry/xml/xml_text.h"

namespace {

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
