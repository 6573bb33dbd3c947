#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <memory>
#include <string>
#include <unicode/unistr.h>

/// Reads documents back with a parser that had no part in writing them. Texts are UTF-8.
class SecondReader {
public:
  explicit SecondReader(const icu::UnicodeString& text) {
    std::string utf8;
    text.toUTF8String(utf8);
    m_document.reset(xmlReadMemory(utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr,
                                   XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
  }

  /// The document in one line: NAME(attribute=value){text or children}.
  std::string outline() const {
    return m_document ? outline(xmlDocGetRootElement(m_document.get())) : "not well-formed";
  }

private:
  static std::string take(xmlChar* text) {
    std::string result = text ? reinterpret_cast<const char*>(text) : "none";
    xmlFree(text);
    return result;
  }

  static std::string outline(xmlNode* node) {
    if (node->type == XML_TEXT_NODE) return take(xmlNodeGetContent(node));
    std::string result = reinterpret_cast<const char*>(node->name);
    for (xmlAttr* attribute = node->properties; attribute; attribute = attribute->next)
      result += std::string("(") + reinterpret_cast<const char*>(attribute->name) + "=" +
                take(xmlNodeListGetString(node->doc, attribute->children, 1)) + ")";
    result += "{";
    for (xmlNode* child = node->children; child; child = child->next) result += outline(child);
    return result + "}";
  }

  struct Free {
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
  };
  std::unique_ptr<xmlDoc, Free> m_document;
};
