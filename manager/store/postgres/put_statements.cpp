#include "manager/store/postgres/put_statements.h"

#include "manager/store/message.h"

#include <algorithm>
#include <utility>

namespace bxm {

namespace {

/// What travels at once.
constexpr std::size_t kMostBytes = 4 << 20;
/// Numbers of messages within a statement have 20 bits.
constexpr std::int32_t kMostMessages = 100'000;

std::string insertInto(const std::string& table) {
  return "INSERT INTO " + table +
         " (priority, sequence, expires, stored)"
         " SELECT p, (SELECT nextval('unit_number')) << 20 | n, e, s"
         " FROM unnest($3::smallint[], $4::bigint[], $5::bytea[]) WITH ORDINALITY AS m(p, e, s, n)"
         " WHERE EXISTS (SELECT FROM queue WHERE id = $1::int AND version = $2::int)";
}

} // namespace

void PutStatements::add(const PutBatch::Entry& entry) {
  Chunk& chunk = m_chunks[entry.queue];
  chunk.priorities.add(static_cast<std::int16_t>(entry.priority));
  if (const std::int64_t expiry = messageExpiry(entry.stored))
    chunk.expiries.add(expiry);
  else
    chunk.expiries.addNull();
  chunk.stored.add(entry.stored);
  Width& width = m_widths[entry.queue];
  width.priorities |= 1 << entry.priority;
  width.longest = std::max(width.longest, messageData(entry.stored).size());
  m_bytes += entry.stored.size() + 30;
  if (m_bytes >= kMostBytes || chunk.stored.size() >= kMostMessages) send();
}

/// What is known of a queue may be out of date: then its statement has stored nothing, and is sent
/// again.
void PutStatements::send() {
  std::map<std::uint32_t, Parameters> chunks;
  for (auto& [id, chunk] : std::exchange(m_chunks, {}))
    chunks[id]
        .addRaw(chunk.priorities.take())
        .addRaw(chunk.expiries.take())
        .addRaw(chunk.stored.take());
  // The server's time limit counts while it receives: a large message may take a slow network long.
  if (m_bytes > 2 * kMostBytes) m_server.add("SET LOCAL statement_timeout = '10min'");
  m_bytes = 0;
  while (!m_gone && !chunks.empty()) {
    for (const auto& [id, parameters] : chunks)
      if (!m_find(id).refresh(m_server)) {
        m_gone = true;
        return;
      }
    for (const auto& [id, parameters] : chunks) {
      Segments& segments = m_find(id).segments();
      Parameters all;
      all.add(static_cast<std::int32_t>(id)).add(segments.version());
      for (const std::string& value : parameters.values()) all.addRaw(value);
      m_server.add(insertInto(segments.tableOf(segments.last())), all);
    }
    const std::vector<Reply> replies = m_server.run();
    for (const Reply& reply : replies)
      if (reply.columns() == 2) m_transaction = reply.text(0, 1);
    auto reply = replies.end() - static_cast<std::ptrdiff_t>(chunks.size());
    for (auto chunk = chunks.begin(); chunk != chunks.end(); ++reply)
      if (reply->command() == "INSERT 0 0") {
        m_find((chunk++)->first).segments().forget();
      } else {
        chunk = chunks.erase(chunk);
      }
  }
}

/// Readers look only where they know that something may be.
void PutStatements::widen() {
  bool any = false;
  for (const auto& [id, width] : m_widths) {
    Segments& segments = m_find(id).segments();
    const Segment& last = segments.last();
    if ((last.priorities | width.priorities) == last.priorities && width.longest <= last.longest)
      continue;
    m_server.add("SELECT widen($1::int, $2::int, $3::int, $4::int)",
                 Parameters()
                     .add(static_cast<std::int32_t>(id))
                     .add(last.number)
                     .add(width.priorities)
                     .add(static_cast<std::int32_t>(width.longest)));
    segments.forget();
    any = true;
  }
  if (any) m_server.run();
}

bool PutStatements::finish() {
  send();
  if (m_gone) return false;
  widen();
  return true;
}

} // namespace bxm
