// The XML form of error message records. It is not part of the errors library: who only throws and
// prints errors must not load the XML libraries.

#include "ferry/errors/error_message.h"
#include "ferry/xml/ccme_xml.h"

namespace {

UnicodeString kindWord(const UnicodeString& id) {
  switch (id.charAt(id.length() - 1)) {
  case u'E': return u"ERROR";
  case u'W': return u"WARNING";
  case u'I': return u"INFO";
  default: return u"?";
  }
}

void writeIdentity(CCMEXMLNode* node, const UnicodeString& id) {
  node->setAttribute(u"type", kindWord(id));
  node->addChild(u"ID", KELErrorMessage::s_MessagePrefix + id);
}

} // namespace

CCMEXMLNode* KELErrorMessage::writeXML(CCMEXMLNode* node) const {
  if (m_sId.isEmpty()) return node;
  writeIdentity(node, m_sId);
  if (!m_sText.isEmpty()) node->addChild(u"SYSTEM_TEXT", m_sText);
  for (const UnicodeString& parameter : m_aParameters) {
    CCMEXMLNode* element = node->addChild(u"PARAM");
    element->addChild(u"PARAM_TYPE", u"Text");
    element->addChild(u"PARAM_VALUE", parameter);
  }
  return node;
}

CCMEXMLNode* KELErrorMessage::asXML(CCMEXMLNode* parent) const {
  return writeXML(parent->addChild(u"SYSTEM_MESSAGE"));
}

CCMEXMLNode* KELErrorMessage::createErrorSegment(CCMEXML&, CCMEXMLNode* node) const {
  return writeXML(node);
}

UnicodeString KELErrorMessage::getErrorXML(const UnicodeString& id, const UnicodeString& inbound) {
  CCMEXML document(u"SYSTEM_MESSAGES");
  CCMEXMLNode* root = document.getRoot();
  if (!inbound.isEmpty()) root->addChild(u"INBOUND_MSG", inbound);
  writeIdentity(root->addChild(u"SYSTEM_MESSAGE"), id);
  return document.dump(root);
}
