#include "routing/dispatch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "binding/declare.h"
#include "binding/host_value.h"
#include "binding/type_registry.h"
#include "platform/allocation.h"
#include "plugin/maybe_type.h"
#include "serialization/json.h"

namespace kav {

enum class Shade : int32_t { kLight = 1, kDark = 2 };
constexpr auto BindingEnumerators(const Shade*) {
  return Enumerators<Shade>({{"Light", Shade::kLight}, {"Dark", Shade::kDark}});
}

struct Swatch {
  Shade shade = Shade::kLight;
  std::vector<Shade> shades;
};
constexpr auto BindingFields(const Swatch*) {
  return Fields(Field("shade", &Swatch::shade), Field("shades", &Swatch::shades));
}

namespace {

struct Outcome {
  std::string error;  // "" on success
  uint32_t status = 0;
  std::string json;  // the answer as compact JSON
};

struct RequestSpec {
  uint32_t method = KAV_METHOD_GET;
  std::string url = {};
  std::vector<std::pair<std::string, std::string>> headers = {};
  std::string content_type = {};
  std::optional<std::string> body = {};
  std::vector<KavArgumentEntry> arguments = {};
};

// Builds the request record of `spec` and hands it to `call`.
template <class Call>
void WithRequest(const RequestSpec& spec, void* user_data, Call&& call) {
  std::vector<KavHeaderEntry> headers;
  for (const auto& [name, value] : spec.headers) headers.push_back({name.c_str(), value.c_str()});
  KavRequest request{};
  request.method = spec.method;
  request.url = spec.url.c_str();
  request.arguments = spec.arguments.empty() ? nullptr : spec.arguments.data();
  request.argument_count = static_cast<uint32_t>(spec.arguments.size());
  request.user_data = user_data;
  request.headers = headers.empty() ? nullptr : headers.data();
  request.header_count = static_cast<uint32_t>(headers.size());
  request.content_type = spec.content_type.c_str();
  if (spec.body) {
    request.body = reinterpret_cast<const uint8_t*>(spec.body->data());
    request.body_length = static_cast<uint32_t>(spec.body->size());
  }
  request.context = 77;
  call(request);
}

// Reads the response and releases it.
Outcome Collect(KavResponse& response) {
  Outcome outcome;
  if (response.error != nullptr) outcome.error = response.error;
  outcome.status = response.status;
  BindingResult value;
  EXPECT_TRUE(FromHostValue(value, value, response.body, "<result>"));
  outcome.json = SerializeJson(value);
  // Packed fields are copied before gtest binds references to them.
  KavResponseReleaseFn release = response.release;
  const char* text = response.text;
  EXPECT_EQ(release, &ReleaseResponse);
  EXPECT_NE(text, nullptr);
  response.release(&response);
  return outcome;
}

BindingProperty StringHostValue(const char* text, KavHostValue& out) {
  out = KavHostValue{};
  out.kind = KAV_VALUE_STRING_BORROWED;
  out.payload.ref.data = text;
  out.payload.ref.size = static_cast<uint32_t>(std::strlen(text));
  return {};
}

class DispatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    registry_.InitializeRegistry();
    dispatcher_ = std::make_unique<Dispatcher>(registry_);
    dispatcher_->SetDefaultTags({"Plugins", "Plugin test"});

