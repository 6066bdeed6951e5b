// The plugin's entry, callbacks and lifecycle, driven through its C ABI by the
// reference host.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/reference_host.h"

namespace kav::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

constexpr char kPluginName[] = "kav-queue-eligibility";
const std::vector<std::string> kServiceProxyEvents = {
    "OnServiceProxyUuidEvent", "OnServiceProxyMethodEvent", "OnServiceProxyAsyncEvent"};

TEST(PluginEntryTest, CompatibleCoresGetTheFilledRecord) {
  const ApiVersion cores[] = {{18, 0, 0}, {18, 0, 5}, {18, 3, 0}};
  for (const ApiVersion& core : cores) {
    SCOPED_TRACE("core " + core.ToString());
    ReferenceHost host;
    ASSERT_TRUE(host.Load(core)) << host.error();
    EXPECT_EQ(host.plugin_version(), (ApiVersion{18, 0, 0}));
    const KavPluginCallbacks* callbacks = host.callbacks();
    ASSERT_NE(callbacks, nullptr);
    EXPECT_NE(callbacks->initialize, nullptr);
    EXPECT_NE(callbacks->destroy, nullptr);
    EXPECT_NE(callbacks->get_memory_statistics, nullptr);
    EXPECT_NE(host.module(), nullptr);
    EXPECT_EQ(host.plugin_name(), kPluginName);
    EXPECT_NE(host.resource_table(), nullptr);
    // Registration must not reach the host: it has no function table yet,
    // and nothing may be recorded until Initialize.
    EXPECT_THAT(host.calls(), IsEmpty());
    host.Destroy();
    EXPECT_THAT(host.calls(), IsEmpty()) << "nothing was subscribed, so nothing to end";
  }
}

// Loads the plugin and exits cleanly if the entry function returns.
[[noreturn]] void LoadAndExitCleanly(ApiVersion core) {
  ReferenceHost host;
  static_cast<void>(host.Load(core));
  std::fprintf(stderr, "entry function returned\n");
  std::exit(0);
}

bool EndedAbnormally(int status) {
  return !::testing::ExitedWithCode(0)(status);
}

TEST(PluginEntryDeathTest, IncompatibleCoresEndTheProcess) {
  // The report's lines are spelled out: in the regular expressions of
  // GoogleTest on Windows "." does not match a line feed.
  const struct {
    ApiVersion core;
    const char* expected;
  } rows[] = {
      {{17, 9, 9},
       "ALE-EECF0606\n\nDescription: kav-queue-eligibility which supports plugin API "
       "18\\.0\\.0 is not compatible with core's plugin API 17\\.9\\.9"},
      {{19, 0, 0},
       "ALE-EECF0606\n\nDescription: kav-queue-eligibility which supports plugin API "
       "18\\.0\\.0 is not compatible with core's plugin API 19\\.0\\.0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE("core " + row.core.ToString());
    EXPECT_EXIT(LoadAndExitCleanly(row.core), EndedAbnormally, row.expected);
  }
}

TEST(PluginInitializeTest, SubscribesTheServiceProxyEventsWithFlagOne) {
  ReferenceHost host;
  ASSERT_TRUE(host.Load()) << host.error();
  ASSERT_TRUE(host.Initialize(/*plugin_handle=*/7));

  // The service-proxy events come first (flag 1); the module's own
  // observations, started by OnStart, follow with flag 0.
  std::vector<std::string> service_proxy_names;
  for (const Subscription& subscription : host.subscriptions()) {
    SCOPED_TRACE(subscription.event_name);
    const bool service_proxy = service_proxy_names.size() < kServiceProxyEvents.size();
    if (service_proxy) service_proxy_names.push_back(subscription.event_name);
    EXPECT_EQ(subscription.plugin_handle, 7u);
    EXPECT_EQ(subscription.flag, service_proxy ? 1u : 0u);
    EXPECT_NE(subscription.callback, nullptr);
    EXPECT_EQ(subscription.context, host.module());
  }
  EXPECT_THAT(service_proxy_names, UnorderedElementsAreArray(kServiceProxyEvents));
  EXPECT_EQ(host.CountCalls(HostFunction::kReserved1), 0u);
  EXPECT_EQ(host.CountCalls(HostFunction::kReserved5), 0u);
}

TEST(PluginMemoryStatisticsTest, WritesSixConsistentCountersAndTwoZeroWords) {
  ReferenceHost host;
  ASSERT_TRUE(host.Load()) << host.error();
  ASSERT_TRUE(host.Initialize());
  const size_t calls_before = host.calls().size();
  const MemoryStatisticsWords memory = host.GetMemoryStatistics();
  EXPECT_EQ(memory.words[12], 0u);
  EXPECT_EQ(memory.words[13], 0u);
  // The module itself was allocated through the counting table.
  EXPECT_GT(memory.allocations(), 0u);
  EXPECT_GE(memory.bytes_allocated(), memory.allocations());
  EXPECT_LE(memory.frees(), memory.allocations());
  EXPECT_LE(memory.bytes_freed(), memory.bytes_allocated());
  EXPECT_GE(memory.peak_bytes_in_use(), memory.BytesInUse());
  EXPECT_GT(memory.live_allocations_at_peak(), 0u);
  EXPECT_LE(memory.live_allocations_at_peak(), memory.allocations());
  EXPECT_EQ(host.calls().size(), calls_before) << "reading the statistics does not call the host";
}

TEST(PluginDestroyTest, UnsubscribesEverySubscribedEvent) {
  ReferenceHost host;
  ASSERT_TRUE(host.Load()) << host.error();
  ASSERT_TRUE(host.Initialize(/*plugin_handle=*/3));
  std::vector<Unsubscription> expected;
  for (const std::string& name : host.ActiveEventNames()) expected.push_back({name, 3});
  ASSERT_GE(expected.size(), kServiceProxyEvents.size());

  host.Destroy();
  EXPECT_THAT(host.unsubscriptions(), UnorderedElementsAreArray(expected));
  EXPECT_THAT(host.ActiveEventNames(), IsEmpty());
  EXPECT_FALSE(host.loaded());
}

// One round of what a module goes through: created, initialized, events
// delivered to it, statistics read, destroyed.
void RunModuleLifecycle() {
  ReferenceHost host;
  ASSERT_TRUE(host.Load()) << host.error();
  ASSERT_TRUE(host.Initialize());
  const Value answer = Value::MakeMap({{"uuid", Value::String("1")},
                                       {"serviceName", Value::String("gatekeeper")},
                                       {"payload", Value::String("{}")}});
  for (const std::string& name : kServiceProxyEvents) host.QueueEvent(name, answer);
  host.Pump();
  static_cast<void>(host.GetMemoryStatistics());
  host.Destroy();
}

TEST(PluginMemoryTest, BytesInUseReturnAfterReleasedWork) {
  // `observer` keeps the library loaded so that all rounds share its
  // counters, and reads them.
  ReferenceHost observer;
  ASSERT_TRUE(observer.Load()) << observer.error();
  RunModuleLifecycle();  // warm-up: lazily created state of the library
  const uint64_t before = observer.GetMemoryStatistics().BytesInUse();
  const uint64_t allocations_before = observer.GetMemoryStatistics().allocations();
  for (int round = 0; round < 5; ++round) RunModuleLifecycle();
  const MemoryStatisticsWords after = observer.GetMemoryStatistics();
  EXPECT_GT(after.allocations(), allocations_before) << "the rounds allocated nothing";
  EXPECT_EQ(after.BytesInUse(), before);
}

}  // namespace
}  // namespace kav::host
