// ReferenceHost: plays the core for one plugin library. It loads the library,
// calls its entry function with a chosen plugin API version, hands the plugin
// a host function table whose behaviour a test or tool programs, and records
// everything the plugin does through that table.
//
// Programmable behaviour:
//  * resources that the plugin may request, by path (the URL up to "?") and
//    method: a plain body, an error (status and text), or a body streamed in
//    chunks; or a handler that chooses the answer per request;
//  * events that the host delivers to the plugin's subscribers: queued and
//    delivered on the plugin's next HostYield (or by Pump), or delivered at
//    once by Deliver.
// Recorded: every host function call in order (with a text: the request's
// method and URL, the event name, the wait label or the log text), requests
// with their arguments, subscriptions, unsubscriptions, published events and
// log lines.
//
// Ownership: the host owns the library, the plugin record and everything it
// hands to the plugin. Each response it fills keeps its storage behind its
// stream handle until the plugin calls the response's release function (or
// the host is destroyed). The plugin's module is destroyed by Destroy or by
// the host's destructor. The library itself is never unloaded: hosts of one
// process that load the same path share it (and its memory statistics).
//
// Thread-safety: not thread-safe. One thread drives the host and the plugin
// calls back on that thread.
#ifndef KAV_HOST_REFERENCE_HOST_H_
#define KAV_HOST_REFERENCE_HOST_H_

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/host_value.h"
#include "kav/plugin_host.h"
#include "platform/dynamic_library.h"

#ifndef KAV_DEFAULT_PLUGIN_PATH
#define KAV_DEFAULT_PLUGIN_PATH "libkav_queue_eligibility.so"
#endif

namespace kav::host {

// A plugin API version: major, minor, patch.
struct ApiVersion {
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t patch = 0;

  // "X.Y.Z".
  std::string ToString() const;
  // "X.Y.Z" with decimal numbers; nothing for any other text.
  static std::optional<ApiVersion> Parse(std::string_view text);
  bool operator==(const ApiVersion& other) const = default;
};

// The version that the host claims unless told otherwise.
inline constexpr ApiVersion kDefaultCoreVersion{18, 0, 0};

// The entries of the host function table, in table order.
enum class HostFunction : uint8_t {
  kRequest = 0,
  kReserved1 = 1,
  kSendEvent = 2,
  kSubscribe = 3,
  kUnsubscribe = 4,
  kReserved5 = 5,
  kYield = 6,
  kBeginWait = 7,
  kEndWait = 8,
  kLog = 9,
};
const char* HostFunctionName(HostFunction function);

// "DELETE", "GET", ... for method codes 1 to 7; "" for any other.
const char* MethodName(uint32_t method);

// One call of a host function by the plugin.
struct HostCall {
  HostFunction function;
  std::string text;  // "METHOD url", event name, wait label or log text; else ""

  bool operator==(const HostCall& other) const = default;
};

struct Argument {
  std::string name;  // empty for a positional argument
  Value value;
};

// A request that the plugin made.
struct RecordedRequest {
  uint32_t method = 0;
  std::string url;
  std::vector<Argument> arguments;
  uint32_t context = 0;  // the plugin handle, for requests of a plugin
};

// What the host answers to a request.
struct HostAnswer {
  enum class Kind : uint8_t { kBody, kError, kStream, kRecord };

  static HostAnswer Body(Value body, uint32_t status = 200);
  // REQUIRES: `json` is valid JSON text (otherwise the body is null).
  static HostAnswer JsonBody(std::string_view json, uint32_t status = 200);
  static HostAnswer Error(uint32_t status, std::string text);
  static HostAnswer Stream(std::vector<std::string> chunks, uint32_t status = 200);
  // The body as a record that the caller built and keeps alive until the
  // response is released (any shape, however deep or malformed, reaches
  // the plugin as it is).
  static HostAnswer Record(const KavHostValue& record, uint32_t status = 200);

