// kav-host: the main job. Loads a plugin library the way the core does,
// surrounds it with the peers of a scenario (the built-in demo unless
// --scenario names a YAML or JSON file), performs each CALL through the
// plugin's resource table and prints the answers, then destroys the plugin.
//
//   kav-host [--plugin PATH] [--scenario FILE] [--core-version X.Y.Z] [--verbose]
//            [CALL [--body TEXT] [--content-type TYPE]]...
//   CALL: "METHOD PATH[?QUERY]" as one argument, or METHOD and PATH as two.
//
// Without a CALL it prints a summary of the plugin and runs demo calls.
// The exit code is non-zero only for a problem of the host: bad options, an
// unreadable scenario, a plugin that does not load or start, or a CALL that
// matches no resource of the plugin. Error answers of the plugin are output.
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/scenario.h"
#include "host/scenario_host.h"

namespace {

using kav::host::ApiVersion;
using kav::host::ScenarioHost;

struct CallRequest {
  std::string method;
  std::string url;
  std::optional<std::string> body;
  std::string content_type = "application/json";
};

struct Options {
  std::string plugin_path = KAV_DEFAULT_PLUGIN_PATH;
  std::string scenario_path;  // empty: the demo
  ApiVersion core_version = kav::host::kDefaultCoreVersion;
  bool verbose = false;
  std::vector<CallRequest> calls;
};

void PrintUsage(std::FILE* out) {
  std::fprintf(
      out,
      "usage: kav-host [--plugin PATH] [--scenario FILE] [--core-version X.Y.Z] [--verbose]\n"
      "                [CALL [--body TEXT] [--content-type TYPE]]...\n"
      "  CALL                   \"METHOD PATH[?QUERY]\", e.g. \"GET /kav-queue-eligibility/v1/"
      "initial-configuration-complete\"\n"
      "  --plugin PATH          plugin library to load (default %s)\n"
      "  --scenario FILE        peers' scenario, YAML or JSON (default: the built-in demo)\n"
      "  --core-version X.Y.Z   plugin API version the host claims (default %s)\n"
      "  --body TEXT            body of the CALL before it\n"
      "  --content-type TYPE    content type of that body (default application/json)\n"
      "  --verbose              print the plugin's log lines at the end\n"
      "Without a CALL: a summary of the plugin and a set of demo calls.\n",
      KAV_DEFAULT_PLUGIN_PATH, kav::host::kDefaultCoreVersion.ToString().c_str());
}

bool IsMethod(std::string_view text) {
  for (std::string_view method : {"DELETE", "GET", "HEAD", "OPTIONS", "PATCH", "POST", "PUT"}) {
    if (text == method) return true;
  }
  return false;
}

// Returns 0 when the options are complete, -1 after --help, otherwise the
// exit code.
int ParseOptions(int argc, char** argv, Options& options) {
  auto value_of = [&](int& i, const char* option) -> const char* {
    if (i + 1 >= argc) {
      std::fprintf(stderr, "kav-host: %s needs a value\n", option);
      return nullptr;
    }
    return argv[++i];
  };
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--help" || argument == "-h") {
      PrintUsage(stdout);
      return -1;
    }
    if (argument == "--verbose") {
      options.verbose = true;
      continue;
    }
    if (argument == "--plugin" || argument == "--scenario" || argument == "--core-version" ||
        argument == "--body" || argument == "--content-type") {
      const char* value = value_of(i, argv[i]);
      if (value == nullptr) return 2;
      if (argument == "--plugin") {
        options.plugin_path = value;
      } else if (argument == "--scenario") {
        options.scenario_path = value;
      } else if (argument == "--core-version") {
        auto version = ApiVersion::Parse(value);
        if (!version) {
          std::fprintf(stderr, "kav-host: not a version X.Y.Z: %s\n", value);
          return 2;
        }
        options.core_version = *version;
      } else if (options.calls.empty()) {
        std::fprintf(stderr, "kav-host: %s must follow a CALL\n", argv[i - 1]);
        return 2;
      } else if (argument == "--body") {
        options.calls.back().body = value;
      } else {
        options.calls.back().content_type = value;
      }
      continue;
    }
    if (argument.starts_with("--")) {
      std::fprintf(stderr, "kav-host: unknown option %s\n", argv[i]);
      PrintUsage(stderr);
      return 2;
    }
    CallRequest call;
    if (const size_t space = argument.find(' '); space != std::string_view::npos) {
      call.method = std::string(argument.substr(0, space));
      call.url = std::string(argument.substr(argument.find_first_not_of(' ', space)));
    } else if (IsMethod(argument) && i + 1 < argc && argv[i + 1][0] == '/') {
      call.method = std::string(argument);
      call.url = argv[++i];
    } else {
      std::fprintf(stderr, "kav-host: not a CALL \"METHOD PATH\": %s\n", argv[i]);
      return 2;
    }
    options.calls.push_back(std::move(call));
  }
  return 0;
}

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

