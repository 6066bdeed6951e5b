// Typed requests through the reference host: request records, error
// responses, plain and streamed bodies, conversions and the release of every
// response.
#include "plugin/request.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "module_harness.h"
#include "serialization/json.h"

namespace kav {
namespace {

using host::HostAnswer;
using host::HostFunction;
using host::Value;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using testing_support::ModuleHarness;

// What a request came back with, in comparable form.
struct Outcome {
  bool ok = false;
  std::string value{};  // compact JSON of the value, when ok
  uint32_t code = 0;
  std::string message{};
  bool has_error_code_parameter = false;
  uint32_t error_code_parameter = 0;
};

template <class T>
Outcome Describe(const MaybeType<Failure, T>& result, const TypeRegistry& registry) {
  Outcome outcome;
  outcome.ok = result.HasValue();
  if (outcome.ok) {
    if constexpr (!std::is_same_v<T, Nothing>) {
      const BindingResult value = ToBindingProperty(result.Value(), registry);
      outcome.value = SerializeJson(value, &registry);
    }
    return outcome;
  }
  outcome.code = result.Error().code;
  outcome.message = result.Error().message;
  auto parameter = result.Error().parameters.find("errorCode_int");
  if (parameter != result.Error().parameters.end()) {
    outcome.has_error_code_parameter = true;
    outcome.error_code_parameter = static_cast<uint32_t>(parameter->second.u64);
  }
  return outcome;
}

enum class Wanted { kProperty, kBool, kNothing };

TEST(RequestTest, AnswersBecomeValuesOrFailures) {
  HostAnswer failing_stream = HostAnswer::Stream({"[1,", "2]"});
  failing_stream.failing_read = 1;
  const struct {
    const char* name;
    Wanted wanted;
    bool programmed;
    HostAnswer answer;
    Outcome expected;
  } rows[] = {
      {"plain body",
       Wanted::kProperty,
       true,
       HostAnswer::JsonBody(R"({"b":[1,"x"],"a":true})"),
       {.ok = true, .value = R"({"a":true,"b":[1,"x"]})"}},
      {"plain body as bool",
       Wanted::kBool,
       true,
       HostAnswer::Body(Value::Bool(true)),
       {.ok = true, .value = "true"}},
      {"error response keeps the host's status",
       Wanted::kProperty,
       true,
       HostAnswer::Error(404, "gone"),
       {.code = 404,
        .message = "Error response for GET /r: gone",
        .has_error_code_parameter = true,
        .error_code_parameter = 404}},
      {"unprogrammed resource",
       Wanted::kNothing,
       false,
       {},
       {.code = 404,
        .message = "Error response for GET /r: Not found: /r",
        .has_error_code_parameter = true,
        .error_code_parameter = 404}},
      {"nothing wanted ignores the body",
       Wanted::kNothing,
       true,
       HostAnswer::Body(Value::String("ignored")),
       {.ok = true}},
      {"body that is not the wanted type",
       Wanted::kBool,
       true,
       HostAnswer::Body(Value::MakeArray({Value::Signed(1)})),
       {.message = "Error converting response for GET /r: "}},
      {"stream read error",
       Wanted::kProperty,
       true,
       failing_stream,
       {.message = "Error reading streamed response for GET /r: Stream read error"}},
      {"streamed text that is not JSON",
       Wanted::kProperty,
       true,
       HostAnswer::Stream({"{oops"}),
       {.message = "Error reading streamed response for GET /r: Error: "}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ModuleHarness harness;
    ASSERT_TRUE(harness.Initialize());
    if (row.programmed) harness.host().SetResource("/r", KAV_METHOD_GET, row.answer);
    const TypeRegistry& registry = *harness.module().type_registry();
    Outcome got;
    switch (row.wanted) {
      case Wanted::kProperty:
        got = Describe(harness.module().Request<BindingProperty>(KAV_METHOD_GET, "/r"), registry);
        break;
      case Wanted::kBool:
        got = Describe(harness.module().Request<bool>(KAV_METHOD_GET, "/r"), registry);
        break;
      case Wanted::kNothing:
        got = Describe(harness.module().Request<Nothing>(KAV_METHOD_GET, "/r"), registry);
        break;
    }
    EXPECT_EQ(got.ok, row.expected.ok);
    EXPECT_EQ(got.value, row.expected.value);
    EXPECT_EQ(got.code, row.expected.code);
    EXPECT_THAT(got.message, StartsWith(row.expected.message));
    EXPECT_EQ(got.has_error_code_parameter, row.expected.has_error_code_parameter);
    EXPECT_EQ(got.error_code_parameter, row.expected.error_code_parameter);
    EXPECT_EQ(harness.host().outstanding_responses(), 0u) << "every response is released";
    EXPECT_EQ(harness.host().requests().size(), 1u);
  }
}

TEST(RequestTest, StreamedBodyIsReassembledYieldingOnlyAfterShortReads) {
  // A JSON text of 4096 + 100 + 23 bytes: a full piece is read again at once,
  // the short middle piece (more still set) yields to the host first, the
  // last piece ends the stream.
  const std::string text = "\"" + std::string(4096 + 100 + 21, 'z') + "\"";
  const struct {
    const char* name;
    bool closable;
    size_t closes;
  } rows[] = {{"with a close function", true, 1}, {"without a close function", false, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ModuleHarness harness;
    ASSERT_TRUE(harness.Initialize());
    HostAnswer answer =
        HostAnswer::Stream({text.substr(0, 4096), text.substr(4096, 100), text.substr(4196)});
    answer.closable = row.closable;
    harness.host().SetResource("/stream", KAV_METHOD_GET, answer);

    MaybeType<Failure, std::string> got =
        harness.module().Request<std::string>(KAV_METHOD_GET, "/stream");
    ASSERT_TRUE(got.HasValue()) << got.Error().message;
    EXPECT_EQ(got.Value(), text.substr(1, text.size() - 2));
    EXPECT_EQ(harness.host().stream_reads(), 3u);
    EXPECT_EQ(harness.host().stream_closes(), row.closes);
    EXPECT_EQ(harness.host().outstanding_responses(), 0u);
    EXPECT_THAT(harness.host().calls(),
                ElementsAre(host::HostCall{HostFunction::kRequest, "GET /stream"},
                            host::HostCall{HostFunction::kBeginWait, "Wait: yield"},
                            host::HostCall{HostFunction::kYield, ""},
                            host::HostCall{HostFunction::kEndWait, ""}));
  }
}

struct Unregistered {
  int32_t x = 0;
};

TEST(RequestTest, ArgumentsTravelAsPositionalHostValues) {
  ModuleHarness harness(/*plugin_handle=*/9);
  ASSERT_TRUE(harness.Initialize());
  harness.host().SetResource("/post", 0, HostAnswer::Body(Value::String("ok")));

  MaybeType<Failure, Nothing> sent = harness.module().Request<Nothing>(
      KAV_METHOD_POST, "/post", "text", std::string("more"), uint32_t{7}, true);
  ASSERT_TRUE(sent.HasValue()) << sent.Error().message;
  ASSERT_EQ(harness.host().requests().size(), 1u);
  const host::RecordedRequest& request = harness.host().requests()[0];
  EXPECT_EQ(request.method, uint32_t{KAV_METHOD_POST});
  EXPECT_EQ(request.context, 9u);
  std::vector<std::string> arguments;
  for (const host::Argument& argument : request.arguments) {
    EXPECT_EQ(argument.name, "") << "positional";
    arguments.push_back(argument.value.ToJson());
  }
  EXPECT_THAT(arguments, ElementsAre("\"text\"", "\"more\"", "7", "true"));

  // An argument that does not convert stops the request before it is sent.
  MaybeType<Failure, Nothing> refused =
      harness.module().Request<Nothing>(KAV_METHOD_PUT, "/post", 1, Unregistered{});
  ASSERT_FALSE(refused.HasValue());
  EXPECT_EQ(refused.Error().code, 400u);
  EXPECT_THAT(refused.Error().message,
              StartsWith("Request not sent: Error converting parameters for PUT /post: "));
  EXPECT_THAT(refused.Error().message, HasSubstr("unregistered structure"));
  EXPECT_EQ(harness.host().requests().size(), 1u);
}

TEST(RequestTest, MethodCodesAndTheirNames) {
  const struct {
    uint32_t method;
    uint32_t sent;
    const char* name;
  } rows[] = {
      {KAV_METHOD_DELETE, 1, "DELETE"},
      {KAV_METHOD_GET, 2, "GET"},
      {KAV_METHOD_HEAD, 3, "HEAD"},
      {KAV_METHOD_OPTIONS, 4, "OPTIONS"},
      {KAV_METHOD_PATCH, 5, "PATCH"},
      {KAV_METHOD_POST, 6, "POST"},
      {KAV_METHOD_PUT, 7, "PUT"},
      {KAV_METHOD_CUSTOM, 8, ""},
      {0, 0, ""},
      {42, 0, ""},
  };
  ModuleHarness harness;
  ASSERT_TRUE(harness.Initialize());
  harness.host().SetResource("/m", 0, HostAnswer::Error(418, "no"));
  for (const auto& row : rows) {
    SCOPED_TRACE(row.method);
    MaybeType<Failure, Nothing> got = harness.module().Request<Nothing>(row.method, "/m");
    ASSERT_FALSE(got.HasValue());
    EXPECT_EQ(got.Error().message, std::string("Error response for ") + row.name + " /m: no");
    EXPECT_EQ(harness.host().requests().back().method, row.sent);
  }
}

}  // namespace
}  // namespace kav