    dispatcher_
        ->RegisterGet("/typed",
                      [](bool flag, const std::vector<int32_t>& ids,
                         const std::string& text) -> MaybeType<Failure, BindingProperty> {
                        BindingProperty out;
                        out.Member("flag").SetBool(flag);
                        BindingProperty& list = out.Member("ids");
                        list.MakeCollection();
                        for (int32_t id : ids) list.Append().SetSigned(id);
                        out.Member("text").SetString(text);
                        return out;
                      })
        .AddQueryParameter("flag", "A flag")
        .AddParameter("ids", "Ids", ParameterLocation::kQuery, /*optional=*/true)
        .AddParameter("text", "Text", ParameterLocation::kAny, /*optional=*/true);
    dispatcher_->RegisterGet("/echo", [](BindingProperty value) { return value; })
        .AddParameter("value", "Anything");
    dispatcher_->RegisterGet("/items/{id}", [](const std::string& id) { return id; })
        .AddQueryParameter("id", "Declared for the query only");
    dispatcher_
        ->RegisterGet("/things/{id}",
                      [](const std::string& id, std::optional<int32_t> extra) {
                        return id + "/" + (extra ? std::to_string(*extra) : "none");
                      })
        .AddParameter("id", "")
        .AddParameter("extra", "", ParameterLocation::kAny, /*optional=*/true);
    dispatcher_->RegisterPost("/body", [](const BindingProperty& body) { return body; })
        .AddBodyParameter("body", "The body");
    dispatcher_
        ->RegisterGet(
            "/header",
            [](const std::string& token) -> MaybeType<Failure, std::string> { return token; })
        .AddParameter("token", "", ParameterLocation::kHeader);
    dispatcher_
        ->RegisterGet(
            "/mixed",
            [](const std::string& token) -> MaybeType<Failure, std::string> { return token; })
        .AddParameter("sessionToken", "", ParameterLocation::kHeader);
    dispatcher_->RegisterGet("/fail", []() {
      MaybeType<Failure, bool> answer(Failure{500, "boom", {}});
      answer.Extras().flags = 7;
      answer.Extras().format = 9;
      answer.Extras().text = "details";
      answer.Extras().pairs = {{"k", "v"}, {"k2", "v2"}};
      return answer;
    });
    dispatcher_->RegisterGet("/extras", []() {
      MaybeType<Failure, Nothing> answer;
      answer.Extras().status = 201;
      answer.Extras().format = 2;
      return answer;
    });
    dispatcher_->RegisterFunction("Help", [] { return true; }).SetPath("/help").AddTag("$builtin");
    dispatcher_->RegisterFunction("Other", [] { return true; })
        .SetPath("/other")
        .AddTag("$builtin");
    table_ = dispatcher_->BuildResourceTable();
  }

  const KavResourceEntry* Entry(std::string_view name) const {
    for (const KavResourceEntry* entry = table_->entries; entry != nullptr; entry = entry->next) {
      if (entry->name == name) return entry;
    }
    return nullptr;
  }

  // A call from the host through the entry of `function`.
  Outcome CallEntry(std::string_view function, const RequestSpec& spec) {
    const KavResourceEntry* entry = Entry(function);
    EXPECT_NE(entry, nullptr) << function;
    if (entry == nullptr) return {};
    KavResponse response{};
    WithRequest(spec, entry->user_data,
                [&](const KavRequest& request) { entry->call(&response, &request); });
    return Collect(response);
  }

  // A call over every route, with the registry (built-ins answered).
  Outcome CallAll(const RequestSpec& spec) {
    std::vector<Route> routes = dispatcher_->Routes();
    KavResponse response{};
    WithRequest(spec, nullptr, [&](const KavRequest& request) {
      HandleCall(&registry_, response, request, routes);
    });
    return Collect(response);
  }

  TypeRegistry registry_;
  std::unique_ptr<Dispatcher> dispatcher_;
  const KavResourceTable* table_ = nullptr;
};

