#pragma once

#include "manager/view/manager_watch.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace bxm::admin {

/// The figures on a whole terminal, with keys to scroll and sort. One at a time.
class TopScreen {
public:
  /// Null where the terminal cannot do it.
  static std::unique_ptr<TopScreen> open();
  ~TopScreen(); ///< the terminal is as it was
  TopScreen(const TopScreen&) = delete;
  TopScreen& operator=(const TopScreen&) = delete;

  void show(const std::string& manager, std::vector<QueueView> rows);
  /// Instead of figures, for now.
  void showFault(const std::string& text);
  /// Draws anew as keys and the terminal's size want it. False when the user has had enough.
  bool waitUntil(std::chrono::steady_clock::time_point until);

private:
  TopScreen() = default;
  void draw() const;
  void drawRows(int height, int width) const;
  void arrange();
  bool take(int key);

  std::string m_manager, m_fault;
  std::vector<QueueView> m_rows;
  char m_order = 'n';
  std::size_t m_first = 0; ///< row that is shown at the top
};

/// A graph of one line: the latest values, width of them, as bars of eight heights.
std::string graphOf(const std::deque<std::uint64_t>& values, std::size_t width);

} // namespace bxm::admin
