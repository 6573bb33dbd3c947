#include "manager/store/postgres/promises.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace bxm {

namespace {

constexpr std::int64_t kTransactionBits = (1 << 20) - 1;

std::uint64_t putsOf(std::int64_t key) { return std::uint64_t{1} << (key & 31); }

/// "next:end:one,two": all before next are over, those listed and all from end on are not.
struct Snapshot {
  explicit Snapshot(std::string_view text) {
    std::vector<std::int64_t> numbers;
    for (const char *p = text.data(), *end = p + text.size(); p < end; ++p) {
      std::int64_t number = 0;
      const auto [behind, error] = std::from_chars(p, end, number);
      if (error == std::errc()) numbers.push_back(number);
      p = behind;
    }
    if (numbers.size() < 2) return;
    m_end = numbers[1];
    m_open.insert(numbers.begin() + 2, numbers.end());
  }
  /// By the lower bits of the transaction's number, which is not far from the end's.
  std::int64_t whole(std::int64_t key) const {
    const std::int64_t bits = key >> 12 & kTransactionBits;
    std::int64_t number = (m_end & ~kTransactionBits) | bits;
    if (number > m_end + kTransactionBits / 2) number -= kTransactionBits + 1;
    if (number < m_end - kTransactionBits / 2) number += kTransactionBits + 1;
    return number;
  }

  std::int64_t m_end = 0;
  std::set<std::int64_t> m_open;
};

} // namespace

void promisePuts(Server& server, const std::string& returned, int count, int exponent) {
  server.add("SELECT pg_advisory_xact_lock_shared(lock_class($1::text::regclass),"
             " ((pg_current_xact_id()::text::bigint & 1048575) << 12 | $2::int)::bit(32)::int)",
             Parameters().add(returned).add(count << 5 | exponent));
}

std::string Promises::statement(const std::string& returned) {
  return "SELECT CASE WHEN locktype = 'advisory' THEN objid::bigint END, "
         "transactionid::text::bigint"
         " FROM pg_locks WHERE locktype = 'transactionid' AND granted"
         " OR locktype = 'advisory' AND objsubid = 2 AND classid = '" +
         returned +
         "'::regclass::oid AND database ="
         " (SELECT d.oid FROM pg_database d WHERE d.datname = current_database())";
}

Promises::Promises(const Reply& reply) {
  for (int row = 0; row < reply.rows(); ++row)
    if (reply.isNull(row, 0))
      m_transactions.insert(reply.number(row, 1));
    else
      m_keys.insert(reply.number(row, 0));
}

std::uint64_t Promises::about(const Promises& before, const Promises& after) {
  std::set<std::int64_t> keys = before.m_keys;
  keys.insert(after.m_keys.begin(), after.m_keys.end());
  std::uint64_t sum = 0;
  for (const std::int64_t key : keys) sum += putsOf(key);
  return sum;
}

std::optional<std::uint64_t> Promises::between(const Promises& before, std::string_view snapshot,
                                               const Promises& after) {
  const Snapshot seen(snapshot);
  std::set<std::int64_t> keys = before.m_keys, tell;
  keys.insert(after.m_keys.begin(), after.m_keys.end());
  std::uint64_t sum = 0;
  for (const std::int64_t key : keys) {
    const std::int64_t transaction = seen.whole(key);
    tell.insert(transaction & 0xFFFFFFFF);
    const bool isLater = transaction >= seen.m_end;
    if (isLater && !before.m_keys.contains(key)) return std::nullopt; // before or after the look?
    if (isLater || seen.m_open.contains(transaction)) sum += putsOf(key);
  }
  // One that was in progress, tells nothing and is over by now may have told something.
  const auto isKnown = [&](std::int64_t transaction) {
    const std::int64_t number = transaction & 0xFFFFFFFF;
    return tell.contains(number) || after.m_transactions.contains(number);
  };
  if (!std::all_of(seen.m_open.begin(), seen.m_open.end(), isKnown)) return std::nullopt;
  return sum;
}

} // namespace bxm
