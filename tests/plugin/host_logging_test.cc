// The host's own types and events in the module's registry, and the switch
// of the process's log lines to the host at Initialize.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "diagnostics/logging.h"
#include "module_harness.h"
#include "plugin/host_types.h"

namespace kav {
namespace {

using host::LogLine;
using ::testing::ElementsAre;
using testing_support::ModuleHarness;

TEST(HostTypesTest, RegistrationDeclaresTheHostTypesAndEvents) {
  ModuleHarness harness;
  const TypeRegistry& registry = *harness.module().type_registry();
  const struct {
    const char* name;
    std::vector<std::string> members;  // fields, or "Name=value" enumerators
  } types[] = {
      {"PluginManagerState", {"NotReady=0", "PluginsInitialized=1"}},
      {"PluginManagerResource", {"state"}},
      {"PluginResourceEventType", {"Create=0", "Delete=2", "Update=1"}},
      {"PluginResourceEvent", {"uri", "eventType", "data"}},
      {"PluginMqdsEvent", {"clientId", "subtopic", "typeName", "body"}},
      {"PluginMqdsResponse", {"typeName", "body"}},
      {"PluginServiceProxyResponse",
       {"uuid", "serviceName", "methodName", "payload", "status", "error"}},
  };
  for (const auto& type : types) {
    SCOPED_TRACE(type.name);
    const TypeDescription* description = registry.FindTypeByName(type.name);
    ASSERT_NE(description, nullptr);
    EXPECT_THAT(description->tags, ElementsAre("oclient"));
    std::vector<std::string> members;
    for (const FieldDescriptor& field : description->fields) members.push_back(field.name);
    for (const auto& [name, value] : description->values) {
      members.push_back(name + "=" + std::to_string(value.value));
    }
    EXPECT_EQ(members, type.members);
  }

  const struct {
    const char* name;
    const char* payload;
    const char* description;
  } events[] = {
      {"OnJsonApiEvent", "PluginResourceEvent", "Fired when a resource is changed."},
      {"OnMqdsEvent", "PluginMqdsEvent",
       "Fired when a message is received over the MQDS connection."},
      {"OnServiceProxyUuidEvent", "PluginServiceProxyResponse",
       "Fired when a uuid-based service proxy message is received."},
      {"OnServiceProxyMethodEvent", "PluginServiceProxyResponse",
       "Fired when a method-based service proxy message is received."},
      {"OnServiceProxyAsyncEvent", "PluginServiceProxyResponse",
       "Fired when an async service proxy message is received."},
  };
  for (const auto& event : events) {
    SCOPED_TRACE(event.name);
    const EventDescription* description = registry.FindEvent(event.name);
    ASSERT_NE(description, nullptr);
    ASSERT_NE(description->type, nullptr);
    EXPECT_EQ(description->type->name, event.payload);
    EXPECT_EQ(description->description, event.description);
    EXPECT_THAT(description->tags, ElementsAre("oclient"));
  }
}

// Runs in a child process of its own, since the switch changes the
// process-wide logger for good. Exits 0 only when every check holds; what
// the built-in targets write before the switch goes to standard error.
void SwitchLoggingToTheHost() {
  auto check = [](bool holds, const char* what) {
    if (!holds) {
      std::fprintf(stderr, "check failed: %s\n", what);
      std::exit(1);
    }
  };
  ModuleHarness first;
  Log(kLogWarn, 0, "warning before initialize");
  check(first.Initialize(), "initialize");
  check(FindLogTarget("PluginLogTarget") != nullptr, "plugin log target registered");
  check(FindLogTarget("StdErrLogTarget") == nullptr, "standard-error target unregistered");
  check(GetLogLevel() == kLogOkay, "level 0");
  check(GetExcludedLogCategories() == kCategoryXtr, "category bit 2 excluded");
  Log(kLogOkay, 0, "okay after initialize");
  Log(kLogError, kCategoryXtr, "dropped");
  check(first.host().log_lines() == std::vector<LogLine>{{0, "okay after initialize"}},
        "only the host receives lines, category bit 2 excepted");

  // A second module finds the target in place: configuration unchanged, no
  // second target.
  SetLogLevel(kLogWarn);
  ModuleHarness second;
  check(second.Initialize(), "second initialize");
  check(GetLogLevel() == kLogWarn, "level left alone");
  Log(kLogError, 0, "one target");
  check(first.host().log_lines().size() == 2 && second.host().log_lines().empty(),
        "lines still reach the first host only");
  std::exit(0);
}

TEST(PluginLogTargetDeathTest, InitializeHandsLogLinesToTheHost) {
  EXPECT_EXIT(SwitchLoggingToTheHost(), ::testing::ExitedWithCode(0),
              "  WARN\\|.*warning before initialize");
}

}  // namespace
}  // namespace kav
