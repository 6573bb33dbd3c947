#pragma once

#include "ferry/logging/log_writer.h"
#include "ferry/logging/logger.h"

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

/// What recording writers were told, by the host of their destination. Set up and read
/// by one thread.
struct Recorder : CLogWriterFactory {
  struct Writer : CLogWriter {
    explicit Writer(Recorder& recorder) : m_recorder(recorder) {}
    ~Writer() override { m_recorder.m_events.push_back("delete " + m_host); }
    void Start_v(const URIUC& destination) override {
      m_host.clear();
      destination.Host_rob().toUTF8String(m_host);
      m_recorder.m_events.push_back("start " + m_host);
      if (m_host == "nostart") throw std::runtime_error("no start");
      if (m_host == "odd") throw 1;
    }
    void Write_v(const UnicodeString& time, const UnicodeString& severity,
                 const UnicodeString& category, const std::vector<UnicodeString>& lines) override {
      UnicodeString message = severity + u" " + UnicodeString(category, 0, category.indexOf(u':'));
      for (const UnicodeString& line : lines) message += (&line == &lines[0] ? u" " : u"\n") + line;
      std::string text;
      message.toUTF8String(text);
      m_recorder.m_written[m_host].push_back(text);
      m_recorder.m_time = time;
      if (const auto it = m_recorder.m_onWrite.find(m_host); it != m_recorder.m_onWrite.end())
        it->second();
    }
    void Stop_v() override {
      m_recorder.m_events.push_back("stop " + m_host);
      if (m_host == "odd") throw 2;
    }

    Recorder& m_recorder;
    std::string m_host = "?";
  };

  CLogWriter* CreateWriter_pob() override {
    if (m_createFails) throw std::runtime_error("no writer");
    return new Writer(*this);
  }

  bool m_createFails = false;
  using Texts = std::vector<std::string>;
  Texts m_events;
  std::map<std::string, Texts> m_written;
  UnicodeString m_time;
  std::map<std::string, std::function<void()>> m_onWrite;
};
