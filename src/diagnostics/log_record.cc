// Level words, time stamps and the formatting of log lines.
#include <cstdio>

#include "diagnostics/log_target.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace kav {
namespace {

// snprintf's result as the length actually written into buffer[0, size).
size_t Written(int result, size_t size) {
  if (result < 0 || size == 0) return 0;
  return static_cast<size_t>(result) < size ? static_cast<size_t>(result) : size - 1;
}

}  // namespace

const char* LevelName(int32_t level) {
  switch (level) {
    case kLogOkay:
      return "  OKAY";
    case kLogWarn:
      return "  WARN";
    case kLogError:
      return " ERROR";
    case kLogAlways:
      return "ALWAYS";
    default:
      return "  ????";
  }
}

size_t FormatTimestamp(char* buffer, size_t size, const CalendarTime& time) {
  return Written(
      std::snprintf(buffer, size, "%04d-%02d-%02dT%02d:%02d:%02d.%03d", time.year, time.month,
                    time.day, time.hour, time.minute, time.second, time.millisecond),
      size);
}

size_t FormatFileTimestamp(char* buffer, size_t size, const CalendarTime& time) {
  return Written(std::snprintf(buffer, size, "%04d-%02d-%02dT%02d-%02d-%02d", time.year, time.month,
                               time.day, time.hour, time.minute, time.second),
                 size);
}

size_t FormatRecord(char* buffer, size_t size, const char* format, const LogRecord& record) {
  if (size == 0) return 0;
  if (size == 1) {
    buffer[0] = 0;
    return 0;
  }
  size_t length = 0;
  auto has_room = [&] { return size - length >= 2; };
  auto append = [&](const char* text) {
    for (; text && *text && has_room(); ++text) buffer[length++] = *text;
  };
  char field[320];  // the longest field: 64 category tags
  for (const char* p = format ? format : ""; *p && has_room(); ++p) {
    if (*p != '#') {
      buffer[length++] = *p;
      continue;
    }
    const char code = *++p;
    if (code == 0) break;
    switch (code) {
      case 'D':
        FormatTimestamp(field, sizeof(field), record.time);
        append(field);
        break;
      case 'E':
        append(ExecutableName());
        break;
      case 'G':
        CategoryNames(field, sizeof(field), record.categories);
        append(field);
        break;
      case 'H': {
        const double seconds = SecondsSinceFirstClockUse();
        const int whole = static_cast<int>(seconds);
        const int milliseconds = static_cast<int>((seconds - whole) * 1000.0);
        std::snprintf(field, sizeof(field), "%06d.%03d", whole, milliseconds);
        append(field);
        break;
      }
      case 'L':
        append(LevelName(record.level));
        break;
      case 'M':
        append(record.message);
        break;
      case 'T':
        std::snprintf(field, sizeof(field), "%08X", static_cast<unsigned>(CurrentThreadId()));
        append(field);
        break;
      default:
        buffer[length++] = code;
        break;
    }
  }
  if (length == 0 || buffer[length - 1] != '\n') {
    if (has_room()) {
      buffer[length++] = '\n';
    } else {
      buffer[length - 1] = '\n';
    }
  }
  buffer[length] = 0;
  return length;
}

}  // namespace kav
