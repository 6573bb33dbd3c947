#include "manager/store/postgres/server.h"

#include "bx/bx.h"

#include <cerrno>
#include <fcntl.h>
#include <libpq-fe.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace bxm {

namespace {

using Clock = std::chrono::steady_clock;

/// Longer than the server's own limits, so that its reason is told where there is one.
constexpr std::chrono::seconds kMostSilence{28};
/// Longer ones are of a deep queue, whose segments change: kept, they would fill the server's
/// memory.
constexpr std::size_t kLongStatement = 4 << 10, kMostPrepared = 256;

/// What a user's URI may say otherwise. A network that falls silent ends the connection within 30
/// seconds; so does a statement that takes longer, and a lock after ten.
constexpr const char* kDefaults =
    "connect_timeout=10 keepalives_idle=10 keepalives_interval=5 keepalives_count=3 "
    "tcp_user_timeout=25000 target_session_attrs=read-write application_name=ferry";

/// Statements are planned once, for what they are made for: a walk along an index. The bytes of a
/// message are told as they are, and times in UTC.
constexpr std::pair<const char*, const char*> kSettings[] = {
    {"plan_cache_mode", "force_generic_plan"},
    {"enable_sort", "off"},
    {"enable_bitmapscan", "off"},
    {"jit", "off"},
    {"statement_timeout", "25s"},
    {"lock_timeout", "10s"},
    {"default_transaction_isolation", "read committed"},
    {"client_min_messages", "error"},
    {"idle_in_transaction_session_timeout", "0"},
    {"timezone", "UTC"},
};

template <typename Number>
void appendBig(std::string& out, Number value) {
  for (int shift = 8 * (static_cast<int>(sizeof value) - 1); shift >= 0; shift -= 8)
    out += static_cast<char>(static_cast<std::uint64_t>(value) >> shift);
}

/// A prepared statement is there that was not prepared here, or is not there that was.
bool isOtherSession(std::string_view state) { return state == "42P05" || state == "26000"; }

BXLONG reasonOfState(std::string_view state) {
  const auto is = [state](const char* start) { return state.starts_with(start); };
  if (isOtherSession(state)) return BXRC_Q_MGR_NOT_AVAILABLE;
  if (state.empty() || is("57P") || is("08") || is("25P03")) return BXRC_CONNECTION_BROKEN;
  if (is("42501") || is("28")) return BXRC_NOT_AUTHORIZED;
  if (is("53100") || is("54")) return BXRC_STORAGE_FULL;
  if (is("53300")) return BXRC_MAX_CONNECTIONS;
  if (is("53") || is("55P03") || is("57014") || is("40")) return BXRC_RESOURCE_PROBLEM;
  if (is("XX001") || is("XX002")) return BXRC_OBJECT_DAMAGED;
  return BXRC_UNEXPECTED;
}

/// libpq's message, on one line.
std::string oneLine(const char* message) {
  std::string text = message ? message : "";
  while (!text.empty() && text.back() == '\n') text.pop_back();
  for (char& c : text)
    if (c == '\n' || c == '\t') c = ' ';
  return text;
}

ServerError errorOf(const pg_result* result) {
  const char* field = PQresultErrorField(result, PG_DIAG_SQLSTATE);
  const std::string state = field ? field : "", text = oneLine(PQresultErrorMessage(result));
  const char* pooled = "a pooler is in between that does not pool sessions: ";
  return {reasonOfState(state), state, (isOtherSession(state) ? pooled : "") + text};
}

std::string quoted(const std::string& name) {
  std::string out = "\"";
  for (const char c : name) out += c == '"' ? std::string("\"\"") : std::string(1, c);
  return out + '"';
}

/// The state of a refused connection is only in its words.
BXLONG reasonOfRefusal(const std::string& text) {
  const auto says = [&text](const char* words) { return text.find(words) != std::string::npos; };
  if (says("too many c") || says("remaining connection slots")) return BXRC_MAX_CONNECTIONS;
  if (says("password authentication failed") || says("authentication failed") ||
      says("no password supplied") || says("no pg_hba.conf entry") || says("permission denied") ||
      says("not permitted to log in") || (says("role \"") && says("does not exist")))
    return BXRC_NOT_AUTHORIZED;
  return BXRC_Q_MGR_NOT_AVAILABLE;
}

/// While one exists no new descriptor can stand for a standard stream that the program was started
/// without: what it writes there would go to the server.
class NoStandardStreams {
public:
  NoStandardStreams() {
    for (int opened; (opened = ::open("/dev/null", O_RDWR | O_CLOEXEC)) >= 0;) {
      if (opened > 2) {
        ::close(opened);
        return;
      }
      m_opened.push_back(opened);
    }
  }
  ~NoStandardStreams() {
    for (const int opened : m_opened) ::close(opened);
  }
  NoStandardStreams(const NoStandardStreams&) = delete;
  NoStandardStreams& operator=(const NoStandardStreams&) = delete;

private:
  std::vector<int> m_opened;
};

PGconn* connectTo(const std::string& uri) {
  const NoStandardStreams none;
  // Of words that stand twice the later ones count, and the URI is spread over the defaults.
  std::vector<const char*> keys, values;
  PQconninfoOption* defaults = PQconninfoParse(kDefaults, nullptr);
  for (const PQconninfoOption* option = defaults; option && option->keyword; ++option)
    if (option->val) {
      keys.push_back(option->keyword);
      values.push_back(option->val);
    }
  keys.push_back("dbname");
  values.push_back(uri.c_str());
  keys.push_back(nullptr);
  values.push_back(nullptr);
  PGconn* connection = PQconnectdbParams(keys.data(), values.data(), 1);
  PQconninfoFree(defaults);
  return connection;
}

} // namespace

