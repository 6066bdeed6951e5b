// Log targets: the plain target record the logger holds, the LogTarget base
// class that owns one, the three console-style targets built into the logger,
// and the line formatting they share.
//
// A target is registered with the logger through its record; the logger calls
// the record's `write` for each record that passes both the logger's and the
// target's filters. Writing a subclass (e.g. one that forwards to a host):
//   class MyTarget final : public LogTarget {
//    public:
//     MyTarget() { ConnectOutput(); }      // makes `write` call Output
//     ~MyTarget() override { Detach(); }   // no Output on a half-destroyed object
//     const char* GetName() const override { return "MyTarget"; }
//     bool Output(const LogRecord& record) override;
//   };
//   target.Configure({.level = GetLogLevel(), .included = 0, .excluded = 0});
//
// Thread-safe: settings are atomic or guarded by the target's own lock;
// registration is guarded by the logger's lock. Output runs with both held.
#ifndef KAV_DIAGNOSTICS_LOG_TARGET_H_
#define KAV_DIAGNOSTICS_LOG_TARGET_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "diagnostics/logging.h"

namespace kav {

// The plain interface of a target: twelve operations in their fixed order,
// each taking the record itself. `context` belongs to the target.
struct LogTargetRecord {
  int32_t (*interface_version)(LogTargetRecord* self);  // 1
  void (*set_level)(LogTargetRecord* self, int32_t level);
  int32_t (*get_level)(LogTargetRecord* self);
  // Stores included & ~excluded as the included mask and excluded as is.
  void (*set_categories)(LogTargetRecord* self, uint64_t included, uint64_t excluded);
  uint64_t (*get_included)(LogTargetRecord* self);
  uint64_t (*get_excluded)(LogTargetRecord* self);
  const char* (*get_name)(LogTargetRecord* self);
  const char* (*get_format)(LogTargetRecord* self);
  void (*register_target)(LogTargetRecord* self);    // unless already registered
  void (*unregister_target)(LogTargetRecord* self);  // every occurrence
  bool (*is_registered)(LogTargetRecord* self);
  bool (*write)(LogTargetRecord* self, const LogRecord* record);  // true when written
  void* context;
};

inline constexpr const char* kDefaultLogFormat = "#D| #L| #G| #M";

struct LogTargetSettings {
  int32_t level = kLogWarn;
  uint64_t included = 0;  // 0: every category
  uint64_t excluded = 0;
  const char* format = kDefaultLogFormat;  // null keeps the current format
};

// Base of all targets. Defaults: level 1, all categories, none excluded,
// format "#D| #L| #G| #M", not registered. Owns its record; not copyable.
class LogTarget {
 public:
  LogTarget(const LogTarget&) = delete;
  LogTarget& operator=(const LogTarget&) = delete;
  // Unregisters first.
  virtual ~LogTarget();

  // Unregisters the target (under the logger's lock, then its own).
  virtual void Detach();
  virtual const char* GetName() const { return "LogTarget"; }
  // Valid until the format next changes.
  virtual const char* GetFormat() const;
  // Writes one record; called with the logger's lock held. True when written.
  virtual bool Output(const LogRecord& record) = 0;

  // Unregisters, applies the settings, registers again.
  void Configure(const LogTargetSettings& settings);

  void Register();
  void Unregister();
  bool IsRegistered() const;
  void SetLevel(int32_t level) { level_.store(level, std::memory_order_relaxed); }
  int32_t GetLevel() const { return level_.load(std::memory_order_relaxed); }
  void SetCategories(uint64_t included, uint64_t excluded);
  uint64_t GetIncluded() const { return included_.load(std::memory_order_relaxed); }
  uint64_t GetExcluded() const { return excluded_.load(std::memory_order_relaxed); }
  void SetFormat(const char* format);

  LogTargetRecord* record() { return &record_; }

 protected:
  LogTarget();
  // Points the record's `write` at Output; until then it writes nothing and
  // returns false. Concrete targets call this in their constructor.
  void ConnectOutput();
  // The target's own lock, held around output.
  std::recursive_mutex& target_lock() const { return lock_; }
  // The record formatted with this target's format into buffer[0, size).
  size_t FormatLine(char* buffer, size_t size, const LogRecord& record) const;

 private:
  LogTargetRecord record_;
  mutable std::recursive_mutex lock_;
  std::atomic<int32_t> level_{kLogWarn};
  std::atomic<uint64_t> included_{0};
  std::atomic<uint64_t> excluded_{0};
  std::string format_ = kDefaultLogFormat;  // guarded by lock_
};

// A target writing formatted lines to a console-like stream.
class BaseConsoleLogTarget : public LogTarget {
 public:
  const char* GetName() const override { return "BaseConsoleLogTarget"; }
  virtual void Flush() = 0;

 protected:
  BaseConsoleLogTarget() = default;
};

class StdErrLogTarget final : public BaseConsoleLogTarget {
 public:
  StdErrLogTarget();
  ~StdErrLogTarget() override;
  const char* GetName() const override { return "StdErrLogTarget"; }
  bool Output(const LogRecord& record) override;
  void Flush() override;
};

class StdOutLogTarget final : public BaseConsoleLogTarget {
 public:
  StdOutLogTarget();
  ~StdOutLogTarget() override;
  const char* GetName() const override { return "StdOutLogTarget"; }
  bool Output(const LogRecord& record) override;
  void Flush() override;
  // Flush standard output after every line (default off).
  void SetFlushAfterWrite(bool flush) { flush_after_write_.store(flush); }

 private:
  std::atomic<bool> flush_after_write_{false};
};

class DebuggerConsoleLogTarget final : public BaseConsoleLogTarget {
 public:
  DebuggerConsoleLogTarget();
  ~DebuggerConsoleLogTarget() override;
  const char* GetName() const override { return "DebuggerConsoleLogTarget"; }
  bool Output(const LogRecord& record) override;
  void Flush() override {}
};

// Writes the record with `format` into buffer[0, size) and returns the length.
// Codes: #D time stamp, #E executable name, #G category tags, #H seconds since
// the first clock use ("%06d.%03d"), #L level word, #M message, #T thread id
// (8 upper-case hex digits); "#" and any other character gives that character.
// Output stops when fewer than two bytes are left; the line always ends with
// exactly one line feed (a full buffer gives up its last character for it).
// REQUIRES: size >= 2.
size_t FormatRecord(char* buffer, size_t size, const char* format, const LogRecord& record);

// "%04d-%02d-%02dT%02d:%02d:%02d.%03d" and, for file names,
// "%04d-%02d-%02dT%02d-%02d-%02d". Return the length written.
size_t FormatTimestamp(char* buffer, size_t size, const CalendarTime& time);
size_t FormatFileTimestamp(char* buffer, size_t size, const CalendarTime& time);

// Registration of target records with the logger (creating the logger when
// needed, except for removal).
bool RegisterLogTarget(LogTargetRecord* target);  // false when already there or full
void UnregisterLogTarget(LogTargetRecord* target);
bool IsLogTargetRegistered(const LogTargetRecord* target);
// The first registered target named `name`, or null.
LogTargetRecord* FindLogTarget(const char* name);
// Unregisters the standard-error, standard-output and debugger targets.
void UnregisterBuiltInLogTargets();

}  // namespace kav

#endif  // KAV_DIAGNOSTICS_LOG_TARGET_H_
