// AppModule: the base class of a plugin's module, its registration with the
// host, and the three callbacks through which the host starts, queries and
// destroys it.
//
// Life of a module: the entry function creates it and calls RegisterWithHost
// (version check, registrations, plugin record filled); the host then calls
// Initialize (host record stored, log target installed, service-proxy events
// subscribed, OnStart), any number of calls in both directions follow, and
// Destroy ends it. No host function is used before Initialize has stored the
// host record: the Host* operations do nothing until then.
//
// What a derived module uses to talk to the host (each defined in the header
// named, all included at the end of this one):
//   Request<T>            typed requests to other plugins' resources (request.h)
//   ObserveResource<T>    observations of resources; SendEvent publishes
//                         (event_subscriptions.h)
//   Await, Yield          waiting without blocking the host (await.h)
//   ServiceProxyCall<T>   calls to platform services (service_proxy.h)
//
// Thread-safety: the host serialises its calls into the module; the module's
// tables take no lock, except the service-proxy tables, which are guarded by
// one non-recursive mutex because their answers may arrive on any thread.
#ifndef KAV_PLUGIN_APP_MODULE_H_
#define KAV_PLUGIN_APP_MODULE_H_

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "binding/binding_property.h"
#include "binding/type_registry.h"
#include "kav/plugin_host.h"
#include "plugin/host_types.h"
#include "plugin/maybe_type.h"
#include "plugin/plugin_log_target.h"
#include "routing/dispatch.h"

namespace kav {

// A plugin API version: major, minor, patch.
struct PluginApiVersion {
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t patch = 0;

  // "major.minor.patch" in decimal.
  std::string ToString() const;
  // Whether a core of this version can host a plugin that implements
  // `plugin`: same major, and a minor that is greater, or equal with a patch
  // at least the plugin's.
  bool CanHost(const PluginApiVersion& plugin) const;
};

// The plugin API that this framework implements.
inline constexpr PluginApiVersion kPluginApiVersion{18, 0, 0};

// The fatal error raised when the core's plugin API is not compatible.
inline constexpr char kIncompatibleCoreErrorCode[] = "ALE-EECF0606";

// The module's connection to the host, slots 0 to 12 of the module's virtual
// operations. Slots 4 to 12 are the host's function table entries 0 to 8,
// with the table argument left out.
class HostInterface {
 public:
  virtual void Subscribe(std::string_view /*url*/) {}
  virtual void Unsubscribe(std::string_view /*url*/) {}
  virtual ~HostInterface() = default;
  virtual void Shutdown() {}
  virtual void HostRequest(KavResponse* response, const KavRequest* request) = 0;
  virtual void HostReserved1(uintptr_t a, uintptr_t b) = 0;
  virtual void HostSendEvent(const KavEvent* event) = 0;
  virtual void HostSubscribe(const char* event_name, uint32_t plugin_handle,
                             KavEventCallback callback, void* context, uint32_t flag) = 0;
  virtual void HostUnsubscribe(const char* event_name, uint32_t plugin_handle) = 0;
  virtual void HostReserved5(uintptr_t a, uintptr_t b, uintptr_t c, uint64_t d, uintptr_t e) = 0;
  virtual void HostYield() = 0;
  virtual void HostBeginWait(const char* label) = 0;
  virtual void HostEndWait() = 0;
};

// What the dispatch function converts an event's payload to before it calls
// the handler.
enum class EventPayloadKind : uint8_t {
  kResource,              // Resource, for resource events
  kServiceProxyResponse,  // PluginServiceProxyResponse, for service-proxy events
};

// The one handler of a host event name. Only the function that matches
// `payload_kind` is called; it may be empty.
struct EventHandler {
  EventPayloadKind payload_kind = EventPayloadKind::kResource;
  std::function<void(const Resource&)> on_resource;
  std::function<void(const PluginServiceProxyResponse&)> on_service_proxy_response;
};

// The host event name under which changes of `url` are announced:
// "OnJsonApiEvent" and the URL's non-empty path pieces joined with "_", kept
// to 6 entries for "kav-platform-config" resources and to 4 otherwise.
std::string ResolveEventName(std::string_view url);

// Whether `uri` matches `pattern`, in which "*" stands for a run of
// characters without "/" (at least one when it ends the pattern).
bool MatchUriPattern(std::string_view pattern, std::string_view uri);

// The type-name prefix of a plugin name: its first character and every
// character after one of "!+-./_" upper-cased, those characters dropped
// ("kav-queue-eligibility" gives "KavQueueEligibility").
std::string MakeTypeNamePrefix(std::string_view plugin_name);

class AppModule : public HostInterface {
 public:
  using ResourceObserver = std::function<void(const Resource&)>;
  using ServiceProxyHandler = std::function<void(const PluginServiceProxyResponse&)>;

