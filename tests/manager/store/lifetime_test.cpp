#include "tests/manager/store/manager_fixture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bxm {

namespace {

class Lifetime : public OneManager {
protected:
  static Runtime& runtimeOf(StoreSession& session) {
    return dynamic_cast<LogSession&>(session).store().runtime();
  }
  std::ptrdiff_t logs() const {
    const std::filesystem::directory_iterator all(file(""));
    return std::count_if(begin(all), end(all), [](const auto& entry) {
      return entry.path().filename().string().starts_with("log-");
    });
  }
  /// A file's worth.
  const std::vector<std::string> m_file = std::vector<std::string>(40, std::string(100'000, 'x'));
};

/// An administrator's connection may live as long as it likes.
TEST_F(Lifetime, QueuesThatComeAndGoLeaveNothingBehind) {
  const auto session = home->connect("M");
  for (int i = 0; i < 200; ++i) {
    QueueDefinition queue;
    queue.name = "TEMPORARY";
    ASSERT_TRUE(session->createQueue(queue));
    EXPECT_EQ(session->open(queue)->depth(), 0U);
    EXPECT_EQ(session->deleteQueue("TEMPORARY", false), StoreSession::Deleted::kDone);
  }
  EXPECT_LT(runtimeOf(*session).accessLimit(), 100U);
  for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
    const std::string name = entry.path().filename().string();
    EXPECT_FALSE(name.starts_with("index-") || name.starts_with("queue-2")) << name;
    EXPECT_EQ(entry.status().permissions() & std::filesystem::perms(0077), std::filesystem::perms())
        << name << " is its owner's alone, as the folder is";
  }
  for (int i = 0; i < 8; ++i) put(*session, m_file);
  EXPECT_EQ(session->deleteQueue("Q", true), StoreSession::Deleted::kDone);
  home->connect("M"); // whose end gives the space back
  EXPECT_LE(logs(), 5);
}

TEST_F(Lifetime, QueuesThatNobodyUsesHoldNoDescriptors) {
  const auto descriptors = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto makes = home->connect("M"), uses = home->connect("M");
  const auto before = descriptors();
  for (int i = 0; i < 200; ++i) {
    QueueDefinition queue;
    queue.name = "Q" + std::to_string(i);
    ASSERT_TRUE(makes->createQueue(queue));
    EXPECT_EQ(uses->open(queue)->depth(), 0U);
    if (i % 2 == 0) continue;
    EXPECT_EQ(makes->deleteQueue(queue.name, true), StoreSession::Deleted::kDone);
  }
  EXPECT_LT(descriptors(), before + 60);
}

/// Whichever thread lets go of a manager last closes it while others open it anew: the locks by
/// which other processes know that a connection lives must not go with the old one.
TEST_F(Lifetime, ConnectionsSurviveTheEndOfOthers) {
  home->create("OTHER", false, "");
  home->connect("M");
  const int file = ::open(this->file("runtime").c_str(), O_RDWR | O_CLOEXEC);
  std::atomic<int> takenForDead = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread)
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        const auto session = home->connect("M");
        home->connect("OTHER"); // M is not kept open any more than by its connections
        struct flock everything {};
        everything.l_type = F_WRLCK; // belongs to the description: conflicts with our own locks
        if (::fcntl(file, F_OFD_GETLK, &everything) != 0 || everything.l_type == F_UNLCK)
          ++takenForDead;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(takenForDead, 0);
  ::close(file);
}

/// They are moved together, twice in the end, and keep their place before what came later.
TEST_F(Lifetime, OldMessagesDoNotKeepTheSpaceOfThoseAroundThem) {
  struct Large : Text {
    Verdict judge(const StoredMessage& message) override {
      return messageData(message.stored).size() > 100 ? Verdict::kAccept : Verdict::kSkip;
    }
  } large;
  for (const std::string round : {"1", "2"}) {
    {
      const auto session = home->connect("M");
      for (const char* name : {"a", "b", "c", "d", "e", "f"}) {
        put(*session, {round + name});
        put(*session, m_file);
      }
      put(*session, {round + "last"});
      const auto queue = session->open(*session->findQueue("Q"));
      while (queue->take(large, false) == Found::kDelivered) {
      }
    }
    for (int left = 30; logs() > 5 && left > 0; --left) { // moves have their pauses
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      reboot();
      home->connect("M");
    }
    EXPECT_LE(logs(), 5);
  }
  reboot();
  const auto session = home->connect("M");
  for (const char* text : {"1a", "1b", "1c", "1d", "1e", "1f", "1last", "2a", "2b", "2c", "2d"})
    EXPECT_EQ(take(*session), text);
}

TEST_F(Lifetime, AManagerMadeAnewIsNotTakenForTheOld) {
  {
    const auto session = home->connect("M");
    put(*session, {"old"});
    EXPECT_THROW(home->remove("M"), Failure) << "it is in use";
  }
  home->remove("M");
  EXPECT_THROW(home->connect("M"), Failure);
  home->create("M", true, "");
  EXPECT_THROW(home->create("M", true, ""), Failure);
  EXPECT_FALSE(home->connect("")->findQueue("Q"));
}

} // namespace

} // namespace bxm