  Kind kind = Kind::kBody;
  uint32_t status = 200;
  Value body;                       // kBody
  std::string error;                // kError
  std::vector<std::string> chunks;  // kStream: one chunk at most per read
  int failing_read = -1;            // kStream: index of a read that fails; -1 none
  KavHostValue record{};            // kRecord
  bool closable = true;             // kStream: whether a close function is given
  // kStream: the expected length the response announces; when unset, the
  // chunks' total.
  std::optional<uint32_t> announced_length;
};

using ResourceHandler = std::function<HostAnswer(const RecordedRequest& request)>;

struct Subscription {
  std::string event_name;
  uint32_t plugin_handle = 0;
  KavEventCallback callback = nullptr;
  void* context = nullptr;
  uint32_t flag = 0;
};

struct Unsubscription {
  std::string event_name;
  uint32_t plugin_handle = 0;

  bool operator==(const Unsubscription& other) const = default;
};

struct PublishedEvent {
  std::string name;
  Value payload;
  uint32_t word = 0;
};

struct LogLine {
  int32_t level = 0;
  std::string text;

  bool operator==(const LogLine& other) const = default;
};

// The 14 words written by the plugin's GetMemoryStatistics, decoded.
struct MemoryStatisticsWords {
  std::array<uint32_t, 14> words{};

  // Counter i (0 peak bytes in use, 1 live allocations at peak, 2 bytes
  // allocated, 3 allocations, 4 bytes freed, 5 frees), low word first.
  uint64_t Counter(size_t index) const {
    return uint64_t{words[2 * index]} | (uint64_t{words[2 * index + 1]} << 32);
  }
  uint64_t peak_bytes_in_use() const { return Counter(0); }
  uint64_t live_allocations_at_peak() const { return Counter(1); }
  uint64_t bytes_allocated() const { return Counter(2); }
  uint64_t allocations() const { return Counter(3); }
  uint64_t bytes_freed() const { return Counter(4); }
  uint64_t frees() const { return Counter(5); }
  uint64_t BytesInUse() const { return bytes_allocated() - bytes_freed(); }
};

// A call that the host delivers to one of the plugin's resources.
struct PluginCall {
  uint32_t method = KAV_METHOD_GET;
  std::string url;
  std::vector<Argument> arguments;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string content_type;
  std::optional<std::string> body;
  uint32_t context = 0;
  std::string custom_method;
};

// What the plugin wrote into the response of a PluginCall.
struct PluginResponse {
  Value body;
  std::optional<std::string> error;  // set when the plugin reported an error
  uint8_t flags = 0;
  uint32_t format = 0;
  uint32_t status = 0;
  std::string text;
  std::vector<std::pair<std::string, std::string>> pairs;
  bool streamed = false;
  std::string streamed_body;  // the bytes read from a streamed body
  bool released = false;      // whether a release function was called
};

class ReferenceHost {
 public:
  explicit ReferenceHost(std::string plugin_path = KAV_DEFAULT_PLUGIN_PATH);
  ReferenceHost(const ReferenceHost&) = delete;
  ReferenceHost& operator=(const ReferenceHost&) = delete;
  // Destroys a live module, releases what the plugin never released, and
  // closes the library handle.
  ~ReferenceHost();

  // ---- Lifecycle ----------------------------------------------------------
  // Loads the library and calls its entry function with `core_version` in
  // the plugin record. False (error() says why) when the library or its
  // entry cannot be found or the plugin did not fill the record. A plugin
  // that finds the core incompatible ends the process here.
  [[nodiscard]] bool Load(ApiVersion core_version = kDefaultCoreVersion);
  // Calls the plugin's Initialize with the function table and
  // `plugin_handle`; returns its result. REQUIRES: loaded().
  [[nodiscard]] bool Initialize(uint32_t plugin_handle = 1);
  // Calls GetMemoryStatistics; the words are pre-filled with 0xFFFFFFFF so
  // that words the plugin leaves unwritten show. The statistics are the
  // library's, so they stay readable after Destroy. REQUIRES: a successful
  // Load.
  MemoryStatisticsWords GetMemoryStatistics();
  // Calls Destroy; the module is gone afterwards. REQUIRES: loaded().
  void Destroy();

  bool loaded() const { return module_alive_; }
  bool initialized() const { return initialized_; }
  const std::string& error() const { return error_; }
  const std::string& plugin_path() const { return plugin_path_; }

