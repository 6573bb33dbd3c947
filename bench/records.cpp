// records make COUNT SIZE [EDGE]: writes records of SIZE bytes, line end included.
// records sink COUNT [EDGE]: reads that many lines and drops them.
//
// With EDGE both print to standard error how many seconds the first and the last EDGE records
// took: at the other end of a pipe, that is the pace of who reads or writes there.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kBlock = 64 << 10;

/// Notes the time at which the first edge ends and the last one begins.
class Pace {
public:
  Pace(std::uint64_t count, std::uint64_t edge) : m_count(count), m_edge(edge) {}

  void at(std::uint64_t done) {
    if (m_edge == 0) return;
    const auto now = Clock::now();
    if (done <= m_edge) m_firstEnds = now;
    if (done <= m_count - m_edge) m_lastBegins = now;
    if (done >= m_count) report(now);
  }

private:
  void report(Clock::time_point end) const {
    const std::chrono::duration<double> first = m_firstEnds - m_begin, last = end - m_lastBegins;
    std::fprintf(stderr, "%.6f %.6f\n", first.count(), last.count());
  }

  std::uint64_t m_count, m_edge;
  Clock::time_point m_begin = Clock::now(), m_firstEnds = m_begin, m_lastBegins = m_begin;
};

/// A record: its number, and letters that differ from one to the next.
void fill(char* record, std::size_t size, std::uint64_t number) {
  static const std::string kLetters =
      "the quick brown fox jumps over the lazy dog 0123456789 THE QUICK BROWN FOX JUMPS ";
  for (std::size_t at = 0; at + 1 < size; at += kLetters.size())
    std::memcpy(record + at, kLetters.data(), std::min(kLetters.size(), size - 1 - at));
  for (std::size_t at = std::min<std::size_t>(10, size - 1); at-- > 0; number /= 10)
    record[at] = static_cast<char>('0' + number % 10);
  record[size - 1] = '\n';
}

bool writeAll(const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(STDOUT_FILENO, data, size);
    if (written <= 0) return false;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

bool make(std::uint64_t count, std::size_t size, Pace pace) {
  const std::uint64_t perBlock = std::max<std::uint64_t>(kBlock / size, 1);
  std::string block(perBlock * size, '\0');
  for (std::uint64_t done = 0; done < count;) {
    const std::uint64_t records = std::min(perBlock, count - done);
    for (std::uint64_t i = 0; i < records; ++i) fill(block.data() + i * size, size, done + i);
    if (!writeAll(block.data(), records * size)) return false;
    done += records;
    pace.at(done);
  }
  return true;
}

bool sink(std::uint64_t count, Pace pace) {
  std::string block(kBlock, '\0');
  std::uint64_t done = 0;
  for (ssize_t got; (got = ::read(STDIN_FILENO, block.data(), block.size())) > 0;) {
    done += static_cast<std::uint64_t>(std::count(block.data(), block.data() + got, '\n'));
    pace.at(done);
  }
  return done == count;
}

} // namespace

int main(int count, char** values) {
  const auto number = [&](int at) {
    return at < count ? std::strtoull(values[at], nullptr, 10) : 0ULL;
  };
  const std::string verb = count > 1 ? values[1] : "";
  const std::uint64_t records = number(2);
  if (verb == "make" && number(3) > 1)
    return make(records, number(3), Pace(records, number(4))) ? 0 : 1;
  if (verb == "sink") return sink(records, Pace(records, number(3))) ? 0 : 1;
  std::fputs("records make COUNT SIZE [EDGE] | sink COUNT [EDGE]\n", stderr);
  return 2;
}
