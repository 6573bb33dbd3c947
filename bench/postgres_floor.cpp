// postgres_floor load|read|hold|make URI [COUNT]: the same work as the tool's, in a table of a
// plain queue and in the fewest steps that PostgreSQL offers.
//   load  lines from standard input, COPY in transactions of 1,000
//   read  the first row to standard output, deleted in a transaction of its own, COUNT times; who
//         loses the connection in it loses the record
//   hold  the same, but committed when the record has been written
//   make  the empty table
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libpq-fe.h>
#include <string>
#include <unistd.h>

namespace {

constexpr int kUnit = 1000;

class Database {
public:
  explicit Database(const char* uri) : m_connection(PQconnectdb(uri)) {
    expect(PQstatus(m_connection) == CONNECTION_OK);
  }
  ~Database() { PQfinish(m_connection); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void execute(const char* statement) { done(PQexec(m_connection, statement), PGRES_COMMAND_OK); }

  void copy(const std::string& rows) {
    done(PQexec(m_connection, "COPY plain_queue (body) FROM STDIN"), PGRES_COPY_IN);
    expect(PQputCopyData(m_connection, rows.data(), static_cast<int>(rows.size())) == 1);
    expect(PQputCopyEnd(m_connection, nullptr) == 1);
    done(PQgetResult(m_connection), PGRES_COMMAND_OK);
    expect(PQgetResult(m_connection) == nullptr);
  }

  void prepareTake() {
    done(PQprepare(m_connection, "take",
                   "DELETE FROM plain_queue WHERE id = (SELECT id FROM plain_queue ORDER BY id "
                   "FOR UPDATE SKIP LOCKED LIMIT 1) RETURNING body",
                   0, nullptr),
         PGRES_COMMAND_OK);
  }
  /// False when there is none.
  bool take(std::string& body) {
    return keep(PQexecPrepared(m_connection, "take", 0, nullptr, nullptr, nullptr, 0), body);
  }
  /// The same in a transaction that stays open; it begins on the same journey.
  bool hold(std::string& body) {
    expect(PQenterPipelineMode(m_connection) == 1);
    expect(PQsendQueryParams(m_connection, "BEGIN", 0, nullptr, nullptr, nullptr, nullptr, 0) == 1);
    expect(PQsendQueryPrepared(m_connection, "take", 0, nullptr, nullptr, nullptr, 0) == 1);
    expect(PQpipelineSync(m_connection) == 1);
    done(PQgetResult(m_connection), PGRES_COMMAND_OK);
    PQgetResult(m_connection);
    const bool found = keep(PQgetResult(m_connection), body);
    PQgetResult(m_connection);
    done(PQgetResult(m_connection), PGRES_PIPELINE_SYNC);
    expect(PQexitPipelineMode(m_connection) == 1);
    return found;
  }

private:
  bool keep(PGresult* result, std::string& body) const {
    expect(PQresultStatus(result) == PGRES_TUPLES_OK);
    const bool found = PQntuples(result) == 1;
    if (found)
      body.assign(PQgetvalue(result, 0, 0), static_cast<std::size_t>(PQgetlength(result, 0, 0)));
    PQclear(result);
    return found;
  }
  void expect(bool good) const {
    if (good) return;
    std::fprintf(stderr, "postgres_floor: %s", PQerrorMessage(m_connection));
    std::exit(1);
  }
  void done(PGresult* result, ExecStatusType wanted) const {
    expect(PQresultStatus(result) == wanted);
    PQclear(result);
  }

  PGconn* m_connection;
};

int load(Database& database) {
  char* line = nullptr;
  std::size_t room = 0;
  std::string rows;
  unsigned long count = 0;
  for (ssize_t size; (size = ::getline(&line, &room, stdin)) > 0;) {
    rows.append(line, static_cast<std::size_t>(size));
    if (++count % kUnit != 0) continue;
    database.copy(rows);
    rows.clear();
  }
  std::free(line);
  if (!rows.empty()) database.copy(rows);
  std::fprintf(stderr, "(%lu) Records\n", count);
  return 0;
}

int read(Database& database, unsigned long count, bool holds) {
  database.prepareTake();
  std::string body;
  unsigned long done = 0;
  while (done < count && (holds ? database.hold(body) : database.take(body))) {
    body += '\n';
    if (::write(STDOUT_FILENO, body.data(), body.size()) < 0) return 1;
    if (holds) database.execute("COMMIT");
    ++done;
  }
  std::fprintf(stderr, "(%lu) Records\n", done);
  return 0;
}

} // namespace

int main(int count, char** values) {
  const std::string what = count > 2 ? values[1] : "";
  if (what.empty()) return 2;
  Database database(values[2]);
  if (what == "load") return load(database);
  if ((what == "read" || what == "hold") && count == 4)
    return read(database, std::strtoul(values[3], nullptr, 10), what == "hold");
  if (what != "make") return 2;
  database.execute("SET client_min_messages = warning");
  database.execute("DROP TABLE IF EXISTS plain_queue");
  database.execute("CREATE TABLE plain_queue (id bigserial PRIMARY KEY, body text NOT NULL)");
}
