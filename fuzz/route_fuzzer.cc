// Route matching and percent-decoding, with the template and the URL both
// fuzzed: compiling a template, checking it, naming its function, matching
// a URL against its route, and decoding. Where the template has few parts
// and the path is short, the match and its captures are checked against
// the regular expression library's ECMAScript engine, whose backtracking
// recursion is only safe on such small inputs.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <string_view>

#include "finding.h"
#include "routing/route.h"
#include "small_stack.h"

namespace {

using namespace kav;

using kav::fuzz::Fail;

constexpr size_t kOracleGroups = 3;
constexpr size_t kOraclePath = 48;

void CheckAgainstRegex(const CompiledTemplate& compiled, const Route& route, std::string_view url,
                       bool matched, const PathParameters& parameters) {
  const std::string_view path = url.substr(0, url.find('?'));
  if (compiled.parameters.size() > kOracleGroups || path.size() > kOraclePath) return;
  const std::regex pattern(compiled.expression, std::regex::ECMAScript | std::regex::optimize);
  std::match_results<std::string_view::const_iterator> groups;
  const bool expected = std::regex_match(path.begin(), path.end(), groups, pattern);
  if (expected != matched) Fail(matched ? "matched, the engine does not" : "engine matches", url);
  if (!expected) return;
  PathParameters captured;
  for (size_t i = 1; i < groups.size() && i - 1 < route.parameters().size(); ++i) {
    captured[route.parameters()[i - 1].name] =
        PercentDecode(path.substr(static_cast<size_t>(groups[i].first - path.begin()),
                                  static_cast<size_t>(groups[i].length())));
  }
  if (captured != parameters) Fail("captures differ from the engine's", url);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kav::fuzz::LimitStackToHostThreadSize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const uint32_t method_code = input.ConsumeIntegral<uint32_t>();
  const std::string method = input.ConsumeRandomLengthString(8);
  const std::string path_template = input.ConsumeRandomLengthString(96);
  const std::string url = input.ConsumeRemainingBytesAsString();

  const std::string decoded = PercentDecode(url);
  if (decoded.size() > url.size()) Fail("decoding lengthened the text", url);
  (void)MakeFunctionName(method, path_template);

  const std::string normalized = NormalizePathTemplate(path_template);
  const std::string problem = CheckPathTemplate(normalized);
  const CompiledTemplate compiled = CompilePathTemplate(normalized);
  if (compiled.valid && normalized.find('{') != std::string::npos &&
      compiled.literals.size() != compiled.parameters.size() + 1) {
    Fail("texts and parts do not alternate", normalized);
  }

  Endpoint endpoint;
  endpoint.pathTemplate = normalized;
  const Route route(endpoint);
  if (route.valid() != problem.empty()) Fail("route and check disagree", normalized);
  PathParameters parameters;
  const bool matched = MatchRoute(route, url, parameters);
  if (matched && !route.valid()) Fail("an invalid route matched", normalized);
  if (route.valid() && route.HasPattern()) {
    CheckAgainstRegex(compiled, route, url, matched, parameters);
  }

  RouteMatch match;
  const RouteRequest request{url, HttpMethodFromCode(method_code), method};
  const Route routes[] = {route, route};
  if (FindRoute(request, routes, true, match) != matched) Fail("FindRoute differs", url);
  return 0;
}
