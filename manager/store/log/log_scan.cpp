#include "manager/store/log/log_scan.h"

#include <algorithm>

namespace bxm {

LogScan::LogScan(const File& file, std::uint32_t number, std::uint64_t storeId)
    : m_number(number), m_storeId(storeId) {
  const std::uint64_t size = file.size();
  m_buffer = std::make_unique_for_overwrite<char[]>(size);
  const std::string_view bytes(m_buffer.get(), file.read(m_buffer.get(), size, 0));
  m_bytes = bytes;
  const auto header = decodeFileHeader(bytes, number, storeId);
  const auto seal = decodeSeal(bytes.substr(std::min<std::size_t>(kSealAt, bytes.size())));
  m_hasHeader = header.has_value();
  if (header) m_generation = header->generation;
  // A seal is of the present use, since the file's header is written over it; but perhaps it is
  // another file's.
  else if (seal && RecordView::at(bytes.substr(std::min<std::size_t>(kDataStart, bytes.size())),
                                  {number, kDataStart}, storeId, seal->generation))
    m_generation = seal->generation;
  if (seal && seal->generation == m_generation) m_sealed = seal->end;
}

std::optional<RecordView> LogScan::at(std::uint32_t offset) const {
  if (offset >= m_bytes.size()) return std::nullopt;
  return RecordView::at(m_bytes.substr(offset), {m_number, offset}, m_storeId, m_generation);
}

/// Where the next record begins behind a place; 0 when there is none.
std::uint32_t LogScan::nextRecord(std::uint32_t from) const {
  constexpr char kMagic[] = {'B', 'X', 'L', 'R'};
  const std::string_view magic(kMagic, sizeof kMagic);
  for (std::size_t i = m_bytes.find(magic, from); i != std::string_view::npos;
       i = m_bytes.find(magic, i + 1))
    if (i % 8 == 0 && at(static_cast<std::uint32_t>(i))) return static_cast<std::uint32_t>(i);
  return 0;
}

std::uint32_t LogScan::run(const Visit& visit, const Damaged& damaged) const {
  std::uint32_t end = kDataStart;
  for (std::uint32_t offset = kDataStart; offset < m_bytes.size();) {
    const auto record = at(offset);
    if (!record) {
      const std::uint32_t next = nextRecord(offset);
      if (next == 0) break;
      damaged(offset, next);
      offset = next;
      continue;
    }
    const std::uint32_t behind = offset + record->header().length;
    const Known known = behind <= m_sealed       ? Known::kSealed
                        : nextRecord(behind) > 0 ? Known::kFollowed
                                                 : Known::kLast;
    visit(*record, known);
    if (known != Known::kLast || record->isWhole()) end = behind;
    offset = behind;
  }
  if (m_sealed > end) damaged(end, m_sealed);
  return std::max(end, m_sealed);
}

} // namespace bxm