// ---- Parameters ---------------------------------------------------------------------------------

Parameters& Parameters::add(std::int32_t number) {
  appendBig(m_values.emplace_back(), number);
  return *this;
}

Parameters& Parameters::add(std::int64_t number) {
  appendBig(m_values.emplace_back(), number);
  return *this;
}

Parameters& Parameters::add(std::string_view bytes) {
  m_values.emplace_back(bytes);
  return *this;
}

Parameters& Parameters::add(const std::vector<std::int32_t>& numbers) {
  ArrayOf array(ArrayOf::Element::kInt4);
  for (const std::int32_t number : numbers) array.add(number);
  return addRaw(array.take());
}

Parameters& Parameters::addRaw(std::string binary) {
  m_values.push_back(std::move(binary));
  return *this;
}

ArrayOf::ArrayOf(Element element) : m_element(element) { begin(); }

/// One dimension from 1 on, in which there may be nulls.
void ArrayOf::begin() {
  m_size = 0;
  m_bytes.clear();
  for (const std::uint32_t each : {1U, 1U, static_cast<std::uint32_t>(m_element), 0U, 1U})
    appendBig(m_bytes, each);
}

void ArrayOf::addNull() {
  ++m_size;
  appendBig(m_bytes, std::int32_t{-1});
}

template <typename Number>
void ArrayOf::addNumber(Number number) {
  ++m_size;
  appendBig(m_bytes, static_cast<std::int32_t>(sizeof number));
  appendBig(m_bytes, number);
}

template void ArrayOf::addNumber(std::int16_t);
template void ArrayOf::addNumber(std::int32_t);
template void ArrayOf::addNumber(std::int64_t);

void ArrayOf::add(std::string_view bytes) {
  ++m_size;
  appendBig(m_bytes, static_cast<std::int32_t>(bytes.size()));
  m_bytes += bytes;
}

std::string ArrayOf::take() {
  std::string size;
  appendBig(size, m_size);
  m_bytes.replace(12, 4, size);
  std::string whole = std::move(m_bytes);
  begin();
  return whole;
}

// ---- Replies ------------------------------------------------------------------------------------

Reply::Reply(pg_result* result) : m_result(result) {}
void Reply::Clear::operator()(pg_result* result) const { PQclear(result); }

int Reply::rows() const { return PQntuples(m_result.get()); }

int Reply::columns() const { return PQnfields(m_result.get()); }

std::string Reply::command() const { return PQcmdStatus(m_result.get()); }

bool Reply::isNull(int row, int column) const {
  return PQgetisnull(m_result.get(), row, column) == 1;
}

