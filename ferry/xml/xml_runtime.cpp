#include "ferry/xml/xml_runtime.h"

#include <xalanc/XPath/XPathEvaluator.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "ferry/xml/xml_errors.h"

CXMLRuntime::CXMLRuntime() {
  xercesc::XMLPlatformUtils::Initialize();
  xalanc::XPathEvaluator::initialize();
}

CXMLRuntime::~CXMLRuntime() {
  xalanc::XPathEvaluator::terminate();
  xercesc::XMLPlatformUtils::Terminate();
}

std::shared_ptr<CXMLRuntime> CXMLRuntime::Share_rob() {
  // Neither library may be initialised by two threads at a time; a local static is made by one. Its
  // share keeps them from being ended and started again with every document.
  static const std::shared_ptr<CXMLRuntime> runtime = guardXml("CXMLRuntime", [] {
    return std::shared_ptr<CXMLRuntime>(new CXMLRuntime); // the constructor is private
  });
  return runtime;
}
