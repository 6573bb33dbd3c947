#include "tests/manager/faults/peer.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <lmdb.h>
#include <random>

namespace faults {
namespace {

namespace fs = std::filesystem;

constexpr int kMessages = 200;

class Damage : public ::testing::Test {
protected:
  Damage() {
    Peer founder(m_home.path().string());
    founder.words("connect");
    founder.words("create Q");
    founder.words("sputn Q a " + std::to_string(kMessages) + " @300");
    founder.words("commit");
    founder.words("sputn Q big 5 @20000");
    founder.words("commit");
    founder.words("disconnect");
    m_sound = support::readFile(file());
  }
  std::string file() const { return m_home / "DEFAULT/durable.mdb"; }

  enum class End { kRefused, kFailed, kServed, kDied };
  /// Uses the store as after a boot, in a process that may die of it.
  End use() {
    for (const char* name : {"runtime", "durable.mdb-lock"})
      fs::remove(m_home / (std::string("DEFAULT/") + name));
    Peer peer(m_home.path().string(), {}, m_home / "errors");
    for (const char* words :
         {"connect", "browse Q", "depth Q", "get Q", "put Q new", "disconnect"}) {
      const auto answer = peer.ask(words);
      if (!answer) return End::kDied;
      const bool refused = answer->starts_with("2 2059"), failed = answer->starts_with("2 ");
      if (failed) {
        EXPECT_TRUE(refused || answer->starts_with("2 2101")) << *answer;
      }
      if (words == std::string("browse Q")) m_browsed = split(*answer).size() - 2;
      if (refused) return End::kRefused;
      if (failed) return End::kFailed;
    }
    return End::kServed;
  }

  support::TempFolder m_home;
  std::string m_sound;
  std::size_t m_browsed = 0; ///< messages that the last use() has seen
};

TEST_F(Damage, AFileThatLostItsEndIsRefused) {
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{100}, std::size_t{4096}, std::size_t{8192},
        std::size_t{20000}, m_sound.size() / 2, m_sound.size() - 4096}) {
    support::writeFile(file(), m_sound.substr(0, size));
    EXPECT_EQ(use(), End::kRefused) << size;
  }
  const std::string line = support::readFile(m_home / "errors");
  EXPECT_NE(line.find("cannot be opened"), std::string::npos) << line;
}

/// A transaction may take pages at the end and give them back without ever writing them.
TEST_F(Damage, AFileThatEndsBeforeItsFreePagesIsWhole) {
  {
    Peer peer(m_home.path().string());
    for (const char* words : {"connect", "create R", "sputn R a 400 @1000", "commit", "delete R 1"})
      peer.words(words);
  }
  const std::string whole = support::readFile(file());
  bool refused = false;
  for (std::size_t missing = 0; missing < 16; ++missing) {
    support::writeFile(file(), whole.substr(0, whole.size() - missing * 4096));
    const End end = use();
    EXPECT_TRUE(end == End::kServed ? m_browsed == kMessages + 5 : end == End::kRefused) << missing;
    EXPECT_TRUE(missing > 0 || (end == End::kServed && fs::file_size(file()) > whole.size()));
    refused = refused || end == End::kRefused;
  }
  EXPECT_TRUE(refused);
}

TEST_F(Damage, AFileOfAnotherKindIsRefused) {
  std::mt19937 random(7);
  std::string garbage(m_sound.size(), '\0');
  for (char& byte : garbage) byte = static_cast<char>(random());
  for (const std::string& bytes :
       {garbage, std::string(m_sound.size(), '\0'), std::string("text\n")}) {
    support::writeFile(file(), bytes);
    EXPECT_EQ(use(), End::kRefused);
  }
}

/// A page of garbage behind sound meta pages is more than the storage library guards against: it
/// may end the process. What is tested is that the rest is told, and how often it is which.
TEST_F(Damage, AGarbledPageIsNeverServedAsAMessage) {
  std::mt19937 random(11);
  std::map<End, int> ends;
  for (std::size_t page = 2; page < m_sound.size() / 4096; page += 3) {
    std::string bytes = m_sound;
    for (std::size_t i = 0; i < 4096; ++i) bytes[page * 4096 + i] = static_cast<char>(random());
    support::writeFile(file(), bytes);
    ++ends[use()];
  }
  std::cout << "of " << m_sound.size() / 4096 / 3 << " garbled pages " << ends[End::kRefused]
            << " refused, " << ends[End::kFailed] << " failed, " << ends[End::kServed]
            << " not touched, " << ends[End::kDied] << " ended the process\n";
}

TEST_F(Damage, AStoreOfANewerVersionIsRefusedWithAClearLine) {
  MDB_env* env = nullptr;
  MDB_txn* txn = nullptr;
  MDB_dbi settings = 0;
  ASSERT_EQ(mdb_env_create(&env), 0);
  mdb_env_set_maxdbs(env, 8);
  ASSERT_EQ(mdb_env_open(env, file().c_str(), MDB_NOSUBDIR, 0660), 0);
  ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
  ASSERT_EQ(mdb_dbi_open(txn, "settings", 0, &settings), 0);
  char key[] = "format";
  std::uint32_t version = 99;
  MDB_val keyValue{6, key}, value{sizeof version, &version};
  ASSERT_EQ(mdb_put(txn, settings, &keyValue, &value, 0), 0);
  ASSERT_EQ(mdb_txn_commit(txn), 0);
  mdb_env_close(env);
  EXPECT_EQ(use(), End::kRefused);
  EXPECT_NE(support::readFile(m_home / "errors").find("format 99"), std::string::npos);
}

/// An older copy of the file in the place of the present one, while the machine stays up.
TEST_F(Damage, ARestoredBackupIsServedAsItWas) {
  const std::string home = m_home.path().string();
  for (const std::string sync : {"batch", "full"}) {
    support::Process alter(
        {support::binDir() + "/bxadm", "manager", "alter", "DEFAULT", "--sync", sync});
    ASSERT_EQ(alter.environment("BXM_HOME", home).run().status, 0);
    const std::string copy = support::readFile(file());
    {
      Peer peer(home);
      peer.words("connect");
      for (int i = 0; i < 10; ++i) peer.words("get Q");
      peer.words("disconnect");
    }
    support::writeFile(file(), copy);
    Peer peer(home);
    peer.words("connect");
    EXPECT_EQ(peer.words("browse Q").size(), std::size_t{kMessages + 5}) << sync;
  }
}

} // namespace
} // namespace faults
