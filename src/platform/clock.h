// Clocks used by logging: the local calendar time and a high-resolution
// clock counted from its first use in the process.
//
// Thread-safe.
#ifndef KAV_PLATFORM_CLOCK_H_
#define KAV_PLATFORM_CLOCK_H_

#include <cstdint>

namespace kav {

// Local time as seven numbers; month and day count from 1.
struct CalendarTime {
  int32_t year = 0;
  int32_t month = 0;
  int32_t day = 0;
  int32_t hour = 0;
  int32_t minute = 0;
  int32_t second = 0;
  int32_t millisecond = 0;
};

CalendarTime ReadLocalTime();

// Seconds since the first call of this function in the process (0 on the
// first call), from a monotonic high-resolution counter.
double SecondsSinceFirstClockUse();

}  // namespace kav

#endif  // KAV_PLATFORM_CLOCK_H_