  // ---- What the plugin filled in (valid after a successful Load) ----------
  // The record's fields are packed: read them through these accessors (or
  // copy them) rather than binding references to them.
  const KavPluginRecord& record() const { return record_; }
  const KavPluginCallbacks* callbacks() const { return record_.callbacks; }
  void* module() const { return record_.module; }
  const KavResourceTable* resource_table() const { return record_.resources; }
  ApiVersion plugin_version() const;
  std::string plugin_name() const;
  std::span<const KavResourceEntry> resource_entries() const;
  // The entry whose name or path template (with `method`, 0 for any) is the
  // given text; null when none.
  const KavResourceEntry* FindResourceEntry(std::string_view name_or_path,
                                            uint32_t method = 0) const;
  // Delivers `call` to `entry`'s call function, reads the response (and its
  // stream) and calls its release function.
  PluginResponse CallPlugin(const KavResourceEntry& entry, const PluginCall& call);

  // ---- Resources that the plugin may request -------------------------------
  // Method 0 answers every method that has no entry of its own. A later
  // setting of the same path and method replaces the earlier one. Requests
  // without an answer get status 404 and the error "Not found: <url>".
  void SetResource(std::string path, uint32_t method, HostAnswer answer);
  void SetResourceHandler(std::string path, uint32_t method, ResourceHandler handler);
  void RemoveResource(const std::string& path, uint32_t method);
  // Answers every request for which nothing is programmed, instead of the
  // 404 "Not found: <url>" (a simulation of the plugin's peers, say). An
  // empty handler restores the 404.
  void SetFallbackHandler(ResourceHandler handler) { fallback_handler_ = std::move(handler); }
  const std::vector<RecordedRequest>& requests() const { return requests_; }
  // Responses handed to the plugin whose release function has not run.
  size_t outstanding_responses() const { return live_responses_.size(); }
  size_t stream_reads() const { return stream_reads_; }
  size_t stream_closes() const { return stream_closes_; }

  // ---- Events --------------------------------------------------------------
  // Delivered, in order, to the subscribers of `name` at the plugin's next
  // HostYield or at Pump.
  void QueueEvent(std::string name, Value payload, uint32_t word = 0);
  size_t queued_events() const { return queued_events_.size(); }
  // Delivers the events queued so far (not those queued meanwhile); returns
  // how many callbacks ran.
  size_t Pump();
  // Delivers one event now; returns how many callbacks ran.
  size_t Deliver(const std::string& name, const Value& payload, uint32_t word = 0);
  // Runs at the start of every HostYield, before queued events are delivered.
  void SetYieldHook(std::function<void()> hook) { yield_hook_ = std::move(hook); }
  // Runs `action` inside the `nth` HostYield from now (1: the next one),
  // after the yield hook and before queued events are delivered. Several
  // actions may wait for the same yield; they run in the order scheduled.
  // REQUIRES: nth >= 1.
  void ScheduleAtYield(size_t nth, std::function<void()> action);
  size_t yields() const { return yields_; }

  // Every subscribe call, in order.
  const std::vector<Subscription>& subscriptions() const { return subscriptions_; }
  // The subscription in force for `event_name`; null when none.
  const Subscription* ActiveSubscription(std::string_view event_name) const;
  std::vector<std::string> ActiveEventNames() const;
  const std::vector<Unsubscription>& unsubscriptions() const { return unsubscriptions_; }
  const std::vector<PublishedEvent>& published_events() const { return published_events_; }

  // The table handed to the plugin by Initialize. Tests of the host itself
  // may call it as a plugin would.
  const KavHostFunctionTable* function_table() const { return &table_.functions; }

  // ---- Journal --------------------------------------------------------------
  const std::vector<HostCall>& calls() const { return calls_; }
  size_t CountCalls(HostFunction function) const;
  const std::vector<LogLine>& log_lines() const { return log_lines_; }
  // Also writes each log line to standard error as it arrives.
  void set_echo_log(bool echo) { echo_log_ = echo; }

