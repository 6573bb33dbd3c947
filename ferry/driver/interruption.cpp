#include "ferry/driver/interruption.h"

#include "ferry/driver/progress_line.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <iterator>
#include <limits>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

constexpr std::array SIGNALS = {SIGINT, SIGTERM, SIGHUP};

constexpr int64_t SAME_WISH = 1000; // milliseconds

constinit std::atomic<int> s_nSignal = 0;
constinit std::atomic<int64_t> s_nTime = 0; // when it came, in milliseconds
constinit std::atomic<int> s_nWakeUp = -1;  // an eventfd, readable once a signal came
std::array<struct sigaction, SIGNALS.size()> s_aOldActions;

bool Ignored_b(const struct sigaction& obAction) { return obAction.sa_handler == SIG_IGN; }

using Clock = std::chrono::steady_clock;

int64_t Now_n() {
  const auto obNow = Clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(obNow).count();
}

extern "C" void OnSignal(int nSignal) {
  const int nError = errno;
  int nFirst = 0;
  if (s_nSignal.compare_exchange_strong(nFirst, nSignal)) {
    s_nTime = Now_n();
    const uint64_t nOne = 1;
    [[maybe_unused]] const ssize_t nWritten = ::write(s_nWakeUp, &nOne, sizeof nOne);
  } else if (nSignal != nFirst || Now_n() - s_nTime >= SAME_WISH) {
    ::signal(nSignal, SIG_DFL);
    ::raise(nSignal); // once this handler has returned
  }
  errno = nError;
}

// What is left until the end as poll takes it: -1 for ever, rounded up so as not to wake too early.
int Left_n(Clock::time_point obEnd, bool bForEver) {
  if (bForEver) return -1;
  const auto obLeft = std::chrono::ceil<std::chrono::milliseconds>(obEnd - Clock::now());
  if (obLeft.count() <= 0) return 0;
  constexpr int64_t nLimit = std::numeric_limits<int>::max();
  return static_cast<int>(obLeft.count() < nLimit ? obLeft.count() : nLimit);
}

} // namespace

CInterruption::CInterruption() {
  s_nSignal = 0;
  s_nWakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  struct sigaction obAction = {};
  obAction.sa_handler = OnSignal;
  sigemptyset(&obAction.sa_mask);
  // A second signal waits until the first one's handler has noted it.
  for (const int nSignal : SIGNALS) sigaddset(&obAction.sa_mask, nSignal);
  for (size_t n = 0; n < SIGNALS.size(); ++n) ::sigaction(SIGNALS[n], nullptr, &s_aOldActions[n]);
  for (size_t n = 0; n < SIGNALS.size(); ++n)
    if (!Ignored_b(s_aOldActions[n])) ::sigaction(SIGNALS[n], &obAction, nullptr);
}

CInterruption::~CInterruption() {
  for (size_t n = 0; n < SIGNALS.size(); ++n) ::sigaction(SIGNALS[n], &s_aOldActions[n], nullptr);
  ::close(s_nWakeUp.exchange(-1));
}

int CInterruption::Signal_n() { return s_nSignal; }

short CInterruption::Wait_n(int nDescriptor, short nEvents, long nMilliseconds) {
  const bool bForEver = nMilliseconds < 0;
  const auto obEnd =
      bForEver ? Clock::time_point() : Clock::now() + std::chrono::milliseconds(nMilliseconds);
  const int nTimer = nDescriptor == STDERR_FILENO ? -1 : CProgressLine::Timer_n();
  struct pollfd aPoll[] = {{nDescriptor, nEvents, 0}, {s_nWakeUp, POLLIN, 0}, {nTimer, POLLIN, 0}};
  for (;;) {
    const int nReady = ::poll(aPoll, std::size(aPoll), Left_n(obEnd, bForEver));
    if (nReady < 0 && errno != EINTR) return POLLERR;
    if (nReady > 0 && aPoll[2].revents != 0) CProgressLine::Waiting_v();
    const bool bThere = nReady > 0 && (aPoll[0].revents | aPoll[1].revents) != 0;
    if (bThere || Signal_n() != 0) return bThere ? aPoll[0].revents : short(0);
    if (nReady == 0 && !bForEver && Clock::now() >= obEnd) return 0;
  }
}

void rwSleep(long nMilliseconds) {
  if (nMilliseconds > 0) CInterruption::Wait_n(-1, 0, nMilliseconds);
}