void PrintSummary(ScenarioHost& scenario_host) {
  const kav::host::ReferenceHost& host = scenario_host.host();
  std::printf("plugin: %s %s\n", host.plugin_name().c_str(),
              host.plugin_version().ToString().c_str());
  const auto entries = host.resource_entries();
  std::printf("resources: %zu\n", entries.size());
  for (const KavResourceEntry& entry : entries) {
    std::printf("  %-7s %s  (%s)\n", kav::host::MethodName(entry.method),
                OrEmpty(entry.path_template), OrEmpty(entry.name));
  }
  const std::vector<std::string> names = host.ActiveEventNames();
  std::printf("subscriptions: %zu\n", names.size());
  for (const std::string& name : names) std::printf("  %s\n", name.c_str());
}

// Calls that show the demo: the plugin's state, the signed-in player alone,
// a party, the body-based versions and custom games.
std::vector<CallRequest> DemoCalls(const kav::host::Scenario& scenario) {
  const uint64_t self = scenario.session.has_value() ? scenario.session->summoner_id : 1001;
  uint64_t friend_id = self + 1;
  for (const auto& [id, level] : scenario.summoner_levels) {
    if (id != self) {
      friend_id = id;
      break;
    }
  }
  const std::string party = std::to_string(self) + "," + std::to_string(friend_id);
  const std::string queues = "[420,430,440,450,830,1700]";
  return {
      {"GET", "/kav-queue-eligibility/v1/initial-configuration-complete", {}, ""},
      {"GET",
       "/kav-queue-eligibility/v3/eligibility?summonerIds=[" + std::to_string(self) +
           "]&queueIds=" + queues,
       {},
       ""},
      {"GET",
       "/kav-queue-eligibility/v3/eligibility?summonerIds=[" + party + "]&queueIds=" + queues,
       {},
       ""},
      {"POST", "/kav-queue-eligibility/v2/eligibility",
       "{\"summonerIds\":[" + party + "],\"queueIds\":[440,420]}", "application/json"},
      {"POST", "/kav-queue-eligibility/v1/eligibility",
       "{\"summonerIds\":[" + party + "],\"queueIds\":[440,420,490]}", "application/json"},
      // The signed-in player again: answered from the cache, no peer is asked.
      {"GET",
       "/kav-queue-eligibility/v3/eligibility?summonerIds=[" + std::to_string(self) +
           "]&queueIds=[1700,440]",
       {},
       ""},
      {"GET", "/kav-queue-eligibility/v3/custom?teamSize=5&pickMode=BLIND", {}, ""},
      {"GET", "/kav-queue-eligibility/v3/custom?teamSize=-1&pickMode=BLIND", {}, ""},
  };
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (int code = ParseOptions(argc, argv, options); code != 0) return code < 0 ? 0 : code;

  kav::host::Scenario scenario;
  if (options.scenario_path.empty()) {
    scenario = kav::host::DemoScenario();
  } else {
    kav::host::ScenarioResult loaded = kav::host::LoadScenarioFile(options.scenario_path);
    if (!loaded.ok()) {
      std::fprintf(stderr, "kav-host: %s\n", loaded.error.c_str());
      return 1;
    }
    scenario = std::move(*loaded.scenario);
  }
  const bool demo_calls = options.calls.empty();
  if (demo_calls) options.calls = DemoCalls(scenario);
  std::printf("core plugin API: %s; scenario: %s\n", options.core_version.ToString().c_str(),
              scenario.name.empty() ? options.scenario_path.c_str() : scenario.name.c_str());
  std::fflush(stdout);  // an incompatible plugin ends the process inside Load

  ScenarioHost host(std::move(scenario), options.plugin_path);
  if (!host.Load(options.core_version)) {
    std::fprintf(stderr, "kav-host: %s\n", host.error().c_str());
    return 1;
  }
  if (demo_calls) PrintSummary(host);

  int exit_code = 0;
  for (const CallRequest& call : options.calls) {
    std::printf("\n> %s %s\n", call.method.c_str(), call.url.c_str());
    if (call.body.has_value())
      std::printf("> body (%s): %s\n", call.content_type.c_str(), call.body->c_str());
    const kav::host::CallOutcome outcome =
        host.Call(call.method, call.url, call.body, call.content_type);
    if (!outcome.reached_plugin) {
      std::fprintf(stderr, "kav-host: %s\n", outcome.error->c_str());
      exit_code = 1;
    }
    std::printf("%s\n", outcome.ToText().c_str());
  }
  const size_t requests = host.host().requests().size();
  const size_t yields = host.yield_count();
  host.Destroy();
  if (options.verbose) {
    std::printf("\nplugin requests: %zu, yields: %zu, gatekeeper queries: %zu\n", requests, yields,
                host.gatekeeper_queries().size());
    std::printf("log lines: %zu\n", host.log_lines().size());
    for (const auto& line : host.log_lines()) {
      std::printf("  [%d] %s\n", line.level, line.text.c_str());
    }
  }
  return exit_code;
}
