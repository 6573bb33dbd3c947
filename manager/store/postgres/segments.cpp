#include "manager/store/postgres/segments.h"

#include "manager/store/postgres/promises.h"

#include <algorithm>
#include <set>

namespace bxm {

namespace {

constexpr int kMostCounts = 100; ///< to find a depth that was there at one time
constexpr const char* kAlive = " AND (expires IS NULL OR expires > clock_ms())";

template <typename Number>
std::string number(Number value) {
  return std::to_string(value);
}

} // namespace

std::string Segments::tableAt(int place) const {
  return "messages_" + number(m_queue) + "_" + number(place);
}

bool Segments::refresh(Server& server) {
  if (m_version != 0) return true;
  const Reply reply =
      server.runOne("SELECT q.version, s.number, s.place, s.priorities, s.longest FROM queue q"
                    " JOIN segment s ON s.queue = q.id WHERE q.id = $1 ORDER BY s.number",
                    Parameters().add(m_queue));
  const bool first = m_segments.empty();
  std::vector<Segment> segments;
  for (int row = 0; row < reply.rows(); ++row) {
    Segment segment;
    segment.number = static_cast<int>(reply.number(row, 1));
    segment.place = static_cast<int>(reply.number(row, 2));
    for (const Segment& known : m_segments)
      if (known.number == segment.number) segment = known;
    segment.priorities = static_cast<int>(reply.number(row, 3));
    segment.longest = static_cast<std::size_t>(reply.number(row, 4));
    segments.push_back(segment);
    m_version = static_cast<int>(reply.number(row, 0));
  }
  m_segments = std::move(segments);
  m_takes.clear();
  if (first && !m_segments.empty()) readFloors(server);
  return !m_segments.empty();
}

void Segments::readFloors(Server& server) {
  const Reply reply = server.runOne("SELECT number, priority, sequence FROM floor WHERE queue = $1",
                                    Parameters().add(m_queue));
  for (int row = 0; row < reply.rows(); ++row)
    for (Segment& segment : m_segments)
      if (segment.number == reply.number(row, 0)) {
        const auto priority = static_cast<std::size_t>(reply.number(row, 1));
        segment.floor.at(priority) = segment.start.at(priority) = reply.number(row, 2);
      }
}

std::size_t Segments::longest() const {
  std::size_t longest = 0;
  for (const Segment& segment : m_segments) longest = std::max(longest, segment.longest);
  return longest;
}

std::vector<Arm> Segments::arms(bool fromStarts) const {
  std::vector<Arm> arms;
  for (int priority = 9; priority >= 0; --priority)
    for (std::size_t i = 0; i < m_segments.size(); ++i) {
      const auto p = static_cast<std::size_t>(priority);
      const Segment& segment = m_segments[i];
      const std::int64_t from = fromStarts ? segment.start.at(p) : segment.floor.at(p);
      if (segment.mayHold(priority) && segment.floor.at(p) != Segment::kNothing)
        arms.push_back({i, priority, from});
    }
  return arms;
}

void Segments::forgetStarts() {
  for (Segment& segment : m_segments) segment.start = segment.floor;
}

const std::string& Segments::takeStatement(const std::vector<Arm>& arms, bool exactly) {
  std::vector<int> shape{exactly ? 1 : 0};
  for (const Arm& arm : arms) shape.push_back(static_cast<int>(arm.segment) * 10 + arm.priority);
  std::string& made = m_takes[shape];
  if (made.empty()) made = makeTake(arms, exactly);
  return made;
}

/// The common beginning: the first messages of the arms, locked, when what is known still holds.
/// How often messages were given back is read before they are looked for.
std::string Segments::found(const std::vector<Arm>& arms, bool exactly,
                            const std::string& most) const {
  std::string looks;
  for (std::size_t i = 0; i < arms.size(); ++i) {
    const Arm& arm = arms[i];
    const Segment& segment = m_segments.at(arm.segment);
    looks += looks.empty() ? "" : " UNION ALL ";
    looks += "(SELECT " + number(i) + " AS arm, " + number(segment.place) +
             " AS place, * FROM (SELECT ctid AS at, priority, sequence, stored FROM " +
             tableOf(segment) + " WHERE priority = " + number(arm.priority) + " AND sequence " +
             (exactly ? "=" : ">=") + " $" + number(i + 4) + "::bigint" + kAlive +
             " ORDER BY sequence LIMIT " + most + " FOR UPDATE SKIP LOCKED) of)";
  }
  if (arms.empty())
    looks = "SELECT 0 AS arm, 0 AS place, NULL::tid AS at, NULL::smallint AS priority,"
            " NULL::bigint AS sequence, NULL::bytea AS stored WHERE false";
  return "WITH given AS MATERIALIZED (SELECT last_value AS times FROM " + returned() +
         "), found AS MATERIALIZED (SELECT * FROM (" + looks +
         ") of WHERE EXISTS (SELECT FROM queue WHERE id = $1::int AND version = $2::int)"
         " AND $3::bigint IN (-1, (SELECT times FROM given)) LIMIT " +
         most + ")";
}

namespace {

constexpr const char* kTold =
    " SELECT q.version, (SELECT times FROM given), arm, priority, sequence, stored,"
    " pg_current_xact_id_if_assigned()::text, clock_ms(), place, at"
    " FROM queue q LEFT JOIN found ON true WHERE q.id = $1::int";

} // namespace

std::string Segments::makeTake(const std::vector<Arm>& arms, bool exactly) const {
  std::string takes;
  std::set<int> places;
  for (const Arm& arm : arms) places.insert(m_segments.at(arm.segment).place);
  for (const int place : places)
    takes += ", t" + number(place) + " AS (DELETE FROM " + tableAt(place) +
             " WHERE ctid = (SELECT at FROM found WHERE place = " + number(place) + "))";
  return found(arms, exactly, "1") + takes + kTold;
}

std::string Segments::lockStatement(const std::vector<Arm>& arms) const {
  return found(arms, false, "$" + number(arms.size() + 4) + "::int") + kTold;
}

std::string Segments::deleteStatement(int place) const {
  return "DELETE FROM " + tableAt(place) + " WHERE ctid = ANY ($1::tid[])";
}

std::string Segments::lookStatement(const std::vector<Arm>& arms) const {
  std::string looks;
  for (std::size_t i = 0; i < arms.size(); ++i) {
    const Arm& arm = arms[i];
    looks += looks.empty() ? "" : " UNION ALL ";
    looks += "(SELECT priority, sequence, stored FROM " + tableOf(m_segments.at(arm.segment)) +
             " WHERE priority = " + number(arm.priority) + " AND sequence > $" + number(i + 3) +
             "::bigint AND xmax <> ALL ((SELECT xids FROM taking)::xid[])"
             " AND age(xmax) > (SELECT next FROM taking)" +
             kAlive + " ORDER BY sequence LIMIT $2::int)";
  }
  if (arms.empty())
    looks = "SELECT NULL::smallint AS priority, NULL::bigint AS sequence, NULL::bytea AS stored"
            " WHERE false";
  // A row that somebody has taken bears the number of a transaction in progress: of one that the
  // snapshot names, or of a later one.
  return "WITH taking AS MATERIALIZED (SELECT array_append(array_agg(x::xid),"
         " coalesce(pg_current_xact_id_if_assigned(), '1')::xid) AS xids,"
         " age(pg_snapshot_xmax(pg_current_snapshot())::xid) AS next"
         " FROM pg_snapshot_xip(pg_current_snapshot()) x)"
         " SELECT q.version, clock_ms(), priority, sequence, stored FROM queue q"
         " LEFT JOIN LATERAL (SELECT * FROM (" +
         looks +
         ") of LIMIT $2::int) of ON true"
         " WHERE q.id = $1::int";
}

std::string Segments::remainderStatement(const std::vector<Arm>& arms) const {
  std::string all;
  for (std::size_t i = 0; i < arms.size(); ++i) {
    const Arm& arm = arms[i];
    all += all.empty() ? "SELECT " : ", ";
    all += "(SELECT sequence FROM " + tableOf(m_segments.at(arm.segment)) +
           " WHERE priority = " + number(arm.priority) + " AND sequence >= $" + number(i + 1) +
           "::bigint ORDER BY sequence LIMIT 1)";
  }
  return all;
}

std::string Segments::countStatement() const {
  std::string sum;
  for (const Segment& segment : m_segments)
    sum += " + (SELECT count(*) FROM " + tableOf(segment) +
           " WHERE expires IS NULL OR expires > clock_ms())";
  return "SELECT version, (0" + sum +
         ")::bigint, pg_current_snapshot() || ',' ||"
         " coalesce(pg_current_xact_id_if_assigned()::text, '') FROM queue WHERE id = $1::int";
}

/// The messages as they were at one time, and what was promised at that time.
std::optional<std::uint64_t> Segments::count(Server& server, std::uint64_t limit) {
  const std::string promises = Promises::statement(returned());
  for (int left = kMostCounts;; --left) {
    if (!refresh(server)) return std::nullopt;
    server.add(promises);
    server.add(countStatement(), Parameters().add(m_queue));
    server.add(promises);
    const std::vector<Reply> replies = server.run();
    const Reply& counted = *(replies.end() - 2);
    if (counted.rows() == 0 || counted.number(0, 0) != m_version) {
      forget();
      continue;
    }
    const Promises before(*(replies.end() - 3)), after(replies.back());
    const auto there = static_cast<std::uint64_t>(counted.number(0, 1));
    const std::uint64_t about = there + Promises::about(before, after);
    if (about <= limit / 2 || left == 0) return about;
    if (const auto promised = Promises::between(before, counted.bytes(0, 2), after))
      return there + *promised;
  }
}

/// The database counts what is put and deleted anyway, and tells it up to a second later; what was
/// backed out is counted, too. Who uses the queue holds a lock on it (see PostgresQueue::noteUse).
QueueFigures Segments::figures(Server& server) {
  const std::string promises = Promises::statement(returned());
  server.add("SELECT coalesce(sum(n_tup_ins), 0)::bigint, coalesce(sum(n_tup_del), 0)::bigint"
             " FROM pg_stat_user_tables WHERE schemaname = current_schema() AND relname ~ $1::text",
             Parameters().add("^messages_" + number(m_queue) + "_[0-9]+$"));
  server.add(
      "SELECT count(*) FILTER (WHERE objid = $1::int * 2),"
      " count(*) FILTER (WHERE objid = $1::int * 2 + 1) FROM pg_locks"
      " WHERE locktype = 'advisory' AND objsubid = 2 AND classid = 'floor'::regclass::oid AND"
      " database = (SELECT d.oid FROM pg_database d WHERE d.datname = current_database())",
      Parameters().add(m_queue));
  server.add(promises);
  const std::vector<Reply> replies = server.run();
  const Reply &counts = *(replies.end() - 3), &users = *(replies.end() - 2);
  QueueFigures figures;
  figures.puts = static_cast<std::uint64_t>(counts.number(0, 0));
  figures.gets = static_cast<std::uint64_t>(counts.number(0, 1));
  figures.readers = static_cast<std::uint64_t>(users.number(0, 0));
  figures.writers = static_cast<std::uint64_t>(users.number(0, 1));
  const Promises promised(replies.back());
  figures.uncommitted = Promises::about(promised, promised);
  return figures;
}

} // namespace bxm
