#include "ferry/xml/xpath_evaluator.h"

#include <xalanc/XPath/NodeRefList.hpp>
#include <xalanc/XPath/XObject.hpp>
#include <xalanc/XercesParserLiaison/XercesDocumentWrapper.hpp>
#include <xercesc/dom/DOMDocument.hpp>

namespace {

// The evaluator's view of a document. It does not follow changes, so it is made for one expression.
class View {
public:
  View(xalanc::XercesParserLiaison& liaison, const xercesc::DOMElement& context)
      : m_obLiaison(liaison),
        m_pobDocument(liaison.createDocument(context.getOwnerDocument(), false, true, true)),
        m_pobWrapper(liaison.mapDocumentToWrapper(m_pobDocument)) {}
  ~View() { m_obLiaison.destroyDocument(m_pobDocument); }
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  xalanc::XalanNode* wrapped(const xercesc::DOMElement& element) const {
    return m_pobWrapper->mapNode(&element);
  }
  xercesc::DOMElement* element(xalanc::XalanNode* node) const {
    if (node->getNodeType() != xalanc::XalanNode::ELEMENT_NODE) return nullptr;
    const xercesc::DOMNode* found = m_pobWrapper->mapNode(node);
    return static_cast<xercesc::DOMElement*>(const_cast<xercesc::DOMNode*>(found));
  }

private:
  xalanc::XercesParserLiaison& m_obLiaison;
  xalanc::XalanDocument* m_pobDocument;
  xalanc::XercesDocumentWrapper* m_pobWrapper;
};

} // namespace

CXPathEvaluator& CXPathEvaluator::OfThisThread_rob() {
  thread_local CXPathEvaluator evaluator;
  return evaluator;
}

std::vector<xercesc::DOMElement*>
CXPathEvaluator::selectElements(const xercesc::DOMElement& context, const UnicodeString& xpath) {
  View view(m_obLiaison, context);
  xalanc::NodeRefList nodes;
  UnicodeString expression(xpath);
  m_obEvaluator.selectNodeList(nodes, m_obSupport, view.wrapped(context),
                               expression.getTerminatedBuffer());
  std::vector<xercesc::DOMElement*> elements;
  for (xalanc::NodeRefList::size_type i = 0; i < nodes.getLength(); ++i)
    if (xercesc::DOMElement* element = view.element(nodes.item(i))) elements.push_back(element);
  return elements;
}

UnicodeString CXPathEvaluator::evaluate(const xercesc::DOMElement& context,
                                        const UnicodeString& xpath) {
  View view(m_obLiaison, context);
  UnicodeString expression(xpath);
  return m_obEvaluator
      .evaluate(m_obSupport, view.wrapped(context), expression.getTerminatedBuffer())
      ->str()
      .c_str();
}
