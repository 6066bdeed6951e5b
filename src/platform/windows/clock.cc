#ifdef _WIN32
#include "platform/clock.h"

#include <windows.h>

namespace kav {
namespace {

double CounterSeconds() {
  static const double frequency = [] {
    LARGE_INTEGER value;
    QueryPerformanceFrequency(&value);
    return static_cast<double>(value.QuadPart);
  }();
  LARGE_INTEGER counter;
  QueryPerformanceCounter(&counter);
  return static_cast<double>(counter.QuadPart) / frequency;
}

}  // namespace

CalendarTime ReadLocalTime() {
  SYSTEMTIME local;
  GetLocalTime(&local);
  CalendarTime time;
  time.year = local.wYear;
  time.month = local.wMonth;
  time.day = local.wDay;
  time.hour = local.wHour;
  time.minute = local.wMinute;
  time.second = local.wSecond;
  time.millisecond = local.wMilliseconds;
  return time;
}

double SecondsSinceFirstClockUse() {
  static const double first_use = CounterSeconds();
  return CounterSeconds() - first_use;
}

}  // namespace kav
#endif  // _WIN32
