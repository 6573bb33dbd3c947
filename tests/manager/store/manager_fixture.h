#pragma once

#include "manager/base/failure.h"
#include "manager/store/log/home.h"
#include "manager/store/log/log_session.h"
#include "manager/store/message.h"
#include "manager/store/put_batch.h"
#include "tests/support/temp_folder.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bxm {

/// A manager M with a queue Q, worked on through the store's interface.
class OneManager : public testing::Test {
protected:
  OneManager() {
    open();
    home->create("M", false, "");
    const auto session = home->connect("M");
    QueueDefinition queue;
    queue.name = "Q";
    EXPECT_TRUE(session->createQueue(queue));
  }

  /// As a program that starts finds it. Closes what was open before, when nothing is connected.
  void open() {
    home.reset();
    home = std::make_unique<Home>(folder.path().string());
  }
  /// As after a boot. Nothing may be connected.
  void reboot() {
    std::filesystem::remove(file("runtime"));
    open();
  }
  std::string file(const std::string& name) const { return folder / ("M/" + name); }

  void put(StoreSession& session, const std::vector<std::string>& texts, std::int64_t expires = 0) {
    const auto definition = *session.findQueue("Q");
    const auto queue = session.open(definition);
    PutBatch batch(session.scratchFolder());
    for (const std::string& text : texts) {
      ASSERT_TRUE(queue->reserve(true));
      std::string header;
      encodeMessageHeader(BXMD_DEFAULT, {clockNow(), expires}, {1, ++m_made}, header);
      batch.append(definition.id, 0, header, text, expires != 0);
    }
    BXLONG reason = 0;
    ASSERT_EQ(session.put(batch, reason), Committed::kDone);
  }

  /// Accepts what comes and keeps its text.
  struct Text : Receiver {
    std::string text;
    Verdict judge(const StoredMessage&) override { return Verdict::kAccept; }
    void deliver(const StoredMessage& message) override { text = messageData(message.stored); }
  };

  static std::string take(StoreSession& session) {
    Text text;
    session.open(*session.findQueue("Q"))->take(text, false);
    return text.text;
  }

  support::TempFolder folder;
  std::unique_ptr<Home> home;

private:
  std::uint64_t m_made = 0;
};

} // namespace bxm
