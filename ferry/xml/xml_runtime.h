#pragma once

#include <memory>

/// The XML libraries' process-wide state. Whoever works with them holds a share: the first one
/// starts them, and the last one, at the process's end at the earliest, ends them.
class CXMLRuntime {
public:
  /// May be called from any thread. Throws VRK_Exception when the libraries cannot be started.
  static std::shared_ptr<CXMLRuntime> Share_rob();

  ~CXMLRuntime();
  CXMLRuntime(const CXMLRuntime&) = delete;
  CXMLRuntime& operator=(const CXMLRuntime&) = delete;

private:
  CXMLRuntime();
};
