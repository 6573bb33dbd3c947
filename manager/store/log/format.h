#pragma once

#include "manager/store/message.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What is in a log file (docs/storage-format.md tells it with an example): a page with the file's
/// header, then records. A record is one piece of a unit of work: a header, the messages that it
/// took, and the messages that it put. Everything begins at a multiple of eight bytes.
namespace bxm {

constexpr std::uint32_t kFormat = 2;
constexpr std::uint32_t kFileSize = 4 << 20;
/// For a large unit of work a file grows up to here, since each file costs three flushes and each
/// part of a unit one. A file for one message that is larger is as large as it needs.
constexpr std::uint32_t kMostGrown = 16 << 20;
constexpr std::uint32_t kDataStart = 4096;
/// A file used again holds old records with right checksums: what counts carries its generation. A
/// generation is a commit number, so no two uses of any file ever have the same.
using Generation = std::uint64_t;

/// Where in the logs something stands. 48 bits when packed.
struct Place {
  std::uint32_t file = 0;   ///< 24 bits
  std::uint32_t offset = 0; ///< in bytes, a multiple of 8, below 128 MiB
  std::uint64_t packed() const { return (std::uint64_t{file} << 24) | (offset / 8); }
  static Place unpacked(std::uint64_t bits) {
    return {static_cast<std::uint32_t>(bits >> 24) & 0xFFFFFF,
            static_cast<std::uint32_t>(bits & 0xFFFFFF) * 8};
  }
  bool operator==(const Place&) const = default;
};

struct FileHeader {
  char magic[8] = {'B', 'X', 'M', 'L', 'O', 'G', '\n', 0};
  std::uint32_t format = kFormat;
  std::uint32_t file = 0;
  std::uint64_t storeId = 0;
  Generation generation = 0;
  std::uint32_t crc = 0; ///< of all before
  std::uint32_t unused = 0;
};
static_assert(sizeof(FileHeader) == 40);

/// At kSealAt. Written when whoever appended ends: up to here everything was flushed, so what is
/// not whole below is damage and not a commit that the power cut off.
struct Seal {
  Generation generation = 0;
  std::uint32_t end = 0;
  std::uint32_t crc = 0; ///< of all before
};
constexpr std::uint32_t kSealAt = 2048;

struct RecordHeader {
  std::uint32_t magic = kMagic;
  std::uint32_t crc = 0;    ///< of all of the header behind this
  std::uint32_t length = 0; ///< of the record, this header included
  std::uint32_t takesSize = 0;
  std::uint64_t storeId = 0;
  std::uint64_t number = 0; ///< of the commit
  Generation generation = 0;
  std::uint64_t place = 0;    ///< its own: the copy of a record elsewhere is none
  std::uint64_t previous = 0; ///< packed place of the unit's piece before
  std::uint32_t contents = 0; ///< CRC-32C of the takes and of all item headers
  std::uint16_t piece = 0;
  std::uint16_t flags = 0;
  static constexpr std::uint32_t kMagic = 0x524C5842; // "BXLR"
  static constexpr std::uint16_t kFinal = 1; ///< the unit's last piece: with it, it is committed
};
static_assert(sizeof(RecordHeader) == 64);

/// What a copied item holds before its record: the message keeps its place in the order, and a take
/// that names the original counts for the copy.
struct CopyOrigin {
  std::uint64_t number = 0; ///< the commit that put it
  std::uint64_t rank = 0;   ///< piece << 32 | offset / 8 in that commit
  std::uint64_t place = 0;  ///< packed, of what was copied
  Generation generation = 0;
};

/// What is said of messages.
enum class TakeKind : std::uint8_t {
  kTaken = 0,
  kVoid = 1, ///< of a copy: it never counted, what it was made of does
};
/// Messages in one use of one file:
///   file u24 | kind u8 | count u32 | generation u64 | offset / 8 u32 each, zero bytes up to a
///   multiple of 8
struct TakeGroup {
  std::uint32_t file = 0;
  Generation generation = 0;
  std::vector<std::uint32_t> offsets; ///< in bytes
  TakeKind kind = TakeKind::kTaken;
};
void appendTakes(std::string& out, const TakeGroup& group);
std::size_t takesSize(const TakeGroup& group);

std::string encodeFileHeader(std::uint32_t file, std::uint64_t storeId, Generation generation);
/// nullopt when the bytes are no header of this file and store.
std::optional<FileHeader> decodeFileHeader(std::string_view bytes, std::uint32_t file,
                                           std::uint64_t storeId);
Seal makeSeal(Generation generation, std::uint32_t end);
/// nullopt when the bytes are none.
std::optional<Seal> decodeSeal(std::string_view bytes);

/// Completes a header with its checksums.
void sealRecord(RecordHeader& header, std::uint32_t contents);

/// A record in memory whose header was found to be right. What is in it may be damaged.
class RecordView {
public:
  /// nullopt when no record of this store, place and generation (0: any) begins here, or it does
  /// not end within the bytes.
  static std::optional<RecordView> at(std::string_view bytes, Place place, std::uint64_t storeId,
                                      Generation generation);
  /// The same for a header alone, whose record may be longer than the bytes.
  static bool isHeader(const RecordHeader& header, Place place, std::uint64_t storeId,
                       Generation generation);

  const RecordHeader& header() const { return m_header; }
  Place place() const { return Place::unpacked(m_header.place); }

  /// True when takes and item headers are as they were written.
  bool isSound() const;
  /// True when all messages are, too.
  bool isWhole() const;

  /// Of a sound record. Calls visit(file, generation, packed places...) for each group.
  template <typename Visit>
  void forEachTakeGroup(Visit visit) const {
    for (const char *p = m_bytes.data() + sizeof(RecordHeader), *end = p + m_header.takesSize;
         p < end;) {
      TakeGroup group;
      p = readTakes(p, group);
      visit(group);
    }
  }
  /// Of a sound record. Calls visit(place, header, payload).
  template <typename Visit>
  void forEachMessage(Visit visit) const {
    const std::size_t from = sizeof(RecordHeader) + m_header.takesSize;
    const std::string_view items = m_bytes.substr(from);
    forEachItem(items, [&](const ItemHeader& item, std::string_view payload) {
      const auto offset = static_cast<std::uint32_t>(payload.data() - m_bytes.data()) -
                          static_cast<std::uint32_t>(sizeof item);
      visit(Place{place().file, place().offset + offset}, item, payload);
    });
  }

private:
  RecordView(const RecordHeader& header, std::string_view bytes)
      : m_header(header), m_bytes(bytes) {}
  static const char* readTakes(const char* p, TakeGroup& group);

  RecordHeader m_header;
  std::string_view m_bytes; ///< the whole record
};

/// A message's order among all of the manager's: by commit, then within the unit of work.
struct OrderKey {
  std::uint64_t number = 0;
  std::uint64_t rank = 0;
  auto operator<=>(const OrderKey&) const = default;
};
inline std::uint64_t rankOf(const RecordHeader& header, Place place) {
  return (std::uint64_t{header.piece} << 32) | (place.offset / 8);
}
/// Of an item in a record, copied or not.
OrderKey orderOf(const RecordHeader& header, Place place, const ItemHeader& item,
                 std::string_view payload);
/// Of a copied item's payload that is large enough.
CopyOrigin originOf(std::string_view payload);
/// What the item's payload is of a message. Throws Failure 2101 when it is cut short.
std::string_view storedIn(const ItemHeader& item, std::string_view payload);

} // namespace bxm
