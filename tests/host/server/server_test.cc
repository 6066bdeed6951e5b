// kav-host serve end to end: the real plugin through its C ABI, served over
// loopback HTTP and reached with an HTTP client (or raw bytes, for what no
// well-behaved client sends).
#include "host/server/server.h"

#include <sys/wait.h>

#include <atomic>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/json_value.h"
#include "host/server/http_answer.h"
#include "served_plugin.h"

namespace kav::host {
namespace {

using ::testing::HasSubstr;

constexpr const char kFlag[] = "/kav-queue-eligibility/v1/initial-configuration-complete";

Value ParseOrNull(const std::string& text) {
  std::optional<Value> value = ParseJson(text);
  return value.has_value() ? *value : Value::String("<not JSON> " + text);
}

// Whether the server still answers the flag resource.
void ExpectAnswering(const ServedPlugin& served) {
  auto result = served.Client()->Get(kFlag);
  ASSERT_TRUE(result) << httplib::to_string(result.error());
  EXPECT_EQ(result->status, 200);
  EXPECT_EQ(result->body, "true");
}

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

// Runs the kav-host binary; its standard output.
std::string RunKavHost(const std::string& arguments, int* exit_code = nullptr) {
  const std::string command = std::string(KAV_HOST_BINARY) + " " + arguments + " 2>&1";
  std::string output;
  if (FILE* pipe = popen(command.c_str(), "r"); pipe != nullptr) {
    char buffer[4096];
    size_t n = 0;
    while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) output.append(buffer, n);
    const int status = pclose(pipe);
    if (exit_code != nullptr) *exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  return output;
}

// The answers printed by a one-shot kav-host run, one text per CALL.
std::vector<std::string> OneShotAnswers(const std::string& output) {
  std::vector<std::string> answers;
  size_t start = 0;
  bool in_answer = false;
  while (start < output.size()) {
    size_t end = output.find('\n', start);
    if (end == std::string::npos) end = output.size();
    const std::string line = output.substr(start, end - start);
    start = end + 1;
    if (line.starts_with("> body (")) continue;
    if (line.starts_with("> ")) {
      answers.emplace_back();
      in_answer = true;
      continue;
    }
    if (in_answer) answers.back() += line + "\n";
  }
  for (std::string& answer : answers) {
    while (answer.ends_with('\n')) answer.pop_back();
  }
  return answers;
}

struct Call {
  const char* name;
  const char* method;
  std::string target;
  std::string body;  // empty: none
  std::string content_type = "application/json";
};

TEST(ServerTest, AnswersEqualTheOneShotCallsForEveryResource) {
  const std::vector<Call> calls = {
      {"flag", "GET", kFlag, ""},
      {"v3 self", "GET",
       "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]&queueIds=[420,440,450]", ""},
      {"v3 party", "GET",
       "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001,1002]&queueIds=[420,440]", ""},
      {"v3 percent-encoded query", "GET",
       "/kav-queue-eligibility/v3/eligibility?summonerIds=%5B1001%5D&queueIds=%5B420%2C440%5D", ""},
      {"v3 indexed query", "GET",
       "/kav-queue-eligibility/v3/eligibility?summonerIds.0=1001&summonerIds.1=1004&queueIds.0=450",
       ""},
      {"v2 JSON body", "POST", "/kav-queue-eligibility/v2/eligibility",
       R"({"summonerIds":[1001,1002],"queueIds":[440,420]})"},
      {"v2 YAML body", "POST", "/kav-queue-eligibility/v2/eligibility",
       "{summonerIds: [1001, 1003], queueIds: [420, 440]}", "application/x-yaml"},
      {"v1 JSON body", "POST", "/kav-queue-eligibility/v1/eligibility",
       R"({"summonerIds":[1001,1003],"queueIds":[420,440,490]})"},
      {"custom", "GET", "/kav-queue-eligibility/v3/custom?teamSize=5&pickMode=BLIND", ""},
      {"custom refused", "GET", "/kav-queue-eligibility/v3/custom?teamSize=-1&pickMode=BLIND", ""},
      {"unknown argument", "GET",
       "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]&queueIds=[420]&bogus=1", ""},
      {"body not JSON", "POST", "/kav-queue-eligibility/v1/eligibility", "{"},
      {"unsupported body type", "POST", "/kav-queue-eligibility/v1/eligibility", "x", "text/plain"},
  };

  std::string arguments;
  for (const Call& call : calls) {
    arguments += " " + Quote(std::string(call.method) + " " + call.target);
    if (!call.body.empty()) {
      arguments += " --body " + Quote(call.body) + " --content-type " + Quote(call.content_type);
    }
  }
  const std::string output = RunKavHost(arguments);
  const std::vector<std::string> one_shot = OneShotAnswers(output);
  ASSERT_EQ(one_shot.size(), calls.size()) << output;

  ServedPlugin served;
  ASSERT_TRUE(served.started()) << served.error();
  auto client = served.Client();
  for (size_t i = 0; i < calls.size(); ++i) {
    const Call& call = calls[i];
    SCOPED_TRACE(call.name);
    httplib::Result result = call.body.empty()
                                 ? client->Get(call.target)
                                 : client->Post(call.target, call.body, call.content_type);
    ASSERT_TRUE(result) << httplib::to_string(result.error());
    const std::string& printed = one_shot[i];
    if (printed.starts_with("error ")) {
      // "error <status>: <text>" as {"httpStatus": N, "message": text}.
      const int status = std::atoi(printed.c_str() + 6);
      const std::string text = printed.substr(printed.find(": ") + 2);
      const int http_status = status >= 400 && status <= 599 ? status : 400;
      EXPECT_EQ(result->status, http_status);
      EXPECT_EQ(result->body, ErrorJson(http_status, text));
    } else {
      EXPECT_EQ(result->status, 200);
      EXPECT_EQ(result->get_header_value("Content-Type"), "application/json");
      EXPECT_EQ(JsonDifference(ParseOrNull(result->body), ParseOrNull(printed), 10000), "")
          << result->body << "\nvs\n"
          << printed;
    }
  }
}

// Every "$ref" of `value` into `refs`.
void CollectRefs(const Value& value, std::set<std::string>& refs) {
  if (value.kind() == Value::Kind::kArray) {
    for (const Value& element : value.AsArray()) CollectRefs(element, refs);
  } else if (value.kind() == Value::Kind::kMap) {
    for (const MapEntry& entry : value.AsMap()) {
      if (entry.key == "$ref" && entry.value.kind() == Value::Kind::kString) {
        refs.insert(entry.value.AsString());
      }
      CollectRefs(entry.value, refs);
    }
  }
}

TEST(ServerTest, OpenApiDocumentHoldsEveryServedResource) {
  ServedPlugin served;
  ASSERT_TRUE(served.started()) << served.error();
  auto result = served.Client()->Get("/openapi.json");
  ASSERT_TRUE(result);
  ASSERT_EQ(result->status, 200);
  const Value document = ParseOrNull(result->body);
  ASSERT_NE(document.Find("paths"), nullptr) << result->body;
  EXPECT_EQ(document.Find("openapi")->AsString(), "3.1.0");
  const Value& paths = *document.Find("paths");
  const Value& schemas = *document.Find("components")->Find("schemas");

  const char* const kIn[] = {"query", "query", "path", "", "header", ""};
  for (const ApiResource& resource : served.worker().description().resources()) {
    SCOPED_TRACE(resource.name);
    const Value* item = paths.Find(resource.path_template);
    ASSERT_NE(item, nullptr);
    const Value* operation = item->Find(resource.method == KAV_METHOD_GET ? "get" : "post");
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->Find("operationId")->AsString(), resource.name);
    EXPECT_NE(operation->Find("responses")->Find("200"), nullptr);
    for (const ApiParameter& parameter : resource.parameters) {
      SCOPED_TRACE(parameter.name);
      if (parameter.location == 5) {
        const Value* body = operation->Find("requestBody");
        ASSERT_NE(body, nullptr);
        for (const char* type :
             {"application/json", "application/x-yaml", "application/x-msgpack"}) {
          EXPECT_NE(body->Find("content")->Find(type), nullptr) << type;
        }
        continue;
      }
      const Value* listed = nullptr;
      for (const Value& candidate : operation->Find("parameters")->AsArray()) {
        if (candidate.Find("name")->AsString() == parameter.name) listed = &candidate;
      }
      ASSERT_NE(listed, nullptr);
      EXPECT_EQ(listed->Find("in")->AsString(), kIn[parameter.location]);
    }
  }
  // Every reference resolves, and the answers' enumerators are string enums
  // of their names.
  std::set<std::string> refs;
  CollectRefs(document, refs);
  EXPECT_FALSE(refs.empty());
  for (const std::string& ref : refs) {
    SCOPED_TRACE(ref);
    ASSERT_TRUE(ref.starts_with("#/components/schemas/"));
    EXPECT_NE(schemas.Find(ref.substr(21)), nullptr);
  }
  const Value* code = schemas.Find("KavQueueEligibilityEligibilityRestrictionCode");
  ASSERT_NE(code, nullptr);
  EXPECT_EQ(code->Find("type")->AsString(), "string");
  EXPECT_THAT(code->Find("enum")->ToJson(), HasSubstr("\"PlayerRankedSuspensionRestriction\""));
  const Value* restriction = schemas.Find("KavQueueEligibilityEligibilityRestriction");
  ASSERT_NE(restriction, nullptr);
  EXPECT_EQ(restriction->Find("properties")->Find("summonerIds")->Find("type")->AsString(),
            "array");
  EXPECT_EQ(restriction->Find("properties")->Find("restrictionArgs")->Find("type")->AsString(),
            "object");
  EXPECT_NE(restriction->Find("properties")->Find("restrictionArgs")->Find("additionalProperties"),
            nullptr);
}

std::string Request(const std::string& method, const std::string& target,
                    const std::string& headers = "Host: 127.0.0.1\r\n",
                    const std::string& body = "") {
  std::string request = method + " " + target + " HTTP/1.1\r\n" + headers;
  if (!body.empty()) request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return request + "\r\n" + body;
}

std::string Chunked(size_t total, size_t chunk) {
  std::string body;
  char size_line[32];
  for (size_t sent = 0; sent < total; sent += chunk) {
    std::snprintf(size_line, sizeof(size_line), "%zx\r\n", chunk);
    body += size_line + std::string(chunk, ' ') + "\r\n";
  }
  return body + "0\r\n\r\n";
}

TEST(ServerTest, HostileRequestsGetClearRefusalsAndTheServerGoesOn) {
  ServerOptions options;
  options.max_body_bytes = 64 * 1024;
  ServedPlugin served(DemoScenario(), options);
  ASSERT_TRUE(served.started()) << served.error();
  std::string many_headers;
  for (int i = 0; i < 1000; ++i)
    many_headers += "X-Filler-" + std::to_string(i) + ": " + std::string(90, 'f') + "\r\n";
  const std::string deep = std::string(200, '[') + std::string(200, ']');
  const struct {
    const char* name;
    std::vector<std::string> pieces;
    int status;
    const char* message;  // a part of the JSON answer
    bool closes;          // the server ends the connection after answering
  } rows[] = {
      {"body over the limit, with its length",
       {Request("POST", "/kav-queue-eligibility/v2/eligibility",
                "Host: 127.0.0.1\r\nContent-Type: application/json\r\n", std::string(200000, ' '))},
       413,
       "larger than 65536 bytes",
       false},
      {"chunked body over the limit",
       {Request(
            "POST", "/kav-queue-eligibility/v2/eligibility",
            "Host: 127.0.0.1\r\nTransfer-Encoding: chunked\r\nContent-Type: application/json\r\n") +
        Chunked(100000, 4096)},
       413,
       "larger than 65536 bytes",
       true},
      {"one header line of 100 KB",
       {Request("GET", kFlag,
                "Host: 127.0.0.1\r\nX-Big: " + std::string(100 * 1024, 'b') + "\r\n")},
       400,
       "header line over 8192 bytes",
       false},
      {"100 KB of headers in 1000 lines",
       {Request("GET", kFlag, "Host: 127.0.0.1\r\n" + many_headers)},
       431,
       "at most 65536",
       true},
      {"request line of 10 KB",
       {Request("GET", std::string(kFlag) + "?" + std::string(10240, 'q'))},
       414,
       "longer than 8192",
       false},
      {"malformed percent-encoding in the query",
       {Request("GET", "/kav-queue-eligibility/v3/eligibility?summonerIds=%zz&queueIds=%5")},
       400,
       "Couldn't assign value to 'summonerIds'",
       false},
      {"malformed percent-encoding in the path",
       {Request("GET", "/kav-queue-eligibility/v3/%zz%")},
       404,
       "Nothing is served at",
       false},
      {"GET with a body",
       {Request("GET", kFlag, "Host: 127.0.0.1\r\n", "{}")},
       400,
       "carries no body",
       true},
      {"Host that is not loopback",
       {Request("GET", kFlag, "Host: attacker.example:80\r\n")},
       403,
       "not a loopback name",
       false},
      {"no Host",
       {"GET " + std::string(kFlag) + " HTTP/1.0\r\n\r\n"},
       403,
       "needs a Host header",
       false},
      {"foreign Origin",
       {Request("POST", "/_host/changes", "Host: 127.0.0.1\r\nOrigin: http://attacker.example\r\n",
                "{\"setGateKeeperEnabled\": false}")},
       403,
       "may not call this server",
       true},
      {"multipart body",
       {Request("POST", "/kav-queue-eligibility/v2/eligibility",
                "Host: 127.0.0.1\r\nContent-Type: multipart/form-data; boundary=x\r\n",
                "--x\r\n\r\n--x--\r\n")},
       415,
       "Multipart",
       true},
      {"scenario change nested 200 deep",
       {Request("POST", "/_host/changes", "Host: 127.0.0.1\r\n", deep)},
       400,
       "deeper than 64",
       false},
      {"scenario change that is no JSON",
       {Request("PUT", "/_host/resources/kav-game-queues/v1/queues", "Host: 127.0.0.1\r\n", "[1,")},
       400,
       "body:",
       false},
      {"unknown method",
       {"BREW /pot HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"},
       400,
       "Bad request",
       false},
      {"garbage", {"\x16\x03\x01\x02\x01\xfc\x03\x03\r\n\r\n"}, 400, "Bad request", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const RawResponse response = SendRaw(served.port(), row.pieces);
    EXPECT_EQ(response.status, row.status) << response.head;
    const Value answer = ParseOrNull(response.body);
    ASSERT_NE(answer.Find("httpStatus"), nullptr) << response.body;
    EXPECT_EQ(answer.Find("httpStatus")->AsSigned(), row.status);
    EXPECT_THAT(answer.Find("message")->AsString(), HasSubstr(row.message));
    if (row.closes) {
      EXPECT_TRUE(response.closed);
    }
    ExpectAnswering(served);
  }
}

TEST(ServerTest, SlowClientsDoNotKeepOthersWaiting) {
  ServedPlugin served;
  ASSERT_TRUE(served.started()) << served.error();
  const std::string request = Request("GET", kFlag);
  std::vector<std::thread> slow;
  std::atomic<int> slow_answers{0};
  for (int i = 0; i < 24; ++i) {
    slow.emplace_back([&] {
      // One byte every 100 ms: the whole request takes seconds.
      std::vector<std::string> bytes;
      for (char c : request) bytes.emplace_back(1, c);
      if (SendRaw(served.port(), bytes, std::chrono::milliseconds(100)).status != 0) ++slow_answers;
    });
  }
  // Each slow request takes 8 s; the others are answered meanwhile.
  auto client = served.Client();
  client->set_read_timeout(3, 0);
  for (int i = 0; i < 20; ++i) {
    SCOPED_TRACE(i);
    auto result = client->Get(kFlag);
    EXPECT_TRUE(result) << httplib::to_string(result.error());
    if (!result) break;  // the slow clients are joined below all the same
    EXPECT_EQ(result->body, "true");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  for (std::thread& thread : slow) thread.join();
  EXPECT_EQ(slow_answers.load(), 24);  // slow, not refused
}

TEST(ServerTest, ScenarioChangesRunBesideCallsInParallel) {
  Scenario scenario = DemoScenario();
  scenario.gatekeeper.delivery = ProxyDelivery::kAfterYields;
  scenario.gatekeeper.yields = 200;  // calls wait, and changes run inside their yields
  ServedPlugin served(std::move(scenario));
  ASSERT_TRUE(served.started()) << served.error();
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int caller = 0; caller < 4; ++caller) {
    threads.emplace_back([&, caller] {
      auto client = served.Client();
      for (int i = 0; i < 25; ++i) {
        const std::string party = caller % 2 == 0 ? "[1001,1002]" : "[1001,1003,1004]";
        auto result = client->Get("/kav-queue-eligibility/v3/eligibility?summonerIds=" + party +
                                  "&queueIds=[420,430,440,450]");
        if (!result || result->status != 200 ||
            ParseOrNull(result->body).kind() != Value::Kind::kArray) {
          ++bad;
        }
      }
    });
  }
  const std::vector<std::pair<std::string, std::string>> changes = {
      {"/_host/changes", R"({"setGateKeeperEnabled": false})"},
      {"/_host/changes", R"({"setGateKeeperEnabled": true})"},
      {"/_host/changes", R"({"setSummonerLevel": 40})"},
      {"/_host/gatekeeper", R"({"restrictions": [], "delivery": "afterYields", "yields": 2})"},
      {"/_host/changes", R"({"setResource": {"path": "/kav-summoner/v1/summoners/1002",
                              "value": {"summonerId": 1002, "summonerLevel": 3}}})"},
  };
  for (int changer = 0; changer < 2; ++changer) {
    threads.emplace_back([&] {
      auto client = served.Client();
      for (int i = 0; i < 20; ++i) {
        const auto& [path, body] = changes[static_cast<size_t>(i) % changes.size()];
        auto result = path == "/_host/gatekeeper" ? client->Put(path, body, "application/json")
                                                  : client->Post(path, body, "application/json");
        if (!result || result->status != 200) ++bad;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(bad.load(), 0);
  // Some changes came while a call waited for the gatekeeper, and ran on the
  // plugin thread inside that call's HostYield.
  EXPECT_GT(served.worker().host_work_in_yields(), 0u);
  ExpectAnswering(served);
}

TEST(ServerTest, AccessRulesForTokenOriginAndCors) {
  ServerOptions options;
  options.token = "s3cret";
  options.allow_origin = "http://localhost:5173";
  ServedPlugin served(DemoScenario(), options);
  ASSERT_TRUE(served.started()) << served.error();
  const std::string own_origin = "http://127.0.0.1:" + std::to_string(served.port());
  const struct {
    const char* name;
    std::string method;
    std::string target;
    std::string headers;
    int status;
    bool cors;  // Access-Control-Allow-Origin sent
  } rows[] = {
      {"no token", "GET", kFlag, "", 401, false},
      {"wrong token", "GET", kFlag, "Authorization: Bearer nope\r\n", 401, false},
      {"bearer token", "GET", kFlag, "Authorization: Bearer s3cret\r\n", 200, false},
      {"token cookie", "GET", kFlag, "Cookie: a=b; kav_host_token=s3cret\r\n", 200, false},
      {"console link sets the cookie", "GET", "/?token=s3cret", "", 303, false},
      {"console link with a wrong token", "GET", "/?token=x", "", 401, false},
      {"own origin", "GET", kFlag, "Authorization: Bearer s3cret\r\nOrigin: " + own_origin + "\r\n",
       200, false},
      {"allowed origin", "GET", kFlag,
       "Authorization: Bearer s3cret\r\nOrigin: http://localhost:5173\r\n", 200, true},
      {"other origin", "GET", kFlag,
       "Authorization: Bearer s3cret\r\nOrigin: http://localhost:5174\r\n", 403, false},
      {"preflight of the allowed origin, without the token", "OPTIONS", kFlag,
       "Origin: http://localhost:5173\r\nAccess-Control-Request-Method: GET\r\n", 204, true},
      {"token checked before the route", "GET", "/nowhere", "", 401, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const RawResponse response = SendRaw(
        served.port(), Request(row.method, row.target, "Host: localhost\r\n" + row.headers));
    EXPECT_EQ(response.status, row.status) << response.head << response.body;
    EXPECT_EQ(response.head.find("Access-Control-Allow-Origin: http://localhost:5173") !=
                  std::string::npos,
              row.cors)
        << response.head;
  }
}

TEST(ServerTest, ScenarioControlChangesWhatThePluginHears) {
  ServedPlugin served;
  ASSERT_TRUE(served.started()) << served.error();
  std::shared_ptr<EventHub::Subscription> events = served.hub().Subscribe();
  ASSERT_NE(events, nullptr);
  auto client = served.Client();
  const std::string v3 = "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]&queueIds=[440]";

  auto queues = client->Get("/_host/resources/kav-game-queues/v1/queues");
  ASSERT_TRUE(queues);
  ASSERT_EQ(queues->status, 200);
  std::string closed = queues->body;
  const std::string open_440 = R"("id":440,)";
  ASSERT_NE(closed.find(open_440), std::string::npos);
  // The queue 440 becomes PlatformDisabled.
  const std::string available = "\"queueAvailability\":\"Available\"";
  const size_t at = closed.find(available, closed.find(open_440));
  closed.replace(at, available.size(), "\"queueAvailability\":\"PlatformDisabled\"");

  const struct {
    const char* name;
    const char* method;
    std::string path;
    std::string body;
    int status;
    const char* answer;     // a part of the answer to the change
    const char* heard;      // a part of a frame on the event stream after it ("": none)
    const char* v3_answer;  // a part of the v3 answer after it ("": not asked)
  } rows[] = {
      {"close a queue", "PUT", "/_host/resources/kav-game-queues/v1/queues", closed, 200,
       "\"change\":\"setResource\"", "queues changed, self eligibility is dirty", "QueueDisabled"},
      {"switch the gatekeeper off", "POST", "/_host/changes", R"({"setGateKeeperEnabled": false})",
       200, "setGateKeeperEnabled", "\"change\":\"setGateKeeperEnabled\"", "QueueDisabled"},
      {"a gatekeeper with a ban", "PUT", "/_host/gatekeeper",
       R"({"restrictions": [{"queueId": 450, "summonerId": 1001, "reason": "PLAYER_BANNED",
           "remainingMillis": 3540000}]})",
       200, "PLAYER_BANNED", "\"change\":\"setGatekeeper\"", ""},
      {"remove a peer resource", "DELETE", "/_host/resources/kav-summoner/v1/summoners/1004", "",
       200, "deleteResource", "\"change\":\"deleteResource\"", ""},
      {"read a removed resource", "GET", "/_host/resources/kav-summoner/v1/summoners/1004", "", 404,
       "No peer resource answers", "", ""},
      {"a fault", "POST", "/_host/faults", R"({"path": "/kav-kr-shutdown-law/v1/disabled-queues",
                                              "error": "down", "status": 503})",
       200, "addFault", "\"change\":\"addFault\"", ""},
      {"the faults", "GET", "/_host/faults", "", 200, "\"error\":\"down\"", "", ""},
      {"no faults", "DELETE", "/_host/faults", "", 200, "clearFaults", "", ""},
      {"an unknown change", "POST", "/_host/changes", R"({"closeEverything": true})", 400,
       "unknown key 'closeEverything'", "", ""},
      {"a step's beforeCall", "POST", "/_host/changes",
       R"({"beforeCall": 2, "setGateKeeperEnabled": true})", 400, "has no beforeCall", "", ""},
      {"a wrong method", "PATCH", "/_host/state", "{}", 405, "allowed: GET, HEAD", "", ""},
      {"the world", "GET", "/_host/state", "", 200, "\"monotonicMillis\":", "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    events->Wait(std::chrono::milliseconds(0));  // what came before
    httplib::Request request;
    request.method = row.method;
    request.path = row.path;
    request.body = row.body;
    if (!row.body.empty()) request.set_header("Content-Type", "application/json");
    auto result = client->send(request);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, row.status) << result->body;
    EXPECT_THAT(result->body, HasSubstr(row.answer));
    if (*row.heard != '\0') {
      std::string heard;
      for (const std::string& frame : events->Wait(std::chrono::milliseconds(2000))) heard += frame;
      EXPECT_THAT(heard, HasSubstr(row.heard));
    }
    if (*row.v3_answer != '\0') {
      auto answer = client->Get(v3);
      ASSERT_TRUE(answer);
      EXPECT_THAT(answer->body, HasSubstr(row.v3_answer));
    }
  }
}

