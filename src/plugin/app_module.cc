#include "plugin/app_module.h"

#include <cctype>
#include <exception>
#include <utility>

#include "diagnostics/assert.h"
#include "diagnostics/format.h"
#include "diagnostics/logging.h"
#include "platform/allocation.h"

namespace kav {
namespace {

constexpr const char* kServiceProxyEventNames[] = {
    "OnServiceProxyUuidEvent",
    "OnServiceProxyMethodEvent",
    "OnServiceProxyAsyncEvent",
};
constexpr uint32_t kServiceProxySubscriptionFlag = 1;

bool IsTypeNameSeparator(char c) {
  return c == '!' || c == '+' || c == '-' || c == '.' || c == '/' || c == '_';
}

AppModule* ModuleOf(void* module) {
  return static_cast<AppModule*>(module);
}

// What an exception that reached a callback says about itself.
const char* DescribeCurrentException() {
  try {
    throw;
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace

std::string PluginApiVersion::ToString() const {
  return FormatMessage("%1.%2.%3", {major, minor, patch});
}

bool PluginApiVersion::CanHost(const PluginApiVersion& plugin) const {
  if (major != plugin.major) return false;
  return minor > plugin.minor || (minor == plugin.minor && patch >= plugin.patch);
}

std::string MakeTypeNamePrefix(std::string_view plugin_name) {
  std::string prefix;
  prefix.reserve(plugin_name.size());
  bool upper_next = true;
  for (char c : plugin_name) {
    if (IsTypeNameSeparator(c)) {
      upper_next = true;
      continue;
    }
    prefix.push_back(upper_next ? static_cast<char>(std::toupper(static_cast<unsigned char>(c)))
                                : c);
    upper_next = false;
  }
  return prefix;
}

AppModule::AppModule()
    : callbacks_{&AppModule::Initialize, &AppModule::Destroy, &AppModule::GetMemoryStatistics} {}

AppModule::~AppModule() = default;

// ---- Host function table forwarding (slots 4 to 12) ------------------------

void AppModule::HostRequest(KavResponse* response, const KavRequest* request) {
  if (host_ != nullptr) host_->functions->request(host_->functions, response, request);
}

void AppModule::HostReserved1(uintptr_t a, uintptr_t b) {
  if (host_ != nullptr) host_->functions->reserved1(host_->functions, a, b);
}

void AppModule::HostSendEvent(const KavEvent* event) {
  if (host_ != nullptr) host_->functions->send_event(host_->functions, event);
}

void AppModule::HostSubscribe(const char* event_name, uint32_t plugin_handle,
                              KavEventCallback callback, void* context, uint32_t flag) {
  if (host_ != nullptr) {
    host_->functions->subscribe(host_->functions, event_name, plugin_handle, callback, context,
                                flag);
  }
}

void AppModule::HostUnsubscribe(const char* event_name, uint32_t plugin_handle) {
  if (host_ != nullptr) host_->functions->unsubscribe(host_->functions, event_name, plugin_handle);
}

void AppModule::HostReserved5(uintptr_t a, uintptr_t b, uintptr_t c, uint64_t d, uintptr_t e) {
  if (host_ != nullptr) host_->functions->reserved5(host_->functions, a, b, c, d, e);
}

void AppModule::HostYield() {
  if (host_ != nullptr) host_->functions->yield(host_->functions);
}

void AppModule::HostBeginWait(const char* label) {
  if (host_ != nullptr) host_->functions->begin_wait(host_->functions, label, 0);
}

void AppModule::HostEndWait() {
  if (host_ != nullptr) host_->functions->end_wait(host_->functions);
}

// ---- Derived module's slots -------------------------------------------------

void AppModule::RegisterApi() {}

bool AppModule::OnStart() {
  return true;
}

// ---- Registration -------------------------------------------------------------

void AppModule::RegisterWithHost(KavPluginRecord* record, std::string_view plugin_name) {
  const PluginApiVersion core{record->version[0], record->version[1], record->version[2]};
  if (!core.CanHost(kPluginApiVersion)) {
    FatalError(kIncompatibleCoreErrorCode,
               FormatMessage("%1 which supports plugin API %2 is not compatible with core's "
                             "plugin API %3",
                             {plugin_name, kPluginApiVersion.ToString(), core.ToString()}));
  }
  core_version_ = core;
  plugin_name_ = std::string(plugin_name);
  help_tags_ = {"Plugins", "Plugin " + plugin_name_};
  type_name_prefix_ = MakeTypeNamePrefix(plugin_name_);
  dispatcher_.SetDefaultTags(help_tags_);
  RegisterHostTypes();
  RegisterApi();
  BuildResourceTable();
  FillRecord(record);
}

void AppModule::RegisterHostTypes() {
  if (!api_registry_.Initialized()) api_registry_.InitializeRegistry();
  type_registry_ = &api_registry_;
  DeclareHostTypesAndEvents(api_registry_);
}

void AppModule::BuildResourceTable() {
  const KavResourceTable* table = dispatcher_.BuildResourceTable();
  resource_table_ = table != nullptr ? *table : KavResourceTable{};
}

void AppModule::FillRecord(KavPluginRecord* record) const {
  record->version[0] = kPluginApiVersion.major;
  record->version[1] = kPluginApiVersion.minor;
  record->version[2] = kPluginApiVersion.patch;
  record->callbacks = &callbacks_;
  record->module = const_cast<AppModule*>(this);
  record->name = plugin_name_.c_str();
  record->resources = &resource_table_;
}

// ---- Callbacks ------------------------------------------------------------

KavBool KAV_CALL AppModule::Initialize(void* module, const KavHostRecord* host) {
  AppModule* self = ModuleOf(module);
  if (host == nullptr || host->functions == nullptr) return 0;
  try {
    return self->InitializeModule(host) ? 1 : 0;
  } catch (...) {
    Log(kLogError, 0, "%s: Initialize failed: %s", self->plugin_name_.c_str(),
        DescribeCurrentException());
    return 0;
  }
}

bool AppModule::InitializeModule(const KavHostRecord* host) {
  host_ = host;
  InstallPluginLogTarget();
  plugin_handle_ = host->plugin_handle;
  log_name_ = plugin_name_;
  SubscribeServiceProxyEvents();
  return OnStart();
}

void AppModule::SubscribeServiceProxyEvents() {
  using Receiver = void (AppModule::*)(const PluginServiceProxyResponse&);
  constexpr Receiver kReceivers[] = {
      &AppModule::ReceiveServiceProxyUuidEvent,
      &AppModule::ReceiveServiceProxyMethodEvent,
      &AppModule::ReceiveServiceProxyAsyncEvent,
  };
  for (size_t i = 0; i < std::size(kServiceProxyEventNames); ++i) {
    auto handler = std::make_shared<EventHandler>();
    handler->payload_kind = EventPayloadKind::kServiceProxyResponse;
    handler->on_service_proxy_response =
        [this, receiver = kReceivers[i]](const PluginServiceProxyResponse& response) {
          (this->*receiver)(response);
        };
    RegisterEventHandler(kServiceProxyEventNames[i], std::move(handler),
                         kServiceProxySubscriptionFlag);
  }
}

void KAV_CALL AppModule::Destroy(void* module) {
  AppModule* self = ModuleOf(module);
  try {
    self->stopping_ = true;
    self->Shutdown();
  } catch (...) {
    Log(kLogError, 0, "%s: Shutdown failed: %s", self->plugin_name_.c_str(),
        DescribeCurrentException());
  }
  delete self;
}

void KAV_CALL AppModule::GetMemoryStatistics(void* /*module*/, uint32_t out[14]) {
  const MemoryStatistics statistics = ReadMemoryStatistics();
  const uint64_t counters[6] = {
      statistics.peak_bytes_in_use, statistics.live_allocations_at_peak,
      statistics.bytes_allocated,   statistics.allocations,
      statistics.bytes_freed,       statistics.frees,
  };
  for (size_t i = 0; i < 6; ++i) {
    out[2 * i] = static_cast<uint32_t>(counters[i]);
    out[2 * i + 1] = static_cast<uint32_t>(counters[i] >> 32);
  }
  out[12] = 0;
  out[13] = 0;
}

void AppModule::Shutdown() {
  for (const auto& [event_name, handler] : event_handlers_) {
    HostUnsubscribe(event_name.c_str(), plugin_handle_);
  }
  event_handlers_.clear();
  {
    std::lock_guard<std::mutex> lock(service_proxy_lock_);
    pending_calls_.clear();
    async_handlers_.clear();
    received_answers_.clear();
  }
  exact_observers_.clear();
  pattern_observers_.clear();
}

// ---- Plugin log target ------------------------------------------------------

void AppModule::InstallPluginLogTarget() {
  std::unique_ptr<PluginLogTarget> target = SwitchLoggingToHost(host_->functions);
  if (target != nullptr) plugin_log_target_ = std::move(target);
}

}  // namespace kav
