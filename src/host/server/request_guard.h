// The checks that keep a local server local: which Host names and Origins a
// request may carry, the access token, and how deeply a JSON body may nest
// before the host reads it. Pure functions of the request's texts.
//
// Thread-compatible: free functions.
#ifndef KAV_HOST_SERVER_REQUEST_GUARD_H_
#define KAV_HOST_SERVER_REQUEST_GUARD_H_

#include <cstddef>
#include <string_view>

namespace kav::host {

// Whether a Host header names this machine's loopback: "localhost" or a name
// ending in ".localhost", an address 127.x.x.x, or [::1]; with or without a
// port. Any other name (one that a DNS record could point at 127.0.0.1) is
// refused.
bool IsLoopbackHost(std::string_view host_header);

// Whether `origin` is this server's own: http://localhost:PORT,
// http://127.0.0.1:PORT or http://[::1]:PORT.
bool IsOwnOrigin(std::string_view origin, int port);

// Whether the request carries `token`: "Authorization: Bearer TOKEN", or the
// cookie kTokenCookie=TOKEN that the console page got. Compared in time
// independent of where the texts differ.
bool CarriesToken(std::string_view token, std::string_view authorization,
                  std::string_view cookie_header);

inline constexpr std::string_view kTokenCookie = "kav_host_token";

// Whether `a` equals `b`, in time that depends on their lengths only.
bool ConstantTimeEquals(std::string_view a, std::string_view b);

// The deepest nesting of arrays and objects in `json` (strings skipped);
// stops counting past `limit` and returns limit + 1 then.
size_t JsonNestingDepth(std::string_view json, size_t limit);

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_REQUEST_GUARD_H_