TEST(ServerTest, ServingKeepsThePluginsMemoryFlat) {
  ServedPlugin served;
  ASSERT_TRUE(served.started()) << served.error();
  auto client = served.Client();
  const char* const kTargets[] = {
      kFlag,
      "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]&queueIds=[420,440]",
      "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001,1002]&queueIds=[420,440]",
      "/kav-queue-eligibility/v3/custom?teamSize=5&pickMode=BLIND",
  };
  auto bytes_in_use = [&] {
    uint64_t bytes = 0;
    EXPECT_EQ(
        served.worker().Run(
            PluginWorker::TaskKind::kHostWork,
            [&](ScenarioHost& host) { bytes = host.host().GetMemoryStatistics().BytesInUse(); },
            std::chrono::seconds(10)),
        PluginWorker::RunResult::kDone);
    return bytes;
  };
  auto serve = [&](int rounds) {
    for (int i = 0; i < rounds; ++i) {
      for (const char* target : kTargets) {
        auto result = client->Get(target);
        ASSERT_TRUE(result);
        ASSERT_EQ(result->status, 200);
      }
    }
  };
  serve(20);
  const uint64_t warm = bytes_in_use();
  serve(500);
  EXPECT_EQ(bytes_in_use(), warm);
}

}  // namespace
}  // namespace kav::host
