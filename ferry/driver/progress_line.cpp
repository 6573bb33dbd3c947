#include "ferry/driver/progress_line.h"

#include "ferry/text/ss.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace std::chrono_literals;
using Seconds = std::chrono::duration<double>;

constexpr auto DELAY = 1s;
constexpr auto INTERVAL = 200ms;
constexpr int PACE = 20; // as many times as long as it took lies between two drawings
constexpr auto IDLE_INTERVAL = 1s;
constexpr Seconds SMOOTHING = 3s;
constexpr double LONGEST_LEFT = 360000; // seconds
constexpr size_t USUAL_WIDTH = 80;

CProgressLine* s_pobCurrent = nullptr; // none where nothing is to be drawn
size_t s_nShown = 0;                   // columns of the line that is there
int s_nTimer = -1;

std::string_view Variable_s(const char* pName) {
  const char* pValue = std::getenv(pName);
  return pValue ? pValue : "";
}

bool Always_b() { return Variable_s("FERRY_PROGRESS") == "always"; }

// A process has one terminal: descriptors for which this works lead to the same.
bool Terminal_b(int nDescriptor) { return ::tcgetpgrp(nDescriptor) >= 0; }

bool Wanted_b(int nRecordStream) {
  if (Variable_s("FERRY_PROGRESS") == "never") return false;
  return Always_b() || (Terminal_b(STDERR_FILENO) && !Terminal_b(nRecordStream));
}

// Two programs of a pipeline would draw over each other: the first to come has a lock of the
// terminal. Of one in another group, which is stopped or in the background, nothing is seen.
bool NeighbourDraws_b() {
  struct flock obLock {};
  obLock.l_type = F_WRLCK;
  if (::fcntl(STDERR_FILENO, F_SETLK, &obLock) == 0 || (errno != EAGAIN && errno != EACCES))
    return false;
  return ::fcntl(STDERR_FILENO, F_GETLK, &obLock) == 0 && obLock.l_type != F_UNLCK &&
         ::getpgid(obLock.l_pid) == ::getpgrp();
}

bool KeysElsewhere_b() {
  struct termios obMode {};
  constexpr tcflag_t LINES = ICANON | ECHO;
  return ::tcgetattr(STDERR_FILENO, &obMode) == 0 && (obMode.c_lflag & LINES) != LINES;
}

bool OurTerminal_b() {
  const pid_t nForeground = ::tcgetpgrp(STDERR_FILENO);
  return nForeground < 0 ? Always_b() : nForeground == ::getpgrp() && !KeysElsewhere_b();
}

size_t Width_n() {
  struct winsize obSize {};
  const bool bTold = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &obSize) == 0 && obSize.ws_col > 0;
  return bTold ? obSize.ws_col : USUAL_WIDTH;
}

// Erases to the end of the screen: a line that a narrower window has wrapped takes several.
std::string_view Erasing_s() {
  const std::string_view sTerminal = Variable_s("TERM");
  const bool bDumb = sTerminal.empty() || sTerminal == "dumb" || !Terminal_b(STDERR_FILENO);
  return bDumb ? "" : "\033[J";
}

// Leaves the cursor at the beginning, so that what others write there takes the line's place.
void Show_v(const std::string& sText, size_t nWidth) {
  std::string sAll = '\r' + sText;
  if (Erasing_s().empty() && s_nShown > sText.size())
    sAll.append(std::min(s_nShown, nWidth - 1) - sText.size(), ' ');
  sAll.append(Erasing_s()).push_back('\r');
  struct pollfd obPoll = {STDERR_FILENO, POLLOUT, 0};
  if (::poll(&obPoll, 1, 0) != 1) return;
  if (::write(STDERR_FILENO, sAll.data(), sAll.size()) > 0) s_nShown = sText.size();
}

int NewTimer_n() {
  const int nTimer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  const struct timespec obInterval = {0, std::chrono::nanoseconds(INTERVAL).count()};
  const struct itimerspec obTimes = {obInterval, obInterval};
  ::timerfd_settime(nTimer, 0, &obTimes, nullptr);
  return nTimer;
}

std::string Grouped_s(uint64_t nNumber) {
  std::string sText = std::to_string(nNumber);
  for (size_t n = sText.size(); n > 3;) sText.insert(n -= 3, 1, ',');
  return sText;
}

