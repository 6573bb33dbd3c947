#pragma once

#include "manager/store/postgres/postgres_queue.h"
#include "manager/store/put_batch.h"

#include <functional>
#include <map>
#include <string>

namespace bxm {

/// Stores a unit of work's messages in as few journeys as there are some megabytes. Goes on with a
/// transaction that has begun its commit; whatever it throws, that one cannot go on.
class PutStatements {
public:
  using Find = std::function<PostgresQueue&(std::uint32_t id)>;
  PutStatements(Server& server, Find find) : m_server(server), m_find(std::move(find)) {}

  void add(const PutBatch::Entry& entry);
  /// Sends the rest. False when one of the queues has been deleted.
  bool finish();
  /// What the server calls the transaction; known at the end.
  const std::string& transaction() const { return m_transaction; }

private:
  struct Chunk { ///< what one statement stores
    ArrayOf priorities{ArrayOf::Element::kInt2};
    ArrayOf expiries{ArrayOf::Element::kInt8};
    ArrayOf stored{ArrayOf::Element::kBytea};
  };
  struct Width { ///< of all that is put to a queue
    int priorities = 0;
    std::size_t longest = 0;
  };
  void send();
  void widen();

  Server& m_server;
  Find m_find;
  std::map<std::uint32_t, Chunk> m_chunks; ///< by queue
  std::map<std::uint32_t, Width> m_widths;
  std::size_t m_bytes = 0;
  bool m_gone = false;
  std::string m_transaction;
};

} // namespace bxm