  // Empty tables, the API registry created, the callbacks filled.
  AppModule();
  ~AppModule() override;
  AppModule(const AppModule&) = delete;
  AppModule& operator=(const AppModule&) = delete;

  // Slot 0: counts a subscription of the URL's event name; the first one
  // installs the resource router as the name's handler and subscribes with
  // the host (flag 0).
  void Subscribe(std::string_view url) override;
  // Slot 1: the last outstanding subscription of the name unsubscribes it
  // with the host and removes its handler. Observers stay.
  void Unsubscribe(std::string_view url) override;
  // Slot 3: unsubscribes every event name that has a handler, clears the
  // handlers, the service-proxy tables and the observers. Subscription
  // counts are left as they are.
  void Shutdown() override;

  // Slots 4 to 12: forward to the host's function table; nothing happens
  // before Initialize has stored the host record.
  void HostRequest(KavResponse* response, const KavRequest* request) override;
  void HostReserved1(uintptr_t a, uintptr_t b) override;
  void HostSendEvent(const KavEvent* event) override;
  void HostSubscribe(const char* event_name, uint32_t plugin_handle, KavEventCallback callback,
                     void* context, uint32_t flag) override;
  void HostUnsubscribe(const char* event_name, uint32_t plugin_handle) override;
  void HostReserved5(uintptr_t a, uintptr_t b, uintptr_t c, uint64_t d, uintptr_t e) override;
  void HostYield() override;
  void HostBeginWait(const char* label) override;
  void HostEndWait() override;

  // Slot 13: declares the derived module's types and resources. Does nothing.
  virtual void RegisterApi();
  // Slot 14: the last step of Initialize; its result is Initialize's.
  // Returns true.
  virtual bool OnStart();

  // ---- Talking to other plugins ------------------------------------------
  // Sends `method` (a KavHttpMethod code) on `url` with the arguments as
  // positional host values and returns the answer converted to T, or a
  // Failure (request.h). T = Nothing ignores the body.
  template <class T, class... Arguments>
  MaybeType<Failure, T> Request(uint32_t method, std::string_view url,
                                const Arguments&... arguments);

  // Calls `handler` with every change of `url` (a URL with "*" is a
  // pattern), its data converted to T; a URL without "*" is read at once
  // (event_subscriptions.h).
  template <class T>
  void ObserveResource(std::string_view url, std::function<void(const ResourceEvent<T>&)> handler);

  // Publishes `resource` under the event name resolved from its uri and,
  // when `event_name` differs, again under `event_name`. Fails only when the
  // resource does not convert.
  MaybeType<Failure, Nothing> SendEvent(std::string_view event_name, const Resource& resource,
                                        uint32_t word = 0);

  // Returns the future's value, letting the host run (HostYield) until it
  // is ready (await.h). A future that cannot deliver is a fatal error.
  template <class T>
  T Await(std::future<T> future);
  // Lets the host run pending work once, marked as a wait "Wait: yield".
  void Yield();