std::string Time_s(int nSeconds) {
  const int nHours = nSeconds / 3600;
  const int nMinutes = nSeconds / 60;
  std::string sText;
  if (nHours > 0)
    SS::ssprintf(sText, "%d:%02d:%02d", nHours, nMinutes % 60, nSeconds % 60);
  else
    SS::ssprintf(sText, "%d:%02d", nMinutes, nSeconds % 60);
  return sText;
}

} // namespace

CProgressLine::CProgressLine(int nRecordStream, Part obPart)
    : m_obPart(std::move(obPart)), m_obDue(m_obMeasured + DELAY) {
  // At the other end of a pipe may be one that knows how much there is: it goes first.
  if (nRecordStream == STDIN_FILENO) m_obDue += INTERVAL;
  if (!Wanted_b(nRecordStream)) return;
  s_pobCurrent = this;
  s_nTimer = NewTimer_n();
}

CProgressLine::~CProgressLine() {
  if (s_pobCurrent != this) return;
  Wipe_v();
  s_pobCurrent = nullptr;
  ::close(std::exchange(s_nTimer, -1));
}

int CProgressLine::Timer_n() { return s_nTimer; }

void CProgressLine::Waiting_v() {
  uint64_t nTimes = 0;
  if (s_pobCurrent && ::read(s_nTimer, &nTimes, sizeof nTimes) > 0) s_pobCurrent->Look_v();
}

void CProgressLine::Wipe_v() {
  if (s_nShown == 0) return;
  if (OurTerminal_b()) Show_v("", Width_n());
  s_nShown = 0;
}

void CProgressLine::Look_v() {
  if (s_pobCurrent != this) return;
  const auto obNow = Clock::now();
  if (obNow < m_obDue) return;
  const bool bIdle = m_nRecords == m_nMeasured;
  try {
    Draw_v(obNow);
  } catch (...) {
    // Nothing that the loop would have to know.
  }
  const auto obDone = Clock::now();
  m_obDue =
      obDone + std::max<Clock::duration>(bIdle ? IDLE_INTERVAL : INTERVAL, PACE * (obDone - obNow));
}

void CProgressLine::Draw_v(Clock::time_point obNow) {
  if (!OurTerminal_b()) {
    s_nShown = 0;
    return;
  }
  Measure_v(obNow);
  const size_t nWidth = Width_n();
  // A neighbour's line is wiped like one's own.
  if (Terminal_b(STDERR_FILENO) && NeighbourDraws_b())
    s_nShown = nWidth - 1;
  else
    Show_v(Text_s(nWidth), nWidth);
}

void CProgressLine::Measure_v(Clock::time_point obNow) {
  const Seconds obSince = obNow - m_obMeasured;
  const double nRate = static_cast<double>(m_nRecords - m_nMeasured) / obSince.count();
  const bool bFirst = m_nMeasured == 0;
  m_nRate += (nRate - m_nRate) * (bFirst ? 1 : obSince / (obSince + SMOOTHING));
  m_nMeasured = m_nRecords;
  m_obMeasured = obNow;
}

// What is least worth goes first where the terminal is too narrow.
std::string CProgressLine::Text_s(size_t nWidth) const {
  enum { RECORDS, WORD, RATE, PART, LEFT };
  const double nPart = m_obPart(m_nRecords);
  const auto nRate = static_cast<uint64_t>(std::llround(m_nRate));
  std::array<std::string, 5> aPieces = {Grouped_s(m_nRecords),
                                        m_nRecords == 1 ? " record" : " records",
                                        ", " + Grouped_s(nRate) + "/s"};
  if (nPart >= 0)
    aPieces[PART] = ", " + std::to_string(static_cast<int>(100 * std::min(nPart, 1.0))) + " %";
  if (nPart > 0) aPieces[LEFT] = TimeLeft_s(nPart);
  std::string sText;
  for (const int nLeast : {-1, +RATE, +LEFT, +WORD, +PART, +RECORDS}) {
    if (nLeast >= 0) aPieces[static_cast<size_t>(nLeast)].clear();
    sText.clear();
    for (const std::string& sPiece : aPieces) sText += sPiece;
    if (sText.size() < nWidth) break;
  }
  return sText;
}

std::string CProgressLine::TimeLeft_s(double nPart) const {
  const double nRecords = static_cast<double>(m_nRecords) * (1 / std::min(nPart, 1.0) - 1);
  const double nSeconds = nRecords / m_nRate;
  if (!(nSeconds < LONGEST_LEFT)) return "";
  return ", " + Time_s(static_cast<int>(std::lround(nSeconds))) + " left";
}
