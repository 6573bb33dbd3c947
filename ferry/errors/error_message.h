#pragma once

#include "ferry/text/unicode_string.h"

#include <vector>

class CCMEXML;
class CCMEXMLNode;

/// The record behind an error entry: an identifier such as "9113E" (the letter tells the kind:
/// Error, Warning, Information), a template with placeholders "{0}" to "{9}", the parameters and
/// the text that the template makes with them. A value; copies are independent.
class KELErrorMessage {
public:
  /// Put in front of an identifier wherever it is shown.
  inline static const UnicodeString s_MessagePrefix{true, u"ZRKTA", 5};

  KELErrorMessage() = default;
  KELErrorMessage(const UnicodeString& id, const UnicodeString& messageTemplate,
                  const std::vector<UnicodeString>& parameters);
  /// With a text of the caller's own, which need not follow from the template.
  KELErrorMessage(const UnicodeString& id, const UnicodeString& messageTemplate,
                  const UnicodeString& text, const std::vector<UnicodeString>& parameters);

  /// The record of an error that has only a text: "0000E", "{0}".
  static KELErrorMessage generic(const UnicodeString& text);

  /// The template with every placeholder that has a parameter replaced by it. What was inserted is
  /// not searched again.
  static UnicodeString resolve(const UnicodeString& messageTemplate,
                               const std::vector<UnicodeString>& parameters);

  const UnicodeString& getId() const { return m_sId; }
  const UnicodeString& getTemplate() const { return m_sTemplate; }
  const UnicodeString& getText() const { return m_sText; }
  const std::vector<UnicodeString>& getParameters() const { return m_aParameters; }

  // The XML form. These live in the ferry_xml library, so that a program that reports no errors as
  // XML documents does not load what they need. Nodes belong to their document. Throw VRK_Exception
  // as CCMEXMLNode does.

  /// Writes the record into node, unless its identifier is empty; returns node.
  CCMEXMLNode* writeXML(CCMEXMLNode* node) const;
  /// Adds a child SYSTEM_MESSAGE to parent and writes the record into it; returns the child.
  CCMEXMLNode* asXML(CCMEXMLNode* parent) const;
  /// The same as writeXML(node).
  CCMEXMLNode* createErrorSegment(CCMEXML& document, CCMEXMLNode* node) const;
  /// A whole document SYSTEM_MESSAGES for a bare identifier, with the inbound message in an element
  /// INBOUND_MSG unless that is empty.
  static UnicodeString getErrorXML(const UnicodeString& id, const UnicodeString& inbound);

private:
  UnicodeString m_sId;
  UnicodeString m_sTemplate;
  UnicodeString m_sText;
  std::vector<UnicodeString> m_aParameters;
};