  // Starts a call of `method_name` of the platform service `service_name`
  // with `payload` (a registered record) as JSON; `on_response` gets the
  // answer. An empty `response_method_name` makes it uuid-based, otherwise
  // method-based with `further_text` handed to the login plugin. Returns ""
  // when the call is under way, else why not ("Finalizing", "Request
  // already in flight", a conversion or request failure message). See
  // service_proxy.h; `on_response` runs under the service-proxy lock.
  template <class Payload>
  std::string ServiceProxyRequest(std::string_view service_name, std::string_view method_name,
                                  const Payload& payload, std::string_view response_method_name,
                                  std::string_view further_text, ServiceProxyHandler on_response);
  // A uuid-based ServiceProxyRequest awaited to its end: the answer's
  // payload as T, or a Failure (code 0) with the reason.
  template <class T, class Payload>
  MaybeType<Failure, T> ServiceProxyCall(std::string_view service_name,
                                         std::string_view method_name, const Payload& payload);

  // Called once, by the entry function. Checks the core's version in words 0
  // to 2 of `record` (an incompatible core ends the process with the fatal
  // error kIncompatibleCoreErrorCode), stores the version and the name,
  // registers the host's types and the derived module's API, builds the
  // resource table and fills the record: version 18.0.0, callbacks, this
  // module, name, resource table. The record's texts and tables point into
  // this module. REQUIRES: record is not null.
  void RegisterWithHost(KavPluginRecord* record, std::string_view plugin_name);

  // The plugin callbacks; `module` is the module's address as handed to the
  // host. Exceptions never leave them.
  static KavBool KAV_CALL Initialize(void* module, const KavHostRecord* host);
  static void KAV_CALL Destroy(void* module);
  static void KAV_CALL GetMemoryStatistics(void* module, uint32_t out[14]);

  // The callback handed to HostSubscribe; the event's context is the module.
  static void KAV_CALL DispatchEvent(const KavEvent* event);

  const std::string& plugin_name() const { return plugin_name_; }
  const std::string& log_name() const { return log_name_; }
  const std::string& type_name_prefix() const { return type_name_prefix_; }
  const std::vector<std::string>& help_tags() const { return help_tags_; }
  const PluginApiVersion& core_version() const { return core_version_; }
  uint32_t plugin_handle() const { return plugin_handle_; }
  bool stopping() const { return stopping_; }
  // Null until Initialize.
  const KavHostRecord* host() const { return host_; }
  // Null until RegisterWithHost has registered the host types.
  TypeRegistry* type_registry() const { return type_registry_; }
  // The registry that every conversion of the framework uses: the module's
  // own API registry (also before registration has stored the pointer).
  const TypeRegistry& registry() const {
    return type_registry_ != nullptr ? *type_registry_ : api_registry_;
  }
  const KavPluginCallbacks& callbacks() const { return callbacks_; }
  const KavResourceTable& resource_table() const { return resource_table_; }
  // The module's resources: RegisterApi registers them here (with the help
  // tags as default tags); RegisterWithHost builds the resource table from it.
  Dispatcher& dispatcher() { return dispatcher_; }

 protected:
  // Registers `handler` as the one handler of `event_name` (replacing an
  // earlier one) and subscribes the name with the host with `flag`, the
  // dispatch function as callback and this module as context. Shutdown
  // unsubscribes every name registered here.
  void RegisterEventHandler(const std::string& event_name, std::shared_ptr<EventHandler> handler,
                            uint32_t flag);

  // Observers of resource changes, by exact URI or by pattern with "*".
  void SetExactObserver(const std::string& uri, ResourceObserver observer);
  void SetPatternObserver(const std::string& pattern, ResourceObserver observer);

  // The resource router, handler of every resource event name: calls the
  // exact observer of the change's URI (a "/" put before a URI that lacks
  // it), then every pattern observer whose pattern matches.
  void RouteResourceEvent(const Resource& resource);

  // Registration steps of RegisterWithHost. RegisterHostTypes declares the
  // host's own records and events and stores the registry pointer;
  // BuildResourceTable builds the table handed to the host from the registry.
  void RegisterHostTypes();
  void BuildResourceTable();

  // Step 2 of Initialize: hands log lines to the host from now on, unless a
  // plugin log target is registered already (the module then has none).
  void InstallPluginLogTarget();

