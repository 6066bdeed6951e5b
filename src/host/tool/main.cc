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
//
//   kav-host serve [--port N] [--scenario FILE] [--plugin PATH] [--token T]
//                  [--allow-origin ORIGIN] [--core-version X.Y.Z] [--verbose]
//
// serves the plugin's resources over local HTTP until SIGINT or SIGTERM
// (src/host/server/server.h).
#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/scenario.h"
#include "host/scenario_host.h"
#ifdef KAV_HAVE_SERVE
#include "host/server/serve_command.h"
#endif

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
  bool serve = false;
  int port = 0;
  std::string token;
  std::string allow_origin;
};

constexpr const char* kCallsHelp =
    "CALL: \"METHOD PATH[?QUERY]\", e.g. \"GET /kav-queue-eligibility/v1/"
    "initial-configuration-complete\";\n"
    "--body and --content-type belong to the CALL before them.\n"
    "Without a CALL: a summary of the plugin and a set of demo calls.";

bool IsMethod(std::string_view text) {
  for (std::string_view method : {"DELETE", "GET", "HEAD", "OPTIONS", "PATCH", "POST", "PUT"}) {
    if (text == method) return true;
  }
  return false;
}

// Returns 0 when the options are complete, -1 after --help, otherwise the
// exit code.
int ParseOptions(int argc, char** argv, Options& options) {
  CLI::App app("kav-host: loads a plugin the way the core does and calls its resources.",
               "kav-host");
  app.footer(kCallsHelp);
  std::string core_version;
  app.add_option("--plugin", options.plugin_path, "plugin library to load")
      ->default_str(KAV_DEFAULT_PLUGIN_PATH);
  app.add_option("--scenario", options.scenario_path,
                 "peers' scenario, YAML or JSON (default: the built-in demo)");
  app.add_option("--core-version", core_version, "plugin API version the host claims")
      ->default_str(kav::host::kDefaultCoreVersion.ToString());
  app.add_flag("--verbose", options.verbose, "print the plugin's log lines");
  std::vector<std::string> call_texts;
  std::vector<std::string> bodies;
  std::vector<std::string> content_types;
  CLI::Option* calls = app.add_option("CALL", call_texts, "calls to make, in order");
  // One value per occurrence: a CALL may follow.
  CLI::Option* body =
      app.add_option("--body", bodies, "body of the CALL before it")->allow_extra_args(false);
  CLI::Option* content_type = app.add_option("--content-type", content_types,
                                             "content type of that body (default application/json)")
                                  ->allow_extra_args(false);

  CLI::App* serve =
      app.add_subcommand("serve", "serve the plugin's resources over local HTTP (127.0.0.1)");
  serve->fallthrough();  // --plugin, --scenario, ... may follow "serve"
  serve->add_option("--port", options.port, "TCP port; 0 picks a free one")
      ->check(CLI::Range(0, 65535))
      ->default_val(0);
  serve->add_option("--token", options.token, "require 'Authorization: Bearer T' on every request");
  serve->add_option("--allow-origin", options.allow_origin,
                    "send CORS headers to this origin (e.g. http://localhost:3000)");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    app.exit(help);
    return -1;
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "kav-host: %s\n", error.what());
    std::fprintf(stderr, "%s", app.help().c_str());
    return 2;
  }
  if (!core_version.empty()) {
    auto version = ApiVersion::Parse(core_version);
    if (!version) {
      std::fprintf(stderr, "kav-host: not a version X.Y.Z: %s\n", core_version.c_str());
      return 2;
    }
    options.core_version = *version;
  }
  options.serve = serve->parsed();
  if (options.serve && !call_texts.empty()) {
    std::fprintf(stderr, "kav-host: serve takes no CALL\n");
    return 2;
  }

  // The order in which CALLs, bodies and content types were given pairs them.
  size_t next_call = 0;
  size_t next_body = 0;
  size_t next_type = 0;
  size_t paths_taken = 0;  // PATHs read with the METHOD before them
  for (const CLI::Option* option : app.parse_order()) {
    if (option == calls && paths_taken > 0) {
      --paths_taken;
    } else if (option == calls) {
      const std::string& text = call_texts[next_call++];
      CallRequest call;
      if (const size_t space = text.find(' '); space != std::string::npos) {
        call.method = text.substr(0, space);
        call.url = text.substr(text.find_first_not_of(' ', space));
      } else if (IsMethod(text) && next_call < call_texts.size() &&
                 call_texts[next_call].starts_with('/')) {
        call.method = text;
        call.url = call_texts[next_call++];
        ++paths_taken;
      } else {
        std::fprintf(stderr, "kav-host: not a CALL \"METHOD PATH\": %s\n", text.c_str());
        return 2;
      }
      options.calls.push_back(std::move(call));
    } else if (option == body || option == content_type) {
      const bool is_body = option == body;
      if (options.calls.empty()) {
        std::fprintf(stderr, "kav-host: %s must follow a CALL\n",
                     is_body ? "--body" : "--content-type");
        return 2;
      }
      if (is_body) {
        options.calls.back().body = bodies[next_body++];
      } else {
        options.calls.back().content_type = content_types[next_type++];
      }
    }
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
#ifndef KAV_HAVE_SERVE
  if (options.serve) {
    std::fprintf(stderr, "kav-host: this build has no 'serve' (built without cpp-httplib)\n");
    return 2;
  }
#endif

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
#ifdef KAV_HAVE_SERVE
  if (options.serve) {
    kav::host::ServeCommandOptions serve;
    serve.scenario_label = scenario.name.empty() ? options.scenario_path : scenario.name;
    serve.scenario = std::move(scenario);
    serve.plugin_path = options.plugin_path;
    serve.core_version = options.core_version;
    serve.verbose = options.verbose;
    serve.server.port = options.port;
    serve.server.token = options.token;
    serve.server.allow_origin = options.allow_origin;
    return kav::host::RunServeCommand(std::move(serve));
  }
#endif
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
