// Records at a given pace, each with the time of its put in it, through a queue of a manager
// ("queue NAME") or through a plain queue, the table plain_queue of a database ("table URI").
//   paced put queue|table NAME SECONDS RATE UNIT
//     RATE records a second, UNIT of them committed together
//   paced get queue|table NAME SECONDS UNIT
//     up to UNIT a commit; every ten seconds a line: the seconds since the start, the number of
//     records, and median, 99 % and longest of the time from put to get in ms
//   paced pass queue NAME COUNT UNIT
//     COUNT records through a queue that holds 1,000 meanwhile; the seconds that each 100,000 took
#include "bx/bx.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <libpq-fe.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kSize = 100;
constexpr seconds kWindow{10};
constexpr long kDepth = 1000, kPart = 100000;

class Target {
public:
  virtual ~Target() = default;
  /// Puts a record so many times, committed together.
  virtual void put(const std::string& record, int count) = 0;
  /// The next records, up to so many, deleted together; none when none came for a while.
  virtual std::vector<std::string> get(int count) = 0;
};

[[noreturn]] void fail(const std::string& why) {
  std::fprintf(stderr, "paced: %s\n", why.c_str());
  std::exit(1);
}

class Queue : public Target {
public:
  explicit Queue(const std::string& name) {
    ::BXCONN("", &m_connection, &m_completion, &m_reason);
    expectDone("BXCONN");
    BXOD descriptor = BXOD_DEFAULT;
    name.copy(descriptor.objectName, BX_NAME_LENGTH);
    ::BXOPEN(m_connection, &descriptor, BXOO_OUTPUT | BXOO_INPUT_SHARED, &m_object, &m_completion,
             &m_reason);
    expectDone("BXOPEN");
  }
  void put(const std::string& record, int count) override {
    BXPMO options = BXPMO_DEFAULT;
    options.options = BXPMO_SYNCPOINT;
    for (int i = 0; i < count; ++i) {
      BXMD descriptor = BXMD_DEFAULT;
      ::BXPUT(m_connection, m_object, &descriptor, &options, static_cast<BXLONG>(record.size()),
              record.data(), &m_completion, &m_reason);
      expectDone("BXPUT");
    }
    commit();
  }
  std::vector<std::string> get(int count) override {
    std::vector<std::string> records;
    while (static_cast<int>(records.size()) < count) {
      auto record = take(records.empty() ? 200 : 0);
      if (!record) break;
      records.push_back(std::move(*record));
    }
    if (!records.empty()) commit();
    return records;
  }
  /// One, not committed yet.
  std::optional<std::string> take(BXLONG wait) {
    BXMD descriptor = BXMD_DEFAULT;
    BXGMO options = BXGMO_DEFAULT;
    options.options = BXGMO_SYNCPOINT | (wait > 0 ? BXGMO_WAIT : 0);
    options.waitInterval = wait;
    std::string record(kSize, ' ');
    BXLONG length = 0;
    ::BXGET(m_connection, m_object, &descriptor, &options, static_cast<BXLONG>(record.size()),
            record.data(), &length, &m_completion, &m_reason);
    if (m_reason == BXRC_NO_MESSAGE_AVAILABLE) return std::nullopt;
    expectDone("BXGET");
    return record;
  }
  void commit() {
    ::BXCMIT(m_connection, &m_completion, &m_reason);
    expectDone("BXCMIT");
  }

private:
  void expectDone(const std::string& call) const {
    if (m_completion != BXCC_OK) fail(call + ": " + std::to_string(m_reason));
  }

  BXHCONN m_connection = BXHC_UNUSABLE;
  BXHOBJ m_object = BXHO_UNUSABLE;
  BXLONG m_completion = BXCC_FAILED, m_reason = BXRC_NONE;
};

