// Memory that runs out: every allocation of one of the tool's loops fails in turn, each in a
// process of its own. Then what was told, shown and left has to account for every record.
#include "ferry/driver/record_loops.h"
#include "ferry/logging/logger.h"
#include "ferry/queue/session.h"
#include "ferry/text/ucss.h"
#include "tests/manager/contract/vocabulary.h"
#include "tests/support/process.h"
#include "tests/support/redirect.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <new>
#include <optional>
#include <sys/mman.h>
#include <unicode/uclean.h>

namespace {

/// How many allocations until one fails, 0 for none; shared with the processes forked.
std::atomic<long>& g_left = *new (::mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE,
                                         MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<long>(0);

bool fails() { return g_left > 0 && g_left.fetch_sub(1) == 1; }
void* allocate(const void*, std::size_t n) { return fails() ? nullptr : std::malloc(n); }
void* resize(const void*, void* p, std::size_t n) { return fails() ? nullptr : std::realloc(p, n); }
void release(const void*, void* p) { std::free(p); }

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  void* p = allocate(nullptr, size);
  return p ? p : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete[](void* p, std::size_t) noexcept { operator delete(p); }

namespace {

constexpr int kRecords = 40;

/// Longer than what a string holds without an allocation.
const std::string& all() {
  static const std::string records = [] {
    std::string text;
    for (const auto& record : contract::numbered(std::string(60, 'r') + "\xc3\xbc", kRecords))
      text += record + '\n';
    return text;
  }();
  return records;
}

/// What one run of a loop left behind.
struct Outcome {
  int status; ///< 0, 255 after an exception, or how the process died
  std::string shown, err, left;

  /// Nothing else than this count was told; a run that ended well told it.
  bool tells(std::ptrdiff_t count) const {
    const bool told = err.find("(" + std::to_string(count) + ") Records") != std::string::npos;
    return told || (status == 255 && err.find(") Records") == std::string::npos);
  }
};

std::ptrdiff_t linesIn(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

/// A loop over a queue that holds all(), with the same on standard input.
struct Loop {
  const char* name;
  void (*run)(CCMEBX&);
  bool (*accounts)(const Outcome&);
};
void PrintTo(const Loop& loop, std::ostream* out) { *out << loop.name; }

const Loop kLoops[] = {
    {"Copy", [](CCMEBX& q) { CFerryEx::ProcessFile2Q(&q, -1, -1, -1, -1); },
     [](const Outcome& o) {
       return (all() + all()).starts_with(o.left) && o.tells(linesIn(o.left) - kRecords);
     }},
    {"Read", [](CCMEBX& q) { CFerryEx::ProcessQ2File(&q, kRecords, false, -1); },
     [](const Outcome& o) { return o.shown + o.left == all() && o.tells(linesIn(o.shown)); }},
    {"Clean", [](CCMEBX& q) { CFerryEx::CleanQueue(&q, kRecords); },
     [](const Outcome& o) {
       return all().ends_with(o.left) && o.tells(kRecords - linesIn(o.left));
     }},
    {"Growth",
     [](CCMEBX& q) {
       UnicodeString text;
       q.SendMsg(UnicodeString(30'000, u'x', 30'000), 8, 0, u"");
       if (q.CommitTran() != 0) return;
       try {
         q.ReceiveMessage(text, 0);
       } catch (const std::bad_alloc&) { // a queue is usable after that
       }
       q.SendMsg(u"", 9, 0, u"");
       if (q.CommitTran() == 0) q.ReceiveMessage(text, 0);
     },
     [](const Outcome& o) {
       return (o.status == 0 || o.status == 255) && o.left.ends_with(all());
     }},
};

class MemoryRunsOut : public ::testing::TestWithParam<Loop> {
protected:
  MemoryRunsOut() {
    UseUTF8CodePage_v();
    m_connection.createQueue("Q");
    m_queue = m_connection.open("Q");
    support::writeFile(m_folder / "in", all());
    refill();
  }

  /// Takes what is there and puts all() in its place. In one unit of work, for which the library
  /// needs no thread: what is forked is to have none.
  std::string refill() const {
    std::string taken;
    contract::GetHow how = contract::kTake;
    how.options |= BXGMO_ACCEPT_TRUNCATED_MESSAGE;
    how.room = 128;
    for (auto m = m_queue.get(how); m.codes.completion != BXCC_FAILED; m = m_queue.get(how))
      taken += m.text.ends_with('\n') ? m.text : m.text + '\n';
    std::istringstream records(all());
    for (std::string record; std::getline(records, record);)
      m_queue.put(record, contract::kPutLater);
    m_connection.commit();
    return taken;
  }

  /// Runs the loop with its n-th allocation failing; nothing when it made fewer.
  std::optional<Outcome> run(long n) const {
    for (const char* file : {"out", "err"}) support::writeFile(m_folder / file, "");
    const pid_t child = ::fork();
    if (child == 0) become(n);
    int status = 0;
    ::waitpid(child, &status, 0);
    const bool failed = g_left.exchange(0) <= 0;
    const Outcome outcome{WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
                          support::readFile(m_folder / "out"), support::readFile(m_folder / "err"),
                          refill()};
    return failed ? std::optional(outcome) : std::nullopt;
  }
  [[noreturn]] void become(long n) const {
    const support::Redirect in(0, m_folder / "in", O_RDONLY);
    const support::Redirect out(1, m_folder / "out", O_WRONLY | O_APPEND);
    const support::Redirect err(2, m_folder / "err", O_WRONLY | O_APPEND);
    UErrorCode error = U_ZERO_ERROR;
    ::u_setMemoryFunctions(nullptr, allocate, resize, release, &error);
    CLogger logger(u"test");
    logger.LoadConfig_b(u"console://stderr *.*");
    CLogger::SetGlobal_v(&logger);
    int status = 255;
    try {
      CCMEBXSer queue(u"Q", u"");
      queue.Open(CCMEBX::QT_ANY);
      g_left = n;
      GetParam().run(queue);
      status = 0;
    } catch (const std::exception& e) {
      std::fprintf(stderr, "%s\n", e.what());
    }
    ::_exit(status);
  }

  support::TempFolder m_folder;
  const int m_home = // before the first connect
      ::setenv("BXM_HOME", (m_folder / "home").c_str(), 1);
  const contract::Api m_api{support::libDir() + "/libbxm_r.so"};
  mutable contract::Connection m_connection{m_api};
  contract::Queue m_queue;
};

TEST_P(MemoryRunsOut, AndEveryRecordIsAccountedFor) {
  for (long n = 1; const auto outcome = run(n); ++n)
    EXPECT_TRUE(GetParam().accounts(*outcome) && outcome->err.find("2195") == std::string::npos)
        << "allocation " << n << ": status " << outcome->status << ", " << linesIn(outcome->shown)
        << " shown, " << linesIn(outcome->left) << " left\n"
        << outcome->err;
}
INSTANTIATE_TEST_SUITE_P(Loops, MemoryRunsOut, testing::ValuesIn(kLoops),
                         testing::PrintToStringParamName());

} // namespace
