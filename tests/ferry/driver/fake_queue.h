#pragma once

#include "ferry/queue/queue.h"

#include <chrono>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A queue in memory that notes each "get" and each "commit".
class FakeQueue : public CCMEBX {
public:
  std::deque<std::string> m_records;
  std::vector<std::string> m_notes;
  std::vector<UnicodeString> m_sent;
  std::function<void()> m_onGet = [] {};
  static inline std::chrono::microseconds m_time{0}; // what its own doing takes, in all queues
  std::chrono::microseconds m_putTakes{0};
  std::chrono::microseconds m_commitTakes{0};
  std::vector<size_t> m_units; // how many were sent in each unit of work

  int SendMsg(const UnicodeString& text, int, long, const UnicodeString&) override {
    m_time += m_putTakes;
    m_sent.push_back(text);
    return 0;
  }
  int ReceiveMessage(UnicodeString& text, long wait) override {
    m_notes.emplace_back("get");
    EXPECT_EQ(wait, 100);
    m_onGet();
    if (m_records.empty()) return -2;
    text = UnicodeString::fromUTF8(m_records.front());
    m_records.pop_front();
    return 0;
  }
  int PeekMsg(UnicodeString& text, long wait) override {
    EXPECT_EQ(wait, 100);
    if (m_cursor >= m_records.size()) {
      m_cursor = 0;
      return -2;
    }
    text = UnicodeString::fromUTF8(m_records[m_cursor++]);
    return 0;
  }
  int DeleteMessage() override {
    m_records.erase(m_records.begin() + static_cast<long>(m_cursor) - 1);
    m_cursor = 0;
    return 0;
  }
  int BeginTran() override { return 0; }
  int RollbackTran() override { return 0; }
  int CommitTran() override {
    m_notes.emplace_back("commit");
    m_time += m_commitTakes;
    m_units.push_back(m_sent.size() - m_committed);
    m_committed = m_sent.size();
    return 0;
  }
  bool IsCommitUnknown() const override { return false; }

  int Open(QTYPE) override { return 0; }
  int Close() override { return 0; }
  int ChangeAccess(QTYPE) override { return 0; }
  int CreateQueue(unsigned long, bool) override { return 0; }
  int DeleteQueue() override { return 0; }
  int ReceiveMessage(std::string&, long) override { return -1; }
  int PeekMsg(std::string&, long) override { return -1; }
  void ResetCursor() override { m_cursor = 0; }
  bool IsTransactional(bool) override { return true; }
  UnicodeString GetPath() const override { return u"FAKE"; }
  UnicodeString GetLabel() const override { return u"FAKE"; }
  long GetMessageCount() const override { return static_cast<long>(m_records.size()); }
  int ReOpenQueue() override { return 0; }
  int GetSentCount() const override { return static_cast<int>(m_sent.size()); }

private:
  size_t m_cursor = 0;
  size_t m_committed = 0; // of those sent
};
