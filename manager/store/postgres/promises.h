#pragma once

#include "manager/store/postgres/server.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

/// What units of work in progress will put. Each tells it by locks that end with its transaction,
/// on the queue's returned_Q: their numbers hold 20 bits of the transaction's, 7 of a count, and 5
/// that say how many puts, as a power of two.
namespace bxm {

constexpr int kMostPromises = 127; ///< of one unit of work and queue

/// Appends the statement by which the open transaction tells of 2 to exponent puts more.
void promisePuts(Server& server, const std::string& returned, int count, int exponent);

/// The locks at one time.
class Promises {
public:
  static std::string statement(const std::string& returned);
  explicit Promises(const Reply& reply);

  /// How many puts were promised when the database looked as a snapshot says (with the transaction
  /// that looks among those in progress), by two looks around it; nullopt when somebody came and
  /// went between these.
  static std::optional<std::uint64_t> between(const Promises& before, std::string_view snapshot,
                                              const Promises& after);

  /// About how many, where that is enough: all that either look saw.
  static std::uint64_t about(const Promises& before, const Promises& after);

private:
  std::set<std::int64_t> m_keys, m_transactions;
};

} // namespace bxm
