#include "manager/admin/report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <unistd.h>
#include <vector>

namespace bxm::admin {

namespace {

std::string textOf(const Json& value) {
  if (value.is_null()) return "-";
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  return value.is_string() ? printable(value.get<std::string>()) : value.dump();
}

std::string headOf(const std::string& key) {
  std::string head = key;
  for (char& c : head) c = c == '_' ? ' ' : static_cast<char>(std::toupper(c));
  return head;
}

/// As a terminal shows it: bytes that continue a character take no room.
std::size_t widthOf(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string padded(const std::string& text, std::size_t width, bool toTheRight) {
  const std::string room(width - std::min(width, widthOf(text)), ' ');
  return toTheRight ? room + text : text + room;
}

struct Column {
  std::string head;
  std::size_t width;
  bool isNumber;
};

void printLine(const std::vector<Column>& columns, const std::vector<std::string>& cells) {
  std::string line;
  for (std::size_t i = 0; i < columns.size(); ++i)
    line += padded(cells[i], columns[i].width, columns[i].isNumber) + "  ";
  line.erase(line.find_last_not_of(' ') + 1);
  std::printf("%s\n", line.c_str());
}

void print(const Json& value) {
  std::printf("%s\n", value.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

} // namespace

void reportRows(const Json& rows, bool json) {
  if (json) return print(rows);
  if (rows.empty()) return;
  std::vector<Column> columns;
  std::vector<std::string> heads;
  for (const auto& [key, value] : rows[0].items()) {
    Column column{headOf(key), key.size(), value.is_number()};
    for (const Json& row : rows) column.width = std::max(column.width, widthOf(textOf(row[key])));
    columns.push_back(column);
    heads.push_back(column.head);
  }
  if (showsColours()) std::fputs("\033[1m", stdout);
  printLine(columns, heads);
  if (showsColours()) std::fputs("\033[0m", stdout);
  for (const Json& row : rows) {
    std::vector<std::string> cells;
    for (const Json& value : row) cells.push_back(textOf(value));
    printLine(columns, cells);
  }
}

void reportOne(const Json& object, bool json) {
  if (json) return print(object);
  std::size_t width = 0;
  for (const auto& [key, value] : object.items()) width = std::max(width, key.size());
  for (const auto& [key, value] : object.items()) {
    std::string head = key;
    std::replace(head.begin(), head.end(), '_', ' ');
    std::printf("%s  %s\n", padded(head, width, false).c_str(), textOf(value).c_str());
  }
}

std::string counted(std::uint64_t count, const std::string& thing) {
  return fmt::format("{} {}{}", count, thing, count == 1 ? "" : "s");
}

std::string duration(std::int64_t milliseconds) {
  constexpr std::int64_t kSecond = 1000, kMinute = 60 * kSecond, kHour = 60 * kMinute;
  const std::int64_t time = std::max<std::int64_t>(milliseconds, 0);
  if (time < kSecond) return fmt::format("{} ms", time);
  if (time < 2 * kMinute) return fmt::format("{} s", time / kSecond);
  if (time < 2 * kHour) return fmt::format("{} min", time / kMinute);
  if (time < 48 * kHour) return fmt::format("{} h", time / kHour);
  return fmt::format("{} d", time / (24 * kHour));
}

std::string printable(std::string text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
    if (byte == 0xC2 && next >= 0x80 && next < 0xA0) text.replace(i, 2, " ");
    if (byte < ' ' || byte == 0x7F) text[i] = ' ';
  }
  return text;
}

bool showsColours() {
  const char* unwanted = std::getenv("NO_COLOR");
  return ::isatty(STDOUT_FILENO) == 1 && !(unwanted && *unwanted);
}

} // namespace bxm::admin