  // Converts the event's payload as the handler asks and calls it.
  void DeliverEvent(const EventHandler& handler, const KavEvent& event);

  // Handlers of the three service-proxy events, registered by Initialize.
  void ReceiveServiceProxyUuidEvent(const PluginServiceProxyResponse& response);
  void ReceiveServiceProxyMethodEvent(const PluginServiceProxyResponse& response);
  void ReceiveServiceProxyAsyncEvent(const PluginServiceProxyResponse& response);
  // The matching step: completes the first received answer (in table order)
  // whose call is pending, and forgets both. At most one call per run.
  // REQUIRES: service_proxy_lock() is held.
  void CompleteOneServiceProxyCall();

  std::mutex& service_proxy_lock() { return service_proxy_lock_; }

 private:
  bool InitializeModule(const KavHostRecord* host);
  void SubscribeServiceProxyEvents();
  void FillRecord(KavPluginRecord* record) const;

  // The untyped part of Request<T>: converts the arguments to host values,
  // calls HostRequest, reads the answer (unless `read_body` is false) and
  // calls the response's release function.
  MaybeType<Failure, BindingProperty> SendRequest(uint32_t method, std::string_view url,
                                                  std::span<const BindingProperty> arguments,
                                                  bool read_body);
  MaybeType<Failure, BindingProperty> ReadResponse(uint32_t method, std::string_view url,
                                                   const KavResponse& response, bool read_body);
  // Reads a streamed body in pieces of kStreamReadSize, yielding after a
  // short piece that leaves more to come, and parses it as JSON. Calls the
  // stream's close function, if any, on success and on error.
  BindingResult ReadResponseStream(const KavResponse& response);

  // The untyped part of ObserveResource<T>: stores `observer` as exact or
  // pattern observer, subscribes, and reads a URL without "*" at once.
  void StartObservation(std::string_view url, ResourceObserver observer);

  // ServiceProxyRequest once the payload is JSON text.
  std::string StartServiceProxyRequest(std::string_view service_name, std::string_view method_name,
                                       const std::string& payload,
                                       std::string_view response_method_name,
                                       std::string_view further_text,
                                       ServiceProxyHandler on_response);
  // The value or failure that a service-proxy answer means for a call
  // expecting T.
  template <class T>
  MaybeType<Failure, T> DecodeServiceProxyAnswer(const PluginServiceProxyResponse& response) const;

  // Declaration order is the order the module owns its parts in; members are
  // destroyed in reverse.
  std::unordered_map<std::string, ResourceObserver> exact_observers_;
  std::unordered_map<std::string, ResourceObserver> pattern_observers_;
  TypeRegistry* type_registry_ = nullptr;  // not owned: &api_registry_ once registered
  uint32_t plugin_handle_ = 0;
  std::string log_name_;
  std::unordered_map<std::string, std::shared_ptr<EventHandler>> event_handlers_;
  std::unordered_map<std::string, uint32_t> subscription_counts_;
  std::unordered_map<std::string, ServiceProxyHandler> pending_calls_;
  std::unordered_map<std::string, ServiceProxyHandler> async_handlers_;
  std::unordered_map<std::string, PluginServiceProxyResponse> received_answers_;
  std::mutex service_proxy_lock_;
  bool stopping_ = false;
  PluginApiVersion core_version_;
  std::unique_ptr<PluginLogTarget> plugin_log_target_;  // null until Initialize
  std::string plugin_name_;
  std::string type_name_prefix_;
  std::vector<std::string> help_tags_;
  TypeRegistry api_registry_;
  Dispatcher dispatcher_{api_registry_};  // destroyed before the registry it uses
  const KavHostRecord* host_ = nullptr;
  KavPluginCallbacks callbacks_;
  KavResourceTable resource_table_{};
};

}  // namespace kav

// The member templates above.
#include "plugin/await.h"
#include "plugin/event_subscriptions.h"
#include "plugin/request.h"
#include "plugin/service_proxy.h"

#endif  // KAV_PLUGIN_APP_MODULE_H_