  // ---- Observers -------------------------------------------------------------
  // Called for every event that the plugin publishes and every line that it
  // logs, after it is recorded, on the thread that the plugin called from.
  // An empty function removes the observer. An observer must not call into
  // the plugin.
  void SetEventObserver(std::function<void(const PublishedEvent&)> observer) {
    event_observer_ = std::move(observer);
  }
  void SetLogObserver(std::function<void(const LogLine&)> observer) {
    log_observer_ = std::move(observer);
  }
  // Forgets the journal, requests, published events and log lines;
  // subscriptions and programmed answers stay.
  void ClearRecords();

 private:
  struct BoundTable {
    KavHostFunctionTable functions;  // first: the plugin's table pointer is ours
    ReferenceHost* host;
  };
  struct ResponseStorage;
  struct ResourceKey {
    std::string path;
    uint32_t method;
    bool operator<(const ResourceKey& other) const {
      return path != other.path ? path < other.path : method < other.method;
    }
  };
  struct QueuedEvent {
    std::string name;
    Value payload;
    uint32_t word;
  };

  static ReferenceHost& Of(KavHostTable* table);
  static void KAV_CALL OnRequest(KavHostTable* table, KavResponse* response,
                                 const KavRequest* request);
  static void KAV_CALL OnReserved1(KavHostTable* table, uintptr_t a, uintptr_t b);
  static void KAV_CALL OnSendEvent(KavHostTable* table, const KavEvent* event);
  static void KAV_CALL OnSubscribe(KavHostTable* table, const char* event_name,
                                   uint32_t plugin_handle, KavEventCallback callback, void* context,
                                   uint32_t flag);
  static void KAV_CALL OnUnsubscribe(KavHostTable* table, const char* event_name,
                                     uint32_t plugin_handle);
  static void KAV_CALL OnReserved5(KavHostTable* table, uintptr_t a, uintptr_t b, uintptr_t c,
                                   uint64_t d, uintptr_t e);
  static void KAV_CALL OnYield(KavHostTable* table);
  static void KAV_CALL OnBeginWait(KavHostTable* table, const char* label, uintptr_t zero);
  static void KAV_CALL OnEndWait(KavHostTable* table);
  static void KAV_CALL OnLog(KavHostTable* table, int32_t level, const char* text);
  static KavBool KAV_CALL ReadStream(void* handle, uint8_t* buffer, uint32_t* size, uint8_t* more);
  static void KAV_CALL CloseStream(void* handle);
  static void KAV_CALL ReleaseResponse(KavResponse* response);

  void Record(HostFunction function, std::string text = {});
  void RunScheduledActions(size_t yield);
  HostAnswer Answer(const RecordedRequest& request);
  void FillResponse(KavResponse& response, HostAnswer answer);

  std::string plugin_path_;
  DynamicLibrary library_;
  std::string error_;
  KavPluginRecord record_{};
  KavHostRecord host_record_{};
  BoundTable table_{};
  bool module_alive_ = false;
  bool initialized_ = false;

  std::map<ResourceKey, ResourceHandler> resources_;
  ResourceHandler fallback_handler_;
  std::unordered_set<ResponseStorage*> live_responses_;
  size_t stream_reads_ = 0;
  size_t stream_closes_ = 0;

  std::deque<QueuedEvent> queued_events_;
  std::function<void()> yield_hook_;
  struct ScheduledAction {
    size_t at_yield;  // value of yields_ during which the action runs
    std::function<void()> action;
  };
  std::vector<ScheduledAction> scheduled_actions_;
  size_t yields_ = 0;  // HostYield calls so far
  std::map<std::string, Subscription, std::less<>> active_subscriptions_;

  std::vector<HostCall> calls_;
  std::vector<RecordedRequest> requests_;
  std::vector<Subscription> subscriptions_;
  std::vector<Unsubscription> unsubscriptions_;
  std::vector<PublishedEvent> published_events_;
  std::vector<LogLine> log_lines_;
  bool echo_log_ = false;
  std::function<void(const PublishedEvent&)> event_observer_;
  std::function<void(const LogLine&)> log_observer_;
  // Copied at Load: the plugin's callback record lives in its module.
  void(KAV_CALL* get_memory_statistics_)(void* module, uint32_t out[14]) = nullptr;
};

}  // namespace kav::host

#endif  // KAV_HOST_REFERENCE_HOST_H_
