// AppModule's rules that need no host: version compatibility, the type-name
// prefix, event names of URLs, URI patterns, and the switch of the logger to
// the host.
#include "plugin/app_module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "diagnostics/logging.h"
#include "host/reference_host.h"
#include "plugin/plugin_log_target.h"

namespace kav {
namespace {

using ::testing::ElementsAre;

TEST(PluginApiVersionTest, CoreHostsPluginsOfItsMajorUpToItsOwnVersion) {
  const struct {
    PluginApiVersion core, plugin;
    bool compatible;
  } rows[] = {
      {{18, 0, 0}, {18, 0, 0}, true},  {{18, 0, 5}, {18, 0, 0}, true},
      {{18, 3, 0}, {18, 0, 0}, true},  {{18, 3, 0}, {18, 2, 9}, true},
      {{17, 9, 9}, {18, 0, 0}, false}, {{19, 0, 0}, {18, 0, 0}, false},
      {{18, 0, 9}, {18, 1, 0}, false}, {{18, 1, 0}, {18, 1, 1}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE("core " + row.core.ToString() + ", plugin " + row.plugin.ToString());
    EXPECT_EQ(row.core.CanHost(row.plugin), row.compatible);
  }
}

TEST(TypeNamePrefixTest, SeparatorsDropAndUpperCaseTheNextLetter) {
  const struct {
    const char* name;
    const char* prefix;
  } rows[] = {
      {"kav-queue-eligibility", "KavQueueEligibility"},
      {"a!b+c-d.e/f_g", "ABCDEFG"},
      {"x--y", "XY"},
      {"-lead", "Lead"},
      {"trail-", "Trail"},
      {"9-lives", "9Lives"},
      {"", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(MakeTypeNamePrefix(row.name), row.prefix);
  }
}

TEST(ResolveEventNameTest, KeepsFourEntriesOrSixForPlatformConfig) {
  const struct {
    const char* url;
    const char* event_name;
  } rows[] = {
      {"/kav-summoner/v1/current-summoner", "OnJsonApiEvent_kav-summoner_v1_current-summoner"},
      {"/kav-champions/v1/inventories/%1/champions-minimal",
       "OnJsonApiEvent_kav-champions_v1_inventories"},
      {"/kav-platform-config/v1/namespaces/ClientSystemStates/practiceGameEnabled",
       "OnJsonApiEvent_kav-platform-config_v1_namespaces_ClientSystemStates_practiceGameEnabled"},
      {"/kav-platform-config/v1/namespaces/A/b/c",
       "OnJsonApiEvent_kav-platform-config_v1_namespaces_A_b"},
      {"kav-login//v1/session/", "OnJsonApiEvent_kav-login_v1_session"},
      {"/single", "OnJsonApiEvent_single"},
      {"", "OnJsonApiEvent"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.url);
    EXPECT_EQ(ResolveEventName(row.url), row.event_name);
  }
}

TEST(MatchUriPatternTest, StarStandsForARunWithoutSlash) {
  const struct {
    const char* pattern;
    const char* uri;
    bool matches;
  } rows[] = {
      {"/kav-leagues/v1/summoner-leagues/*", "/kav-leagues/v1/summoner-leagues/42", true},
      {"/kav-leagues/v1/summoner-leagues/*", "/kav-leagues/v1/summoner-leagues/", false},
      {"/kav-leagues/v1/summoner-leagues/*", "/kav-leagues/v1/summoner-leagues/42/x", false},
      {"/a/*/c", "/a/b/c", true},
      {"/a/*/c", "/a//c", true},
      {"/a/*/c", "/a/b/d", false},
      {"/a/b", "/a/b", true},
      {"/a/b", "/a/bc", false},
      {"/a/bc", "/a/b", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.pattern) + " ~ " + row.uri);
    EXPECT_EQ(MatchUriPattern(row.pattern, row.uri), row.matches);
  }
}

TEST(PluginLogTargetTest, LinesGoToTheHostOnceSwitched) {
  host::ReferenceHost host;
  std::unique_ptr<PluginLogTarget> target = SwitchLoggingToHost(host.function_table());
  ASSERT_NE(target, nullptr);
  EXPECT_STREQ(target->GetName(), "PluginLogTarget");
  EXPECT_NE(FindLogTarget("PluginLogTarget"), nullptr);
  EXPECT_EQ(FindLogTarget("StdErrLogTarget"), nullptr);
  EXPECT_EQ(GetLogLevel(), kLogOkay);
  EXPECT_EQ(GetExcludedLogCategories(), kCategoryXtr);

  Log(kLogOkay, 0, "okay %d", 1);
  Log(kLogError, kCategoryXtr, "dropped");
  Log(kLogAlways, kCategoryDbg, "always");
  EXPECT_THAT(host.log_lines(),
              ElementsAre(host::LogLine{0, "okay 1"}, host::LogLine{3, "always"}));

  EXPECT_EQ(SwitchLoggingToHost(host.function_table()), nullptr)
      << "a registered plugin log target stays the only one";
  target.reset();
  EXPECT_EQ(FindLogTarget("PluginLogTarget"), nullptr);
  Log(kLogAlways, 0, "after");
  EXPECT_EQ(host.log_lines().size(), 2u);
}

}  // namespace
}  // namespace kav