TEST_F(DispatchTest, BindsQueryHeaderAndPathArguments) {
  struct Row {
    const char* function;
    RequestSpec request;
    Outcome expected;
  };
  const char* kTyped = "GetTyped";
  const char* kEcho = "GetEcho";
  const std::vector<Row> rows = {
      {kTyped, {.url = "/typed"}, {"", 0, R"({"flag":false,"ids":[],"text":""})"}},
      {kTyped, {.url = "/typed?flag"}, {"", 0, R"({"flag":true,"ids":[],"text":""})"}},
      {kTyped,
       {.url = "/typed?flag=true&flag=false"},
       {"", 0, R"({"flag":false,"ids":[],"text":""})"}},
      {kTyped, {.url = "/typed?ids=[1,2]"}, {"", 0, R"({"flag":false,"ids":[1,2],"text":""})"}},
      {kTyped,
       {.url = "/typed?ids=+%5B1%2C2%5D"},
       {"", 0, R"({"flag":false,"ids":[1,2],"text":""})"}},
      {kTyped, {.url = "/typed?text=[1,2]"}, {"", 0, R"({"flag":false,"ids":[],"text":"[1,2]"})"}},
      {kTyped, {.url = "/typed?ids=---+[3,4]"}, {"", 0, R"({"flag":false,"ids":[3,4],"text":""})"}},
      {kTyped,
       {.url = "/typed?ids.0=5&ids.1=0x10"},
       {"", 0, R"({"flag":false,"ids":[5,16],"text":""})"}},
      {kTyped, {.url = "/typed?ids"}, {"", 0, R"({"flag":false,"ids":[],"text":""})"}},
      {kTyped, {.url = "/typed?text=a+b%21"}, {"", 0, R"({"flag":false,"ids":[],"text":"a b!"})"}},
      {kTyped, {.url = "/typed?ids.1x=3"}, {"Index 1x is in an incorrect format", 0, ""}},
      {kTyped, {.url = "/typed?ids.4294967296=3"}, {"Index 4294967296 is out of range", 0, ""}},
      {kTyped, {.url = "/typed?flag&&text=a"}, {"Unknown argument '' for 'GetTyped'.", 0, ""}},
      {kTyped, {.url = "/typed?nope=1"}, {"Unknown argument 'nope' for 'GetTyped'.", 0, ""}},
      {kTyped, {.url = "/typed?text"}, {"Expected value for argument 'text'.", 0, ""}},
      {kTyped,
       {.url = "/typed?ids=abc"},
       {"Couldn't assign value to 'ids' of type vector because the input not a collection.", 0,
        ""}},
      {kTyped,
       {.url = "/typed?ids=[1,"},
       {"Couldn't deserialize JSON value for parameter 'ids' of 'GetTyped': Error: Invalid value. "
        "at offset 3.",
        0, ""}},
      // Only parameters of location Any or Header are looked up among the headers.
      {kTyped,
       {.url = "/typed", .headers = {{"Flag", "true"}}},
       {"", 0, R"({"flag":false,"ids":[],"text":""})"}},
      // Header names are kept as given; the lower-cased parameter name is
      // looked up among them.
      {kTyped,
       {.url = "/typed", .headers = {{"text", "hi"}}},
       {"", 0, R"({"flag":false,"ids":[],"text":"hi"})"}},
      {kTyped,
       {.url = "/typed", .headers = {{"TEXT", "hi"}}},
       {"", 0, R"({"flag":false,"ids":[],"text":""})"}},
      {kTyped,
       {.url = "/typed", .headers = {{"Text", "hi"}}},
       {"", 0, R"({"flag":false,"ids":[],"text":""})"}},
      {kEcho, {.url = "/echo?value.2=c"}, {"", 0, R"([null,null,"c"])"}},
      {kEcho, {.url = "/echo?value.x1=c"}, {"", 0, R"({"x1":"c"})"}},
      {kEcho,
       {.url = "/echo?value.filter.name=x&value.filter.n.1=y"},
       {"", 0, R"({"filter":{"n":[null,"y"],"name":"x"}})"}},
      {kEcho, {.url = "/echo?value={%22a%22:1}"}, {"", 0, R"({"a":1})"}},
      {kEcho, {.url = "/echo?value=plain"}, {"", 0, R"("plain")"}},
      {kEcho, {.url = "/echo?value"}, {"", 0, R"({})"}},
      // Many names: a repeated name keeps its first position, takes the last value.
      {kEcho,
       {.url = "/echo?value.0=a&value.1=b&value.2=c&value.3=d&value.4=e&value.5=f&value.6=g&value."
               "7=h&value.8=i&value.9=j&value.10=k&value.11=l&value.12=m&value.13=n&value.14=o&"
               "value.15=p&value.16=q&value.17=r&value.0=z&value.17=y"},
       {"", 0,
        "[\"z\",\"b\",\"c\",\"d\",\"e\",\"f\",\"g\",\"h\",\"i\",\"j\",\"k\",\"l\",\"m\",\"n\","
        "\"o\",\"p\",\"q\",\"y\"]"}},
      {kEcho, {.url = "/echo"}, {"", 0, ""}},
      {"GetItemsById",
       {.url = "/items/7"},
       {"Argument 'id' for 'GetItemsById' was specified in an invalid location.", 0, ""}},
      {"GetThingsById", {.url = "/things/a%20b"}, {"", 0, R"("a b/none")"}},
      {"GetThingsById", {.url = "/things/7?id=9&extra=3"}, {"", 0, R"("9/3")"}},
      {"GetThingsById", {.url = "/nothing"}, {"Invalid function", 404, ""}},
      {"GetThingsById",
       {.method = KAV_METHOD_POST, .url = "/things/7"},
       {"Invalid function", 404, ""}},
      {"GetHeader",
       {.url = "/header", .headers = {{"token", "t1"}, {"Token", "t2"}}},
       {"", 0, R"("t1")"}},
      {"GetHeader",
       {.url = "/header", .headers = {{"Token", "t0"}, {"token", "t1"}, {"token", "t2"}}},
       {"", 0, R"("t2")"}},
      {"GetHeader",
       {.url = "/header", .headers = {{"TOKEN", "t"}}},
       {"A value for 'token' is required.", 0, ""}},
      {"GetMixed",
       {.url = "/mixed", .headers = {{"sessionToken", "a"}, {"sessiontoken", "b"}}},
       {"", 0, R"("b")"}},
      {"GetHeader",
       {.url = "/header?token=x"},
       {"Argument 'token' for 'GetHeader' was specified in an invalid location.", 0, ""}},
      {"GetHeader", {.url = "/header"}, {"A value for 'token' is required.", 0, ""}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.request.url);
    Outcome outcome = CallEntry(row.function, row.request);
    EXPECT_EQ(outcome.error, row.expected.error);
    EXPECT_EQ(outcome.status, row.expected.status);
    EXPECT_EQ(outcome.json, row.expected.json);
  }
}

