// The rules that keep the local server local.
#include "host/server/request_guard.h"

#include <string>

#include <gtest/gtest.h>

namespace kav::host {
namespace {

TEST(RequestGuardTest, OnlyLoopbackNamesPassTheHostCheck) {
  const struct {
    const char* host;
    bool loopback;
  } rows[] = {
      {"127.0.0.1", true},
      {"127.0.0.1:8080", true},
      {"127.1.2.3:1", true},
      {"localhost", true},
      {"LOCALHOST:3000", true},
      {"localhost.:80", true},
      {"console.localhost:80", true},
      {"[::1]", true},
      {"[::1]:8080", true},
      {"", false},
      {"attacker.example", false},
      {"127.0.0.1.attacker.example", false},
      {"localhost.attacker.example", false},
      {"evillocalhost", false},
      {"128.0.0.1", false},
      {"127.0.0.256", false},
      {"127.0.0", false},
      {"0.0.0.0:80", false},
      {"127.0.0.1:80x", false},
      {"127.0.0.1:", false},
      {"[::2]:80", false},
      {"[::1]x", false},
      {"[::1", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.host);
    EXPECT_EQ(IsLoopbackHost(row.host), row.loopback);
  }
}

TEST(RequestGuardTest, OwnOriginsAreTheLoopbackNamesAtOurPort) {
  const struct {
    const char* origin;
    bool own;
  } rows[] = {
      {"http://127.0.0.1:4000", true},    {"http://localhost:4000", true},
      {"http://[::1]:4000", true},        {"http://LOCALHOST:4000", true},
      {"http://127.0.0.1:4001", false},   {"https://127.0.0.1:4000", false},
      {"http://127.0.0.1", false},        {"null", false},
      {"http://attacker.example", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.origin);
    EXPECT_EQ(IsOwnOrigin(row.origin, 4000), row.own);
  }
}

TEST(RequestGuardTest, TokenComesAsBearerOrAsTheConsoleCookie) {
  const struct {
    const char* name;
    const char* authorization;
    const char* cookie;
    bool carried;
  } rows[] = {
      {"bearer", "Bearer t0k", "", true},
      {"bearer, any case", "bearer t0k", "", true},
      {"bearer of another token", "Bearer t0k2", "", false},
      {"bearer of a prefix", "Bearer t0", "", false},
      {"basic", "Basic t0k", "", false},
      {"nothing", "", "", false},
      {"cookie alone", "", "kav_host_token=t0k", true},
      {"cookie among others", "", "a=1; kav_host_token=t0k; b=2", true},
      {"cookie of another name", "", "xkav_host_token=t0k", false},
      {"wrong cookie", "", "kav_host_token=t0", false},
      {"wrong bearer, right cookie", "Bearer x", "kav_host_token=t0k", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(CarriesToken("t0k", row.authorization, row.cookie), row.carried);
  }
}

TEST(RequestGuardTest, JsonNestingIsCountedOutsideStrings) {
  const struct {
    const char* json;
    size_t depth;
  } rows[] = {
      {"1", 0},          {"[]", 1},           {"{\"a\":[{}]}", 3},
      {"[\"[[[[\"]", 1}, {"[\"\\\"[[\"]", 1}, {"[[],[[]]]", 3},
      {"[[[[[[[[[[", 5},  // stops past the limit
      {"]]]]", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.json);
    EXPECT_EQ(JsonNestingDepth(row.json, 4), row.depth);
  }
}

}  // namespace
}  // namespace kav::host
