#include "ferry/xml/ccme_xml.h"
#include "ferry/xml/xml_library.h"
#include "ferry/xml/xpath_evaluator.h"

#include <xercesc/dom/DOM.hpp>

namespace {

int depthOf(const xercesc::DOMElement& element) {
  int depth = 0;
  for (const xercesc::DOMNode* node = &element; node; node = node->getParentNode()) ++depth;
  return depth;
}

// What belongs to nobody goes back to the document, which otherwise keeps it. Elements are others'
// as long as the document lives.
void removeChildren(xercesc::DOMElement& element) {
  while (xercesc::DOMNode* child = element.getFirstChild()) {
    element.removeChild(child);
    if (child->getNodeType() != xercesc::DOMNode::ELEMENT_NODE) child->release();
  }
}

// The library's own function leaves a copy in the document at each call.
void appendText(const xercesc::DOMNode& node, UnicodeString& text) {
  for (auto* child = node.getFirstChild(); child; child = child->getNextSibling())
    switch (child->getNodeType()) {
    case xercesc::DOMNode::TEXT_NODE:
    case xercesc::DOMNode::CDATA_SECTION_NODE: text.append(child->getNodeValue(), -1); break;
    case xercesc::DOMNode::ELEMENT_NODE: appendText(*child, text); break;
    default: break;
    }
}

} // namespace

CCMEXMLNode* CCMEXMLNode::addChild(const UnicodeString& name) {
  return guardXml("CCMEXMLNode::addChild", [&] {
    if (depthOf(m_obElement) > MAX_XML_DEPTH)
      throw xmlError("CCMEXMLNode::addChild", u"The document is nested too deeply");
    UnicodeString tag(wholeText(name));
    xercesc::DOMElement* child =
        m_obElement.getOwnerDocument()->createElement(tag.getTerminatedBuffer());
    m_obElement.appendChild(child);
    return m_obDocument.nodeOf(*child);
  });
}

CCMEXMLNode* CCMEXMLNode::addChild(const UnicodeString& name, const UnicodeString& text) {
  CCMEXMLNode* child = addChild(name);
  child->setText(text);
  return child;
}

void CCMEXMLNode::setAttribute(const UnicodeString& name, const UnicodeString& value) {
  guardXml("CCMEXMLNode::setAttribute", [&] {
    m_obElement.setAttribute(UnicodeString(wholeText(name)).getTerminatedBuffer(),
                             xmlText(value).getTerminatedBuffer());
  });
}

void CCMEXMLNode::setText(const UnicodeString& text) {
  guardXml("CCMEXMLNode::setText", [&] {
    xercesc::DOMDocument& document = *m_obElement.getOwnerDocument();
    removeChildren(m_obElement);
    m_obElement.appendChild(document.createTextNode(xmlText(text).getTerminatedBuffer()));
  });
}

void CCMEXMLNode::setText(const char* text) { setText(UnicodeString(text ? text : "")); }

UnicodeString CCMEXMLNode::getName() const { return m_obElement.getTagName(); }

UnicodeString CCMEXMLNode::getAttribute(const UnicodeString& name) const {
  return m_obElement.getAttribute(UnicodeString(wholeText(name)).getTerminatedBuffer());
}

UnicodeString CCMEXMLNode::getText() const {
  UnicodeString text;
  appendText(m_obElement, text);
  return text;
}

std::vector<CCMEXMLNode*> CCMEXMLNode::getChildren() const {
  std::vector<CCMEXMLNode*> children;
  for (auto* child = m_obElement.getFirstElementChild(); child;
       child = child->getNextElementSibling())
    children.push_back(m_obDocument.nodeOf(*child));
  return children;
}

std::vector<CCMEXMLNode*> CCMEXMLNode::selectNodes(const UnicodeString& xpath) const {
  return guardXml("CCMEXMLNode::selectNodes", [&] {
    std::vector<CCMEXMLNode*> nodes;
    for (auto* element : CXPathEvaluator::OfThisThread_rob().selectElements(m_obElement, xpath))
      nodes.push_back(m_obDocument.nodeOf(*element));
    return nodes;
  });
}

CCMEXMLNode* CCMEXMLNode::selectNode(const UnicodeString& xpath) const {
  std::vector<CCMEXMLNode*> nodes = selectNodes(xpath);
  return nodes.empty() ? nullptr : nodes.front();
}

UnicodeString CCMEXMLNode::evaluate(const UnicodeString& xpath) const {
  return guardXml("CCMEXMLNode::evaluate",
                  [&] { return CXPathEvaluator::OfThisThread_rob().evaluate(m_obElement, xpath); });
}
