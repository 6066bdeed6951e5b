#include "routing/route.h"

#include <algorithm>
#include <cctype>
#include <exception>
#include <regex>
#include <utility>

#include "binding/type_registry.h"
#include "diagnostics/format.h"
#include "routing/dispatch.h"

namespace kav {
namespace {

// Characters that are special in an ECMAScript expression outside a class;
// "{" and "}" never reach the expression.
bool NeedsEscape(char c) {
  switch (c) {
    case '^':
    case '$':
    case '.':
    case '*':
    case '+':
    case '?':
    case '(':
    case ')':
    case '[':
    case ']':
    case '|':
    case '\\':
      return true;
    default:
      return false;
  }
}

// The value of a hexadecimal digit; 16 for any other byte.
unsigned HexValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return 16;
}

std::string_view PathOf(std::string_view url) {
  return url.substr(0, url.find('?'));
}

bool AcceptsMethod(const Endpoint& endpoint, const RouteRequest& request) {
  if (endpoint.method == HttpMethod::kAny) return true;
  if (endpoint.method != request.method) return false;
  std::string_view requested =
      request.method == HttpMethod::kCustom ? request.customMethod : std::string_view();
  return requested == endpoint.customMethod;
}

size_t DecodedLength(const PathParameters& parameters) {
  size_t total = 0;
  for (const auto& [name, value] : parameters) total += value.size();
  return total;
}

}  // namespace

const char* HttpMethodName(uint32_t code) {
  switch (code) {
    case 1:
      return "DELETE";
    case 2:
      return "GET";
    case 3:
      return "HEAD";
    case 4:
      return "OPTIONS";
    case 5:
      return "PATCH";
    case 6:
      return "POST";
    case 7:
      return "PUT";
    default:
      return "";
  }
}

HttpMethod HttpMethodFromCode(uint32_t code) {
  return code >= 1 && code <= 8 ? static_cast<HttpMethod>(code) : HttpMethod::kAny;
}

Endpoint::Endpoint() = default;
Endpoint::~Endpoint() = default;

std::string NormalizePathTemplate(std::string_view path) {
  if (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return std::string(path);
}

std::string MakeFunctionName(std::string_view method, std::string_view path) {
  std::string combined;
  if (!method.empty()) {
    std::string rest(method.substr(1));
    for (char& c : rest) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    combined = FormatMessage("%1%2/", {method.substr(0, 1), std::string_view(rest)});
  }
  combined.append(path);

  std::string name;
  name.reserve(combined.size() + 8);
  bool capitalize = true;
  for (char c : combined) {
    switch (c) {
      case '!':
      case '+':
      case '-':
      case '.':
      case '/':
      case '_':
        capitalize = true;
        break;
      case '{':
        name += "By";
        capitalize = true;
        break;
      case '}':
        break;
      default:
        name += capitalize ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        capitalize = false;
        break;
    }
  }
  return name;
}

std::string PercentDecode(std::string_view text) {
  // Most texts have nothing to decode: they are copied in one piece.
  if (std::none_of(text.begin(), text.end(), [](char c) { return c == '%' || c == '+'; })) {
    return std::string(text);
  }
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '+') {
      decoded += ' ';
    } else if (c == '%') {
      if (text.size() - i > 2) {
        unsigned value = (HexValue(text[i + 1]) * 16) | HexValue(text[i + 2]);
        decoded += static_cast<char>(value & 0xFFu);
        i += 2;
      }
      // A "%" too close to the end is dropped; what follows is read as usual.
    } else {
      decoded += c;
    }
  }
  return decoded;
}

