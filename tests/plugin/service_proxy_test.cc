// Service-proxy calls through the reference host: posting, matching answers
// that arrive as events, refusals, and the blocking ServiceProxyCall.
#include "plugin/service_proxy.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "module_harness.h"

namespace kav {
namespace {

using host::HostAnswer;
using host::HostFunction;
using host::LogLine;
using host::RecordedRequest;
using host::Value;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::GateAnswer;
using testing_support::ModuleHarness;
using testing_support::TestModule;

constexpr char kUuidEvent[] = "OnServiceProxyUuidEvent";
constexpr char kMethodEvent[] = "OnServiceProxyMethodEvent";
constexpr char kAsyncEvent[] = "OnServiceProxyAsyncEvent";

Value ProxyAnswer(std::string uuid, std::string service, std::string method, std::string payload,
                  std::string error = "") {
  return Value::MakeMap({{"uuid", Value::String(std::move(uuid))},
                         {"serviceName", Value::String(std::move(service))},
                         {"methodName", Value::String(std::move(method))},
                         {"payload", Value::String(std::move(payload))},
                         {"status", Value::String("200")},
                         {"error", Value::String(std::move(error))}});
}

std::vector<std::string> ArgumentTexts(const RecordedRequest& request) {
  std::vector<std::string> texts;
  for (const host::Argument& argument : request.arguments) texts.push_back(argument.value.ToJson());
  return texts;
}

struct Unregistered {
  int32_t x = 0;
};

TEST(ServiceProxyCallTest, AnswersBecomeValuesOrFailures) {
  const std::string answer_type = StaticType::Name<GateAnswer>();
  const struct {
    const char* name;
    bool posted;                // whether the uuid POST succeeds
    bool answer_before_return;  // delivered while the POST runs, else at the 2nd yield
    std::string payload;
    std::string error;
    bool ok;
    std::string message;
  } rows[] = {
      {"answer during the wait", true, false, R"({"queueId":420,"reason":"x"})", "", true, ""},
      {"answer before the POST returns", true, true, R"({"queueId":420,"reason":"x"})", "", true,
       ""},
      {"error answer", true, false, "", "service down", false, "service down"},
      {"payload of another shape", true, false, "[1]", "", false,
       "Failed to deserialize response payload \"[1]\" to a " + answer_type},
      {"payload that is not JSON", true, false, "{", "", false,
       "Failed to deserialize response payload \"{\" to a " + answer_type},
      {"POST refused", false, false, "", "", false,
       "Error response for POST /kav-login/v1/service-proxy-uuid-requests: nope"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ModuleHarness harness(/*plugin_handle=*/6);
    ASSERT_TRUE(harness.Initialize());
    host::ReferenceHost& host = harness.host();
    const Value answer = ProxyAnswer("u-1", "gatekeeper", "check", row.payload, row.error);
    host.SetResourceHandler(kServiceProxyUuidRequestsUrl, KAV_METHOD_POST,
                            [&](const RecordedRequest&) {
                              if (!row.posted) return HostAnswer::Error(503, "nope");
                              if (row.answer_before_return) {
                                host.Deliver(kUuidEvent, answer);
                              } else {
                                host.ScheduleAtYield(2, [&] { host.Deliver(kUuidEvent, answer); });
                              }
                              return HostAnswer::Body(Value::String("u-1"));
                            });

    MaybeType<Failure, GateAnswer> got =
        harness.module().ServiceProxyCall<GateAnswer>("gatekeeper", "check", GateAnswer{1, "why"});
    ASSERT_EQ(got.HasValue(), row.ok) << (got.HasValue() ? "" : got.Error().message);
    if (row.ok) {
      EXPECT_EQ(got.Value(), (GateAnswer{420, "x"}));
    } else {
      EXPECT_EQ(got.Error().code, 0u);
      EXPECT_EQ(got.Error().message, row.message);
    }
    ASSERT_EQ(host.requests().size(), 1u);
    EXPECT_THAT(
        ArgumentTexts(host.requests()[0]),
        ElementsAre("\"gatekeeper\"", "\"check\"", "6", R"("{\"queueId\":1,\"reason\":\"why\"}")"));
    const size_t expected_yields = !row.posted || row.answer_before_return ? 0 : 2;
    EXPECT_EQ(host.CountCalls(HostFunction::kYield), expected_yields);
    EXPECT_EQ(host.CountCalls(HostFunction::kBeginWait), expected_yields == 0 ? 0u : 1u);
  }
}

TEST(ServiceProxyRequestTest, LogsEachStepOfACall) {
  ModuleHarness harness;
  ASSERT_TRUE(harness.Initialize());
  harness.host().SetResource(kServiceProxyUuidRequestsUrl, KAV_METHOD_POST,
                             HostAnswer::Body(Value::String("u-7")));
  std::vector<std::string> completed;
  const std::string refusal = harness.module().ServiceProxyRequest(
      "gatekeeper", "check", GateAnswer{}, "", "",
      [&](const PluginServiceProxyResponse& response) { completed.push_back(response.payload); });
  EXPECT_EQ(refusal, "");
  harness.host().Deliver(kUuidEvent, ProxyAnswer("u-7", "gatekeeper", "check", "{}"));
  EXPECT_THAT(completed, ElementsAre("{}"));
  EXPECT_THAT(
      harness.host().log_lines(),
      ElementsAre(
          LogLine{3, "kav-queue-eligibility: Preparing service proxy request: gatekeeper.check"},
          LogLine{3,
                  "kav-queue-eligibility: Started service proxy request: gatekeeper.check (u-7)"},
          LogLine{3, "kav-queue-eligibility: Fulfilled service proxy request: u-7"}));
}

TEST(ServiceProxyRequestTest, MethodFormCallsAreMatchedOnePerRun) {
  ModuleHarness harness(/*plugin_handle=*/2);
  ASSERT_TRUE(harness.Initialize());
  host::ReferenceHost& host = harness.host();
  host.SetResource(kServiceProxyMethodRequestsUrl, KAV_METHOD_POST,
                   HostAnswer::Body(Value::Bool(true)));
  std::vector<std::string> completed;
  auto start = [&](const char* response_method) {
    return harness.module().ServiceProxyRequest(
        "svc", "ask", GateAnswer{}, response_method, "extra",
        [&completed, response_method](const PluginServiceProxyResponse& response) {
          completed.push_back(std::string(response_method) + "=" + response.payload);
        });
  };

  // Two answers wait before their calls exist; each started call completes
  // its own answer in its own matching run and leaves the other waiting.
  host.Deliver(kMethodEvent, ProxyAnswer("", "svc", "a", "1"));
  host.Deliver(kMethodEvent, ProxyAnswer("", "svc", "b", "2"));
  EXPECT_THAT(completed, IsEmpty());
  EXPECT_EQ(start("a"), "");
  EXPECT_THAT(completed, ElementsAre("a=1"));
  EXPECT_EQ(start("b"), "");
  EXPECT_THAT(completed, ElementsAre("a=1", "b=2"));
  ASSERT_EQ(host.requests().size(), 2u);
  EXPECT_THAT(ArgumentTexts(host.requests()[0]),
              ElementsAre("\"svc\"", "\"ask\"", "\"a\"", "\"extra\"", "2",
                          R"("{\"queueId\":0,\"reason\":\"\"}")"));

  // While "svc.c" is pending a second call with that key is refused.
  EXPECT_EQ(start("c"), "");
  host.ClearRecords();
  EXPECT_EQ(start("c"), "Request already in flight");
  EXPECT_THAT(host.requests(), IsEmpty());
  EXPECT_THAT(host.log_lines(),
              Contains(LogLine{2,
                               "kav-queue-eligibility: Could not invoke service proxy as "
                               "request is already in flight"}));
  host.Deliver(kMethodEvent, ProxyAnswer("", "svc", "c", "3"));
  EXPECT_THAT(completed, ElementsAre("a=1", "b=2", "c=3"));
  EXPECT_EQ(start("c"), "") << "the key is free again";
}

TEST(ServiceProxyRequestTest, UuidFormCallsAreNeverRefusedAsInFlight) {
  ModuleHarness harness;
  ASSERT_TRUE(harness.Initialize());
  int uuid = 0;
  harness.host().SetResourceHandler(
      kServiceProxyUuidRequestsUrl, KAV_METHOD_POST, [&uuid](const RecordedRequest&) {
        return HostAnswer::Body(Value::String("u" + std::to_string(++uuid)));
      });
  auto ignore = [](const PluginServiceProxyResponse&) {};
  EXPECT_EQ(harness.module().ServiceProxyRequest("svc", "ask", GateAnswer{}, "", "", ignore), "");
  EXPECT_EQ(harness.module().ServiceProxyRequest("svc", "ask", GateAnswer{}, "", "", ignore), "");
}

TEST(ServiceProxyRequestTest, RefusalsBeforeAnyRequest) {
  ModuleHarness harness;
  ASSERT_TRUE(harness.Initialize());
  host::ReferenceHost& host = harness.host();
  const std::string unconvertible = harness.module().ServiceProxyRequest(
      "svc", "ask", Unregistered{}, "", "", [](const PluginServiceProxyResponse&) {});
  EXPECT_EQ(unconvertible, std::string("Failed to convert type ") +
                               StaticType::Name<Unregistered>() +
                               " to BindingProperty for serialization");

  std::string during_shutdown = "not called";
  harness.module().on_shutdown = [&during_shutdown](TestModule& module) {
    during_shutdown = module.ServiceProxyRequest("svc", "ask", GateAnswer{}, "", "",
                                                 [](const PluginServiceProxyResponse&) {});
  };
  harness.Destroy();
  EXPECT_EQ(during_shutdown, "Finalizing");
  EXPECT_THAT(host.requests(), IsEmpty());
}

TEST(ServiceProxyEventTest, AsyncEventWithoutHandlerOnlyLogs) {
  ModuleHarness harness;
  ASSERT_TRUE(harness.Initialize());
  EXPECT_EQ(harness.host().Deliver(kAsyncEvent, ProxyAnswer("", "svc", "push", "{}")), 1u);
  EXPECT_THAT(harness.host().log_lines(),
              ElementsAre(LogLine{2,
                                  "kav-queue-eligibility: Could not find registered handler "
                                  "for async service proxy event svc.push"}));
  EXPECT_THAT(harness.host().requests(), IsEmpty());
}

}  // namespace
}  // namespace kav
