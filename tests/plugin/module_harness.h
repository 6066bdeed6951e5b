// An in-process module driven by the reference host's function table: the
// module is registered as the entry function would register it and
// initialized with a host record that points at the host's table, so every
// host call it makes is recorded by the host.
#ifndef KAV_TESTS_PLUGIN_MODULE_HARNESS_H_
#define KAV_TESTS_PLUGIN_MODULE_HARNESS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "binding/declare.h"
#include "host/reference_host.h"
#include "kav/plugin_host.h"
#include "plugin/app_module.h"

namespace kav::testing_support {

// A record of the test module's own API.
struct GateAnswer {
  int32_t queue_id = 0;
  std::string reason;

  bool operator==(const GateAnswer&) const = default;
};

constexpr auto BindingFields(const GateAnswer*) {
  return Fields(Field("queueId", &GateAnswer::queue_id), Field("reason", &GateAnswer::reason));
}

class TestModule : public AppModule {
 public:
  void RegisterApi() override { (void)RegisterStructure<GateAnswer>(*type_registry(), "TestGate"); }

  // Runs inside Destroy, after the stopping flag is set.
  std::function<void(TestModule&)> on_shutdown;
  void Shutdown() override {
    if (on_shutdown) on_shutdown(*this);
    AppModule::Shutdown();
  }
};

class ModuleHarness {
 public:
  static constexpr char kPluginName[] = "kav-queue-eligibility";

  explicit ModuleHarness(uint32_t plugin_handle = 5) : module_(new TestModule) {
    KavPluginRecord record{};
    record.version[0] = 18;
    module_->RegisterWithHost(&record, kPluginName);
    host_record_.functions = host_.function_table();
    host_record_.plugin_handle = plugin_handle;
  }
  ModuleHarness(const ModuleHarness&) = delete;
  ModuleHarness& operator=(const ModuleHarness&) = delete;
  ~ModuleHarness() { Destroy(); }

  // Initialize as the host calls it, then forgets what it recorded so that
  // tests see only their own host calls.
  bool Initialize() {
    const bool started = AppModule::Initialize(module_, &host_record_) != 0;
    host_.ClearRecords();
    return started;
  }
  void Destroy() {
    if (module_ == nullptr) return;
    AppModule::Destroy(module_);
    module_ = nullptr;
  }

  host::ReferenceHost& host() { return host_; }
  TestModule& module() { return *module_; }

  // The texts of the host calls of `function`, in order.
  std::vector<std::string> CallTexts(host::HostFunction function) const {
    std::vector<std::string> texts;
    for (const host::HostCall& call : host_.calls()) {
      if (call.function == function) texts.push_back(call.text);
    }
    return texts;
  }

 private:
  host::ReferenceHost host_;  // outlives the module
  KavHostRecord host_record_{};
  TestModule* module_;  // owned until Destroy
};

}  // namespace kav::testing_support

#endif  // KAV_TESTS_PLUGIN_MODULE_HARNESS_H_
