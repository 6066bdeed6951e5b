// The process-wide logger: levels, categories, targets and the logging table.
//
// Log calls may come from any thread. The logger is created on first use and
// filters by level and category before anything is formatted; records that
// pass are handed to each registered target under the logger's lock.
#ifndef KAV_DIAGNOSTICS_LOGGING_H_
#define KAV_DIAGNOSTICS_LOGGING_H_

#include <cstdarg>
#include <cstdint>

namespace kav {

enum LogLevel : int32_t {
  kLogOkay = 0,    // "  OKAY"
  kLogWarn = 1,    // "  WARN"
  kLogError = 2,   // " ERROR"
  kLogAlways = 3,  // "ALWAYS"
};

// The bit of the category named by the first three characters of `tag`,
// allocating the next free bit for a tag not seen before; 0 when none is left.
uint64_t CategoryMask(const char* tag);

// Logs one printf-style message.
void Log(int32_t level, uint64_t categories, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void LogV(int32_t level, uint64_t categories, const char* format, va_list arguments);

// The framework's trace function: receives trace texts and writes nothing.
inline void Trace(const char* /*format*/, ...) {}

}  // namespace kav

#endif  // KAV_DIAGNOSTICS_LOGGING_H_
