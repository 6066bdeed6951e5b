#include "host/reference_host.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace kav::host {

namespace {

constexpr char kEntryName[] = "load_kav_queue_eligibility";

std::string TextOr(const char* text, const char* fallback = "") {
  return text != nullptr ? text : fallback;
}

std::string_view PathOf(std::string_view url) {
  return url.substr(0, url.find('?'));
}

std::vector<Argument> CopyArguments(const KavArgumentEntry* entries, uint32_t count) {
  std::vector<Argument> arguments;
  for (uint32_t i = 0; entries != nullptr && i < count; ++i) {
    arguments.push_back({TextOr(entries[i].name), Value::FromRecord(entries[i].value)});
  }
  return arguments;
}

}  // namespace

// The storage behind one response handed to the plugin: the records of its
// body and texts and, for a streamed body, the chunks still to deliver.
struct ReferenceHost::ResponseStorage {
  ReferenceHost* host = nullptr;
  RecordArena arena;
  std::vector<std::string> chunks;
  size_t next_chunk = 0;
  size_t chunk_offset = 0;
  int reads = 0;
  int failing_read = -1;
};

// ---- ApiVersion and names -----------------------------------------------------

std::string ApiVersion::ToString() const {
  return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

std::optional<ApiVersion> ApiVersion::Parse(std::string_view text) {
  uint32_t numbers[3] = {};
  const char* position = text.data();
  const char* end = text.data() + text.size();
  for (int i = 0; i < 3; ++i) {
    if (i > 0) {
      if (position == end || *position != '.') return std::nullopt;
      ++position;
    }
    auto [next, failure] = std::from_chars(position, end, numbers[i]);
    if (failure != std::errc() || next == position) return std::nullopt;
    position = next;
  }
  if (position != end) return std::nullopt;
  return ApiVersion{numbers[0], numbers[1], numbers[2]};
}

const char* HostFunctionName(HostFunction function) {
  static constexpr const char* kNames[] = {
      "HostRequest",   "HostReserved1", "HostSendEvent", "HostSubscribe", "HostUnsubscribe",
      "HostReserved5", "HostYield",     "HostBeginWait", "HostEndWait",   "HostLog",
  };
  const size_t index = static_cast<size_t>(function);
  return index < std::size(kNames) ? kNames[index] : "";
}

const char* MethodName(uint32_t method) {
  static constexpr const char* kNames[] = {"",        "DELETE", "GET",  "HEAD",
                                           "OPTIONS", "PATCH",  "POST", "PUT"};
  return method < std::size(kNames) ? kNames[method] : "";
}

// ---- HostAnswer ---------------------------------------------------------------

HostAnswer HostAnswer::Body(Value body, uint32_t status) {
  HostAnswer answer;
  answer.kind = Kind::kBody;
  answer.status = status;
  answer.body = std::move(body);
  return answer;
}

HostAnswer HostAnswer::JsonBody(std::string_view json, uint32_t status) {
  return Body(Value::FromJson(json).value_or(Value()), status);
}

HostAnswer HostAnswer::Error(uint32_t status, std::string text) {
  HostAnswer answer;
  answer.kind = Kind::kError;
  answer.status = status;
  answer.error = std::move(text);
  return answer;
}

HostAnswer HostAnswer::Stream(std::vector<std::string> chunks, uint32_t status) {
  HostAnswer answer;
  answer.kind = Kind::kStream;
  answer.status = status;
  answer.chunks = std::move(chunks);
  return answer;
}

HostAnswer HostAnswer::Record(const KavHostValue& record, uint32_t status) {
  HostAnswer answer;
  answer.kind = Kind::kRecord;
  answer.status = status;
  answer.record = record;
  return answer;
}

// ---- Lifecycle ----------------------------------------------------------------

ReferenceHost::ReferenceHost(std::string plugin_path) : plugin_path_(std::move(plugin_path)) {
  table_.functions = KavHostFunctionTable{
      &OnRequest,   &OnReserved1, &OnSendEvent, &OnSubscribe, &OnUnsubscribe,
      &OnReserved5, &OnYield,     &OnBeginWait, &OnEndWait,   &OnLog,
  };
  table_.host = this;
}

ReferenceHost::~ReferenceHost() {
  if (module_alive_) Destroy();
  for (ResponseStorage* storage : live_responses_) delete storage;
  live_responses_.clear();
}

bool ReferenceHost::Load(ApiVersion core_version) {
  error_.clear();
  // The plugin carries its own C++ runtime, whose process-wide state (such
  // as its exception-handling pool) does not survive unloading: a plugin
  // library stays loaded once loaded. Hosts of one process share it.
  if (!library_.Open(plugin_path_, DynamicLibrary::Unloading::kNeverUnload)) {
    error_ = "cannot load " + plugin_path_ + ": " + library_.error();
    return false;
  }
  auto entry = reinterpret_cast<KavPluginEntryFn>(library_.Symbol(kEntryName));
  if (entry == nullptr) {
    error_ = std::string("no entry function ") + kEntryName + ": " + library_.error();
    return false;
  }
  record_ = KavPluginRecord{};
  record_.version[0] = core_version.major;
  record_.version[1] = core_version.minor;
  record_.version[2] = core_version.patch;
  entry(&record_);
  if (record_.callbacks == nullptr || record_.module == nullptr) {
    error_ = "the plugin did not register";
    return false;
  }
  get_memory_statistics_ = record_.callbacks->get_memory_statistics;
  module_alive_ = true;
  return true;
}

bool ReferenceHost::Initialize(uint32_t plugin_handle) {
  host_record_.functions = &table_.functions;
  host_record_.plugin_handle = plugin_handle;
  initialized_ = record_.callbacks->initialize(record_.module, &host_record_) != 0;
  return initialized_;
}

MemoryStatisticsWords ReferenceHost::GetMemoryStatistics() {
  MemoryStatisticsWords statistics;
  statistics.words.fill(0xFFFFFFFFu);
  get_memory_statistics_(record_.module, statistics.words.data());
  return statistics;
}

void ReferenceHost::Destroy() {
  record_.callbacks->destroy(record_.module);
  module_alive_ = false;
  initialized_ = false;
}

// ---- The plugin's record ------------------------------------------------------

ApiVersion ReferenceHost::plugin_version() const {
  return {record_.version[0], record_.version[1], record_.version[2]};
}

std::string ReferenceHost::plugin_name() const {
  return TextOr(record_.name);
}

std::span<const KavResourceEntry> ReferenceHost::resource_entries() const {
  const KavResourceTable* table = record_.resources;
  if (table == nullptr || table->entries == nullptr) return {};
  return {table->entries, table->entry_count};
}

const KavResourceEntry* ReferenceHost::FindResourceEntry(std::string_view name_or_path,
                                                         uint32_t method) const {
  for (const KavResourceEntry& entry : resource_entries()) {
    const bool named =
        TextOr(entry.name) == name_or_path || TextOr(entry.path_template) == name_or_path;
    if (named && (method == 0 || entry.method == 0 || entry.method == method)) return &entry;
  }
  return nullptr;
}

PluginResponse ReferenceHost::CallPlugin(const KavResourceEntry& entry, const PluginCall& call) {
  RecordArena arena;
  KavArgumentEntry* arguments = arena.Records<KavArgumentEntry>(call.arguments.size());
  for (size_t i = 0; i < call.arguments.size(); ++i) {
    arguments[i].name =
        call.arguments[i].name.empty() ? nullptr : arena.Text(call.arguments[i].name);
    arguments[i].value = arena.Build(call.arguments[i].value);
  }
  KavHeaderEntry* headers = arena.Records<KavHeaderEntry>(call.headers.size());
  for (size_t i = 0; i < call.headers.size(); ++i) {
    headers[i].name = arena.Text(call.headers[i].first);
    headers[i].value = arena.Text(call.headers[i].second);
  }
  KavRequest request{};
  request.method = call.method;
  request.url = arena.Text(call.url);
  request.arguments = call.arguments.empty() ? nullptr : arguments;
  request.argument_count = static_cast<uint32_t>(call.arguments.size());
  request.user_data = entry.user_data;
  request.headers = call.headers.empty() ? nullptr : headers;
  request.header_count = static_cast<uint32_t>(call.headers.size());
  request.content_type = call.content_type.empty() ? nullptr : arena.Text(call.content_type);
  if (call.body.has_value()) {
    request.body = reinterpret_cast<const uint8_t*>(arena.Text(*call.body));
    request.body_length = static_cast<uint32_t>(call.body->size());
  }
  request.context = call.context;
  request.custom_method = call.custom_method.empty() ? nullptr : arena.Text(call.custom_method);

  KavResponse response{};
  entry.call(&response, &request);

  PluginResponse result;
  result.body = Value::FromRecord(response.body);
  if (response.error != nullptr) result.error = response.error;
  result.flags = response.flags;
  result.format = response.format;
  result.status = response.status;
  result.text = TextOr(response.text);
  for (uint32_t i = 0; response.pairs != nullptr && i < response.pair_count; ++i) {
    result.pairs.emplace_back(TextOr(response.pairs[i].name), TextOr(response.pairs[i].value));
  }
  if (response.stream_read != nullptr) {
    result.streamed = true;
    uint8_t more = 1;
    uint8_t buffer[4096];
    while (more != 0) {
      uint32_t size = sizeof(buffer);
      if (response.stream_read(response.stream_handle, buffer, &size, &more) == 0) break;
      result.streamed_body.append(reinterpret_cast<const char*>(buffer), size);
    }
    if (response.stream_close != nullptr) response.stream_close(response.stream_handle);
  }
  if (response.release != nullptr) {
    response.release(&response);
    result.released = true;
  }
  return result;
}

// ---- Programmed resources -----------------------------------------------------

void ReferenceHost::SetResource(std::string path, uint32_t method, HostAnswer answer) {
  SetResourceHandler(std::move(path), method,
                     [answer = std::move(answer)](const RecordedRequest&) { return answer; });
}

void ReferenceHost::SetResourceHandler(std::string path, uint32_t method, ResourceHandler handler) {
  resources_[ResourceKey{std::move(path), method}] = std::move(handler);
}

void ReferenceHost::RemoveResource(const std::string& path, uint32_t method) {
  resources_.erase(ResourceKey{path, method});
}

HostAnswer ReferenceHost::Answer(const RecordedRequest& request) {
  const std::string path(PathOf(request.url));
  auto found = resources_.find(ResourceKey{path, request.method});
  if (found == resources_.end()) found = resources_.find(ResourceKey{path, 0});
  if (found == resources_.end() || !found->second) {
    if (fallback_handler_) {
      ResourceHandler fallback = fallback_handler_;  // a copy, as below
      return fallback(request);
    }
    return HostAnswer::Error(404, "Not found: " + request.url);
  }
  // A copy, so that the handler may reprogram the host while it runs.
  ResourceHandler handler = found->second;
  return handler(request);
}

void ReferenceHost::FillResponse(KavResponse& response, HostAnswer answer) {
  auto storage = std::make_unique<ResponseStorage>();
  storage->host = this;
  response.status = answer.status;
  response.text = storage->arena.Text("");
  switch (answer.kind) {
    case HostAnswer::Kind::kBody:
      response.body = storage->arena.Build(answer.body);
      break;
    case HostAnswer::Kind::kRecord:
      response.body = answer.record;
      break;
    case HostAnswer::Kind::kError:
      response.error = storage->arena.Text(answer.error);
      response.error_owned = 1;
      break;
    case HostAnswer::Kind::kStream: {
      size_t length = 0;
      for (const std::string& chunk : answer.chunks) length += chunk.size();
      response.stream_read = &ReadStream;
      response.stream_close = answer.closable ? &CloseStream : nullptr;
      response.stream_length = answer.announced_length.value_or(static_cast<uint32_t>(length));
      storage->chunks = std::move(answer.chunks);
      storage->failing_read = answer.failing_read;
      break;
    }
  }
  response.stream_handle = storage.get();
  response.release = &ReleaseResponse;
  live_responses_.insert(storage.release());
}

// ---- Events -------------------------------------------------------------------

void ReferenceHost::QueueEvent(std::string name, Value payload, uint32_t word) {
  queued_events_.push_back({std::move(name), std::move(payload), word});
}

size_t ReferenceHost::Pump() {
  size_t callbacks = 0;
  for (size_t pending = queued_events_.size(); pending > 0 && !queued_events_.empty(); --pending) {
    QueuedEvent event = std::move(queued_events_.front());
    queued_events_.pop_front();
    callbacks += Deliver(event.name, event.payload, event.word);
  }
  return callbacks;
}

size_t ReferenceHost::Deliver(const std::string& name, const Value& payload, uint32_t word) {
  auto found = active_subscriptions_.find(name);
  if (found == active_subscriptions_.end()) return 0;
  // A copy: the callback may subscribe or unsubscribe.
  const Subscription subscription = found->second;
  RecordArena arena;
  KavEvent event{};
  event.name = arena.Text(name);
  event.payload = arena.Build(payload);
  event.word = word;
  event.context = subscription.context;
  subscription.callback(&event);
  return 1;
}

const Subscription* ReferenceHost::ActiveSubscription(std::string_view event_name) const {
  auto found = active_subscriptions_.find(event_name);
  return found != active_subscriptions_.end() ? &found->second : nullptr;
}

std::vector<std::string> ReferenceHost::ActiveEventNames() const {
  std::vector<std::string> names;
  for (const auto& [name, subscription] : active_subscriptions_) names.push_back(name);
  return names;
}

// ---- Journal ------------------------------------------------------------------

size_t ReferenceHost::CountCalls(HostFunction function) const {
  return static_cast<size_t>(
      std::count_if(calls_.begin(), calls_.end(),
                    [function](const HostCall& call) { return call.function == function; }));
}

void ReferenceHost::ClearRecords() {
  calls_.clear();
  requests_.clear();
  published_events_.clear();
  log_lines_.clear();
}

void ReferenceHost::Record(HostFunction function, std::string text) {
  calls_.push_back({function, std::move(text)});
}

// ---- The host function table ----------------------------------------------------

ReferenceHost& ReferenceHost::Of(KavHostTable* table) {
  return *reinterpret_cast<const BoundTable*>(table)->host;
}

void KAV_CALL ReferenceHost::OnRequest(KavHostTable* table, KavResponse* response,
                                       const KavRequest* request) {
  ReferenceHost& host = Of(table);
  RecordedRequest recorded;
  recorded.method = request->method;
  recorded.url = TextOr(request->url);
  recorded.arguments = CopyArguments(request->arguments, request->argument_count);
  recorded.context = request->context;
  host.Record(HostFunction::kRequest,
              std::string(MethodName(recorded.method)) + " " + recorded.url);
  host.requests_.push_back(recorded);
  host.FillResponse(*response, host.Answer(recorded));
}

void KAV_CALL ReferenceHost::OnReserved1(KavHostTable* table, uintptr_t, uintptr_t) {
  Of(table).Record(HostFunction::kReserved1);
}

void KAV_CALL ReferenceHost::OnSendEvent(KavHostTable* table, const KavEvent* event) {
  ReferenceHost& host = Of(table);
  PublishedEvent published{TextOr(event->name), Value::FromRecord(event->payload), event->word};
  host.Record(HostFunction::kSendEvent, published.name);
  host.published_events_.push_back(std::move(published));
  if (host.event_observer_) host.event_observer_(host.published_events_.back());
}

void KAV_CALL ReferenceHost::OnSubscribe(KavHostTable* table, const char* event_name,
                                         uint32_t plugin_handle, KavEventCallback callback,
                                         void* context, uint32_t flag) {
  ReferenceHost& host = Of(table);
  Subscription subscription{TextOr(event_name), plugin_handle, callback, context, flag};
  host.Record(HostFunction::kSubscribe, subscription.event_name);
  host.active_subscriptions_[subscription.event_name] = subscription;
  host.subscriptions_.push_back(std::move(subscription));
}

void KAV_CALL ReferenceHost::OnUnsubscribe(KavHostTable* table, const char* event_name,
                                           uint32_t plugin_handle) {
  ReferenceHost& host = Of(table);
  Unsubscription unsubscription{TextOr(event_name), plugin_handle};
  host.Record(HostFunction::kUnsubscribe, unsubscription.event_name);
  host.active_subscriptions_.erase(unsubscription.event_name);
  host.unsubscriptions_.push_back(std::move(unsubscription));
}

void KAV_CALL ReferenceHost::OnReserved5(KavHostTable* table, uintptr_t, uintptr_t, uintptr_t,
                                         uint64_t, uintptr_t) {
  Of(table).Record(HostFunction::kReserved5);
}

void KAV_CALL ReferenceHost::OnYield(KavHostTable* table) {
  ReferenceHost& host = Of(table);
  host.Record(HostFunction::kYield);
  const size_t yield = ++host.yields_;
  if (host.yield_hook_) {
    std::function<void()> hook = host.yield_hook_;
    hook();
  }
  host.RunScheduledActions(yield);
  host.Pump();
}

void ReferenceHost::ScheduleAtYield(size_t nth, std::function<void()> action) {
  scheduled_actions_.push_back({yields_ + nth, std::move(action)});
}

void ReferenceHost::RunScheduledActions(size_t yield) {
  // Taken out first: an action may schedule further actions.
  std::vector<std::function<void()>> due;
  for (auto it = scheduled_actions_.begin(); it != scheduled_actions_.end();) {
    if (it->at_yield == yield) {
      due.push_back(std::move(it->action));
      it = scheduled_actions_.erase(it);
    } else {
      ++it;
    }
  }
  for (std::function<void()>& action : due) {
    if (action) action();
  }
}

void KAV_CALL ReferenceHost::OnBeginWait(KavHostTable* table, const char* label, uintptr_t) {
  Of(table).Record(HostFunction::kBeginWait, TextOr(label));
}

void KAV_CALL ReferenceHost::OnEndWait(KavHostTable* table) {
  Of(table).Record(HostFunction::kEndWait);
}

void KAV_CALL ReferenceHost::OnLog(KavHostTable* table, int32_t level, const char* text) {
  ReferenceHost& host = Of(table);
  LogLine line{level, TextOr(text)};
  host.Record(HostFunction::kLog, line.text);
  if (host.echo_log_) std::fprintf(stderr, "[plugin %d] %s\n", line.level, line.text.c_str());
  host.log_lines_.push_back(std::move(line));
  if (host.log_observer_) host.log_observer_(host.log_lines_.back());
}

// ---- Streams and release ------------------------------------------------------

KavBool KAV_CALL ReferenceHost::ReadStream(void* handle, uint8_t* buffer, uint32_t* size,
                                           uint8_t* more) {
  auto* storage = static_cast<ResponseStorage*>(handle);
  ++storage->host->stream_reads_;
  if (storage->reads++ == storage->failing_read) {
    *size = 0;
    return 0;
  }
  if (storage->next_chunk >= storage->chunks.size()) {
    *size = 0;
    *more = 0;
    return 1;
  }
  const std::string& chunk = storage->chunks[storage->next_chunk];
  const size_t taken = std::min<size_t>(*size, chunk.size() - storage->chunk_offset);
  if (taken > 0) std::memcpy(buffer, chunk.data() + storage->chunk_offset, taken);
  storage->chunk_offset += taken;
  if (storage->chunk_offset == chunk.size()) {
    ++storage->next_chunk;
    storage->chunk_offset = 0;
  }
  *size = static_cast<uint32_t>(taken);
  if (storage->next_chunk == storage->chunks.size()) *more = 0;
  return 1;
}

void KAV_CALL ReferenceHost::CloseStream(void* handle) {
  ++static_cast<ResponseStorage*>(handle)->host->stream_closes_;
}

void KAV_CALL ReferenceHost::ReleaseResponse(KavResponse* response) {
  auto* storage = static_cast<ResponseStorage*>(response->stream_handle);
  if (storage == nullptr) return;
  ReferenceHost* host = storage->host;
  if (host->live_responses_.erase(storage) == 0) return;  // not ours, or released twice
  delete storage;
  response->stream_handle = nullptr;
}

}  // namespace kav::host
