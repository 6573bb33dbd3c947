#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace faults {

/// What a recorded program has been promised about its one queue, as its marks tell it: "try" with
/// the gets (-name) and puts (+name) of a unit of work, "did" when its commit has returned. A get
/// without a unit of work tells its message with "did". Names that begin with kKept or later have a
/// lower priority than others.
class Promises {
public:
  static constexpr char kKept = 'x';
  explicit Promises(bool syncFull) : m_syncFull(syncFull) {}

  void mark(const std::string& text, std::int64_t micros);
  /// What is wrong with the messages that are found after a cut; empty when nothing is.
  std::string faultOf(const std::vector<std::string>& found, std::int64_t micros);
  /// The most messages that came back after a cut.
  std::size_t mostBack() const { return m_mostBack; }

private:
  using Names = std::vector<std::string>;
  struct Got {
    std::string name;
    std::int64_t micros;
  };
  static void append(Names& order, const Names& names);
  static Names with(char sign, const Names& words);
  static bool contains(const Names& names, const std::string& name);
  std::string orderFault(const Names& found) const;
  bool mayBeGone(const std::string& name, bool unitCounts) const;
  std::string backFault(const Names& back, std::int64_t micros);

  bool m_syncFull;
  bool m_trying = false;
  Names m_puts, m_gets;        ///< of what is tried
  Names m_there, m_everything; ///< not got for good; ever put
  std::vector<Got> m_mayComeBack;
  std::size_t m_mostBack = 0;
};

} // namespace faults
