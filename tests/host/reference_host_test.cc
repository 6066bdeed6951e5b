// The reference host's function table, called as a plugin would call it.
#include "host/reference_host.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kav::host {
namespace {

using ::testing::ElementsAre;

struct Answered {
  std::string error;  // "" when none
  uint32_t status;
  Value body;
};

Answered Request(ReferenceHost& host, uint32_t method, const char* url,
                 std::vector<KavArgumentEntry> arguments = {}) {
  const KavHostFunctionTable* table = host.function_table();
  KavRequest request{};
  request.method = method;
  request.url = url;
  request.arguments = arguments.empty() ? nullptr : arguments.data();
  request.argument_count = static_cast<uint32_t>(arguments.size());
  request.context = 9;
  KavResponse response{};
  table->request(table, &response, &request);
  const char* error = response.error;
  const char* text = response.text;
  Answered answered{error != nullptr ? error : "", response.status,
                    Value::FromRecord(response.body)};
  EXPECT_TRUE(response.stream_read == nullptr);
  EXPECT_NE(text, nullptr);
  EXPECT_EQ(host.outstanding_responses(), 1u);
  response.release(&response);
  EXPECT_EQ(host.outstanding_responses(), 0u);
  return answered;
}

TEST(ReferenceHostTest, RequestsAreAnsweredAsProgrammed) {
  ReferenceHost host;
  host.SetResource("/a/json", KAV_METHOD_GET, HostAnswer::JsonBody(R"({"x":[1,"two"]})"));
  host.SetResource("/a/any", 0, HostAnswer::Body(Value::String("any"), 201));
  host.SetResource("/a/get-only", KAV_METHOD_GET, HostAnswer::Body(Value::Bool(true)));
  host.SetResource("/a/down", 0, HostAnswer::Error(503, "down"));
  host.SetResourceHandler("/a/echo", KAV_METHOD_POST, [](const RecordedRequest& request) {
    return HostAnswer::Body(request.arguments.at(1).value);
  });
  host.SetResource("/a/replaced", 0, HostAnswer::Error(500, "old"));
  host.SetResource("/a/replaced", 0, HostAnswer::Body(Value::Signed(2)));

  RecordArena arena;
  const std::vector<KavArgumentEntry> echo_arguments = {
      {nullptr, arena.Build(Value::Signed(1))},
      {"named", arena.Build(Value::String("echoed"))},
  };
  const struct {
    const char* name;
    uint32_t method;
    const char* url;
    std::vector<KavArgumentEntry> arguments;
    Answered expected;
  } rows[] = {
      {"json body, query ignored",
       KAV_METHOD_GET,
       "/a/json?x=1",
       {},
       {"", 200, *Value::FromJson(R"({"x":[1,"two"]})")}},
      {"any method", KAV_METHOD_DELETE, "/a/any", {}, {"", 201, Value::String("any")}},
      {"other method", KAV_METHOD_POST, "/a/get-only", {}, {"Not found: /a/get-only", 404, {}}},
      {"unknown path", KAV_METHOD_GET, "/nowhere", {}, {"Not found: /nowhere", 404, {}}},
      {"error", KAV_METHOD_GET, "/a/down", {}, {"down", 503, {}}},
      {"handler", KAV_METHOD_POST, "/a/echo", echo_arguments, {"", 200, Value::String("echoed")}},
      {"replaced", KAV_METHOD_PUT, "/a/replaced", {}, {"", 200, Value::Signed(2)}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Answered answered = Request(host, row.method, row.url, row.arguments);
    EXPECT_EQ(answered.error, row.expected.error);
    EXPECT_EQ(answered.status, row.expected.status);
    EXPECT_EQ(answered.body, row.expected.body);
    const RecordedRequest& recorded = host.requests().back();
    EXPECT_EQ(recorded.method, row.method);
    EXPECT_EQ(recorded.url, row.url);
    EXPECT_EQ(recorded.arguments.size(), row.arguments.size());
    EXPECT_EQ(recorded.context, 9u);
    EXPECT_EQ(host.calls().back(), (HostCall{HostFunction::kRequest,
                                             std::string(MethodName(row.method)) + " " + row.url}));
  }
  EXPECT_EQ(host.requests()[5].arguments[0].name, "");
  EXPECT_EQ(host.requests()[5].arguments[1].name, "named");
}

TEST(ReferenceHostTest, StreamsDeliverOneChunkPerRead) {
  const struct {
    const char* name;
    HostAnswer answer;
    uint32_t capacity;
    std::vector<std::string> reads;  // "!" for a failed read
    bool closed;
  } rows[] = {
      {"chunks", HostAnswer::Stream({"abc", "", "de"}), 4096, {"abc", "", "de"}, true},
      {"small buffer", HostAnswer::Stream({"abcde"}), 2, {"ab", "cd", "e"}, true},
      {"empty", HostAnswer::Stream({}), 4096, {""}, true},
      {"failing",
       [] {
         HostAnswer answer = HostAnswer::Stream({"ab", "cd"});
         answer.failing_read = 1;
         answer.closable = false;
         return answer;
       }(),
       4096,
       {"ab", "!"},
       false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ReferenceHost host;
    host.SetResource("/s", 0, row.answer);
    const KavHostFunctionTable* table = host.function_table();
    KavRequest request{};
    request.method = KAV_METHOD_GET;
    request.url = "/s";
    KavResponse response{};
    table->request(table, &response, &request);
    ASSERT_TRUE(response.stream_read != nullptr);
    EXPECT_TRUE(response.error == nullptr);
    std::vector<std::string> reads;
    uint8_t more = 1;
    while (more != 0) {
      uint8_t buffer[4096];
      uint32_t size = row.capacity;
      if (!response.stream_read(response.stream_handle, buffer, &size, &more)) {
        reads.push_back("!");
        break;
      }
      reads.emplace_back(reinterpret_cast<const char*>(buffer), size);
    }
    EXPECT_EQ(reads, row.reads);
    EXPECT_EQ(response.stream_close != nullptr, row.closed);
    if (response.stream_close != nullptr) response.stream_close(response.stream_handle);
    EXPECT_EQ(host.stream_closes(), row.closed ? 1u : 0u);
    response.release(&response);
    EXPECT_EQ(host.outstanding_responses(), 0u);
  }
}

struct Received {
  std::string name;
  Value payload;
  uint32_t word;
};

void KAV_CALL Collect(const KavEvent* event) {
  static_cast<std::vector<Received>*>(event->context)
      ->push_back({event->name, Value::FromRecord(event->payload), event->word});
}

TEST(ReferenceHostTest, QueuedEventsReachSubscribersOnYield) {
  ReferenceHost host;
  const KavHostFunctionTable* table = host.function_table();
  std::vector<Received> received;
  int hook_runs = 0;
  host.SetYieldHook([&] {
    ++hook_runs;
    EXPECT_TRUE(received.empty()) << "the hook runs before delivery";
  });
  table->subscribe(table, "E", 4, &Collect, &received, 1);
  host.QueueEvent("E", Value::Signed(1), 7);
  host.QueueEvent("Other", Value::Signed(2));
  host.QueueEvent("E", Value::String("two"));
  EXPECT_TRUE(received.empty());

  table->yield(table);
  EXPECT_EQ(hook_runs, 1);
  ASSERT_EQ(received.size(), 2u);
  EXPECT_EQ(received[0].name, "E");
  EXPECT_EQ(received[0].payload, Value::Signed(1));
  EXPECT_EQ(received[0].word, 7u);
  EXPECT_EQ(received[1].payload, Value::String("two"));
  EXPECT_EQ(host.queued_events(), 0u);

  ASSERT_NE(host.ActiveSubscription("E"), nullptr);
  EXPECT_EQ(host.ActiveSubscription("E")->flag, 1u);
  EXPECT_EQ(host.Deliver("E", Value()), 1u);
  table->unsubscribe(table, "E", 4);
  EXPECT_EQ(host.Deliver("E", Value()), 0u);
  host.QueueEvent("E", Value());
  EXPECT_EQ(host.Pump(), 0u);
  EXPECT_EQ(received.size(), 3u);
  EXPECT_THAT(host.unsubscriptions(), ElementsAre(Unsubscription{"E", 4}));
}

TEST(ReferenceHostTest, JournalKeepsCallsInOrder) {
  ReferenceHost host;
  const KavHostFunctionTable* table = host.function_table();
  RecordArena arena;
  KavEvent event{};
  event.name = "OnJsonApiEvent_x";
  event.payload = arena.Build(Value::MakeMap({{"uri", Value::String("/x")}}));
  event.word = 3;

  table->begin_wait(table, "Wait: future<T>", 0);
  table->yield(table);
  table->send_event(table, &event);
  table->end_wait(table);
  table->log(table, 2, "plugin: line");

  EXPECT_THAT(host.calls(), ElementsAre(HostCall{HostFunction::kBeginWait, "Wait: future<T>"},
                                        HostCall{HostFunction::kYield, ""},
                                        HostCall{HostFunction::kSendEvent, "OnJsonApiEvent_x"},
                                        HostCall{HostFunction::kEndWait, ""},
                                        HostCall{HostFunction::kLog, "plugin: line"}));
  ASSERT_EQ(host.published_events().size(), 1u);
  EXPECT_EQ(host.published_events()[0].payload.Find("uri")->AsString(), "/x");
  EXPECT_EQ(host.published_events()[0].word, 3u);
  EXPECT_THAT(host.log_lines(), ElementsAre(LogLine{2, "plugin: line"}));

  host.ClearRecords();
  EXPECT_TRUE(host.calls().empty());
  EXPECT_TRUE(host.log_lines().empty());
}

TEST(ReferenceHostTest, LoadReportsAMissingLibrary) {
  ReferenceHost host("/nonexistent/libplugin.so");
  EXPECT_FALSE(host.Load());
  EXPECT_NE(host.error().find("/nonexistent/libplugin.so"), std::string::npos);
  EXPECT_FALSE(host.loaded());
}

}  // namespace
}  // namespace kav::host
