// measure [-i IN] [-e ERR] [-n N | -r N] [-m] -- COMMAND...: runs a command and prints how long it
// took from start to exit, in seconds. Standard output goes to /dev/null.
//
//   -i  its standard input; -e its standard error (appended)
//   -n  starts N at once: the time until the last has ended
//   -r  runs N one after the other: the median time of one
//   -m  prints its largest private and its largest anonymous memory instead, in KiB
//
// {} in an argument or in IN is the number of the process, from 0.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  std::string in = "/dev/null", err;
  int atOnce = 1, repeats = 1;
  bool memory = false;
  std::vector<std::string> command;
};

[[noreturn]] void fail(const std::string& why) {
  std::fprintf(stderr, "measure: %s\n", why.c_str());
  std::exit(1);
}

Options parse(int count, char** values) {
  Options options;
  int option;
  while ((option = ::getopt(count, values, "+i:e:n:r:m")) != -1) {
    switch (option) {
    case 'i': options.in = ::optarg; break;
    case 'e': options.err = ::optarg; break;
    case 'n': options.atOnce = std::atoi(::optarg); break;
    case 'r': options.repeats = std::atoi(::optarg); break;
    case 'm': options.memory = true; break;
    default: fail("unknown option");
    }
  }
  options.command.assign(values + ::optind, values + count);
  if (options.command.empty()) fail("no command");
  return options;
}

std::string numbered(std::string text, int number) {
  if (const auto at = text.find("{}"); at != std::string::npos)
    text.replace(at, 2, std::to_string(number));
  return text;
}

pid_t start(const Options& options, int number) {
  std::vector<std::string> words;
  for (const std::string& word : options.command) words.push_back(numbered(word, number));
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const std::string in = numbered(options.in, number);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  if (!options.err.empty())
    ::posix_spawn_file_actions_addopen(&actions, 2, options.err.c_str(),
                                       O_WRONLY | O_CREAT | O_APPEND, 0600);
  pid_t pid = 0;
  const int error =
      ::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (error != 0) fail(words[0] + ": " + std::strerror(error));
  return pid;
}

void await(pid_t pid, const Options& options) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) fail("waitpid");
  if (status != 0) fail(options.command[0] + " failed, see its standard error");
}

double seconds(const Options& options) {
  std::vector<double> took;
  for (int run = 0; run < options.repeats; ++run) {
    const auto begin = Clock::now();
    std::vector<pid_t> running;
    for (int i = 0; i < options.atOnce; ++i) running.push_back(start(options, run + i));
    for (const pid_t pid : running) await(pid, options);
    took.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
  }
  std::nth_element(took.begin(), took.begin() + took.size() / 2, took.end());
  return took[took.size() / 2];
}

struct Memory {
  long privateKib = 0, anonymousKib = 0;

  void include(const Memory& other) {
    privateKib = std::max(privateKib, other.privateKib);
    anonymousKib = std::max(anonymousKib, other.anonymousKib);
  }
};

Memory memoryOf(pid_t pid) {
  Memory memory;
  std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
  std::string line;
  std::getline(rollup, line);
  std::string name, unit;
  for (long kib = 0; rollup >> name >> kib >> unit;) {
    if (name == "Private_Clean:" || name == "Private_Dirty:") memory.privateKib += kib;
    if (name == "Anonymous:") memory.anonymousKib = kib;
  }
  return memory;
}

Memory peakMemory(const Options& options) {
  const pid_t pid = start(options, 0);
  Memory peak;
  siginfo_t ended{};
  do {
    peak.include(memoryOf(pid));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ::waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT);
  } while (ended.si_pid == 0);
  await(pid, options);
  return peak;
}

} // namespace

int main(int count, char** values) {
  const Options options = parse(count, values);
  if (options.memory) {
    const Memory peak = peakMemory(options);
    std::printf("%ld %ld\n", peak.privateKib, peak.anonymousKib);
  } else {
    std::printf("%.6f\n", seconds(options));
  }
}
