// Subscriptions, observations, event dispatch and publication through the
// reference host.
#include "plugin/event_subscriptions.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "module_harness.h"
#include "serialization/json.h"

namespace kav {
namespace {

using host::HostAnswer;
using host::Unsubscription;
using host::Value;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using testing_support::ModuleHarness;

Value ResourceChange(std::string uri, std::string event_type, Value data = {}) {
  return Value::MakeMap({{"uri", Value::String(std::move(uri))},
                         {"eventType", Value::String(std::move(event_type))},
                         {"data", std::move(data)}});
}

const char* EventTypeName(PluginResourceEventType type) {
  switch (type) {
    case PluginResourceEventType::kCreate:
      return "Create";
    case PluginResourceEventType::kUpdate:
      return "Update";
    case PluginResourceEventType::kDelete:
      return "Delete";
  }
  return "?";
}

TEST(SubscribeTest, ObserversOfOneEventNameShareOneHostSubscription) {
  ModuleHarness harness(/*plugin_handle=*/4);
  ASSERT_TRUE(harness.Initialize());
  const std::string minimal = "/kav-champions/v1/inventories/42/champions-minimal";
  const std::string counts = "/kav-champions/v1/inventories/42/champions-playable-count";
  const std::string event_name = "OnJsonApiEvent_kav-champions_v1_inventories";
  harness.module().ObserveResource<BindingProperty>(minimal, nullptr);
  harness.module().ObserveResource<BindingProperty>(counts, nullptr);

  const std::vector<std::string> subscribed = harness.CallTexts(host::HostFunction::kSubscribe);
  EXPECT_THAT(subscribed, ElementsAre(event_name));
  const host::Subscription* subscription = harness.host().ActiveSubscription(event_name);
  ASSERT_NE(subscription, nullptr);
  EXPECT_EQ(subscription->flag, 0u);
  EXPECT_EQ(subscription->plugin_handle, 4u);
  EXPECT_EQ(subscription->context, &harness.module());

  harness.module().Unsubscribe(minimal);
  EXPECT_THAT(harness.host().unsubscriptions(), IsEmpty()) << "one observation is left";
  harness.module().Unsubscribe(counts);
  EXPECT_THAT(harness.host().unsubscriptions(), ElementsAre(Unsubscription{event_name, 4}));
  harness.module().Unsubscribe(counts);
  EXPECT_EQ(harness.host().unsubscriptions().size(), 1u) << "a count of 0 stays 0";
}

TEST(ObserveResourceTest, ChangesReachTheObserversWhoseUriOrPatternMatches) {
  ModuleHarness harness;
  ASSERT_TRUE(harness.Initialize());
  const std::string summoner = "/kav-summoner/v1/current-summoner";
  const std::string leagues = "/kav-leagues/v1/summoner-leagues/*";
  const std::string state = "/kav-plugin-manager/v1/state";
  harness.host().SetResource(summoner, KAV_METHOD_GET, HostAnswer::JsonBody(R"({"id":1})"));

  std::vector<std::string> seen;
  auto record = [&seen](const char* observer) {
    return [&seen, observer](const ResourceEvent<BindingProperty>& event) {
      seen.push_back(std::string(observer) + " " + EventTypeName(event.event_type) + " " +
                     event.uri + " " + SerializeJson(event.value));
    };
  };
  harness.module().ObserveResource<BindingProperty>(summoner, record("summoner"));
  harness.module().ObserveResource<BindingProperty>(leagues, record("leagues"));
  harness.module().ObserveResource<PluginManagerResource>(
      state, [&seen](const ResourceEvent<PluginManagerResource>& event) {
        seen.push_back(std::string("state ") + EventTypeName(event.event_type) + " " +
                       std::to_string(static_cast<int>(event.value.state)));
      });

  // Exact URLs are read at once, patterns are not.
  std::vector<std::string> read;
  for (const host::RecordedRequest& request : harness.host().requests())
    read.push_back(request.url);
  EXPECT_THAT(read, ElementsAre(summoner, state));
  EXPECT_THAT(seen, ElementsAre("summoner Create " + summoner + R"( {"id":1})"))
      << "the failed read of the state is skipped silently";

  const struct {
    const char* name;
    const char* event_name;
    Value payload;
    std::vector<std::string> expected;
  } rows[] = {
      {"uri without the leading slash",
       "OnJsonApiEvent_kav-summoner_v1_current-summoner",
       ResourceChange("kav-summoner/v1/current-summoner", "Update",
                      Value::MakeMap({{"id", Value::Signed(2)}})),
       {"summoner Update kav-summoner/v1/current-summoner {\"id\":2}"}},
      {"pattern matches one more piece",
       "OnJsonApiEvent_kav-leagues_v1_summoner-leagues",
       ResourceChange("/kav-leagues/v1/summoner-leagues/42", "Create", Value::Signed(7)),
       {"leagues Create /kav-leagues/v1/summoner-leagues/42 7"}},
      {"pattern needs a non-empty piece",
       "OnJsonApiEvent_kav-leagues_v1_summoner-leagues",
       ResourceChange("/kav-leagues/v1/summoner-leagues/", "Update", Value::Signed(7)),
       {}},
      {"pattern does not cross a slash",
       "OnJsonApiEvent_kav-leagues_v1_summoner-leagues",
       ResourceChange("/kav-leagues/v1/summoner-leagues/42/x", "Update", Value::Signed(7)),
       {}},
      {"typed observer",
       "OnJsonApiEvent_kav-plugin-manager_v1_state",
       ResourceChange(state, "Update",
                      Value::MakeMap({{"state", Value::String("PluginsInitialized")}})),
       {"state Update 1"}},
      {"delete reaches a typed observer without data",
       "OnJsonApiEvent_kav-plugin-manager_v1_state",
       ResourceChange(state, "Delete"),
       {"state Delete 0"}},
      {"data that does not convert is dropped",
       "OnJsonApiEvent_kav-plugin-manager_v1_state",
       ResourceChange(state, "Update", Value::MakeArray({Value::Signed(1)})),
       {}},
      {"payload that is no resource change is dropped",
       "OnJsonApiEvent_kav-summoner_v1_current-summoner",
       Value::String("not a change"),
       {}},
      {"unknown event type is dropped",
       "OnJsonApiEvent_kav-summoner_v1_current-summoner",
       ResourceChange(summoner, "Renamed"),
       {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    seen.clear();
    EXPECT_EQ(harness.host().Deliver(row.event_name, row.payload), 1u);
    EXPECT_THAT(seen, ElementsAreArray(row.expected));
  }
}

TEST(SendEventTest, PublishesUnderTheResolvedNameAndTheGivenOne) {
  const struct {
    const char* given_name;
    std::vector<std::string> published;
  } rows[] = {
      {"OnJsonApiEvent",
       {"OnJsonApiEvent_kav-queue-eligibility_v1_initial-configuration-complete",
        "OnJsonApiEvent"}},
      {"OnJsonApiEvent_kav-queue-eligibility_v1_initial-configuration-complete",
       {"OnJsonApiEvent_kav-queue-eligibility_v1_initial-configuration-complete"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.given_name);
    ModuleHarness harness;
    ASSERT_TRUE(harness.Initialize());
    Resource resource{"/kav-queue-eligibility/v1/initial-configuration-complete",
                      PluginResourceEventType::kUpdate, BindingProperty()};
    resource.data.SetBool(true);
    MaybeType<Failure, Nothing> sent = harness.module().SendEvent(row.given_name, resource, 3);
    ASSERT_TRUE(sent.HasValue()) << sent.Error().message;

    std::vector<std::string> names;
    for (const host::PublishedEvent& event : harness.host().published_events()) {
      names.push_back(event.name);
      EXPECT_EQ(event.word, 3u);
      EXPECT_EQ(event.payload.ToJson(),
                R"({"data":true,"eventType":"Update",)"
                R"("uri":"/kav-queue-eligibility/v1/initial-configuration-complete"})");
    }
    EXPECT_EQ(names, row.published);
  }
}

}  // namespace
}  // namespace kav
