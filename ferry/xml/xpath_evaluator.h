#pragma once

#include "ferry/text/unicode_string.h"
#include "ferry/xml/xml_library.h"

#include <memory>
#include <vector>
#include <xalanc/XercesParserLiaison/XercesDOMSupport.hpp>
#include <xalanc/XercesParserLiaison/XercesParserLiaison.hpp>
#include <xercesc/dom/DOMElement.hpp>

/// Evaluates XPath expressions over DOM documents. An evaluator must not be shared between threads,
/// so each thread has its own until it ends. An expression that fails leaves nothing behind in it.
/// The limits and errors are those that CCMEXMLNode states; what it throws may also be the XML
/// libraries' own.
class CXPathEvaluator {
public:
  static CXPathEvaluator& OfThisThread_rob();

  std::vector<xercesc::DOMElement*> selectElements(const xercesc::DOMElement& context,
                                                   const UnicodeString& xpath);
  UnicodeString evaluate(const xercesc::DOMElement& context, const UnicodeString& xpath);

private:
  CXPathEvaluator() = default;

  std::shared_ptr<CXMLRuntime> m_pobRuntime = CXMLRuntime::Share_rob(); // first: others need it
  xalanc::XercesParserLiaison m_obLiaison;
  xalanc::XercesDOMSupport m_obSupport{m_obLiaison};
};

/// The expression in a form that the XML libraries can be trusted with. Throws VRK_Exception when
/// it exceeds a limit of ccme_xml.h or holds a NUL; whether it is an expression at all is left to
/// them.
UnicodeString safeExpression(const UnicodeString& xpath);
