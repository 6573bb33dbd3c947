// floor load|peek|read FILE: moves lines between the standard streams and a file, with nothing
// around it: what no store can be faster than.
//   load  lines from standard input; each MiB of them is written and flushed
//   peek  lines to standard output, in blocks
//   read  lines to standard output, one write each
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kBlock = 1 << 20;

void expect(bool good, const char* what) {
  if (good) return;
  std::perror(what);
  std::exit(1);
}

void writeAll(int file, std::string_view bytes) {
  expect(::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
}

/// Calls visit with each line of a stream, its end included; returns their number.
template <typename Visit>
unsigned long forEachLine(std::FILE* in, Visit visit) {
  char* line = nullptr;
  std::size_t room = 0;
  unsigned long count = 0;
  for (ssize_t size; (size = ::getline(&line, &room, in)) > 0; ++count)
    visit(std::string_view(line, static_cast<std::size_t>(size)));
  return count;
}

unsigned long load(int file) {
  struct stat input {};
  expect(::fstat(STDIN_FILENO, &input) == 0, "fstat");
  expect(::posix_fallocate(file, 0, input.st_size) == 0, "posix_fallocate");
  std::string block;
  const auto flush = [&] {
    writeAll(file, block);
    expect(::fdatasync(file) == 0, "fdatasync");
    block.clear();
  };
  const unsigned long count = forEachLine(stdin, [&](std::string_view line) {
    if (block.size() + line.size() > kBlock) flush();
    block += line;
  });
  flush();
  return count;
}

} // namespace

int main(int count, char** values) {
  if (count < 3) return 2;
  const std::string work = values[1];
  const int file = ::open(values[2], work == "load" ? O_RDWR | O_CREAT | O_TRUNC : O_RDONLY, 0600);
  expect(file >= 0, values[2]);
  if (work == "load") {
    std::fprintf(stderr, "(%lu) Records Sent.\n", load(file));
    return 0;
  }
  const unsigned long lines = forEachLine(::fdopen(file, "r"), [&](std::string_view line) {
    if (work == "read")
      writeAll(STDOUT_FILENO, line);
    else
      std::fwrite(line.data(), 1, line.size(), stdout);
  });
  std::fprintf(stderr, "(%lu) Records Received.\n", lines);
  return std::fflush(stdout);
}
