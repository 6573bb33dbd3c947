#pragma once

#include "manager/store/log/log_files.h"

#include <functional>
#include <string_view>
#include <vector>

namespace bxm {

/// Appends one connection's units of work to log files of its own. One thread at a time; whoever
/// writes holds mutex().
class LogWriter {
public:
  LogWriter(LogFiles& files, std::uint32_t connection) : m_files(files), m_connection(connection) {}
  ~LogWriter() { close(); }
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  std::mutex& mutex() { return m_mutex; }

  /// Calls its argument for each run of whole items, last with the one that none follows.
  using Runs =
      std::function<void(const std::function<void(std::string_view run, bool last)>& visit)>;
  struct Unit {
    std::uint64_t number = 0;
    const std::vector<TakeGroup>& takes; ///< none larger than kMostTakes
    const Runs& runs;
    /// Is told each piece's place before that is written, for who finds the process dead.
    std::atomic<std::uint64_t>* place = nullptr;
  };
  static constexpr std::size_t kMostTakes = 8192;

  enum class Result { kDone, kFailed, kUnknown };
  /// Writes a unit of work and waits for the disk. kFailed: it is not there, reason says why;
  /// kUnknown: the disk failed so that nobody knows. After kDone, done() is to be called when the
  /// unit's messages are in the index: until then nobody takes the files for empty.
  Result write(const Unit& unit, BXLONG& reason);
  void done();
  /// Lets go of all files. False when the disk failed: who recovers the connection goes on.
  bool close();
  /// Leaves them to who recovers the connection.
  void abandon();

  /// Where the items of the unit stand, in the order of the runs.
  struct Piece {
    Place record;
    Place items;
    std::uint32_t size = 0; ///< bytes
    std::uint32_t count = 0;
    Generation generation = 0;
  };
  const std::vector<Piece>& pieces() const { return m_pieces; }

private:
  struct Rest; ///< of a unit, what is not written yet
  void writePieces(const Unit& unit);
  void writePiece(const Unit& unit, Rest& rest);
  void makeRoomFor(const Unit& unit, const Rest& rest);
  void chooseTakes(const Unit& unit, Rest& rest, std::size_t room);
  void chooseItems(Rest& rest, std::size_t room);
  RecordHeader headerOf(const Unit& unit, const Rest& rest, Place place, bool final) const;
  void makeRoom(std::uint64_t number, std::uint32_t needed, std::size_t wanted, bool forTakes);
  void append(const RecordHeader& header, std::string_view items, Place place);
  void zeroAhead(FileSlot& slot, std::uint32_t length) const;
  void flush();
  void expectInPlace() const;
  bool voidFinal();
  void forget();
  bool releaseFull();
  void letGo();
  int seal(const LogFiles::Owned& owned) const;
  FileSlot& slotOf(const LogFiles::Owned& owned) const {
    return m_files.runtime().file(owned.number);
  }

  LogFiles& m_files;
  const std::uint32_t m_connection;
  std::mutex m_mutex;
  LogFiles::Owned m_owned;             ///< appended to; without a file at first
  std::vector<LogFiles::Owned> m_held; ///< full, but the unit is not in the index yet
  std::vector<LogFiles::Owned> m_full; ///< of earlier units, to be sealed
  bool m_left = false;                 ///< files that could not be let go of in order
  std::vector<Piece> m_pieces;
  std::string m_buffer;
  std::uint64_t m_previous = 0; ///< the unit's last piece, packed
  std::uint16_t m_count = 0;    ///< of the unit's pieces
  bool m_unflushed = false;
  bool m_finalWritten = false;
};

} // namespace bxm