TEST_F(DispatchTest, IndexPathsStayWithinTheirBudget) {
  // What a few bytes of query may make the dispatcher build: at most 1024
  // elements and members created by index paths per call, paths of at most
  // 32 segments, indexes of at most 65535.
  auto members = [](size_t count) {
    std::string query;
    for (size_t i = 0; i < count; ++i) {
      query += (i == 0 ? "value.m" : "&value.m") + std::to_string(i) + "=1";
    }
    return query;
  };
  auto path = [](size_t segments) {
    std::string key = "value";
    for (size_t i = 0; i < segments; ++i) key += ".s";
    return key;
  };
  const std::string over = " goes beyond the 1024 elements that index paths may create in one call";
  struct Row {
    const char* name;
    std::string query;
    std::string expected_error;
  };
  const Row rows[] = {
      {"the last index within the budget", "value.1023=x", ""},
      {"the first index beyond it", "value.1024=x", "Index path 'value.1024'" + over},
      {"elements that exist cost nothing again", "value.1023=x&value.1000=y&value.0=z", ""},
      {"nested collections add up", "value.600=a&value.0.600=b", "Index path 'value.0.600'" + over},
      {"a repeated key counts once", "value.1000=a&value.1000=b", ""},
      {"members count one each", members(1024), ""},
      {"one member too many", members(1025), "Index path 'value.m1024'" + over},
      {"a path of 32 segments", path(32) + "=x", ""},
      {"a path of 33 segments", path(33) + "=x",
       "Index path '" + path(33) + "' has more than 32 segments"},
      {"an index beyond 65535", "value.65536=x", "Index 65536 is out of range"},
      {"the budget is per call", "value.1023=x", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Outcome outcome = CallEntry("GetEcho", {.url = "/echo?" + row.query});
    EXPECT_EQ(outcome.error, row.expected_error);
  }
}

TEST_F(DispatchTest, BindsHostArgumentsAndBodies) {
  KavHostValue three{};
  three.kind = KAV_VALUE_SIGNED;
  three.payload.i64 = 3;
  KavHostValue text{};
  StringHostValue("named", text);
  KavHostValue bad{};
  bad.kind = 42;

  std::string msgpack =
      "\x81\xA1"
      "a\x01";
  struct Row {
    const char* name;
    const char* function;
    RequestSpec request;
    Outcome expected;
  };
  const std::vector<Row> rows = {
      {"positional after the path parameters",
       "GetThingsById",
       {.url = "/things/p", .arguments = {{nullptr, three}}},
       {"", 0, R"("p/3")"}},
      {"named",
       "GetThingsById",
       {.url = "/things/p", .arguments = {{"id", text}}},
       {"", 0, R"("named/none")"}},
      {"position beyond the parameters",
       "GetThingsById",
       {.url = "/things/p", .arguments = {{nullptr, three}, {nullptr, three}}},
       {"Unknown argument '2' for 'GetThingsById'.", 0, ""}},
      {"unknown name",
       "GetThingsById",
       {.url = "/things/p", .arguments = {{"ID", text}}},
       {"Unknown argument 'ID' for 'GetThingsById'.", 0, ""}},
      {"unconvertible host value",
       "GetThingsById",
       {.url = "/things/p", .arguments = {{"extra", bad}}},
       {"Couldn't assign value to 'extra' of type object because the input is of an "
        "incompatible type ''.",
        0, ""}},
      {"json",
       "PostBody",
       {.method = KAV_METHOD_POST,
        .url = "/body",
        .content_type = "application/json",
        .body = R"({"a":[1,2]})"},
       {"", 0, R"({"a":[1,2]})"}},
      {"json api with a charset",
       "PostBody",
       {.method = KAV_METHOD_POST,
        .url = "/body",
        .content_type = "Application/Vnd.Api+Json; charset=utf-8",
        .body = "[true]"},
       {"", 0, "[true]"}},
      {"yaml",
       "PostBody",
       {.method = KAV_METHOD_POST,
        .url = "/body",
        .content_type = "application/x-yaml",
        .body = "a: 1\nb: [x]\n"},
       {"", 0, R"({"a":1,"b":["x"]})"}},
      {"msgpack",
       "PostBody",
       {.method = KAV_METHOD_POST,
        .url = "/body",
        .content_type = "application/x-msgpack",
        .body = msgpack},
       {"", 0, R"({"a":1})"}},
      {"msgpack with an extra byte",
       "PostBody",
       {.method = KAV_METHOD_POST,
        .url = "/body",
        .content_type = "application/x-msgpack",
        .body = msgpack + "\x01"},
       {"Extra MessgePack data found in body", 0, ""}},
      {"unknown content type",
       "PostBody",
       {.method = KAV_METHOD_POST, .url = "/body", .content_type = "text/plain", .body = "x"},
       {"Unsupported body content type", 0, ""}},
      {"reader failure",
       "PostBody",
       {.method = KAV_METHOD_POST, .url = "/body", .content_type = "application/json", .body = "{"},
       {"Error: Missing a name for object member. at offset 1.", 0, ""}},
      {"no body", "PostBody", {.method = KAV_METHOD_POST, .url = "/body"}, {"", 0, ""}},
      {"body parameter from the query",
       "PostBody",
       {.method = KAV_METHOD_POST, .url = "/body?body=1"},
       {"Argument 'body' for 'PostBody' was specified in an invalid location.", 0, ""}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Outcome outcome = CallEntry(row.function, row.request);
    EXPECT_EQ(outcome.error, row.expected.error);
    EXPECT_EQ(outcome.status, row.expected.status);
    EXPECT_EQ(outcome.json, row.expected.json);
  }
}

TEST_F(DispatchTest, WritesAnswerExtrasAndBuiltins) {
  KavResponse response{};
  WithRequest({.url = "/fail"}, Entry("GetFail")->user_data,
              [&](const KavRequest& request) { OnCall(&response, &request); });
  EXPECT_STREQ(response.error, "boom");
  EXPECT_EQ(+response.error_owned, 1);
  EXPECT_EQ(+response.status, 500u);
  EXPECT_EQ(+response.flags, 7);
  EXPECT_EQ(+response.format, 0u);
  EXPECT_STREQ(response.text, "details");
  ASSERT_EQ(+response.pair_count, 2u);
  EXPECT_STREQ(response.pairs[1].name, "k2");
  EXPECT_STREQ(response.pairs[1].value, "v2");
  ReleaseResponse(&response);
  const KavResponse zero{};
  EXPECT_EQ(std::memcmp(&response, &zero, sizeof(KavResponse)), 0);

  Outcome extras = CallEntry("GetExtras", {.url = "/extras"});
  EXPECT_EQ(extras.status, 201u);
  EXPECT_EQ(extras.json, "");

  // Through HandleCall with a registry, the built-in help is answered...
  Outcome help = CallAll({.url = "/help"});
  EXPECT_EQ(help.error, "");
  EXPECT_NE(help.json.find(R"("name":"GetTyped")"), std::string::npos);
  EXPECT_NE(help.json.find(R"("tags":["Plugins","Plugin test"])"), std::string::npos);
  EXPECT_EQ(CallAll({.url = "/other"}).error, "Unsupported builtin function");
  EXPECT_EQ(CallAll({.url = "/other"}).status, 400u);
  EXPECT_EQ(CallAll({.url = "/typed?flag"}).json, R"({"flag":true,"ids":[],"text":""})");
  EXPECT_EQ(CallAll({.url = "/missing"}).status, 404u);
  // ...while the host's call runs the function itself.
  EXPECT_EQ(CallEntry("Help", {.url = "/help"}).json, "true");
}

TEST_F(DispatchTest, ResourceTableDescribesEveryEndpoint) {
  ASSERT_NE(table_, nullptr);
  EXPECT_EQ(+table_->entry_count, 11u);
  EXPECT_EQ(+table_->type_count, 15u);
  EXPECT_EQ(+table_->event_count, 1u);
  const KavResourceEntry* typed = Entry("GetTyped");
  ASSERT_NE(+typed, nullptr);
  EXPECT_EQ(+typed, table_->entries);
  EXPECT_EQ(+typed->zero, 0u);
  EXPECT_EQ(+typed->call, &OnCall);
  EXPECT_STREQ(typed->path_template, "/typed");
  EXPECT_EQ(+typed->method, static_cast<uint32_t>(KAV_METHOD_GET));
  EXPECT_STREQ(typed->custom_method, "");
  ASSERT_EQ(+typed->parameter_count, 3u);
  EXPECT_STREQ(typed->parameters[1].name, "ids");
  EXPECT_EQ(+typed->parameters[1].kind, 15u);
  EXPECT_EQ(+typed->parameters[1].element_kind, 6u);
  EXPECT_EQ(+typed->parameters[1].optional, 1);
  EXPECT_EQ(+typed->locations[0].location, 1u);
  EXPECT_EQ(+typed->locations[2].location, 0u);
  EXPECT_EQ(+typed->locations[0].zero, 0u);
  EXPECT_EQ(+typed->result_kind, 13u);
  ASSERT_EQ(+typed->tag_count, 2u);
  EXPECT_STREQ(typed->tags[0], "Plugins");
  const auto* binding = static_cast<const EndpointBinding*>(typed->user_data);
  EXPECT_EQ(binding->registry, &registry_);
  EXPECT_EQ(binding->endpoint, dispatcher_->FindEndpoint(registry_.FindFunction("GetTyped")));
  EXPECT_EQ(dispatcher_->FindBinding("GetTyped"), binding);
  EXPECT_EQ(+Entry("PostBody")->method, static_cast<uint32_t>(KAV_METHOD_POST));
  EXPECT_EQ(+Entry("PostBody")->locations[0].location, 5u);
  EXPECT_EQ(+Entry("GetExtras")->result_kind, 0u);
  EXPECT_EQ(+Entry("GetHeader")->result_kind, 12u);

  // A repeated registration changes nothing.
  FunctionBuilder again =
      dispatcher_->RegisterGet("/typed", [](int32_t) { return 1; }).AddQueryParameter("x", "");
  EXPECT_TRUE(again.Existed());
  EXPECT_EQ(registry_.FindFunction("GetTyped")->parameters.size(), 3u);
  EXPECT_EQ(CallEntry("GetTyped", {.url = "/typed?flag"}).json,
            R"({"flag":true,"ids":[],"text":""})");
}

TEST(DispatchEnumeratorTest, HostCallsGetNumbersAndRegistryCallsGetNames) {
  TypeRegistry registry;
  registry.InitializeRegistry();
  RegisterEnumeration<Shade>(registry, "Shade");
  RegisterStructure<Swatch>(registry, "Swatch");
  Dispatcher dispatcher(registry);
  // Native answers go straight to host values; a BindingProperty answer is
  // converted as a value.
  dispatcher.RegisterGet("/shade", [](int32_t n) { return static_cast<Shade>(n); })
      .AddParameter("n", "");
  dispatcher.RegisterGet("/swatch", [] { return Swatch{Shade::kDark, {Shade::kLight}}; });
  dispatcher.RegisterGet("/generic", [] {
    BindingProperty value;
    value.Member("shade").SetEnum(2, StaticType::Of<Shade>());
    return value;
  });
  const KavResourceTable* table = dispatcher.BuildResourceTable();
  std::vector<Route> routes = dispatcher.Routes();

  struct Row {
    const char* url;
    const char* from_host;      // through the resource table (OnCall)
    const char* with_registry;  // HandleCall with the registry
  };
  const Row rows[] = {
      {"/shade?n=2", "2", R"("Dark")"},
      {"/shade?n=7", "7", "7"},  // no enumerator 7: a number either way
      {"/swatch", R"({"shade":2,"shades":[1]})", R"({"shade":"Dark","shades":["Light"]})"},
      {"/generic", R"({"shade":2})", R"({"shade":"Dark"})"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.url);
    const std::string path = std::string(row.url).substr(0, std::string(row.url).find('?'));
    const KavResourceEntry* entry = table->entries;
    while (entry != nullptr && path != entry->path_template) entry = entry->next;
    ASSERT_NE(entry, nullptr);

    KavResponse response{};
    WithRequest({.url = row.url}, entry->user_data,
                [&](const KavRequest& request) { entry->call(&response, &request); });
    Outcome from_host = Collect(response);
    EXPECT_EQ(from_host.error, "");
    EXPECT_EQ(from_host.json, row.from_host);

    WithRequest({.url = row.url}, nullptr, [&](const KavRequest& request) {
      HandleCall(&registry, response, request, routes);
    });
    Outcome with_registry = Collect(response);
    EXPECT_EQ(with_registry.error, "");
    EXPECT_EQ(with_registry.json, row.with_registry);
  }

  // The number itself crosses as a signed value (kind 2).
  const KavResourceEntry* shade = table->entries;
  KavResponse response{};
  WithRequest({.url = "/shade?n=1"}, shade->user_data,
              [&](const KavRequest& request) { shade->call(&response, &request); });
  EXPECT_EQ(+response.body.kind, static_cast<uint32_t>(KAV_VALUE_SIGNED));
  EXPECT_EQ(+response.body.payload.i64, 1);
  ReleaseResponse(&response);
}

TEST(DispatchRegistrationTest, PathsAndParametersFromTheBuilder) {
  TypeRegistry registry;
  registry.InitializeRegistry();
  Dispatcher dispatcher(registry);
  // A "}" outside a part is reported at registration; the route matches nothing.
  dispatcher.RegisterGet("/a}/{x}", [](const std::string& x) { return x; }).AddParameter("x", "");
  // A parameter beyond the handler's is reported and ignored.
  FunctionBuilder trail = dispatcher.RegisterGet("/trail/", [](int32_t n) { return n; })
                              .AddParameter("n", "")
                              .AddParameter("extra", "");
  EXPECT_EQ(trail.Function()->name, "GetTrail");
  EXPECT_EQ(trail.GetEndpoint()->pathTemplate, "/trail");
  EXPECT_EQ(trail.Function()->parameters.size(), 1u);
  const KavResourceTable* table = dispatcher.BuildResourceTable();
  ASSERT_EQ(+table->entry_count, 2u);

  struct Row {
    const KavResourceEntry* entry;
    const char* url;
    const char* error;
    const char* json;
  };
  const KavResourceEntry* malformed = table->entries;
  const KavResourceEntry* trailing = table->entries->next;
  for (const Row& row : std::vector<Row>{{malformed, "/a}/1", "Invalid function", ""},
                                         {malformed, "/a/1", "Invalid function", ""},
                                         {trailing, "/trail?n=0x10", "", "16"},
                                         {trailing, "/trail/?n=1", "Invalid function", ""}}) {
    SCOPED_TRACE(row.url);
    KavResponse response{};
    WithRequest({.url = row.url}, row.entry->user_data,
                [&](const KavRequest& request) { row.entry->call(&response, &request); });
    Outcome outcome = Collect(response);
    EXPECT_EQ(outcome.error, row.error);
    EXPECT_EQ(outcome.json, row.json);
  }
}

// An implementation written by hand: asynchronous result type and a stream.
class StreamingImplementation final : public FunctionImplementation {
 public:
  class Stream final : public BodyStream {
   public:
    bool Read(uint8_t* buffer, uint32_t& size, bool& more) override {
      std::memcpy(buffer, "abc", 3);
      size = 3;
      more = false;
      return true;
    }
    uint32_t Length() override { return 3; }
  };

  PreparedArguments* PrepareArguments(BindingResult&, std::span<const BindingProperty> arguments,
                                      uint32_t call_context) override {
    argument_count = arguments.size();
    prepared_context = call_context;
    return new PreparedArguments;
  }
  void Invoke(CallResult& result, const AsyncCallContext* context, PreparedArguments*,
              uint32_t) override {
    ASSERT_NE(context, nullptr);
    seen = *context;
    result.stream = std::make_unique<Stream>();
    result.value.SetUnsigned(5);
  }
  void ReleaseArguments(PreparedArguments* state) override {
    delete state;
    ++released;
    if (response != nullptr) {
      kind_at_release = response->body.kind;
      stream_at_release = response->stream_handle != nullptr;
    }
  }
  const void* Handler() const override { return this; }
  const StaticTypeIdentity& ResultType() const override { return StaticType::Of<AsyncOperation>(); }

  size_t argument_count = 99;
  uint32_t prepared_context = 0;
  AsyncCallContext seen;
  int released = 0;
  // What the response held when the arguments were released.
  const KavResponse* response = nullptr;
  uint32_t kind_at_release = 0;
  bool stream_at_release = false;
};

TEST(DispatchStreamTest, AsynchronousImplementationGetsContextAndStreams) {
  FunctionDescription function;
  function.name = "Custom";
  Endpoint endpoint;
  endpoint.function = &function;
  endpoint.pathTemplate = "/custom";
  endpoint.method = HttpMethod::kCustom;
  endpoint.customMethod = "SYNC";
  auto implementation = std::make_unique<StreamingImplementation>();
  StreamingImplementation& seen = *implementation;
  endpoint.implementation = std::move(implementation);
  Route route(endpoint);

  RequestSpec spec{.method = KAV_METHOD_CUSTOM, .url = "/custom?x", .headers = {{"A", "b"}}};
  KavResponse response{};
  std::string custom = "SYNC";
  WithRequest(spec, nullptr, [&](const KavRequest& request) {
    KavRequest with_method = request;
    with_method.custom_method = custom.c_str();
    HandleCall(nullptr, response, with_method, {&route, 1});
  });
  // The query names no parameter: the function has none.
  EXPECT_STREQ(response.error, "Unknown argument 'x' for 'Custom'.");
  ReleaseResponse(&response);

  spec.url = "/custom";
  seen.response = &response;
  WithRequest(spec, nullptr, [&](const KavRequest& request) {
    KavRequest with_method = request;
    with_method.custom_method = custom.c_str();
    HandleCall(nullptr, response, with_method, {&route, 1});
  });
  EXPECT_EQ(+response.error, nullptr);
  EXPECT_EQ(seen.argument_count, 0u);
  EXPECT_EQ(seen.prepared_context, 77u);
  EXPECT_EQ(seen.released, 1);
  // The prepared arguments outlive the writing of the answer.
  EXPECT_EQ(seen.kind_at_release, static_cast<uint32_t>(KAV_VALUE_UNSIGNED));
  EXPECT_TRUE(seen.stream_at_release);
  EXPECT_EQ(seen.seen.callContext, 77u);
  EXPECT_EQ(seen.seen.url, "/custom");
  EXPECT_EQ(seen.seen.method, HttpMethod::kCustom);
  EXPECT_EQ(seen.seen.customMethod, "SYNC");
  EXPECT_EQ(seen.seen.headers.size(), 1u);
  EXPECT_EQ(seen.seen.headers.at("A"), "b");        // named as the request names it
  EXPECT_GT(seen.seen.time, 16000000000000000ull);  // after 2020
  EXPECT_EQ(+response.body.kind, static_cast<uint32_t>(KAV_VALUE_UNSIGNED));
  ASSERT_NE(+response.stream_read, nullptr);
  EXPECT_EQ(+response.stream_length, 3u);
  uint8_t buffer[8] = {};
  uint32_t size = sizeof(buffer);
  uint8_t more = 1;
  EXPECT_EQ(+response.stream_read(response.stream_handle, buffer, &size, &more), 1);
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(more, 0);
  response.stream_close(response.stream_handle);
  ReleaseResponse(&response);
}

TEST_F(DispatchTest, ReleasedResponsesReturnAllMemory) {
  KavHostValue named{};
  StringHostValue("named", named);
  const std::vector<std::pair<const char*, RequestSpec>> calls = {
      {"GetTyped", {.url = "/typed?ids=[1,2]&text=hello"}},
      {"GetTyped", {.url = "/typed?ids.1x=3"}},
      {"GetEcho", {.url = "/echo?value.filter.name=x&value.list.3=y"}},
      {"GetThingsById", {.url = "/things/p", .arguments = {{"id", named}}}},
      {"GetFail", {.url = "/fail"}},
      {"GetExtras", {.url = "/nothing"}},
      {"PostBody",
       {.method = KAV_METHOD_POST,
        .url = "/body",
        .content_type = "application/json",
        .body = R"({"a":["x","y"],"b":{"c":1.5}})"}},
  };
  // Warm up once so that lazily created state does not count.
  for (const auto& [function, spec] : calls) CallEntry(function, spec);

  const uint64_t before = ReadMemoryStatistics().BytesInUse();
  const uint64_t allocations = ReadMemoryStatistics().allocations;
  for (int round = 0; round < 20; ++round) {
    for (const auto& [function, spec] : calls) CallEntry(function, spec);
  }
  EXPECT_GT(ReadMemoryStatistics().allocations, allocations);
  EXPECT_EQ(ReadMemoryStatistics().BytesInUse(), before);
}

}  // namespace
}  // namespace kav
