#include "routing/route.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "support/small_stack.h"

namespace kav {
namespace {

using ::testing::UnorderedElementsAreArray;

TEST(RouteNamingTest, MethodNamesAndFunctionNames) {
  struct Row {
    uint32_t code;
    const char* name;
  };
  for (const Row& row : std::vector<Row>{{0, ""},
                                         {1, "DELETE"},
                                         {2, "GET"},
                                         {3, "HEAD"},
                                         {4, "OPTIONS"},
                                         {5, "PATCH"},
                                         {6, "POST"},
                                         {7, "PUT"},
                                         {8, ""},
                                         {9, ""},
                                         {0xFFFFFFFF, ""}}) {
    SCOPED_TRACE(row.code);
    EXPECT_STREQ(HttpMethodName(row.code), row.name);
  }
  EXPECT_EQ(HttpMethodFromCode(8), HttpMethod::kCustom);
  EXPECT_EQ(HttpMethodFromCode(9), HttpMethod::kAny);

  struct NameRow {
    const char* method;
    const char* path;
    const char* expected;
  };
  const std::vector<NameRow> names = {
      {"POST", "/kav-queue-eligibility/v1/eligibility", "PostKavQueueEligibilityV1Eligibility"},
      {"GET", "/kav-queue-eligibility/v1/initial-configuration-complete",
       "GetKavQueueEligibilityV1InitialConfigurationComplete"},
      {"GET", "/items/{id}", "GetItemsById"},
      {"DELETE", "/a_b/c.d", "DeleteABCD"},
      {"", "/kav-queue-eligibility", "KavQueueEligibility"},
      {"", "kav-queue-eligibility", "KavQueueEligibility"},
      {"get", "/x", "GetX"},
      // "}" keeps the flag: the character after it is not capitalised.
      {"GET", "/a/{id}x", "GetAByIdx"},
      {"PUT", "/a!b+c", "PutABC"},
      {"GET", "", "Get"},
      {"", "", ""},
  };
  for (const NameRow& row : names) {
    SCOPED_TRACE(std::string(row.method) + " " + row.path);
    EXPECT_EQ(MakeFunctionName(row.method, row.path), row.expected);
  }
}

TEST(RouteTemplateTest, NormalizationDecodingAndCompilation) {
  struct PathRow {
    const char* in;
    const char* out;
  };
  for (const PathRow& row :
       std::vector<PathRow>{{"/a/b/", "/a/b"}, {"/", "/"}, {"", ""}, {"//", "/"}, {"/a", "/a"}}) {
    SCOPED_TRACE(row.in);
    EXPECT_EQ(NormalizePathTemplate(row.in), row.out);
  }

  struct DecodeRow {
    std::string in;
    std::string out;
  };
  for (const DecodeRow& row : std::vector<DecodeRow>{
           {"a+b%41%4", "a bA4"},
           {"%2f%2F", "//"},
           {"%zz", std::string(1, '\x10')},  // 16*16 drops out, 16 stays
           {"%z1", std::string(1, '\x01')},
           {"%1z", std::string(1, '\x10')},
           {"%", ""},
           {"x%", "x"},
           {"%%", ""},
           {"%+", " "},
           {"%FF", "\xff"},
           {"plain", "plain"},
       }) {
    SCOPED_TRACE(row.in);
    EXPECT_EQ(PercentDecode(row.in), row.out);
  }

  struct CompileRow {
    const char* path_template;
    bool valid;
    const char* literal;
    const char* expression;
    std::vector<std::pair<RouteParameterKind, std::string>> parameters;
  };
  using K = RouteParameterKind;
  const std::vector<CompileRow> rows = {
      {"/a/b", true, "/a/b", "", {}},
      {"/items/{id}/{+rest}",
       true,
       "",
       "/items/([^/]*)/(.*)",
       {{K::kPlain, "id"}, {K::kRest, "rest"}}},
      {"/x/{#frag}", true, "", "/x/#(.*)", {{K::kFragment, "frag"}}},
      {"/a.b/{x}", true, "", "/a\\.b/([^/]*)", {{K::kPlain, "x"}}},
      {"^$*?()[]|\\{x}", true, "", "\\^\\$\\*\\?\\(\\)\\[\\]\\|\\\\([^/]*)", {{K::kPlain, "x"}}},
      // "+" or "#" later in the name are ordinary characters.
      {"/{a+b}", true, "", "/([^/]*)", {{K::kPlain, "a+b"}}},
      // "{" inside a part: plain again, name kept.
      {"/{+ab{cd}", true, "", "/([^/]*)", {{K::kPlain, "abcd"}}},
      // An unclosed part is dropped.
      {"/a/{id", true, "", "/a/", {}},
      {"/a/{x}/}", false, "", "/a/([^/]*)/", {{K::kPlain, "x"}}},
      {"/a}", true, "/a}", "", {}},
  };
  for (const CompileRow& row : rows) {
    SCOPED_TRACE(row.path_template);
    CompiledTemplate compiled = CompilePathTemplate(row.path_template);
    EXPECT_EQ(compiled.valid, row.valid);
    EXPECT_EQ(compiled.literalPath, row.literal);
    EXPECT_EQ(compiled.expression, row.expression);
    std::vector<std::pair<RouteParameterKind, std::string>> parameters;
    for (const RouteParameter& p : compiled.parameters) parameters.emplace_back(p.kind, p.name);
    EXPECT_EQ(parameters, row.parameters);
    EXPECT_EQ(CheckPathTemplate(row.path_template).empty(), row.valid);
  }
}

TEST(RouteMatchTest, MatchesWholePathAndDecodesValues) {
  struct Row {
    const char* path_template;
    const char* url;
    bool matches;
    std::vector<std::pair<std::string, std::string>> parameters;
  };
  const std::vector<Row> rows = {
      {"/a/b", "/a/b", true, {}},
      {"/a/b", "/a/b/", false, {}},
      {"/a/b", "/a/B", false, {}},
      {"/a/b", "/a", false, {}},
      // The query is cut off before matching.
      {"/a/b", "/a/b?x=1", true, {}},
      {"/items/{id}", "/items/", true, {{"id", ""}}},
      {"/items/{id}", "/items/a%20b", true, {{"id", "a b"}}},
      {"/items/{id}", "/items/a+b", true, {{"id", "a b"}}},
      {"/items/{id}", "/items/a/b", false, {}},
      {"/items/{id}", "/items/7?id=9", true, {{"id", "7"}}},
      {"/items/{id}", "/prefix/items/7", false, {}},
      {"/files/{+path}", "/files/a/b/c", true, {{"path", "a/b/c"}}},
      {"/x/{#frag}", "/x/#top", true, {{"frag", "top"}}},
      {"/x/{#frag}", "/x/top", false, {}},
      {"/v1.0/{id}", "/v1.0/3", true, {{"id", "3"}}},
      {"/v1.0/{id}", "/v1x0/3", false, {}},
      {"/a/{x}/{y}", "/a/1/2", true, {{"x", "1"}, {"y", "2"}}},
      {"/a/{x}/}", "/a/1/", false, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.path_template) + " ~ " + row.url);
    Endpoint endpoint;
    endpoint.pathTemplate = row.path_template;
    Route route(endpoint);
    PathParameters parameters;
    EXPECT_EQ(MatchRoute(route, row.url, parameters), row.matches);
    if (row.matches) {
      EXPECT_THAT(parameters, UnorderedElementsAreArray(row.parameters));
    }
  }
}

TEST(RouteMatchTest, CapturesAsTheExpressionWouldOnAnyLength) {
  // Where a path can be split between parts in several ways, the captures
  // are those of the template's ECMAScript expression: each part takes as
  // much as it can while the rest still matches. A rest part's "." stops at
  // line breaks; a plain part's "[^/]" does not. Long paths are matched on
  // a host-sized stack: a backtracking engine recurses once per character.
  const std::string long_segment(1 << 20, 'a');
  struct Row {
    const char* name;
    std::string path_template;
    std::string url;
    bool matches;
    std::vector<std::pair<std::string, std::string>> parameters;
  };
  const std::vector<Row> rows = {
      {"two rest parts: the first is greedy",
       "/a/{+x}/{+y}",
       "/a/1/2/3",
       true,
       {{"x", "1/2"}, {"y", "3"}}},
      {"adjacent plain parts: the first takes all",
       "/a/{x}{y}",
       "/a/abc",
       true,
       {{"x", "abc"}, {"y", ""}}},
      {"rest then fragment: the rest takes up to the last '#'",
       "/x/{+a}{#b}",
       "/x/1#2#3",
       true,
       {{"a", "1#2"}, {"b", "3"}}},
      {"a fragment keeps later '#'", "/x/{#frag}", "/x/#a#b", true, {{"frag", "a#b"}}},
      {"plain part then literal: backs off to the literal",
       "/k/{x}-{y}",
       "/k/a-b-c",
       true,
       {{"x", "a-b"}, {"y", "c"}}},
      {"a rest part stops at a line feed", "/f/{+p}", "/f/a\nb", false, {}},
      {"a rest part stops at a carriage return", "/f/{+p}", "/f/a\rb", false, {}},
      {"a plain part takes a line feed", "/f/{p}", "/f/a\nb", true, {{"p", "a\nb"}}},
      {"nothing left for the literal", "/a/{+x}/end", "/a/1/2/en", false, {}},
      {"a long plain part", "/items/{id}", "/items/" + long_segment, true, {{"id", long_segment}}},
      {"a long rest part",
       "/files/{+path}",
       "/files/" + long_segment,
       true,
       {{"path", long_segment}}},
      {"a long path that does not match", "/files/{+path}/x", "/files/" + long_segment, false, {}},
      {"a long path over many parts",
       "/{a}/{+b}/{c}{d}",
       "/" + long_segment + "/b/c",
       true,
       {{"a", long_segment}, {"b", "b"}, {"c", "c"}, {"d", ""}}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Endpoint endpoint;
    endpoint.pathTemplate = row.path_template;
    Route route(endpoint);
    PathParameters parameters;
    bool matched = false;
    testing_support::RunOnSmallStack([&] { matched = MatchRoute(route, row.url, parameters); });
    EXPECT_EQ(matched, row.matches);
    if (row.matches) {
      EXPECT_THAT(parameters, UnorderedElementsAreArray(row.parameters));
    }
  }
}

TEST(RouteSelectionTest, ChoosesByMethodThenShortestParametersThenOrder) {
  struct EndpointSpec {
    const char* path_template;
    HttpMethod method;
    const char* custom;
  };
  struct Row {
    const char* name;
    std::vector<EndpointSpec> endpoints;
    RouteRequest request;
    bool ignore_method;
    int expected;  // index of the chosen endpoint, -1 for none
    std::vector<std::pair<std::string, std::string>> parameters;
  };
  const HttpMethod kGet = HttpMethod::kGet;
  const HttpMethod kAny = HttpMethod::kAny;
  const HttpMethod kCustom = HttpMethod::kCustom;
  const std::vector<Row> rows = {
      {"no route", {}, {"/a", kGet, ""}, false, -1, {}},
      {"method mismatch", {{"/a", HttpMethod::kPost, ""}}, {"/a", kGet, ""}, false, -1, {}},
      {"method ignored", {{"/a", HttpMethod::kPost, ""}}, {"/a", kGet, ""}, true, 0, {}},
      {"endpoint accepts any", {{"/a", kAny, ""}}, {"/a", HttpMethod::kPut, ""}, false, 0, {}},
      {"request without method", {{"/a", kGet, ""}}, {"/a", kAny, ""}, false, -1, {}},
      {"custom equal", {{"/a", kCustom, "LIST"}}, {"/a", kCustom, "LIST"}, false, 0, {}},
      {"custom differs", {{"/a", kCustom, "LIST"}}, {"/a", kCustom, "list"}, false, -1, {}},
      {"custom text ignored for other methods",
       {{"/a", kGet, ""}},
       {"/a", kGet, "LIST"},
       false,
       0,
       {}},
      {"shorter parameters win",
       {{"/{+all}", kGet, ""}, {"/a/{id}", kGet, ""}},
       {"/a/xy", kGet, ""},
       false,
       1,
       {{"id", "xy"}}},
      {"equal lengths: earlier wins",
       {{"/{x}/b", kGet, ""}, {"/a/{y}", kGet, ""}},
       {"/a/b", kGet, ""},
       false,
       0,
       {{"x", "a"}}},
      {"decoded, not raw, lengths are compared",
       {{"/{w}/%41%41", kGet, ""}, {"/xyz/{v}", kGet, ""}},
       {"/xyz/%41%41", kGet, ""},
       false,
       1,
       {{"v", "AA"}}},
      {"literal ends the search",
       {{"/a/b", kGet, ""}, {"/a/{x}", kGet, ""}},
       {"/a/b", kGet, ""},
       false,
       0,
       {}},
      {"literal after a template still wins by length",
       {{"/a/{x}", kGet, ""}, {"/a/b", kGet, ""}},
       {"/a/b", kGet, ""},
       false,
       1,
       {}},
      {"an empty value does not end the search; the tie keeps the earlier",
       {{"/a/{x}", kGet, ""}, {"/a/", kGet, ""}},
       {"/a/", kGet, ""},
       false,
       0,
       {{"x", ""}}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::deque<Endpoint> endpoints;
    std::vector<Route> routes;
    for (const EndpointSpec& spec : row.endpoints) {
      Endpoint& endpoint = endpoints.emplace_back();
      endpoint.pathTemplate = spec.path_template;
      endpoint.method = spec.method;
      endpoint.customMethod = spec.custom;
    }
    for (const Endpoint& endpoint : endpoints) routes.emplace_back(endpoint);
    RouteMatch match;
    bool found = FindRoute(row.request, routes, row.ignore_method, match);
    EXPECT_EQ(found, row.expected >= 0);
    if (found && row.expected >= 0) {
      EXPECT_EQ(match.endpoint, &endpoints[static_cast<size_t>(row.expected)]);
      EXPECT_THAT(match.pathParameters, UnorderedElementsAreArray(row.parameters));
    }
  }
}

}  // namespace
}  // namespace kav
