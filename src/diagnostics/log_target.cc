#include "diagnostics/log_target.h"

#include <cstdio>

#include "diagnostics/logger_lock.h"
#include "platform/debug_output.h"

namespace kav {
namespace {

LogTarget* Owner(LogTargetRecord* self) {
  return static_cast<LogTarget*>(self->context);
}

int32_t RecordInterfaceVersion(LogTargetRecord*) {
  return 1;
}
void RecordSetLevel(LogTargetRecord* self, int32_t level) {
  Owner(self)->SetLevel(level);
}
int32_t RecordGetLevel(LogTargetRecord* self) {
  return Owner(self)->GetLevel();
}
void RecordSetCategories(LogTargetRecord* self, uint64_t included, uint64_t excluded) {
  Owner(self)->SetCategories(included, excluded);
}
uint64_t RecordGetIncluded(LogTargetRecord* self) {
  return Owner(self)->GetIncluded();
}
uint64_t RecordGetExcluded(LogTargetRecord* self) {
  return Owner(self)->GetExcluded();
}
const char* RecordGetName(LogTargetRecord* self) {
  return Owner(self)->GetName();
}
const char* RecordGetFormat(LogTargetRecord* self) {
  return Owner(self)->GetFormat();
}
void RecordRegister(LogTargetRecord* self) {
  Owner(self)->Register();
}
void RecordUnregister(LogTargetRecord* self) {
  Owner(self)->Unregister();
}
bool RecordIsRegistered(LogTargetRecord* self) {
  return Owner(self)->IsRegistered();
}
bool RecordWriteNothing(LogTargetRecord*, const LogRecord*) {
  return false;
}
bool RecordWriteOutput(LogTargetRecord* self, const LogRecord* record) {
  return Owner(self)->Output(*record);
}

void WriteAll(const char* line, size_t length, FILE* stream) {
  std::fwrite(line, 1, length, stream);
}

}  // namespace

LogTarget::LogTarget()
    : record_{&RecordInterfaceVersion,
              &RecordSetLevel,
              &RecordGetLevel,
              &RecordSetCategories,
              &RecordGetIncluded,
              &RecordGetExcluded,
              &RecordGetName,
              &RecordGetFormat,
              &RecordRegister,
              &RecordUnregister,
              &RecordIsRegistered,
              &RecordWriteNothing,
              this} {}

LogTarget::~LogTarget() {
  Unregister();
}

void LogTarget::Detach() {
  std::scoped_lock lock(LoggerLock(), lock_);
  UnregisterLogTarget(&record_);
}

const char* LogTarget::GetFormat() const {
  std::lock_guard<std::recursive_mutex> lock(lock_);
  return format_.c_str();
}

void LogTarget::Configure(const LogTargetSettings& settings) {
  Unregister();
  SetLevel(settings.level);
  SetCategories(settings.included, settings.excluded);
  if (settings.format) SetFormat(settings.format);
  Register();
}

void LogTarget::Register() {
  RegisterLogTarget(&record_);
}
void LogTarget::Unregister() {
  UnregisterLogTarget(&record_);
}
bool LogTarget::IsRegistered() const {
  return IsLogTargetRegistered(&record_);
}

void LogTarget::SetCategories(uint64_t included, uint64_t excluded) {
  included_.store(included & ~excluded, std::memory_order_relaxed);
  excluded_.store(excluded, std::memory_order_relaxed);
}

void LogTarget::SetFormat(const char* format) {
  std::lock_guard<std::recursive_mutex> lock(lock_);
  format_ = format ? format : "";
}

void LogTarget::ConnectOutput() {
  record_.write = &RecordWriteOutput;
}

size_t LogTarget::FormatLine(char* buffer, size_t size, const LogRecord& record) const {
  std::lock_guard<std::recursive_mutex> lock(lock_);
  return FormatRecord(buffer, size, format_.c_str(), record);
}

StdErrLogTarget::StdErrLogTarget() {
  ConnectOutput();
}
StdErrLogTarget::~StdErrLogTarget() {
  Detach();
}

bool StdErrLogTarget::Output(const LogRecord& record) {
  char line[kLogBufferSize];
  std::lock_guard<std::recursive_mutex> lock(target_lock());
  WriteAll(line, FormatLine(line, sizeof(line), record), stderr);
  // Standard error is unbuffered on POSIX, but the Windows C runtime buffers
  // it when it is no console: a line must be out before a fatal error ends
  // the process.
  std::fflush(stderr);
  return true;
}

void StdErrLogTarget::Flush() {
  std::fflush(stderr);
}

StdOutLogTarget::StdOutLogTarget() {
  ConnectOutput();
}
StdOutLogTarget::~StdOutLogTarget() {
  Detach();
}

bool StdOutLogTarget::Output(const LogRecord& record) {
  char line[kLogBufferSize];
  std::lock_guard<std::recursive_mutex> lock(target_lock());
  WriteAll(line, FormatLine(line, sizeof(line), record), stdout);
  if (flush_after_write_.load()) std::fflush(stdout);
  return true;
}

void StdOutLogTarget::Flush() {
  std::fflush(stdout);
}

DebuggerConsoleLogTarget::DebuggerConsoleLogTarget() {
  ConnectOutput();
}
DebuggerConsoleLogTarget::~DebuggerConsoleLogTarget() {
  Detach();
}

bool DebuggerConsoleLogTarget::Output(const LogRecord& record) {
  char line[kLogBufferSize];
  std::lock_guard<std::recursive_mutex> lock(target_lock());
  FormatLine(line, sizeof(line), record);
  WriteDebuggerOutput(line);
  return true;
}

}  // namespace kav