/// What many would write by hand. Who finds nothing looks again after a millisecond.
class Table : public Target {
public:
  explicit Table(const std::string& uri) : m_connection(PQconnectdb(uri.c_str())) {
    prepare("put", "INSERT INTO plain_queue (body) SELECT $1 FROM generate_series(1, $2::int)", 2);
    prepare("get",
            "DELETE FROM plain_queue WHERE id = ANY (ARRAY(SELECT id FROM plain_queue ORDER BY id "
            "FOR UPDATE SKIP LOCKED LIMIT $1::int)) RETURNING body",
            1);
  }
  ~Table() override { PQfinish(m_connection); }
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  void put(const std::string& record, int count) override {
    execute("put", {record.c_str(), std::to_string(count).c_str()});
  }
  std::vector<std::string> get(int count) override {
    std::vector<std::string> records;
    for (int i = 0; i < 200 && records.empty(); ++i) {
      if (i > 0) std::this_thread::sleep_for(milliseconds(1));
      records = execute("get", {std::to_string(count).c_str()});
    }
    return records;
  }

private:
  void prepare(const char* name, const char* text, int parameters) {
    PGresult* result = PQprepare(m_connection, name, text, parameters, nullptr);
    if (PQresultStatus(result) != PGRES_COMMAND_OK) fail(PQerrorMessage(m_connection));
    PQclear(result);
  }
  std::vector<std::string> execute(const char* name, const std::vector<const char*>& values) {
    PGresult* result = PQexecPrepared(m_connection, name, static_cast<int>(values.size()),
                                      values.data(), nullptr, nullptr, 0);
    const ExecStatusType status = PQresultStatus(result);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) fail(PQerrorMessage(m_connection));
    std::vector<std::string> records;
    for (int row = 0; row < PQntuples(result); ++row)
      records.emplace_back(PQgetvalue(result, row, 0));
    PQclear(result);
    return records;
  }

  PGconn* m_connection;
};

std::int64_t nanoseconds() { return Clock::now().time_since_epoch().count(); }

std::string timedRecord() {
  std::string record = std::to_string(nanoseconds());
  record.resize(kSize, ' ');
  return record;
}

void put(Target& target, seconds time, double rate, int unit) {
  const auto begin = Clock::now();
  const std::chrono::duration<double> between(unit / rate);
  for (long i = 0; Clock::now() < begin + time; ++i) {
    std::this_thread::sleep_until(
        begin + std::chrono::duration_cast<Clock::duration>(between * static_cast<double>(i)));
    target.put(timedRecord(), unit);
  }
}

void pass(Queue& queue, long count, int unit) {
  for (long i = 0; i < kDepth; i += unit) queue.put(timedRecord(), unit);
  auto begin = Clock::now();
  for (long done = unit; done <= count; done += unit) {
    queue.put(timedRecord(), unit);
    for (int i = 0; i < unit; ++i)
      if (!queue.take(200)) fail("a record is missing");
    queue.commit();
    if (done % kPart != 0) continue;
    const auto now = Clock::now();
    std::printf("%.3f\n", std::chrono::duration<double>(now - begin).count());
    std::fflush(stdout);
    begin = now;
  }
}

void report(std::vector<double>& times, Clock::duration since) {
  if (times.empty()) times.push_back(0);
  std::sort(times.begin(), times.end());
  std::printf("%.0f %zu %.2f %.2f %.2f\n", std::chrono::duration<double>(since).count(),
              times.size(), times[times.size() / 2], times[times.size() * 99 / 100], times.back());
  std::fflush(stdout);
  times.clear();
}

void get(Target& target, seconds time, int unit) {
  const auto begin = Clock::now();
  std::vector<double> times;
  for (auto next = begin + kWindow; Clock::now() < begin + time;) {
    for (const std::string& record : target.get(unit))
      times.push_back(static_cast<double>(nanoseconds() - std::atoll(record.c_str())) / 1e6);
    if (Clock::now() < next) continue;
    report(times, next - begin);
    next += kWindow;
  }
}

} // namespace

int main(int count, char** values) {
  const std::string what = count > 4 ? values[1] : "";
  const int number = count > 4 ? std::atoi(values[4]) : 0;
  if (what == "pass" && count == 6) {
    Queue queue(values[3]);
    pass(queue, number, std::atoi(values[5]));
    return 0;
  }
  std::unique_ptr<Target> target;
  if (what == "put" || what == "get") {
    if (std::string(values[2]) == "queue")
      target = std::make_unique<Queue>(values[3]);
    else
      target = std::make_unique<Table>(values[3]);
  }
  if (what == "get" && count == 6)
    get(*target, seconds(number), std::atoi(values[5]));
  else if (what == "put" && count == 7)
    put(*target, seconds(number), std::atof(values[5]), std::atoi(values[6]));
  else
    return 2;
}
