#include "ferry/config/settings.h"
#include "ferry/logging/log_writer.h"
#include "ferry/logging/logger.h"
#include "tests/ferry/logging/fake_system.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>

namespace {

/// Tells of every use of a writer outside its life, of every start and stop while others
/// write, and fails now and then.
struct WatchedFactory : CLogWriterFactory {
  struct Writer : CLogWriter {
    explicit Writer(WatchedFactory& factory) : m_factory(factory) {}
    void Start_v(const URIUC&) override {
      m_serves = true;
      m_factory.m_misuses += m_factory.m_writing;
    }
    void Write_v(const UnicodeString&, const UnicodeString&, const UnicodeString&,
                 const std::vector<UnicodeString>& lines) override {
      m_factory.m_misuses += !m_serves;
      ++m_factory.m_writing;
      std::this_thread::yield();
      --m_factory.m_writing;
      if (lines.front() == u"fail")
        throw VRK_Exception::genericError("", u"failed", 0, VRK_MINOR_ERROR);
      if (lines.front() == u"nested") CLogger::Log_v(CSeverity::INFO, u"inner");
      ++m_factory.m_written;
    }
    void Stop_v() override {
      m_serves = false;
      m_factory.m_misuses += m_factory.m_writing;
      ++m_factory.m_stopped;
    }
    WatchedFactory& m_factory;
    bool m_serves = false;
  };
  CLogWriter* CreateWriter_pob() override {
    ++m_made;
    return new Writer(*this);
  }

  std::atomic<int> m_writing = 0, m_misuses = 0, m_made = 0, m_stopped = 0, m_written = 0;
};

TEST(Threads, LogReconfigureAndReadSettingsAtOnce) {
  constexpr int kRounds = 200;
  support::TempFolder folder;
  FakeSystem clock;
  clock.m_step = 3'600'000; // hours pass between two messages
  WatchedFactory factory;
  UnicodeString config = u"w://h *.*\nfile://" + UnicodeString::fromUTF8(folder / "log") +
                         u"?rotateSize=1&keep=2 *.!DBUG\nfile:///dev/full *.CRIT;filewriter.*";
  {
    CLogger logger(u"mod");
    logger.RegisterFactory_v(u"w", &factory);
    const std::string path = folder / "log.conf";
    std::ofstream(path) << UCSS::ucsToUTF8(config);
    UnicodeString name = UnicodeString::fromUTF8(path);
    ASSERT_TRUE(logger.LoadConfigFile_b(name.getTerminatedBuffer()));
    CLogger::SetGlobal_v(&logger);

    std::vector<std::thread> threads;
    for (int n = 0; n < 2; ++n) {
      threads.emplace_back([] {
        for (int i = 0; i < kRounds; ++i) {
          CLogger::Log_v(u"bx", CSeverity::INFO, u"text %d", i);
          CLogger::Log_v(CSeverity::INFO, u"nested");
          CLogger::TryLog_b(CSeverity::CRIT, u"to the full disk");
          EXPECT_TRUE(CLogger::TryLog_b(CSeverity::NOTE, u"text"));
          try {
            CLogger::Log_v(CSeverity::USER, u"fail");
          } catch (const VRKLog_Exception&) {
          }
        }
      });
      threads.emplace_back([&, n] {
        UnicodeString file = UnicodeString::fromUTF8(path);
        const UnicodeString text = UnicodeString::fromUTF8(UCSS::ucsToUTF8(config));
        for (int i = 0; i < kRounds / 4; ++i) {
          const auto changed = std::filesystem::file_time_type(std::chrono::seconds(2 * i + n));
          std::filesystem::last_write_time(path, changed); // the threads that log look at it
          EXPECT_TRUE(i % 2 ? logger.LoadConfig_b(text)
                            : logger.LoadConfigFile_b(file.getTerminatedBuffer()));
          EXPECT_FALSE(logger.LoadConfig_b(u"w://h *.*\nnonsense"));
          logger.RegisterSeverity_v(u"AUDIT", 0x100);
          logger.Clear_v();
          EXPECT_TRUE(logger.ReloadConfig_b());
        }
      });
      threads.emplace_back([n] {
        UnicodeString value;
        for (int i = 0; i < kRounds; ++i) {
          SetAppDesc_v(UnicodeString(u"a description longer than fits inside the string itself"));
          SetNextTransport_v(u"t");
          GetAppDesc_v(value);
          EXPECT_EQ(value.length(), 55);
          GetTransport_b(value, n + 1);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(factory.m_made, factory.m_stopped + 1 + 2 * (kRounds / 4))
        << "all but the last and those of the wrong configurations";
  }
  EXPECT_EQ(factory.m_misuses, 0);
  EXPECT_GT(factory.m_written, 0);
  EXPECT_EQ(factory.m_made, factory.m_stopped + 2 * (kRounds / 4));
}

} // namespace
