#include "host/server/request_guard.h"

#include <cctype>
#include <string>

namespace kav::host {
namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

bool IsDecimalPort(std::string_view text) {
  if (text.empty() || text.size() > 5) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

bool IsIpv4Loopback(std::string_view name) {
  int parts = 0;
  size_t start = 0;
  for (;;) {
    const size_t dot = name.find('.', start);
    const std::string_view part =
        name.substr(start, dot == std::string_view::npos ? dot : dot - start);
    if (part.empty() || part.size() > 3) return false;
    int value = 0;
    for (char c : part) {
      if (c < '0' || c > '9') return false;
      value = value * 10 + (c - '0');
    }
    if (value > 255 || (parts == 0 && value != 127)) return false;
    ++parts;
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  return parts == 4;
}

}  // namespace

bool IsLoopbackHost(std::string_view host) {
  std::string_view name = host;
  if (name.starts_with("[")) {
    const size_t close = name.find(']');
    if (close == std::string_view::npos) return false;
    const std::string_view rest = name.substr(close + 1);
    if (!rest.empty() && !(rest[0] == ':' && IsDecimalPort(rest.substr(1)))) return false;
    return name.substr(1, close - 1) == "::1";
  }
  if (const size_t colon = name.rfind(':'); colon != std::string_view::npos) {
    if (!IsDecimalPort(name.substr(colon + 1))) return false;
    name = name.substr(0, colon);
  }
  if (name.ends_with(".")) name.remove_suffix(1);
  if (EqualsIgnoringCase(name, "localhost")) return true;
  if (name.size() > 10 && EqualsIgnoringCase(name.substr(name.size() - 10), ".localhost")) {
    return true;
  }
  return IsIpv4Loopback(name);
}

bool IsOwnOrigin(std::string_view origin, int port) {
  const std::string port_text = std::to_string(port);
  for (std::string_view host : {"localhost", "127.0.0.1", "[::1]"}) {
    std::string own = "http://";
    own.append(host).append(":").append(port_text);
    if (EqualsIgnoringCase(origin, own)) return true;
  }
  return false;
}

bool ConstantTimeEquals(std::string_view a, std::string_view b) {
  unsigned char difference = a.size() == b.size() ? 0 : 1;
  const std::string_view& longer = a.size() >= b.size() ? a : b;
  for (size_t i = 0; i < longer.size(); ++i) {
    const unsigned char x = i < a.size() ? static_cast<unsigned char>(a[i]) : 0;
    const unsigned char y = i < b.size() ? static_cast<unsigned char>(b[i]) : 0;
    difference |= static_cast<unsigned char>(x ^ y);
  }
  return difference == 0;
}

bool CarriesToken(std::string_view token, std::string_view authorization,
                  std::string_view cookie_header) {
  bool carried = false;
  constexpr std::string_view kBearer = "Bearer ";
  if (authorization.size() > kBearer.size() &&
      EqualsIgnoringCase(authorization.substr(0, kBearer.size()), kBearer)) {
    carried |= ConstantTimeEquals(authorization.substr(kBearer.size()), token);
  }
  // Cookie: a=b; kav_host_token=T; c=d
  size_t start = 0;
  while (start < cookie_header.size()) {
    size_t end = cookie_header.find(';', start);
    if (end == std::string_view::npos) end = cookie_header.size();
    std::string_view pair = cookie_header.substr(start, end - start);
    while (!pair.empty() && pair.front() == ' ') pair.remove_prefix(1);
    const size_t equals = pair.find('=');
    if (equals != std::string_view::npos && pair.substr(0, equals) == kTokenCookie) {
      carried |= ConstantTimeEquals(pair.substr(equals + 1), token);
    }
    start = end + 1;
  }
  return carried;
}

size_t JsonNestingDepth(std::string_view json, size_t limit) {
  size_t depth = 0;
  size_t deepest = 0;
  bool in_string = false;
  for (size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (in_string) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        in_string = false;
      }
    } else if (c == '"') {
      in_string = true;
    } else if (c == '[' || c == '{') {
      if (++depth > deepest) deepest = depth;
      if (deepest > limit) return limit + 1;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

}  // namespace kav::host
