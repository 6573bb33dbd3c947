#include "tests/manager/store/manager_fixture.h"

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <sys/wait.h>
#include <thread>

namespace bxm {

namespace {

class Lifetime : public OneManager {
protected:
  static Runtime& runtimeOf(StoreSession& session) {
    return dynamic_cast<LmdbSession&>(session).store().runtime();
  }
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
  int takeMaps = 0;
  for (const auto& entry : std::filesystem::directory_iterator(file("")))
    takeMaps += entry.path().filename().string().starts_with("takes-");
  EXPECT_LE(takeMaps, 1);
}

TEST_F(Lifetime, AnIdentityIsNeverGivenTwice) {
  const auto session = home->connect("M");
  QueueDefinition queue;
  queue.name = "R";
  ASSERT_TRUE(session->createQueue(queue));
  const std::uint32_t first = queue.id;
  ASSERT_EQ(session->deleteQueue("R", false), StoreSession::Deleted::kDone);
  ASSERT_TRUE(session->createQueue(queue));
  EXPECT_GT(queue.id, first);
  EXPECT_FALSE(session->createQueue(queue));
}

/// A process may close its last connection to a manager in one thread while another connects: the
/// locks by which others know that it lives must not go with the former.
TEST_F(Lifetime, AConnectionSurvivesTheEndOfAnotherOne) {
  home->create("OTHER", false);
  std::atomic<bool> stop = false;
  std::thread elsewhere([&] {
    while (!stop) home->connect("OTHER");
  });
  std::thread comesAndGoes([&] {
    while (!stop) home->connect("M");
  });
  for (int i = 0; i < 300; ++i) {
    const auto session = home->connect("M");
    const pid_t stranger = ::fork(); // only looks at the locks
    if (stranger == 0) ::_exit(Runtime::isInUse(folder / "M") ? 0 : 1);
    int status = 0;
    ::waitpid(stranger, &status, 0);
    ASSERT_EQ(status, 0) << "connection " << i << " was taken for dead";
  }
  stop = true;
  elsewhere.join();
  comesAndGoes.join();
}

TEST_F(Lifetime, AManagerMadeAnewIsNotTakenForTheOld) {
  {
    const auto session = home->connect("M");
    put(*session, {"old"});
    EXPECT_THROW(home->remove("M"), Failure) << "it is in use";
  }
  home->remove("M");
  EXPECT_THROW(home->connect("M"), Failure);
  home->create("M", true);
  EXPECT_THROW(home->create("M", true), Failure);
  EXPECT_FALSE(home->connect("")->findQueue("Q"));
}

} // namespace

} // namespace bxm
