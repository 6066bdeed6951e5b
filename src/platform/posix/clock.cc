#include "platform/clock.h"

#include <time.h>

namespace kav {
namespace {

double MonotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

CalendarTime ReadLocalTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const time_t seconds = now.tv_sec;
  tm local{};
  localtime_r(&seconds, &local);
  CalendarTime time;
  time.year = local.tm_year + 1900;
  time.month = local.tm_mon + 1;
  time.day = local.tm_mday;
  time.hour = local.tm_hour;
  time.minute = local.tm_min;
  time.second = local.tm_sec;
  time.millisecond = static_cast<int32_t>(now.tv_nsec / 1000000);
  return time;
}

double SecondsSinceFirstClockUse() {
  static const double first_use = MonotonicSeconds();
  return MonotonicSeconds() - first_use;
}

}  // namespace kav
