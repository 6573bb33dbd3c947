#include "ferry/logging/log_time.h"

#include <ctime>

UnicodeString LogTimeText_s(int64_t nTime) {
  const std::time_t nSeconds = nTime / 1000;
  std::tm obTime{};
  ::localtime_r(&nSeconds, &obTime);
  char aText[32];
  const size_t nLength = std::strftime(aText, sizeof aText, "%m/%d %H:%M:%S", &obTime);
  return UnicodeString(aText, static_cast<int32_t>(nLength), US_INV);
}
