// kav-host: loads a plugin library the way the core does, initializes it,
// prints what the plugin registered and did, and destroys it.
//
//   kav-host [--plugin PATH] [--core-version X.Y.Z]
#include <cstdio>
#include <cstring>
#include <string>

#include "host/reference_host.h"

namespace {

using kav::host::ApiVersion;
using kav::host::ReferenceHost;

struct Options {
  std::string plugin_path = KAV_DEFAULT_PLUGIN_PATH;
  ApiVersion core_version = kav::host::kDefaultCoreVersion;
};

void PrintUsage(std::FILE* out) {
  std::fprintf(out,
               "usage: kav-host [--plugin PATH] [--core-version X.Y.Z]\n"
               "  --plugin PATH          plugin library to load (default %s)\n"
               "  --core-version X.Y.Z   plugin API version the host claims (default %s)\n",
               KAV_DEFAULT_PLUGIN_PATH, kav::host::kDefaultCoreVersion.ToString().c_str());
}

// Returns 0 when the options are complete, otherwise the exit code.
int ParseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const char* option = argv[i];
    if (std::strcmp(option, "--help") == 0 || std::strcmp(option, "-h") == 0) {
      PrintUsage(stdout);
      return -1;
    }
    if (i + 1 >= argc) {
      std::fprintf(stderr, "kav-host: %s needs a value\n", option);
      return 2;
    }
    const char* value = argv[++i];
    if (std::strcmp(option, "--plugin") == 0) {
      options.plugin_path = value;
    } else if (std::strcmp(option, "--core-version") == 0) {
      auto version = ApiVersion::Parse(value);
      if (!version) {
        std::fprintf(stderr, "kav-host: not a version X.Y.Z: %s\n", value);
        return 2;
      }
      options.core_version = *version;
    } else {
      std::fprintf(stderr, "kav-host: unknown option %s\n", option);
      PrintUsage(stderr);
      return 2;
    }
  }
  return 0;
}

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

void PrintRecord(const ReferenceHost& host) {
  const KavPluginCallbacks* callbacks = host.callbacks();
  std::printf("name: %s\n", host.plugin_name().c_str());
  std::printf("version: %s\n", host.plugin_version().ToString().c_str());
  std::printf("callbacks: initialize=%s destroy=%s get_memory_statistics=%s\n",
              callbacks->initialize ? "set" : "null", callbacks->destroy ? "set" : "null",
              callbacks->get_memory_statistics ? "set" : "null");
  const auto entries = host.resource_entries();
  std::printf("resources: %zu\n", entries.size());
  for (const KavResourceEntry& entry : entries) {
    std::printf("  %-7s %s  (%s)\n", kav::host::MethodName(entry.method),
                OrEmpty(entry.path_template), OrEmpty(entry.name));
  }
  if (const KavResourceTable* table = host.resource_table(); table != nullptr) {
    std::printf("types: %u, events: %u\n", table->type_count, table->event_count);
  }
}

void PrintActivity(const ReferenceHost& host) {
  std::printf("subscriptions: %zu\n", host.subscriptions().size());
  for (const auto& subscription : host.subscriptions()) {
    std::printf("  %s (handle %u, flag %u)\n", subscription.event_name.c_str(),
                subscription.plugin_handle, subscription.flag);
  }
  std::printf("requests: %zu\n", host.requests().size());
  for (const auto& request : host.requests()) {
    std::printf("  %s %s\n", kav::host::MethodName(request.method), request.url.c_str());
  }
  std::printf("log lines: %zu\n", host.log_lines().size());
  for (const auto& line : host.log_lines()) {
    std::printf("  [%d] %s\n", line.level, line.text.c_str());
  }
}

void PrintMemory(const kav::host::MemoryStatisticsWords& memory) {
  std::printf(
      "memory: peak bytes in use %llu, live allocations at peak %llu, bytes allocated %llu, "
      "allocations %llu, bytes freed %llu, frees %llu, trailing words %u %u\n",
      static_cast<unsigned long long>(memory.peak_bytes_in_use()),
      static_cast<unsigned long long>(memory.live_allocations_at_peak()),
      static_cast<unsigned long long>(memory.bytes_allocated()),
      static_cast<unsigned long long>(memory.allocations()),
      static_cast<unsigned long long>(memory.bytes_freed()),
      static_cast<unsigned long long>(memory.frees()), memory.words[12], memory.words[13]);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (int code = ParseOptions(argc, argv, options); code != 0) return code < 0 ? 0 : code;

  ReferenceHost host(options.plugin_path);
  std::printf("core plugin API: %s\n", options.core_version.ToString().c_str());
  std::fflush(stdout);  // an incompatible plugin ends the process inside Load
  if (!host.Load(options.core_version)) {
    std::fprintf(stderr, "kav-host: %s\n", host.error().c_str());
    return 1;
  }
  PrintRecord(host);
  const bool started = host.Initialize();
  std::printf("initialize: %s\n", started ? "true" : "false");
  PrintActivity(host);
  PrintMemory(host.GetMemoryStatistics());
  host.Destroy();
  std::printf("destroyed; unsubscriptions: %zu\n", host.unsubscriptions().size());
  return started ? 0 : 1;
}
