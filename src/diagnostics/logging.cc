// The logger: its state, its lifetime, the logging table and Log.
//
// The logger and its lock live in static storage and are constructed in
// place: creating the logger allocates nothing beyond what its built-in
// targets need, and no static destructor runs at process exit, so targets
// and log calls of other static objects stay safe to the end.
#include "diagnostics/logging.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "diagnostics/log_target.h"
#include "diagnostics/logger_lock.h"
#include "platform/clock.h"
#include "platform/executable_name.h"

namespace kav {
namespace {

constexpr size_t kMaxTargets = 64;

struct Logger {
  LogTargetRecord* targets[kMaxTargets] = {};
  size_t target_count = 0;
  bool muted = false;
  bool hold = false;
  int32_t level = kLogWarn;
  uint64_t excluded_categories = kCategoryXtr;
  StdErrLogTarget std_err;
  StdOutLogTarget std_out;
  DebuggerConsoleLogTarget debugger;
};

// Guarded by LoggerLock().
alignas(Logger) unsigned char g_logger_storage[sizeof(Logger)];
Logger* g_logger = nullptr;
int32_t g_use_count = 0;
char g_executable_name[260] = "<unknown>";

// Looks the executable's name up; "<unknown>" stays when it cannot be found.
const char* ResolveExecutableName() {
  char name[sizeof(g_executable_name)];
  if (ReadExecutableName(name, sizeof(name)) > 0) {
    std::memcpy(g_executable_name, name, sizeof(name));
  }
  return g_executable_name;
}

// REQUIRES: LoggerLock() held.
Logger* LoggerLocked() {
  if (g_logger) return g_logger;
  g_logger = new (g_logger_storage) Logger();
  ExecutableName();
  g_logger->std_err.Configure({kLogWarn, kCategoryDbg, kCategoryGen, "#E(#T): #L| #M"});
  g_logger->std_out.SetLevel(kLogWarn);
  g_logger->std_out.SetCategories(kCategoryGen, kCategoryDbg);
  g_logger->std_out.SetFormat("#M");
  g_logger->debugger.Configure({kLogWarn, kCategoryDbg, 0, "#E(#T): #L| #M"});
  return g_logger;
}

// REQUIRES: LoggerLock() held.
size_t FindRecord(const Logger& logger, const LogTargetRecord* target) {
  for (size_t i = 0; i < logger.target_count; ++i) {
    if (logger.targets[i] == target) return i;
  }
  return kMaxTargets;
}

// REQUIRES: LoggerLock() held.
bool AppendRecord(Logger& logger, LogTargetRecord* target) {
  if (!target || logger.target_count == kMaxTargets) return false;
  logger.targets[logger.target_count++] = target;
  return true;
}

// REQUIRES: LoggerLock() held.
void RemoveRecord(Logger& logger, const LogTargetRecord* target) {
  size_t kept = 0;
  for (size_t i = 0; i < logger.target_count; ++i) {
    if (logger.targets[i] != target) logger.targets[kept++] = logger.targets[i];
  }
  logger.target_count = kept;
}

bool TargetWants(LogTargetRecord* target, const LogRecord& record) {
  if (record.level < target->get_level(target)) return false;
  if (record.categories == 0) return true;
  if ((record.categories & target->get_excluded(target)) != 0) return false;
  const uint64_t included = target->get_included(target);
  return included == 0 || (included & record.categories) != 0;
}

using Lock = std::lock_guard<std::recursive_mutex>;

int32_t TableInterfaceVersion() {
  return 1;
}

void TableAcquire() {
  Lock lock(LoggerLock());
  LoggerLocked();
  ++g_use_count;
}

void TableRelease() {
  Lock lock(LoggerLock());
  if (g_use_count == 0 || --g_use_count > 0 || !g_logger) return;
  Logger& logger = *g_logger;
  while (logger.target_count > 0) {
    LogTargetRecord* last = logger.targets[logger.target_count - 1];
    last->unregister_target(last);
    // A foreign record that does not unregister itself is removed here.
    if (logger.target_count > 0 && logger.targets[logger.target_count - 1] == last) {
      RemoveRecord(logger, last);
    }
  }
  logger.~Logger();
  g_logger = nullptr;
}

void TableSetLevel(int32_t level) {
  Lock lock(LoggerLock());
  LoggerLocked()->level = level;
}

int32_t TableGetLevel() {
  Lock lock(LoggerLock());
  return LoggerLocked()->level;
}

void TableSetExcludedCategories(uint64_t mask) {
  Lock lock(LoggerLock());
  LoggerLocked()->excluded_categories = mask;
}

uint64_t TableGetExcludedCategories() {
  Lock lock(LoggerLock());
  return LoggerLocked()->excluded_categories;
}

void TableMute() {
  Lock lock(LoggerLock());
  LoggerLocked()->muted = true;
}

void TableUnmute() {
  Lock lock(LoggerLock());
  LoggerLocked()->muted = false;
}

void TableSetHold() {
  Lock lock(LoggerLock());
  LoggerLocked()->hold = true;
}

void TableClearHold() {
  Lock lock(LoggerLock());
  LoggerLocked()->hold = false;
}

void TableAddTarget(LogTargetRecord* target) {
  Lock lock(LoggerLock());
  AppendRecord(*LoggerLocked(), target);
}

void TableRemoveTarget(LogTargetRecord* target) {
  Lock lock(LoggerLock());
  if (g_logger) RemoveRecord(*g_logger, target);
}

LogTargetRecord* TableFindTarget(const char* name) {
  if (!name) return nullptr;
  Lock lock(LoggerLock());
  Logger& logger = *LoggerLocked();
  for (size_t i = 0; i < logger.target_count; ++i) {
    LogTargetRecord* target = logger.targets[i];
    const char* target_name = target->get_name(target);
    if (target_name && std::strcmp(target_name, name) == 0) return target;
  }
  return nullptr;
}

LogTargetRecord* TableStdOutTarget() {
  Lock lock(LoggerLock());
  return LoggerLocked()->std_out.record();
}

LogTargetRecord* TableStdErrTarget() {
  Lock lock(LoggerLock());
  return LoggerLocked()->std_err.record();
}

LogTargetRecord* TableDebuggerTarget() {
  Lock lock(LoggerLock());
  return LoggerLocked()->debugger.record();
}

size_t TableFormatRecord(char* buffer, size_t size, const char* format, const LogRecord* record) {
  return FormatRecord(buffer, size, format, *record);
}

const char* TableExecutableName() {
  return ExecutableName();
}

void TableLocalTime(CalendarTime* time) {
  *time = ReadLocalTime();
}

size_t TableFormatTimestamp(char* buffer, size_t size, const CalendarTime* time) {
  return FormatTimestamp(buffer, size, *time);
}

size_t TableFormatFileTimestamp(char* buffer, size_t size, const CalendarTime* time) {
  return FormatFileTimestamp(buffer, size, *time);
}

constexpr LoggingTable kLoggingTable = {
    &TableInterfaceVersion,
    &TableAcquire,
    &TableRelease,
    &TableSetLevel,
    &TableGetLevel,
    &TableSetExcludedCategories,
    &TableGetExcludedCategories,
    &TableMute,
    &TableUnmute,
    &TableSetHold,
    &TableClearHold,
    &TableAddTarget,
    &TableRemoveTarget,
    &TableFindTarget,
    &TableStdOutTarget,
    &TableStdErrTarget,
    &TableDebuggerTarget,
    &CategoryMask,
    &CategoryNames,
    &TableFormatRecord,
    &LevelName,
    &TableExecutableName,
    &TableLocalTime,
    &TableFormatTimestamp,
    &TableFormatFileTimestamp,
    &LogV,
};

}  // namespace

std::recursive_mutex& LoggerLock() {
  alignas(std::recursive_mutex) static unsigned char storage[sizeof(std::recursive_mutex)];
  static std::recursive_mutex* const lock = new (storage) std::recursive_mutex();
  return *lock;
}

const LoggingTable& GetLoggingTable() {
  return kLoggingTable;
}

void LogV(int32_t level, uint64_t categories, const char* format, va_list arguments) {
  {
    Lock lock(LoggerLock());
    const Logger& logger = *LoggerLocked();
    if (logger.muted || level < logger.level || (categories & logger.excluded_categories) != 0) {
      return;
    }
  }
  char message[kLogBufferSize];
  const int written = std::vsnprintf(message, sizeof(message), format ? format : "", arguments);
  if (written < 0) message[0] = 0;
  LogRecord record;
  record.time = ReadLocalTime();
  record.level = level;
  record.categories = categories;
  record.message = message;

  Lock lock(LoggerLock());
  if (!g_logger) return;
  for (size_t i = 0; i < g_logger->target_count; ++i) {
    LogTargetRecord* target = g_logger->targets[i];
    if (TargetWants(target, record)) target->write(target, &record);
  }
}

void Log(int32_t level, uint64_t categories, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogV(level, categories, format, arguments);
  va_end(arguments);
}

void AcquireLogger() {
  TableAcquire();
}
void ReleaseLogger() {
  TableRelease();
}
void SetLogLevel(int32_t level) {
  TableSetLevel(level);
}
int32_t GetLogLevel() {
  return TableGetLevel();
}
void SetExcludedLogCategories(uint64_t mask) {
  TableSetExcludedCategories(mask);
}
uint64_t GetExcludedLogCategories() {
  return TableGetExcludedCategories();
}
void MuteLogger() {
  TableMute();
}
void UnmuteLogger() {
  TableUnmute();
}

bool IsLoggerHoldSet() {
  Lock lock(LoggerLock());
  return LoggerLocked()->hold;
}

const char* ExecutableName() {
  static const char* const name = ResolveExecutableName();
  return name;
}

bool RegisterLogTarget(LogTargetRecord* target) {
  Lock lock(LoggerLock());
  Logger& logger = *LoggerLocked();
  if (FindRecord(logger, target) != kMaxTargets) return false;
  return AppendRecord(logger, target);
}

void UnregisterLogTarget(LogTargetRecord* target) {
  Lock lock(LoggerLock());
  if (g_logger) RemoveRecord(*g_logger, target);
}

bool IsLogTargetRegistered(const LogTargetRecord* target) {
  Lock lock(LoggerLock());
  return g_logger && FindRecord(*g_logger, target) != kMaxTargets;
}

LogTargetRecord* FindLogTarget(const char* name) {
  return TableFindTarget(name);
}

void UnregisterBuiltInLogTargets() {
  Lock lock(LoggerLock());
  Logger& logger = *LoggerLocked();
  logger.std_err.Unregister();
  logger.std_out.Unregister();
  logger.debugger.Unregister();
}

}  // namespace kav
