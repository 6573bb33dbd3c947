#pragma once

#include "manager/store/log/folder.h"
#include "manager/store/log/format.h"

#include <functional>
#include <memory>
#include <string_view>

namespace bxm {

/// Goes through the records of one log file that is in memory as a whole. What is damaged is passed
/// over: the next record is looked for behind it.
class LogScan {
public:
  LogScan(const File& file, std::uint32_t number, std::uint64_t storeId);

  bool hasHeader() const { return m_hasHeader; }
  /// 0 when the file's header is damaged and nothing else tells: then records of any of its uses
  /// are visited.
  Generation generation() const { return m_generation; }
  std::uint64_t size() const { return m_bytes.size(); }

  /// What is known of a record beside what it says.
  enum class Known {
    kSealed,   ///< it counts
    kFollowed, ///< it was flushed
    kLast,     ///< it may be what a power cut left of a commit
  };
  /// Visits the records in their order. Returns where they end, without a last one that is not
  /// whole.
  using Visit = std::function<void(const RecordView& record, Known known)>;
  /// Is told of pieces of the file that were written, and are no records any more.
  using Damaged = std::function<void(std::uint32_t begin, std::uint32_t end)>;
  std::uint32_t sealed() const { return m_sealed; }
  std::uint32_t run(const Visit& visit, const Damaged& damaged) const;

private:
  std::uint32_t nextRecord(std::uint32_t from) const;
  std::optional<RecordView> at(std::uint32_t offset) const;

  const std::uint32_t m_number;
  const std::uint64_t m_storeId;
  std::unique_ptr<char[]> m_buffer;
  std::string_view m_bytes;
  bool m_hasHeader = false;
  Generation m_generation = 0;
  std::uint32_t m_sealed = 0; ///< up to here all was flushed
};

} // namespace bxm
