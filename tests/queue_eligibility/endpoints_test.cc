// The eligibility resources, end to end: which computation each version
// chooses, custom games, and every failure the resources answer.
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "eligibility_test_support.h"

namespace kav::eligibility_test {
namespace {

constexpr char kV1[] = "/kav-queue-eligibility/v1/eligibility";
constexpr char kV2[] = "/kav-queue-eligibility/v2/eligibility";
constexpr char kCustom[] = "/kav-queue-eligibility/v3/custom";

struct Call {
  const char* method;
  std::string url;
  std::optional<std::string> body;
};

Call V1(std::initializer_list<uint64_t> summoners, std::initializer_list<int32_t> queues) {
  return {"POST", kV1, QueryBody(summoners, queues)};
}
Call V2(std::initializer_list<uint64_t> summoners, std::initializer_list<int32_t> queues) {
  return {"POST", kV2, QueryBody(summoners, queues)};
}
Call V3(std::initializer_list<uint64_t> summoners, std::initializer_list<int32_t> queues) {
  return {"GET", V3Url(summoners, queues), std::nullopt};
}
Call Custom(const char* query) {
  return {"GET", std::string(kCustom) + "?" + query, std::nullopt};
}

host::CallOutcome Perform(host::ScenarioHost& host, const Call& call) {
  return host.Call(call.method, call.url, call.body);
}

TEST(EndpointsTest, RegistersTheFiveResourcesInOrder) {
  host::ScenarioHost host(BaseScenario());
  ASSERT_TRUE(host.Load()) << host.error();
  std::vector<std::string> entries;
  for (const KavResourceEntry& entry : host.host().resource_entries()) {
    const char* name = entry.name;
    const char* path = entry.path_template;
    std::string text = std::string(name) + " " + host::MethodName(entry.method) + " " + path;
    const KavApiParameter* parameter = entry.parameters;
    const KavParameterLocation* locations = entry.locations;
    for (uint32_t i = 0; i < entry.parameter_count && parameter != nullptr; ++i) {
      const char* parameter_name = parameter->name;
      text += " " + std::string(parameter_name) + "@" + std::to_string(locations[i].location);
      parameter = parameter->next;
    }
    entries.push_back(text);
  }
  EXPECT_EQ(entries, (std::vector<std::string>{
                         "PostKavQueueEligibilityV1Eligibility POST "
                         "/kav-queue-eligibility/v1/eligibility eligibilityQueryParam@5",
                         "PostKavQueueEligibilityV2Eligibility POST "
                         "/kav-queue-eligibility/v2/eligibility eligibilityQueryParam@5",
                         "GetKavQueueEligibilityV3Eligibility GET "
                         "/kav-queue-eligibility/v3/eligibility summonerIds@1 queueIds@1",
                         "GetKavQueueEligibilityV3Custom GET /kav-queue-eligibility/v3/custom "
                         "teamSize@1 pickMode@1",
                         "GetKavQueueEligibilityV1InitialConfigurationComplete GET "
                         "/kav-queue-eligibility/v1/initial-configuration-complete",
                     }));
}

TEST(EndpointsTest, EachVersionChoosesItsComputation) {
  struct Row {
    const char* name;
    ScenarioSetup setup;
    Call call;
    std::string answer;
    size_t gatekeeper_queries;
  };
  const std::vector<Row> rows = {
      {"v3 sorts the queues", nullptr, V3({kSelf}, {450, 2000, 420}),
       "420:ok 450:ok 2000:QueueDisabled", 1},
      {"v2 answers as v3", nullptr, V2({kSelf}, {450, 2000, 420}),
       "420:ok 450:ok 2000:QueueDisabled", 1},
      {"v1 keeps the request order and closes first", nullptr, V1({kSelf}, {450, 2000, 420}),
       "2000:QueueUnsupported 450:ok 420:ok", 0},
      {"v3 with the gatekeeper switched off",
       [](host::Scenario& s) { s.gate_keeper_enabled = host::PlatformSwitch::Of(false); },
       V3({kSelf}, {450, 2000, 420}), "2000:QueueUnsupported 420:ok 450:ok", 0},
      {"v2 with the gatekeeper switched off",
       [](host::Scenario& s) { s.gate_keeper_enabled = host::PlatformSwitch::Of(false); },
       V2({1002, kSelf}, {430, 420}),
       "420:PlayerLevelRestriction{playerLevelRestriction=30}[1002] 430:ok", 0},
      {"gatekeeper switch without a value stays on",
       [](host::Scenario& s) {
         s.gate_keeper_enabled = host::PlatformSwitch{true, std::nullopt};
       },
       V3({1002, kSelf}, {430, 420}), "420:ok 430:ok", 1},
      {"custom game", nullptr, Custom("teamSize=5&pickMode=AllRandom"), "-1:ok", 0},
      {"custom game of negative size without practice games",
       [](host::Scenario& s) { s.practice_game_enabled = host::PlatformSwitch::Of(false); },
       Custom("teamSize=-1&pickMode=Blind"), "-1:TeamMinSizeRestriction,QueueDisabled", 0},
      {"custom games under the shutdown law",
       [](host::Scenario& s) { s.shutdown_law.custom_disabled = true; },
       Custom("teamSize=0&pickMode=Draft"), "-1:PlayerMinorRestriction[1001]", 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    if (row.setup) row.setup(scenario);
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome outcome = Perform(host, row.call);
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(Summarize(outcome.body), row.answer);
    EXPECT_EQ(host.gatekeeper_queries().size(), row.gatekeeper_queries);
  }
}

// The "restrictionCode" of every restriction of an answer, in order: a
// number as its decimal text, a name in double quotes.
std::vector<std::string> RestrictionCodes(const host::Value& answer) {
  std::vector<std::string> codes;
  if (answer.kind() != host::Value::Kind::kArray) return codes;
  for (const host::Value& entry : answer.AsArray()) {
    const host::Value* restrictions = entry.Find("restrictions");
    if (restrictions == nullptr || restrictions->kind() != host::Value::Kind::kArray) continue;
    for (const host::Value& restriction : restrictions->AsArray()) {
      const host::Value* code = restriction.Find("restrictionCode");
      if (code != nullptr && code->kind() == host::Value::Kind::kString) {
        codes.push_back("\"" + code->AsString() + "\"");
      } else {
        codes.push_back(std::to_string(AsInteger(code)));
      }
    }
  }
  return codes;
}

TEST(EndpointsTest, RestrictionCodesCrossAsNumbersThatTheHostNames) {
  struct Row {
    const char* name;
    Call call;
    std::vector<std::string> raw;    // as the plugin wrote them
    std::vector<std::string> named;  // after the host named them from the API description
  };
  const std::vector<Row> rows = {
      {"v3, gatekeeper rules",
       V3({kSelf}, {2000, 9999}),
       {"0", "1"},
       {"\"QueueDisabled\"", "\"QueueUnsupported\""}},
      {"v2, a party", V2({1002, kSelf}, {1700}), {"0"}, {"\"QueueDisabled\""}},
      {"v1, local rules", V1({1002}, {420}), {"2"}, {"\"PlayerLevelRestriction\""}},
      {"custom game", Custom("teamSize=-1&pickMode=Blind"), {"8"}, {"\"TeamMinSizeRestriction\""}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::ScenarioHost host(BaseScenario());
    ASSERT_TRUE(host.Load()) << host.error();
    const host::CallOutcome outcome = Perform(host, row.call);
    ASSERT_TRUE(outcome.ok()) << outcome.ToText();
    EXPECT_EQ(RestrictionCodes(outcome.raw_body), row.raw);
    EXPECT_EQ(RestrictionCodes(outcome.body), row.named);
    // kav-host prints the named answer.
    EXPECT_NE(outcome.ToText().find("\"restrictionCode\": " + row.named.front()), std::string::npos)
        << outcome.ToText();
  }
}

TEST(EndpointsTest, FailuresAnswerStatus500WithTheirMessage) {
  struct Row {
    const char* name;
    ScenarioSetup setup;
    Call call;
    std::string error;
    std::string log;  // "" when nothing is logged at level ERROR
  };
  const ScenarioSetup gatekeeper_off = [](host::Scenario& s) {
    s.gate_keeper_enabled = host::PlatformSwitch::Of(false);
  };
  const std::string queues_error = "Error response for GET /kav-game-queues/v1/queues: down";
  const std::string champions_error =
      "Error response for GET /kav-champions/v1/inventories/1001/champions-minimal: no champions";
  const std::vector<Row> rows = {
      {"v3 before any queue list", [](host::Scenario& s) { s.queues.reset(); }, V3({kSelf}, {420}),
       "UNAVAILABLE", ""},
      {"v2 before any queue list", [](host::Scenario& s) { s.queues.reset(); }, V2({1002}, {420}),
       "UNAVAILABLE", ""},
      {"shutdown law list unreadable",
       [](host::Scenario& s) {
         s.faults.push_back(ErrorFault("/kav-kr-shutdown-law/v1/disabled-queues", "boom"));
       },
       V3({1002}, {420}),
       "Failed to get kr shutdown disabled queues: Error response for GET "
       "/kav-kr-shutdown-law/v1/disabled-queues: boom",
       "Failed to get kr shutdown disabled queues: Error response for GET "
       "/kav-kr-shutdown-law/v1/disabled-queues: boom"},
      {"gatekeeper fails", [](host::Scenario& s) { s.gatekeeper.error = "service down"; },
       V3({kSelf}, {420}), "Failed to get gatekeeper restrictions : service down",
       "Failed to get gatekeeper restrictions : service down"},
      {"v1 queue list unreadable",
       [](host::Scenario& s) {
         s.faults.push_back(ErrorFault("/kav-game-queues/v1/queues", "down"));
       },
       V1({kSelf}, {420}), "Error to get available game queues : " + queues_error,
       "Failed to get all available game queues: " + queues_error},
      {"v3 without gatekeeper, queue list unreadable",
       [gatekeeper_off](host::Scenario& s) {
         gatekeeper_off(s);
         s.faults.push_back(ErrorFault("/kav-game-queues/v1/queues", "down"));
       },
       V3({kSelf}, {420}), "Error to get available game queues : " + queues_error,
       "Failed to get all available game queues: " + queues_error},
      {"champion inventory unreadable",
       [](host::Scenario& s) {
         s.faults.push_back(
             ErrorFault("/kav-champions/v1/inventories/1001/champions-minimal", "no champions"));
       },
       V1({kSelf}, {420}), "Error to get available champions : " + champions_error,
       "Failed to get champion inventory for summoner ID +1001. Error: " + champions_error},
      {"custom status unreadable, other checks passed",
       [](host::Scenario& s) {
         s.faults.push_back(ErrorFault("/kav-kr-shutdown-law/v1/custom-status", "closed"));
       },
       Custom("teamSize=5&pickMode=Blind"),
       "Failed to get kr shutdown for custom games: Error response for GET "
       "/kav-kr-shutdown-law/v1/custom-status: closed",
       "Failed to get kr shutdown for custom games: Error response for GET "
       "/kav-kr-shutdown-law/v1/custom-status: closed"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host::Scenario scenario = BaseScenario();
    if (row.setup) row.setup(scenario);
    host::ScenarioHost host(scenario);
    ASSERT_TRUE(host.Load()) << host.error();
    host.host().ClearRecords();
    const host::CallOutcome outcome = Perform(host, row.call);
    EXPECT_EQ(outcome.status, 500u);
    EXPECT_EQ(outcome.error.value_or("<no error>"), row.error);
    std::vector<std::string> errors;
    for (const host::LogLine& line : host.log_lines()) {
      if (line.level == kError) errors.push_back(line.text);
    }
    EXPECT_EQ(errors,
              row.log.empty() ? std::vector<std::string>{} : std::vector<std::string>{row.log});
  }
}

TEST(EndpointsTest, FailedRebuildIsRetriedByTheNextRequest) {
  host::Scenario scenario = BaseScenario();
  scenario.gatekeeper.error = "busy";
  scenario.gatekeeper.error_times = 1;
  host::ScenarioHost host(scenario);
  ASSERT_TRUE(host.Load()) << host.error();
  const host::CallOutcome failed = host.Call("GET", V3Url({kSelf}, {420}));
  EXPECT_EQ(failed.error.value_or(""), "Failed to get gatekeeper restrictions : busy");
  const host::CallOutcome retried = host.Call("GET", V3Url({kSelf}, {420}));
  ASSERT_TRUE(retried.ok()) << retried.ToText();
  EXPECT_EQ(Summarize(retried.body), "420:ok");
  EXPECT_EQ(CountLog(host, kAlways,
                     "Queue Eligibility configuration: self eligibility is dirty, rebuilding"),
            2u);
}

}  // namespace
}  // namespace kav::eligibility_test