std::int64_t Reply::number(int row, int column) const {
  const std::string_view value = bytes(row, column);
  std::int64_t number = !value.empty() && (value[0] & 0x80) ? -1 : 0;
  if (value.size() == 1) number = 0;
  for (const char c : value)
    number = static_cast<std::int64_t>(static_cast<std::uint64_t>(number) << 8 |
                                       static_cast<unsigned char>(c));
  return number;
}

std::string_view Reply::bytes(int row, int column) const {
  return {PQgetvalue(m_result.get(), row, column),
          static_cast<std::size_t>(PQgetlength(m_result.get(), row, column))};
}

// ---- The connection -----------------------------------------------------------------------------

Server::Server(const std::string& uri, const std::string& path) {
  m_connection = connectTo(uri);
  if (PQstatus(m_connection) != CONNECTION_OK) {
    const std::string text = oneLine(PQerrorMessage(m_connection));
    PQfinish(m_connection);
    throw Failure(reasonOfRefusal(text), text);
  }
  PQsetNoticeProcessor(
      m_connection, [](void*, const char*) {}, nullptr);
  try {
    PQsetnonblocking(m_connection, 1);
    PQenterPipelineMode(m_connection);
    std::string settings = "SELECT set_config('search_path', $1::text, false)";
    for (const auto& [name, value] : kSettings)
      settings += std::string(", set_config('") + name + "', '" + value + "', false)";
    runOne(settings, Parameters().add(quoted(path) + ", pg_catalog"));
  } catch (const Failure& failure) {
    PQfinish(m_connection);
    if (failure.reason() != BXRC_CONNECTION_BROKEN) throw;
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, failure.what()); // nothing was lost
  }
}

Server::~Server() { PQfinish(m_connection); }

bool Server::hasFailed() const {
  return m_connection && PQtransactionStatus(m_connection) == PQTRANS_INERROR;
}

void Server::lose(const std::string& why) {
  if (m_connection) PQfinish(m_connection);
  m_connection = nullptr;
  m_sent.clear();
  m_unfinished = false;
  throw ServerError(BXRC_CONNECTION_BROKEN, "", why);
}

void Server::execute(const std::string& script) {
  if (!m_connection) lose("the connection to the database was lost");
  push();
  collect(nullptr);
  PQexitPipelineMode(m_connection);
  if (PQsendQuery(m_connection, script.c_str()) != 1) lose(oneLine(PQerrorMessage(m_connection)));
  push();
  std::optional<ServerError> error;
  while (pg_result* result = next()) {
    if (PQresultStatus(result) == PGRES_FATAL_ERROR && !error) error = errorOf(result);
    PQclear(result);
  }
  if (error && error->reason() == BXRC_CONNECTION_BROKEN) lose(error->what());
  PQenterPipelineMode(m_connection);
  if (error) throw *error;
}

/// Nothing is on its way that may name them.
void Server::forgetMany() {
  if (m_prepared.size() < kMostPrepared || !m_sent.empty()) return;
  m_prepared.clear();
  if (PQsendQueryParams(m_connection, "DEALLOCATE ALL", 0, nullptr, nullptr, nullptr, nullptr, 0) !=
      1)
    lose(oneLine(PQerrorMessage(m_connection)));
  m_sent.push_back({.isDropped = true});
  divide();
}

const std::string& Server::prepare(const std::string& statement) {
  forgetMany();
  const auto [name, isNew] = m_prepared.try_emplace(statement);
  if (!isNew) return name->second;
  name->second = "s" + std::to_string(++m_names);
  if (PQsendPrepare(m_connection, name->second.c_str(), statement.c_str(), 0, nullptr) != 1)
    lose(oneLine(PQerrorMessage(m_connection)));
  m_sent.push_back({.prepares = statement});
  return name->second;
}

void Server::add(const std::string& statement, const Parameters& parameters) {
  if (!m_connection) lose("the connection to the database was lost");
  std::vector<const char*> values;
  std::vector<int> lengths, formats;
  for (const std::string& value : parameters.values()) {
    values.push_back(value.data());
    lengths.push_back(static_cast<int>(value.size()));
    formats.push_back(1);
  }
  const int count = static_cast<int>(values.size());
  const int sent = statement.size() > kLongStatement
                       ? PQsendQueryParams(m_connection, statement.c_str(), count, nullptr,
                                           values.data(), lengths.data(), formats.data(), 1)
                       : PQsendQueryPrepared(m_connection, prepare(statement).c_str(), count,
                                             values.data(), lengths.data(), formats.data(), 1);
  if (sent != 1) lose(oneLine(PQerrorMessage(m_connection)));
  m_sent.push_back({.isStatement = true});
  m_unfinished = true;
}

