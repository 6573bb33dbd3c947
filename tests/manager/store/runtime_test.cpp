#include "tests/manager/store/manager_fixture.h"

#include <filesystem>
#include <fstream>
#include <functional>

namespace bxm {

namespace {

/// What the runtime holds counts only while it is whole and of this boot.
class RuntimeFile : public OneManager {
protected:
  /// What another process would see after its connections are gone and the file was changed.
  void after(const std::function<void()>& change) {
    {
      const auto session = home->connect("M");
      put(*session, {"a", "b", "c"});
      EXPECT_EQ(take(*session), "a");
    }
    home.reset();
    change();
    open();
    const auto session = home->connect("M");
    EXPECT_EQ(session->open(*session->findQueue("Q"))->depth(), 2U);
    EXPECT_EQ(take(*session), "b");
    EXPECT_EQ(take(*session), "c");
    EXPECT_EQ(take(*session), "");
  }

  void patch(std::size_t offset, const std::string& bytes) const {
    std::fstream out(file("runtime"), std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(static_cast<std::streamoff>(offset));
    out << bytes;
  }
  std::uintmax_t size() const { return std::filesystem::file_size(file("runtime")); }
};

constexpr std::size_t kVersionAt = 8, kSealedAt = 12, kStoreIdAt = 16, kBootIdAt = 24;

TEST_F(RuntimeFile, KnowsAfterABootWhatExpires) {
  put(*home->connect("M"), {"expired"}, clockNow() - 1);
  reboot();
  const auto session = home->connect("M");
  EXPECT_EQ(session->open(*session->findQueue("Q"))->depth(), 0U);
}

TEST_F(RuntimeFile, IsMadeAnewWhenItIsNotWholeOrNotOfThisBootStoreAndVersion) {
  after([] {});
  after([this] { patch(kBootIdAt, "00000000-0000-0000-0000-000000000000"); });
  after([this] { patch(kStoreIdAt, "XXXXXXXX"); });
  after([this] { patch(kVersionAt, std::string("\x63\0\0\0", 4)); });
  after([this] { patch(kSealedAt, std::string(4, '\0')); });
  after([this] { patch(0, std::string(size(), '\xFF')); });
  after([this] { std::filesystem::resize_file(file("runtime"), 0); });
  after([this] { std::filesystem::resize_file(file("runtime"), size() - 1); });
  after([this] { std::filesystem::resize_file(file("runtime"), size() + 4096); });
  after([this] { // nor is the index of another boot read
    patch(kBootIdAt, "another boot");
    std::ofstream(file("index-1-0"), std::ios::binary) << std::string(1 << 20, '\x11');
  });
}

TEST_F(RuntimeFile, IsNotMadeAnewUnderSomebodyWhoUsesIt) {
  const pid_t user = ::fork();
  if (user == 0) {
    Home own(folder.path().string());
    const auto session = own.connect("M");
    put(*session, {"got"});
    std::vector<QueueDefinition> others(20);
    for (QueueDefinition& each : others) {
      each.name = "OTHER." + std::to_string(&each - others.data());
      session->createQueue(each);
    }
    take(*session);
    for (const QueueDefinition& each : others) session->open(each);
    std::ofstream(folder / "connected") << "yes";
    ::pause();
  }
  while (!std::filesystem::exists(folder / "connected")) ::usleep(1000);
  open();
  patch(kBootIdAt, "another boot");
  EXPECT_THROW(home->connect("M"), Failure);
  EXPECT_THROW(home->remove("M"), Failure);
  ::kill(user, SIGKILL);
  ::waitpid(user, nullptr, 0);
  const auto session = home->connect("M");
  EXPECT_EQ(session->open(*session->findQueue("Q"))->depth(), 0U)
      << "what it got was logged before it used too many other queues";
}

} // namespace

} // namespace bxm
