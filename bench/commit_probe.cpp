// commit_probe QUEUE [-i IN] COMMAND...: while a command runs, puts one record at a time onto a
// queue and commits it. Prints the median, the 99th percentile and the longest time of a commit in
// seconds, and their number.
// commit_probe QUEUE -n COUNT: does that so many times in a row. Prints the mean time.
#include "bench/queue.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBetween{5};

double putAndCommit(Queue& queue) {
  const std::string record(100, 'p');
  const auto begin = Clock::now();
  queue.put(record);
  queue.commit();
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

pid_t start(const char* in, char** command) {
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  ::dup2(::open(in, O_RDONLY), 0);
  ::dup2(::open("/dev/null", O_WRONLY), 1);
  ::execvp(command[0], command);
  ::_exit(127);
}

void report(std::vector<double>& times) {
  std::sort(times.begin(), times.end());
  std::printf("%.6f %.6f %.6f %zu\n", times[times.size() / 2], times[times.size() * 99 / 100],
              times.back(), times.size());
}

int inARow(const char* queue, int count) {
  Queue probe(queue, BXOO_OUTPUT);
  double sum = 0;
  for (int i = 0; i < count; ++i) sum += putAndCommit(probe);
  std::printf("%.9f\n", sum / count);
  return 0;
}

} // namespace

int main(int count, char** values) {
  if (count == 4 && std::strcmp(values[2], "-n") == 0)
    return inARow(values[1], std::atoi(values[3]));
  const bool hasInput = count > 3 && std::strcmp(values[2], "-i") == 0;
  char** command = values + (hasInput ? 4 : 2);
  if (count < 3 || !*command) return 2;
  const pid_t pid = start(hasInput ? values[3] : "/dev/null", command);
  Queue probe(values[1], BXOO_OUTPUT);
  std::vector<double> times;
  int status = 0;
  while (::waitpid(pid, &status, WNOHANG) == 0) {
    times.push_back(putAndCommit(probe));
    std::this_thread::sleep_for(kBetween);
  }
  if (status != 0 || times.empty()) return 1;
  report(times);
}
