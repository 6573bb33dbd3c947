// Records at a given pace, each with the time of its put in it, through a queue of a manager
// ("queue NAME") or through a plain queue, the table plain_queue of a database ("table URI").
//   paced put queue|table NAME SECONDS RATE UNIT
//     RATE records a second, UNIT of them committed together
//   paced get queue|table NAME SECONDS UNIT
//     up to UNIT a commit; every ten seconds a line: the seconds since the start, the number of
//     records, and median, 99 % and longest of the time from put to get in ms
//   paced pass queue NAME COUNT UNIT
//     COUNT records through a queue that holds 1,000 meanwhile; the seconds that each 100,000 took
#include "bench/queue.h"

#include <algorithm>
#include <chrono>
#include <libpq-fe.h>
#include <memory>
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

constexpr BXLONG kWait = 200; ///< ms

class QueueTarget : public Target {
public:
  explicit QueueTarget(const std::string& name) : m_queue(name, BXOO_OUTPUT | BXOO_INPUT_SHARED) {}
  void put(const std::string& record, int count) override {
    for (int i = 0; i < count; ++i) m_queue.put(record);
    m_queue.commit();
  }
  std::vector<std::string> get(int count) override {
    std::vector<std::string> records;
    while (static_cast<int>(records.size()) < count) {
      auto record = m_queue.get(kSize, records.empty() ? kWait : 0);
      if (!record) break;
      records.push_back(std::move(*record));
    }
    if (!records.empty()) m_queue.commit();
    return records;
  }

private:
  Queue m_queue;
};

/// What many would write by hand. Who finds nothing looks again after a millisecond.
class TableTarget : public Target {
public:
  explicit TableTarget(const std::string& uri) : m_connection(PQconnectdb(uri.c_str())) {
    prepare("put", "INSERT INTO plain_queue (body) SELECT $1 FROM generate_series(1, $2::int)", 2);
    prepare("get",
            "DELETE FROM plain_queue WHERE id = ANY (ARRAY(SELECT id FROM plain_queue ORDER BY id "
            "FOR UPDATE SKIP LOCKED LIMIT $1::int)) RETURNING body",
            1);
  }
  ~TableTarget() override { PQfinish(m_connection); }
  TableTarget(const TableTarget&) = delete;
  TableTarget& operator=(const TableTarget&) = delete;

  void put(const std::string& record, int count) override {
    execute("put", {record.c_str(), std::to_string(count).c_str()});
  }
  std::vector<std::string> get(int count) override {
    std::vector<std::string> records;
    for (int i = 0; i < kWait && records.empty(); ++i) {
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

void pass(QueueTarget& queue, long count, int unit) {
  for (long i = 0; i < kDepth; i += unit) queue.put(timedRecord(), unit);
  auto begin = Clock::now();
  for (long done = unit; done <= count; done += unit) {
    queue.put(timedRecord(), unit);
    if (static_cast<int>(queue.get(unit).size()) != unit) fail("a record is missing");
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
    QueueTarget queue(values[3]);
    pass(queue, number, std::atoi(values[5]));
    return 0;
  }
  std::unique_ptr<Target> target;
  if (what == "put" || what == "get") {
    if (std::string(values[2]) == "queue")
      target = std::make_unique<QueueTarget>(values[3]);
    else
      target = std::make_unique<TableTarget>(values[3]);
  }
  if (what == "get" && count == 6)
    get(*target, seconds(number), std::atoi(values[5]));
  else if (what == "put" && count == 7)
    put(*target, seconds(number), std::atof(values[5]), std::atoi(values[6]));
  else
    return 2;
}
