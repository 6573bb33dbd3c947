#include "manager/admin/top_screen.h"

#include "manager/admin/report.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <ctime>
#include <curses.h>
#include <fmt/chrono.h>
#include <fmt/format.h>

namespace bxm::admin {

namespace {

constexpr int kHeadLines = 2, kFootLines = 1;
constexpr short kGraphColour = 1, kRemarkColour = 2;
constexpr std::size_t kLeastName = 12, kMostName = 48, kLeastGraph = 8;

std::string ageOf(const QueueView& row) { return row.oldestAge ? duration(*row.oldestAge) : "-"; }

std::string figuresOf(const QueueView& row) {
  const double part =
      row.maxDepth ? 100.0 * static_cast<double>(row.depth) / static_cast<double>(row.maxDepth)
                   : 100;
  return fmt::format("{:>10} {:>3.0f}% {:>8.0f} {:>8.0f} {:>3} {:>3} {:>5} {:>7}", row.depth, part,
                     row.putRate, row.getRate, row.readers, row.writers, row.uncommitted,
                     ageOf(row));
}

constexpr const char* kHeads = "     DEPTH FULL    PUT/S    GET/S  RD  WR UNCOM  OLDEST";

/// How wide the parts of a line are; the graph only where there is room.
struct Widths {
  explicit Widths(std::size_t width, const std::vector<QueueView>& rows) {
    std::size_t longest = kLeastName;
    for (const QueueView& row : rows) longest = std::max(longest, row.name.size());
    const std::size_t others = std::string_view(kHeads).size() + 1 + kRemark;
    name =
        std::clamp(width > others ? width - others : 0, kLeastName, std::min(longest, kMostName));
    const std::size_t left = width > name + others + 1 ? width - name - others - 1 : 0;
    graph = left >= kLeastGraph ? std::min(left, ManagerWatch::kMostDepths) : 0;
  }
  static constexpr std::size_t kRemark = 7;
  std::size_t name, graph = 0;
};

std::size_t rowsOfAPage() {
  return static_cast<std::size_t>(std::max(LINES - kHeadLines - kFootLines, 1));
}

void line(int at, const std::string& text) {
  ::move(at, 0);
  ::clrtoeol();
  ::addnstr(text.c_str(), static_cast<int>(text.size()));
}

} // namespace

std::string graphOf(const std::deque<std::uint64_t>& values, std::size_t width) {
  static constexpr const char* kBars[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  std::uint64_t most = 1;
  const std::size_t count = std::min(values.size(), width);
  for (std::size_t i = values.size() - count; i < values.size(); ++i)
    most = std::max(most, values[i]);
  std::string graph(width - count, ' ');
  for (std::size_t i = values.size() - count; i < values.size(); ++i)
    graph += kBars[(values[i] * 8 + most - 1) / most];
  return graph;
}

std::unique_ptr<TopScreen> TopScreen::open() {
  std::setlocale(LC_CTYPE, "");
  if (!::newterm(nullptr, stdout, stdin)) return nullptr;
  ::cbreak();
  ::noecho();
  ::keypad(stdscr, true);
  ::curs_set(0);
  if (showsColours() && ::has_colors()) {
    ::start_color();
    ::use_default_colors();
    ::init_pair(kGraphColour, COLOR_CYAN, -1);
    ::init_pair(kRemarkColour, COLOR_YELLOW, -1);
  }
  return std::unique_ptr<TopScreen>(new TopScreen);
}

TopScreen::~TopScreen() { ::endwin(); }

void TopScreen::show(const std::string& manager, std::vector<QueueView> rows) {
  m_manager = manager;
  m_rows = std::move(rows);
  m_fault.clear();
  arrange();
}

void TopScreen::showFault(const std::string& text) {
  m_fault = text;
  m_rows.clear();
  draw();
}

/// Sorted, and scrolled no further than to the last row, then drawn.
void TopScreen::arrange() {
  const std::size_t page = rowsOfAPage();
  m_first = std::min(m_first, m_rows.size() > page ? m_rows.size() - page : 0);
  std::stable_sort(m_rows.begin(), m_rows.end(), [this](const QueueView& a, const QueueView& b) {
    switch (m_order) {
    case 'd': return a.depth > b.depth;
    case 'p': return a.putRate > b.putRate;
    case 'g': return a.getRate > b.getRate;
    case 'o': return a.oldestAge.value_or(-1) > b.oldestAge.value_or(-1);
    default: return a.name < b.name;
    }
  });
  draw();
}

void TopScreen::draw() const {
  int height = 0, width = 0;
  getmaxyx(stdscr, height, width);
  ::erase();
  std::uint64_t messages = 0;
  double puts = 0, gets = 0;
  for (const QueueView& row : m_rows) {
    messages += row.depth;
    puts += row.putRate;
    gets += row.getRate;
  }
  const auto now = fmt::localtime(std::time(nullptr));
  ::attron(A_BOLD);
  line(0, fmt::format("{}  {:%H:%M:%S}  {}, {}, {:.0f} put/s, {:.0f} get/s", m_manager, now,
                      counted(m_rows.size(), "queue"), counted(messages, "message"), puts, gets));
  ::attroff(A_BOLD);
  if (m_fault.empty())
    drawRows(height, width);
  else
    line(kHeadLines, m_fault);
  line(height - 1, "q quit  sort by n name, d depth, p put/s, g get/s, o oldest  arrows scroll");
  ::refresh();
}

void TopScreen::drawRows(int height, int width) const {
  const Widths widths(static_cast<std::size_t>(width), m_rows);
  ::attron(A_REVERSE);
  line(1, fmt::format("{:<{}}{} {:<{}}{:>{}}", "QUEUE", widths.name, kHeads, "", Widths::kRemark,
                      widths.graph ? "DEPTH SO FAR" : "", widths.graph ? widths.graph : 0));
  ::attroff(A_REVERSE);
  const int room = height - kHeadLines - kFootLines;
  for (int i = 0; i < room && m_first + static_cast<std::size_t>(i) < m_rows.size(); ++i) {
    const QueueView& row = m_rows[m_first + static_cast<std::size_t>(i)];
    const attr_t remarkable =
        row.remark().empty() ? A_NORMAL : A_BOLD | static_cast<attr_t>(COLOR_PAIR(kRemarkColour));
    ::attron(remarkable);
    line(kHeadLines + i, fmt::format("{:<{}.{}}{} {:<{}}", row.name, widths.name, widths.name,
                                     figuresOf(row), row.remark(), Widths::kRemark));
    ::attroff(remarkable);
    ::attron(COLOR_PAIR(kGraphColour));
    ::addstr(graphOf(row.depths, widths.graph).c_str());
    ::attroff(COLOR_PAIR(kGraphColour));
  }
}

bool TopScreen::take(int key) {
  switch (key) {
  case 'q': return false;
  case KEY_DOWN: ++m_first; break;
  case KEY_UP: m_first -= m_first > 0 ? 1 : 0; break;
  case KEY_NPAGE: m_first += rowsOfAPage(); break;
  case KEY_PPAGE: m_first -= std::min(m_first, rowsOfAPage()); break;
  case KEY_HOME: m_first = 0; break;
  case KEY_END: m_first = m_rows.size(); break;
  case 'n':
  case 'd':
  case 'p':
  case 'g':
  case 'o': m_order = static_cast<char>(key); break;
  default: break; // also KEY_RESIZE
  }
  arrange();
  return true;
}

bool TopScreen::waitUntil(std::chrono::steady_clock::time_point until) {
  using namespace std::chrono;
  for (;;) {
    const auto left = duration_cast<milliseconds>(until - steady_clock::now()).count();
    if (left <= 0) return true;
    ::timeout(static_cast<int>(left));
    const int key = ::getch();
    if (key != ERR && !take(key)) return false;
  }
}

} // namespace bxm::admin
