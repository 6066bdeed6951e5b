// Argument binding on its own: the generic values that headers, path
// parameters, the query, host arguments and bodies bind, before any
// conversion to the handler's native types.
#include "routing/argument_binding.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "binding/property_text.h"
#include "binding/type_registry.h"

namespace kav {
namespace {

using testing_support::PropertyText;

std::string PairsText(const TextPairs& pairs) {
  std::string text;
  for (const auto& [name, value] : pairs) {
    if (!text.empty()) text += " ";
    text += "(" + name + "|" + value + ")";
  }
  return text;
}

TEST(ArgumentBindingTest, QueryPiecesSplitAtTheFirstEqualsSign) {
  const std::pair<const char*, const char*> rows[] = {
      {"/x", ""},
      {"/x?", "(|)"},
      {"/x?a", "(a|)"},
      {"/x?a=b=c", "(a|b=c)"},
      {"/x?a=1&&b=2", "(a|1) (|) (b|2)"},
      {"/x?a=1&b=2&a=3", "(a|3) (b|2)"},
      {"/x?a%20b=c+d%21", "(a b|c d!)"},
      {"/x?q=1?2", "(q|1?2)"},
  };
  for (const auto& [url, expected] : rows) {
    SCOPED_TRACE(url);
    EXPECT_EQ(PairsText(ParseQuery(url)), expected);
  }
}

TEST(ArgumentBindingTest, HeadersAreKeyedAsGivenAndLookedUpInLowerCase) {
  FunctionDescription function;
  function.name = "GetX";
  function.parameters.resize(3);
  function.parameters[0].name = "Accept";
  function.parameters[1].name = "token";
  function.parameters[2].name = "query";
  Endpoint endpoint;
  endpoint.locations = {ParameterLocation::kAny, ParameterLocation::kHeader,
                        ParameterLocation::kQuery};

  struct Row {
    const char* name;
    std::vector<KavHeaderEntry> headers;
    size_t map_size;
    const char* arguments;
  };
  const std::vector<Row> rows = {
      {"lower-case names reach their parameters",
       {{"accept", "a"}, {"token", "t"}, {"query", "q"}},
       3,
       "(Accept|a) (token|t)"},
      {"other spellings are other names", {{"Accept", "a"}, {"TOKEN", "t"}}, 2, ""},
      {"a later header of the same name replaces the earlier",
       {{"token", "1"}, {"Token", "2"}, {"token", "3"}},
       2,
       "(token|3)"},
      {"no name is skipped, no value reads as empty",
       {{nullptr, "x"}, {"token", nullptr}},
       1,
       "(token|)"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    KavRequest request{};
    request.headers = row.headers.data();
    request.header_count = static_cast<uint32_t>(row.headers.size());
    const HeaderMap headers = ReadHeaders(request);
    EXPECT_EQ(headers.size(), row.map_size);
    EXPECT_EQ(PairsText(HeaderArguments(headers, function, endpoint)), row.arguments);
  }
}

TEST(ArgumentBindingTest, SourcesBindGenericValuesBeforeConversion) {
  FunctionDescription function;
  function.name = "GetThing";
  function.parameters.resize(5);
  function.parameters[0] = {"flag", "", {TypeKind::kBool}, {}, false};
  function.parameters[1] = {"list", "", {TypeKind::kVector, TypeKind::kInt32}, {}, false};
  function.parameters[2] = {"text", "", {TypeKind::kString}, {}, false};
  function.parameters[3] = {"object", "", {TypeKind::kObject}, {}, false};
  function.parameters[4] = {"maybe", "", {TypeKind::kBool}, {}, true};
  Endpoint endpoint;
  endpoint.locations = {ParameterLocation::kQuery, ParameterLocation::kAny, ParameterLocation::kAny,
                        ParameterLocation::kAny, ParameterLocation::kAny};

  struct Row {
    const char* name;
    TextPairs headers;
    PathParameters path;
    const char* url;
    const char* error;  // "" when binding succeeds
    std::vector<const char*> values;
  };
  const std::vector<Row> rows = {
      {"nothing given: required bools are false",
       {},
       {},
       "/t",
       "",
       {"false", "null", "null", "null", "null"}},
      {"a flag without a value",
       {},
       {},
       "/t?flag&object&list",
       "",
       {"true", "[]", "null", "{}", "null"}},
      {"an index path creates the elements before it",
       {},
       {},
       "/t?list.2=c",
       "",
       {"false", "[null,null,\"c\"]", "null", "null", "null"}},
      {"a member path builds structures",
       {},
       {},
       "/t?object.a.1=x&object.b=y",
       "",
       {"false", "null", "null", "{a:[null,\"x\"],b:\"y\"}", "null"}},
      {"structured texts are read by their first bytes",
       {},
       {},
       "/t?list=[1,-2]&object=---+{a:+1}",
       "",
       {"false", "[u1,s-2]", "null", "{a:u1}", "null"}},
      {"a text parameter keeps a bracketed text",
       {},
       {},
       "/t?text=[1]",
       "",
       {"false", "null", "\"[1]\"", "null", "null"}},
      {"header, then path, then query: the last source wins",
       {{"text", "h"}},
       {{"text", "p"}},
       "/t?text=q",
       "",
       {"false", "null", "\"q\"", "null", "null"}},
      {"a query-only parameter from a path part",
       {},
       {{"flag", "1"}},
       "/t",
       "Argument 'flag' for 'GetThing' was specified in an invalid location.",
       {}},
      {"a flag for a text", {}, {}, "/t?text", "Expected value for argument 'text'.", {}},
      {"an index with trailing characters",
       {},
       {},
       "/t?list.1x=c",
       "Index 1x is in an incorrect format",
       {}},
      {"an unknown name stops the binding",
       {},
       {},
       "/t?nope=1&text=late",
       "Unknown argument 'nope' for 'GetThing'.",
       {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingResult result;
    ArgumentBinder binder(function, endpoint, result);
    binder.BindArguments(row.headers, row.path, ParseQuery(row.url));
    EXPECT_EQ(std::string(result.Error()), row.error);
    if (!result.Ok()) continue;
    std::vector<std::string> values;
    for (const BindingProperty& argument : binder.arguments()) {
      values.push_back(PropertyText(argument));
    }
    EXPECT_EQ(values, std::vector<std::string>(row.values.begin(), row.values.end()));
  }
}

TEST(ArgumentBindingTest, HostArgumentsAndBodiesFillTheirParameters) {
  FunctionDescription function;
  function.name = "PostThing";
  function.parameters.resize(3);
  function.parameters[0].name = "id";
  function.parameters[1].name = "count";
  function.parameters[2].name = "body";
  Endpoint endpoint;
  endpoint.locations = {ParameterLocation::kPath, ParameterLocation::kAny,
                        ParameterLocation::kBody};

  KavHostValue five{};
  five.kind = KAV_VALUE_SIGNED;
  five.payload.i64 = 5;
  const std::string body = R"({"a":[true]})";

  struct Row {
    const char* name;
    std::vector<KavArgumentEntry> arguments;
    size_t path_parameters;
    const char* content_type;
    const char* error;
    std::vector<const char*> values;
  };
  const std::vector<Row> rows = {
      {"positional entries follow the path parameters",
       {{nullptr, five}},
       1,
       "application/json",
       "",
       {"null", "s5", "{a:[true]}"}},
      {"a named entry", {{"id", five}}, 0, "application/json", "", {"s5", "null", "{a:[true]}"}},
      {"a position beyond the parameters",
       {{nullptr, five}, {nullptr, five}},
       2,
       "application/json",
       "Unknown argument '3' for 'PostThing'.",
       {}},
      {"a body of an unknown type", {}, 0, "text/plain", "Unsupported body content type", {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    KavRequest request{};
    request.arguments = row.arguments.empty() ? nullptr : row.arguments.data();
    request.argument_count = static_cast<uint32_t>(row.arguments.size());
    request.content_type = row.content_type;
    request.body = reinterpret_cast<const uint8_t*>(body.data());
    request.body_length = static_cast<uint32_t>(body.size());
    BindingResult result;
    ArgumentBinder binder(function, endpoint, result);
    binder.BindHostArguments(request, row.path_parameters);
    if (result.Ok()) binder.BindBody(request);
    EXPECT_EQ(std::string(result.Error()), row.error);
    if (!result.Ok()) continue;
    std::vector<std::string> values;
    for (const BindingProperty& argument : binder.arguments()) {
      values.push_back(PropertyText(argument));
    }
    EXPECT_EQ(values, std::vector<std::string>(row.values.begin(), row.values.end()));
  }
}

}  // namespace
}  // namespace kav