void Server::divide() {
  if (!m_connection) lose("the connection to the database was lost");
  if (PQpipelineSync(m_connection) != 1) lose(oneLine(PQerrorMessage(m_connection)));
  m_sent.push_back({.isDivision = true});
  m_unfinished = false;
}

/// Sends what was added.
void Server::push() {
  if (m_unfinished) divide();
  auto until = Clock::now() + kMostSilence;
  for (int left; (left = PQflush(m_connection)) != 0;) {
    if (left < 0) lose(oneLine(PQerrorMessage(m_connection)));
    pollfd descriptor{PQsocket(m_connection), POLLIN | POLLOUT, 0};
    if (::poll(&descriptor, 1, 1000) < 0 && errno != EINTR) lose("cannot wait for the database");
    if ((descriptor.revents & POLLIN) && PQconsumeInput(m_connection) != 1)
      lose(oneLine(PQerrorMessage(m_connection)));
    if (descriptor.revents & POLLOUT) until = Clock::now() + kMostSilence;
    if (Clock::now() > until) lose("the database takes nothing any more");
  }
}

void Server::send() {
  push();
  for (Sent& sent : m_sent) sent.isDropped = true;
}

void Server::readMore(Clock::time_point until) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
  if (left <= 0) lose("the database does not answer");
  pollfd descriptor{PQsocket(m_connection), POLLIN, 0};
  ::poll(&descriptor, 1, static_cast<int>(left));
  if (descriptor.revents != 0 && PQconsumeInput(m_connection) != 1)
    lose(oneLine(PQerrorMessage(m_connection)));
}

/// The next result, or null where one statement's results end. A large one may come slowly.
pg_result* Server::next() {
  while (PQisBusy(m_connection)) readMore(Clock::now() + kMostSilence);
  return PQgetResult(m_connection);
}

/// Reads the replies to all that was sent, and reports the first error behind the last.
void Server::collect(std::vector<Reply>* replies) {
  std::optional<ServerError> error;
  for (const Sent& sent : std::exchange(m_sent, {})) {
    pg_result* result = next();
    if (!result) lose(oneLine(PQerrorMessage(m_connection)));
    const ExecStatusType status = PQresultStatus(result);
    if (status == PGRES_PIPELINE_SYNC) {
      PQclear(result);
      continue;
    }
    const bool failed = status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK;
    if (status == PGRES_FATAL_ERROR && !error && !sent.isDropped) error = errorOf(result);
    if (failed && !sent.prepares.empty()) m_prepared.erase(sent.prepares);
    if (!failed && sent.isStatement && !sent.isDropped && replies)
      replies->emplace_back(result);
    else
      PQclear(result);
    if (error && error->reason() == BXRC_CONNECTION_BROKEN) lose(error->what());
    while (pg_result* more = next()) PQclear(more);
  }
  if (error && replies) throw *error;
}

std::vector<Reply> Server::run() {
  if (!m_connection) lose("the connection to the database was lost");
  std::vector<Reply> replies;
  push();
  collect(&replies);
  return replies;
}

Reply Server::runOne(const std::string& statement, const Parameters& parameters) {
  add(statement, parameters);
  std::vector<Reply> replies = run();
  return std::move(replies.back());
}

// ---- Announcements ------------------------------------------------------------------------------

bool Server::takeNotices() {
  if (!m_connection) lose("the connection to the database was lost");
  bool any = false;
  while (PGnotify* notice = PQnotifies(m_connection)) {
    PQfreemem(notice);
    any = true;
  }
  return any;
}

bool Server::awaitNotice(Clock::time_point until) {
  if (!m_sent.empty()) run(); // or the replies to what was sent would end the wait
  if (takeNotices()) return true;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
  pollfd descriptor{PQsocket(m_connection), POLLIN, 0};
  if (left > 0) ::poll(&descriptor, 1, static_cast<int>(left));
  if (PQconsumeInput(m_connection) != 1) lose(oneLine(PQerrorMessage(m_connection)));
  return takeNotices();
}

} // namespace bxm
