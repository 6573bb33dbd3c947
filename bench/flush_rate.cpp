// flush_rate FILE COUNT: overwrites 4 KiB of a file and flushes it, again and again. Prints the
// mean time of one flush in seconds: what the disk asks for a durable commit at least.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

constexpr std::size_t kBlock = 4096;
constexpr int kBlocks = 256;

bool overwrite(int file, int number) {
  const std::string block(kBlock, static_cast<char>('a' + number % 26));
  const off_t offset = static_cast<off_t>(kBlock) * (number % kBlocks);
  return ::pwrite(file, block.data(), kBlock, offset) == static_cast<ssize_t>(kBlock);
}

} // namespace

int main(int count, char** values) {
  if (count < 3) return 2;
  const int file = ::open(values[1], O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const int flushes = std::atoi(values[2]);
  if (file < 0 || flushes <= 0) return 1;
  for (int i = 0; i < kBlocks; ++i)
    if (!overwrite(file, i)) return 1;
  if (::fsync(file) != 0) return 1;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < flushes; ++i)
    if (!overwrite(file, i) || ::fdatasync(file) != 0) return 1;
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  std::printf("%.9f\n", took.count() / flushes);
}
