#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

/// What a loop has done so far, on a line of the terminal: records, rate and, as far as it can be
/// told, the part done and the time left. It is there from the second second on, and gone before
/// anything else is written (Wipe_v), or the loop ends. What cannot be drawn is left out: a line
/// never fails a loop, and never holds one up.
///
/// It is drawn where standard error is the terminal of this process, and only while the process is
/// in the foreground there, no other program reads its keys one by one (a pager) or without echo (a
/// password), and none of the same pipeline draws. Not at all where the records come from that
/// terminal or go to it. The environment's FERRY_PROGRESS says otherwise: "never", or "always",
/// which also draws beside records and where there is no terminal.
///
/// One at a time, on the main thread.
class CProgressLine {
public:
  /// What part of the whole so many records are, 0 to 1; below 0 when that is not known. Called for
  /// each drawing; the time it takes makes drawings rarer.
  using Part = std::function<double(uint64_t nRecords)>;

  /// nRecordStream: the standard descriptor that records come from or go to, -1 for none.
  CProgressLine(int nRecordStream, Part obPart);
  ~CProgressLine();
  CProgressLine(const CProgressLine&) = delete;
  CProgressLine& operator=(const CProgressLine&) = delete;

  /// One more record. The clock is looked at every 16 of them.
  void Passed_v() {
    if (++m_nRecords % RECORDS_PER_LOOK == 0) Look_v();
  }

  /// A descriptor that is readable now and then, when a wait is to call Waiting_v, which draws the
  /// line if it is due; -1 where none is drawn. A timeout instead would cost each wait a timer.
  static int Timer_n();
  static void Waiting_v();
  /// Takes away a line that is there; the next drawing brings it back.
  static void Wipe_v();

private:
  using Clock = std::chrono::steady_clock;
  static constexpr uint64_t RECORDS_PER_LOOK = 16;

  void Look_v();
  void Draw_v(Clock::time_point obNow);
  void Measure_v(Clock::time_point obNow);
  std::string Text_s(size_t nWidth) const;
  std::string TimeLeft_s(double nPart) const;

  const Part m_obPart;
  uint64_t m_nRecords = 0;
  uint64_t m_nMeasured = 0; // records at the last drawing
  double m_nRate = 0;       // records a second, of late
  Clock::time_point m_obMeasured = Clock::now();
  Clock::time_point m_obDue;
};
