#include "ferry/xml/ccme_xml_node.h"

#include <xercesc/dom/DOM.hpp>

#include "ferry/xml/ccme_xml.h"
#include "ferry/xml/xml_errors.h"
#include "ferry/xml/xml_text.h"
#include "ferry/xml/xpath_evaluator.h"

CCMEXMLNode* CCMEXMLNode::addChild(const UnicodeString& name) {
  return guardXml("CCMEXMLNode::addChild", [&] {
    UnicodeString tag = xmlName(name);
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
    m_obElement.setAttribute(xmlName(name).getTerminatedBuffer(),
                             xmlText(value).getTerminatedBuffer());
  });
}

void CCMEXMLNode::setText(const UnicodeString& text) {
  guardXml("CCMEXMLNode::setText",
           [&] { m_obElement.setTextContent(xmlText(text).getTerminatedBuffer()); });
}

void CCMEXMLNode::setText(const char* text) { setText(UnicodeString(text ? text : "")); }

UnicodeString CCMEXMLNode::getName() const { return m_obElement.getTagName(); }

UnicodeString CCMEXMLNode::getAttribute(const UnicodeString& name) const {
  return m_obElement.getAttribute(xmlName(name).getTerminatedBuffer());
}

UnicodeString CCMEXMLNode::getText() const { return m_obElement.getTextContent(); }

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
