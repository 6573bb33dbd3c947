#pragma once

#include "ferry/queue/client_library.h"
#include "ferry/queue/session.h"
#include "ferry/text/default_code_page.h"
#include "ferry/text/ucss.h"
#include "tests/ferry/logging/recording_writer.h"
#include "tests/support/recording_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

/// Sessions on a client library that records what it is asked, and a logger that records too.
class SessionTest : public ::testing::Test {
protected:
  using Texts = std::vector<std::string>;

  SessionTest() {
    UseUTF8CodePage_v();
    InitBXM();
    m_script = reinterpret_cast<decltype(&clientScript)>(FindFunc("clientScript"))();
    *m_script = support::ClientScript();
    m_logger.RegisterFactory_v(u"memory", &m_recorder);
    m_logger.LoadConfig_b(u"memory://log *.*");
    m_recorder.m_written.clear();
    CLogger::SetGlobal_v(&m_logger);
  }
  ~SessionTest() override {
    m_session.reset();
    UninitBXM();
  }

  CCMEBXSer& session(const char16_t* path = u"Q1", const char16_t* manager = u"") {
    m_session = std::make_unique<CCMEBXSer>(path, manager);
    return *m_session;
  }
  /// A session with its queue open, and nothing noted yet.
  CCMEBXSer& openSession() {
    session().Open(CCMEBX::QT_ANY);
    m_script->calls.clear();
    m_recorder.m_written.clear();
    return *m_session;
  }
  void end() { m_session.reset(); }

  const Texts& calls() const { return m_script->calls; }
  Texts calls(const std::string& prefix) const {
    Texts found;
    for (const std::string& call : calls())
      if (call.starts_with(prefix)) found.push_back(call);
    return found;
  }
  Texts log() { return m_recorder.m_written["log"]; }

  /// What an operation threw: its first entries' messages.
  template <typename Operation>
  VRKBX_Exception thrownBy(Operation operation) {
    try {
      operation();
    } catch (const VRKBX_Exception& e) {
      return e;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
  }

  Recorder m_recorder;
  CLogger m_logger{u"test"};
  support::ClientScript* m_script;
  std::unique_ptr<CCMEBXSer> m_session;
};