CompiledTemplate CompilePathTemplate(std::string_view path_template) {
  CompiledTemplate compiled;
  if (path_template.find('{') == std::string_view::npos) {
    compiled.literalPath = std::string(path_template);
    // A "}" without any part cannot misalign names; the literal stays usable.
    return compiled;
  }

  enum class State { kOutside, kPlain, kRest, kFragment };
  State state = State::kOutside;
  std::string name;
  compiled.literals.emplace_back();
  for (char c : path_template) {
    if (state == State::kOutside) {
      if (c == '{') {
        state = State::kPlain;
        name.clear();
      } else if (c == '}') {
        compiled.valid = false;
      } else {
        if (NeedsEscape(c)) compiled.expression += '\\';
        compiled.expression += c;
        compiled.literals.back() += c;
      }
      continue;
    }
    if (c == '}') {
      RouteParameterKind kind = RouteParameterKind::kPlain;
      if (state == State::kRest) {
        compiled.expression += "(.*)";
        kind = RouteParameterKind::kRest;
      } else if (state == State::kFragment) {
        compiled.expression += "#(.*)";
        compiled.literals.back() += '#';
        kind = RouteParameterKind::kFragment;
      } else {
        compiled.expression += "([^/]*)";
      }
      compiled.literals.emplace_back();
      compiled.parameters.push_back(RouteParameter{kind, std::move(name)});
      name.clear();
      state = State::kOutside;
    } else if (c == '{') {
      state = State::kPlain;
    } else if (c == '+' && state == State::kPlain && name.empty()) {
      state = State::kRest;
    } else if (c == '#' && state == State::kPlain && name.empty()) {
      state = State::kFragment;
    } else {
      name += c;
    }
  }
  return compiled;
}

std::string CheckPathTemplate(std::string_view path_template) {
  CompiledTemplate compiled = CompilePathTemplate(path_template);
  if (!compiled.valid) return "'}' outside a named part";
  if (compiled.literalPath.empty() && !compiled.expression.empty()) {
    try {
      std::regex pattern(compiled.expression, std::regex::ECMAScript | std::regex::optimize);
    } catch (const std::exception& error) {
      return error.what();
    }
  }
  return {};
}

Route::Route(const Endpoint& endpoint)
    : Route(endpoint, !endpoint.pathTemplate.empty() || endpoint.function == nullptr
                          ? std::string_view(endpoint.pathTemplate)
                          : std::string_view(endpoint.function->name)) {}

Route::Route(const Endpoint& endpoint, std::string_view path_template)
    : function_(endpoint.function), endpoint_(&endpoint) {
  CompiledTemplate compiled = CompilePathTemplate(path_template);
  valid_ = compiled.valid;
  if (!valid_) return;
  parameters_ = std::move(compiled.parameters);
  if (path_template.find('{') == std::string_view::npos) {
    literal_path_ = std::move(compiled.literalPath);
    return;
  }
  // Everything outside the parts is escaped, so the expression is literal
  // texts and groups only, which the path pattern matches without the
  // regular expression library's recursion.
  std::vector<PathPattern::Group> groups;
  groups.reserve(parameters_.size());
  for (const RouteParameter& parameter : parameters_) {
    groups.push_back(parameter.kind == RouteParameterKind::kPlain ? PathPattern::Group::kPlain
                                                                  : PathPattern::Group::kRest);
  }
  pattern_ = std::make_shared<const PathPattern>(std::move(compiled.literals), std::move(groups));
}

bool MatchRoute(const Route& route, std::string_view url, PathParameters& parameters) {
  if (!route.valid_) return false;
  std::string_view path = PathOf(url);
  if (!route.pattern_) return path == route.literal_path_;

  std::vector<PathPattern::Capture> captures;
  if (!route.pattern_->Match(path, captures)) return false;
  for (size_t i = 0; i < captures.size() && i < route.parameters_.size(); ++i) {
    parameters[route.parameters_[i].name] =
        PercentDecode(path.substr(captures[i].offset, captures[i].length));
  }
  return true;
}

bool FindRoute(const RouteRequest& request, std::span<const Route> routes, bool ignore_method,
               RouteMatch& match) {
  const Route* chosen = nullptr;
  PathParameters chosen_parameters;
  size_t chosen_length = 0;
  for (const Route& route : routes) {
    PathParameters parameters;
    if (!MatchRoute(route, request.url, parameters)) continue;
    if (!ignore_method && !AcceptsMethod(*route.endpoint(), request)) continue;
    size_t length = DecodedLength(parameters);
    if (chosen == nullptr || length < chosen_length) {
      chosen = &route;
      chosen_length = length;
      chosen_parameters = std::move(parameters);
      if (chosen_parameters.empty()) break;
    }
  }
  if (chosen == nullptr) return false;
  match.function = chosen->function();
  match.endpoint = chosen->endpoint();
  match.pathParameters = std::move(chosen_parameters);
  return true;
}

}  // namespace kav
