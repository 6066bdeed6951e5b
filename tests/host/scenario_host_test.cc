// The host side of the main job: JSON for answers, path templates of the
// plugin's resource table, and printed outcomes.
#include "host/scenario_host.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/json_value.h"

namespace kav::host {
namespace {

TEST(ScenarioHostTest, JsonTextRoundTripsThroughOwnedRecords) {
  const struct {
    const char* name;
    const char* json;
    const char* indented;  // nullptr: the parse fails
    const char* error;
  } rows[] = {
      {"scalar", "7", "7", ""},
      {"nested", R"({"a":[1,-2,18446744073709551615],"b":{"c":null,"d":"x"},"e":[]})",
       "{\n  \"a\": [\n    1,\n    -2,\n    18446744073709551615\n  ],\n  \"b\": {\n"
       "    \"c\": null,\n    \"d\": \"x\"\n  },\n  \"e\": []\n}",
       ""},
      {"bad second line", "[1,\n 2,]", nullptr, "line 2, column 4: Invalid value."},
      {"empty", "", nullptr, "line 1, column 1: The document is empty."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    JsonError error;
    std::optional<OwnedHostValue> owned = OwnedHostValue::FromJson(row.json, &error);
    if (row.indented == nullptr) {
      EXPECT_FALSE(owned.has_value());
      EXPECT_EQ(error.ToString(), row.error);
      continue;
    }
    ASSERT_TRUE(owned.has_value()) << error.ToString();
    // Moving keeps the record's storage in place.
    const OwnedHostValue moved = std::move(*owned);
    EXPECT_EQ(RecordToIndentedJson(moved.record()), row.indented);
    EXPECT_EQ(moved.ToValue().ToJson(), row.json);
  }
}

TEST(ScenarioHostTest, PathTemplatesMatchWholePaths) {
  const struct {
    const char* path_template;
    const char* path;
    bool matches;
  } rows[] = {
      {"/kav-queue-eligibility/v3/eligibility", "/kav-queue-eligibility/v3/eligibility", true},
      {"/kav-queue-eligibility/v3/eligibility", "/kav-queue-eligibility/v3/eligibility/", false},
      {"/kav-queue-eligibility/v3/eligibility", "/kav-queue-eligibility/v3", false},
      {"/items/{id}", "/items/42", true},
      {"/items/{id}", "/items/", true},
      {"/items/{id}", "/items/4/2", false},
      {"/items/{id}/x", "/items/4/x", true},
      {"/files/{+path}", "/files/a/b/c", true},
      {"/broken/{id", "/broken/1", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.path_template) + " ~ " + row.path);
    EXPECT_EQ(MatchesPathTemplate(row.path_template, row.path), row.matches);
  }
}

TEST(ScenarioHostTest, OutcomesPrintAsJsonOrError) {
  CallOutcome answer;
  answer.body = Value::MakeArray({Value::MakeMap({{"queueId", Value::Signed(420)}})});
  EXPECT_EQ(answer.ToText(), "[\n  {\n    \"queueId\": 420\n  }\n]");
  CallOutcome failure;
  failure.status = 500;
  failure.error = "UNAVAILABLE";
  EXPECT_EQ(failure.ToText(), "error 500: UNAVAILABLE");

  ScenarioHost host(Scenario{}, "/nonexistent/libplugin.so");
  EXPECT_FALSE(host.Load());
  EXPECT_THAT(host.error(), ::testing::HasSubstr("/nonexistent/libplugin.so"));
  const CallOutcome unloaded = host.Call("GET", "/kav-queue-eligibility/v1/eligibility");
  EXPECT_FALSE(unloaded.reached_plugin);
  EXPECT_EQ(unloaded.ToText(), "error 404: the plugin is not loaded");
  EXPECT_EQ(MethodCode("PATCH"), uint32_t{KAV_METHOD_PATCH});
  EXPECT_EQ(MethodCode("get"), uint32_t{KAV_METHOD_CUSTOM});
}

}  // namespace
}  // namespace kav::host
