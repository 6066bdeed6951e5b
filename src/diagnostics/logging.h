// The process-wide logger: levels, categories, the logging table and the
// functions most code calls (Log, CategoryMask).
//
// One logger per process, reached through a table of plain functions so that
// other modules of the process can share it. It is created by the first
// Acquire or the first Log and destroyed by the Release that brings its use
// count back to zero. Log filters by the logger's level, mute flag and
// excluded categories before anything is formatted, then hands the record to
// each registered target (see log_target.h) that wants it. Defaults: level 1
// ("  WARN"), excluded categories XTR, standard-error and debugger targets
// registered, standard-output target created but not registered.
//
// Thread-safe: every operation that touches logger state holds the logger's
// lock (recursive, like a critical section); targets are written under it,
// each under its own lock too (order: logger, then target). The logging path
// does not allocate: messages and lines use 4096-byte stack buffers.
#ifndef KAV_DIAGNOSTICS_LOGGING_H_
#define KAV_DIAGNOSTICS_LOGGING_H_

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "platform/clock.h"

namespace kav {

enum LogLevel : int32_t {
  kLogOkay = 0,    // "  OKAY"
  kLogWarn = 1,    // "  WARN"
  kLogError = 2,   // " ERROR"
  kLogAlways = 3,  // "ALWAYS"
};

// Category bits of the eight built-in tags (index i has bit 1 << i).
inline constexpr uint64_t kCategoryDbg = uint64_t{1} << 0;
inline constexpr uint64_t kCategoryGen = uint64_t{1} << 1;
inline constexpr uint64_t kCategoryXtr = uint64_t{1} << 2;
inline constexpr uint64_t kCategoryPrf = uint64_t{1} << 3;
inline constexpr uint64_t kCategoryMem = uint64_t{1} << 4;
inline constexpr uint64_t kCategoryDsk = uint64_t{1} << 5;
inline constexpr uint64_t kCategoryNet = uint64_t{1} << 6;
inline constexpr uint64_t kCategoryTst = uint64_t{1} << 7;

// The size of the message and line buffers; messages hold at most 4095
// characters.
inline constexpr size_t kLogBufferSize = 4096;

// One log record as handed to targets. `message` points at a NUL-terminated
// text that lives only for the duration of the call.
struct LogRecord {
  CalendarTime time;
  int32_t level = 0;
  uint64_t categories = 0;
  const char* message = "";
};

struct LogTargetRecord;  // log_target.h

// The bit of the category named by the first three characters of `tag`
// (compared up to a NUL), allocating the next free index for a tag not seen
// before; 0 for a null tag, when the 256-slot table is full, or for indices
// of 64 and above.
uint64_t CategoryMask(const char* tag);

// Writes the tags of the set bits of `mask` in index order, separated by
// ";", with a NUL into buffer[0, size) (cut to fit). Returns the length
// written.
size_t CategoryNames(char* buffer, size_t size, uint64_t mask);

// The six-character level word, right-aligned ("  OKAY", "  WARN", " ERROR",
// "ALWAYS"); "  ????" for any other level.
const char* LevelName(int32_t level);

// Logs one printf-style message (cut to 4095 characters).
void Log(int32_t level, uint64_t categories, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void LogV(int32_t level, uint64_t categories, const char* format, va_list arguments);

// The framework's trace function: receives trace texts and writes nothing.
inline void Trace(const char* /*format*/, ...) {}

// The logging table: 26 plain functions in their fixed order. Target records
// passed in must stay valid while registered.
struct LoggingTable {
  int32_t (*interface_version)();  // 1
  void (*acquire)();               // counts a user; the first creates the logger
  void (*release)();               // at zero: unregisters all targets, frees the logger
  void (*set_level)(int32_t level);
  int32_t (*get_level)();
  void (*set_excluded_categories)(uint64_t mask);
  uint64_t (*get_excluded_categories)();
  void (*mute)();
  void (*unmute)();
  // A flag kept for other modules sharing the logger; logging ignores it.
  void (*set_hold)();
  void (*clear_hold)();
  void (*add_target)(LogTargetRecord* target);        // appends (capacity 64)
  void (*remove_target)(LogTargetRecord* target);     // removes every occurrence
  LogTargetRecord* (*find_target)(const char* name);  // first by exact name, or null
  LogTargetRecord* (*std_out_target)();
  LogTargetRecord* (*std_err_target)();
  LogTargetRecord* (*debugger_target)();
  uint64_t (*category_mask)(const char* tag);
  size_t (*category_names)(char* buffer, size_t size, uint64_t mask);
  size_t (*format_record)(char* buffer, size_t size, const char* format, const LogRecord* record);
  const char* (*level_name)(int32_t level);
  const char* (*executable_name)();
  void (*local_time)(CalendarTime* time);
  size_t (*format_timestamp)(char* buffer, size_t size, const CalendarTime* time);
  size_t (*format_file_timestamp)(char* buffer, size_t size, const CalendarTime* time);
  void (*log)(int32_t level, uint64_t categories, const char* format, va_list arguments);
};

const LoggingTable& GetLoggingTable();

// Shorthands for the table's operations.
void AcquireLogger();
void ReleaseLogger();
void SetLogLevel(int32_t level);  // records below `level` are dropped
int32_t GetLogLevel();
void SetExcludedLogCategories(uint64_t mask);  // records in these are dropped
uint64_t GetExcludedLogCategories();
void MuteLogger();
void UnmuteLogger();
bool IsLoggerHoldSet();
// The executable's file name without its directory, looked up on first use
// ("<unknown>" when it cannot be found).
const char* ExecutableName();

}  // namespace kav

#endif  // KAV_DIAGNOSTICS_LOGGING_H_
