// Endpoints and routes: how a registered function is reached by method and
// path, and how an incoming URL selects one.
//
// An Endpoint ties a function description to its implementation, its path
// template, its method and where each parameter's value may come from. A
// Route is the compiled form of an endpoint's template: either a literal
// path compared byte for byte, or a regular expression built from a template
// with named parts:
//
//   {name}   plain part:   one path segment, "([^/]*)"
//   {+name}  rest part:    the rest of the URL, "(.*)"
//   {#name}  fragment part: "#(.*)"
//
// Matching always requires the whole path to match, with the captures that
// the ECMAScript expression would give (routing/path_pattern.h matches it
// without the regular expression library, in linear time and without
// recursion over the URL); captured values are percent-decoded. The query string (the text from the
// first "?") is cut off before matching, so "/x?a=1" reaches the literal route "/x" and a part at
// the end of a template never swallows the query; call dispatch reads the
// query separately.
//
// A template with a "}" outside any part is malformed: it would misalign the
// captured values with their names. Such a template is reported when it is
// set on an endpoint, and its route matches no URL (the call is then answered
// as an unknown function) instead of binding values to the wrong names.
//
// Thread-safety: Endpoint is filled during registration and read-only
// afterwards (its table is guarded by the dispatcher's mutex). Routes and
// match results are call-local values; the compiled expression of a route is
// immutable and shared between copies, so copies may be used from several
// threads.
#ifndef KAV_ROUTING_ROUTE_H_
#define KAV_ROUTING_ROUTE_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "routing/path_pattern.h"

namespace kav {

struct FunctionDescription;    // binding/type_registry.h
class FunctionImplementation;  // routing/function_implementation.h

// Method codes of endpoints and requests.
enum class HttpMethod : uint32_t {
  kAny = 0,  // endpoints only: accepts every method
  kDelete = 1,
  kGet = 2,
  kHead = 3,
  kOptions = 4,
  kPatch = 5,
  kPost = 6,
  kPut = 7,
  kCustom = 8,  // named by a separate text
};

// "DELETE", "GET", "HEAD", "OPTIONS", "PATCH", "POST", "PUT" for codes 1 to 7;
// "" for every other code (8 included).
const char* HttpMethodName(uint32_t code);
// The method of a wire code; codes outside 1 to 8 count as kAny.
HttpMethod HttpMethodFromCode(uint32_t code);

// Where a parameter's value may come from.
enum class ParameterLocation : uint32_t {
  kAny = 0,
  kQuery = 1,
  kPath = 2,
  kHeader = 4,
  kBody = 5,  // at most one parameter receives the body
};

// One registered function as a resource. Owned by the dispatcher's endpoint
// table; lives as long as the module.
struct Endpoint {
  Endpoint();
  ~Endpoint();
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  const FunctionDescription* function = nullptr;
  // Runs the function; empty until set.
  std::unique_ptr<FunctionImplementation> implementation;
  // When empty, the function's name serves as the path.
  std::string pathTemplate;
  HttpMethod method = HttpMethod::kAny;
  // Compared only when `method` is kCustom.
  std::string customMethod;
  // One per parameter of the function, all kAny at creation.
  std::vector<ParameterLocation> locations;
  // Handed to the host unchanged; no registration operation sets them.
  uint8_t flags = 0;
  std::vector<std::vector<std::string>> textLists;
};

// The stored form of a path: one trailing "/" is removed from a text longer
// than one character ("/a/b/" becomes "/a/b"; "/" stays).
std::string NormalizePathTemplate(std::string_view path);

// Empty when `path_template` can be compiled into a route; otherwise the
// reason it cannot ("}" outside a part, or an expression the regular
// expression library refuses).
std::string CheckPathTemplate(std::string_view path_template);

// The function name of a method text and a path: "GET" and "/items/{id}"
// give "GetItemsById"; "" and "/kav-queue-eligibility" give
// "KavQueueEligibility".
std::string MakeFunctionName(std::string_view method, std::string_view path);

// Percent-decoding of paths and query strings: "+" is a space; "%" and two
// bytes is the byte of those hexadecimal digits, where a byte that is no
// hexadecimal digit counts as 16 (so it is never rejected); a "%" with fewer
// than two bytes after it is dropped.
std::string PercentDecode(std::string_view text);

enum class RouteParameterKind : uint32_t {
  kPlain = 1,     // "([^/]*)"
  kRest = 2,      // "(.*)"
  kFragment = 3,  // "#(.*)"
};

struct RouteParameter {
  RouteParameterKind kind;
  std::string name;
};

// The compiled form of a path template.
struct CompiledTemplate {
  bool valid = true;  // false: the route matches nothing
  std::string literalPath;
  std::string expression;  // the regular expression text, without anchors
  std::vector<RouteParameter> parameters;
  // The texts around the parts, unescaped (one more than the parameters); a
  // fragment part's "#" ends the text before it.
  std::vector<std::string> literals;
};

// Converts a template; literal when it contains no "{". Characters of an
// unclosed part at the end are dropped. Never throws.
CompiledTemplate CompilePathTemplate(std::string_view path_template);

using PathParameters = std::unordered_map<std::string, std::string>;

// The route of one endpoint.
class Route {
 public:
  // Builds the route of `endpoint`'s template (its function's name when the
  // template is empty). Never throws: an invalid template yields a route
  // that matches nothing.
  explicit Route(const Endpoint& endpoint);
  // Builds a route of `endpoint` over an explicit template.
  Route(const Endpoint& endpoint, std::string_view path_template);

  const FunctionDescription* function() const { return function_; }
  const Endpoint* endpoint() const { return endpoint_; }
  bool valid() const { return valid_; }
  const std::string& literalPath() const { return literal_path_; }
  bool HasPattern() const { return pattern_ != nullptr; }
  const std::vector<RouteParameter>& parameters() const { return parameters_; }

 private:
  friend bool MatchRoute(const Route& route, std::string_view url, PathParameters& parameters);

  const FunctionDescription* function_;
  const Endpoint* endpoint_;
  bool valid_ = true;
  std::string literal_path_;
  std::shared_ptr<const PathPattern> pattern_;
  std::vector<RouteParameter> parameters_;
};

// Matches the path of `url` (the text before its first "?") against `route`.
// A literal route matches the identical bytes only and produces no
// parameters; a template route must match the whole path, and each captured
// value is stored percent-decoded under its part's name.
bool MatchRoute(const Route& route, std::string_view url, PathParameters& parameters);

// What FindRoute is asked: the request's URL text and its method.
struct RouteRequest {
  std::string_view url;
  HttpMethod method = HttpMethod::kAny;
  std::string_view customMethod;  // used only when method is kCustom
};

struct RouteMatch {
  const FunctionDescription* function = nullptr;
  const Endpoint* endpoint = nullptr;
  PathParameters pathParameters;
};

// Route selection over `routes` in order. A route is a candidate when it
// matches the URL and (unless `ignore_method`) its endpoint accepts the
// method: method kAny accepts everything, otherwise method and custom method
// text must be equal. A later candidate replaces the chosen one only when the
// total length of its decoded parameter values is strictly smaller; a chosen
// route without parameters ends the search. Returns whether one was chosen;
// `match` then holds it.
bool FindRoute(const RouteRequest& request, std::span<const Route> routes, bool ignore_method,
               RouteMatch& match);

}  // namespace kav

#endif  // KAV_ROUTING_ROUTE_H_
