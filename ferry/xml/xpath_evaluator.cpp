#include "ferry/xml/xpath_evaluator.h"

#include "ferry/xml/ccme_xml.h"
#include "ferry/xml/xml_library.h"

#include <cmath>
#include <xalanc/XPath/ElementPrefixResolverProxy.hpp>
#include <xalanc/XPath/NodeRefListBase.hpp>
#include <xalanc/XPath/XObject.hpp>
#include <xalanc/XPath/XObjectFactoryDefault.hpp>
#include <xalanc/XPath/XPath.hpp>
#include <xalanc/XPath/XPathConstructionContextDefault.hpp>
#include <xalanc/XPath/XPathEnvSupportDefault.hpp>
#include <xalanc/XPath/XPathExecutionContextDefault.hpp>
#include <xalanc/XPath/XPathProcessorImpl.hpp>
#include <xalanc/XPath/XalanXPathException.hpp>
#include <xalanc/XercesParserLiaison/XercesDocumentWrapper.hpp>
#include <xercesc/dom/DOMDocument.hpp>

namespace {

[[noreturn]] void refuse(const UnicodeString& text) { throw xmlError("CXPathEvaluator", text); }

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
    if (auto* node = m_pobWrapper->mapNode(&element)) return node;
    refuse(u"The element is no longer in its document");
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

// The libraries' own classes print a problem to standard error before they throw it.
template <typename Base>
class Quiet : public Base {
public:
  using typename Base::eClassification;
  using typename Base::eSource;

  void problem(eSource, eClassification classification, const xalanc::XalanDOMString& text,
               const xalanc::Locator*, const xalanc::XalanNode*) override {
    if (classification == Base::eError)
      throw xalanc::XalanXPathException(text, this->getMemoryManager());
  }
  void problem(eSource source, eClassification classification, const xalanc::XalanDOMString& text,
               const xalanc::XalanNode* node) override {
    problem(source, classification, text, nullptr, node);
  }
};

class Execution : public xalanc::XPathExecutionContextDefault {
public:
  using XPathExecutionContextDefault::XPathExecutionContextDefault;

  // The base class makes a value of its complaint.
  const xalanc::XObjectPtr getVariable(const xalanc::XalanQName& name,
                                       const xalanc::Locator*) override {
    refuse(UnicodeString(u"The variable is not defined: ") + name.getLocalPart().c_str());
  }
};

// The libraries write numbers into an array that the largest ones overflow.
class BoundedFactory : public xalanc::XObjectFactoryDefault {
public:
  using XObjectFactoryDefault::createNumber;

  const xalanc::XObjectPtr createNumber(double value) override {
    if (std::isfinite(value) && std::fabs(value) > MAX_XPATH_NUMBER)
      refuse(u"A number in the XPath expression is too large");
    return XObjectFactoryDefault::createNumber(value);
  }
};

// One expression over one view. All that it works with is its own: the libraries do not clean up
// after an error.
class Evaluation {
public:
  Evaluation(xalanc::XercesDOMSupport& domSupport, const UnicodeString& xpath)
      : m_obPrefixes(nullptr, m_obSupport, domSupport),
        m_obExecution(m_obSupport, domSupport, m_obFactory),
        m_obExpression(m_obReading.getMemoryManager()) {
    xalanc::XalanDOMString expression(safeExpression(xpath).getTerminatedBuffer());
    xalanc::XPathProcessorImpl().initXPath(m_obExpression, m_obReading, expression, m_obPrefixes);
  }

  xalanc::XObjectPtr valueFrom(xalanc::XalanNode* context) {
    return m_obExpression.execute(context, m_obPrefixes, m_obExecution);
  }

private:
  Quiet<xalanc::XPathEnvSupportDefault> m_obSupport;
  Quiet<xalanc::XPathConstructionContextDefault> m_obReading;
  BoundedFactory m_obFactory;
  xalanc::ElementPrefixResolverProxy m_obPrefixes;
  Execution m_obExecution;
  xalanc::XPath m_obExpression;
};

} // namespace

CXPathEvaluator& CXPathEvaluator::OfThisThread_rob() {
  thread_local CXPathEvaluator evaluator;
  return evaluator;
}

std::vector<xercesc::DOMElement*>
CXPathEvaluator::selectElements(const xercesc::DOMElement& context, const UnicodeString& xpath) {
  Evaluation evaluation(m_obSupport, xpath);
  View view(m_obLiaison, context);
  xalanc::XObjectPtr value = evaluation.valueFrom(view.wrapped(context));
  const xalanc::NodeRefListBase& nodes = value->nodeset();
  std::vector<xercesc::DOMElement*> elements;
  for (xalanc::NodeRefListBase::size_type i = 0; i < nodes.getLength(); ++i)
    if (xercesc::DOMElement* element = view.element(nodes.item(i))) elements.push_back(element);
  return elements;
}

UnicodeString CXPathEvaluator::evaluate(const xercesc::DOMElement& context,
                                        const UnicodeString& xpath) {
  Evaluation evaluation(m_obSupport, xpath);
  View view(m_obLiaison, context);
  return evaluation.valueFrom(view.wrapped(context))->str().c_str();
}
