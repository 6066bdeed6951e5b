// A whole call through the plugin's resource table, made as the host makes
// it: the fuzz input chooses the entry, the method, the URL and its query,
// headers, the content type, the body bytes and host arguments (host value
// trees of any kind, depth and count, named or positional), and the call
// goes to the entry's call function with the entry's user data. The
// reference host's peers of the demo scenario answer what the plugin asks
// meanwhile. Every call must answer (a value or an error) and release what
// it answered through the response's release function.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "finding.h"
#include "host/scenario_host.h"
#include "host_value_trees.h"
#include "small_stack.h"

namespace {

using kav::fuzz::HostValueTrees;
using kav::host::ScenarioHost;

using kav::fuzz::Fail;

struct Entry {
  const KavResourceEntry* record;
  std::string path;
  std::vector<std::string> parameters;
};

ScenarioHost* g_host = nullptr;
std::vector<Entry>* g_entries = nullptr;

constexpr std::string_view kContentTypes[] = {
    "application/json",          "application/vnd.api+json; charset=utf-8",
    "APPLICATION/JSON",          "application/x-msgpack",
    "application/x-msgpack-ext", "application/x-yaml",
    "application/octet-stream",  "text/plain",
};

// Reads what the plugin answered into the host's own values (touching
// every byte of it), then lets the plugin release it.
void ReadAndRelease(KavResponse& response) {
  const KavResponseReleaseFn release = response.release;
  if (release == nullptr) Fail("a response without its release function", "");
  const char* error = response.error;
  if (error != nullptr) (void)std::strlen(error);
  const char* text = response.text;
  if (text == nullptr) Fail("a response without its text", "");
  (void)kav::host::Value::FromRecord(response.body);
  release(&response);
  KavResponse zero{};
  if (std::memcmp(&response, &zero, sizeof zero) != 0)
    Fail("a released response is not zeroed", "");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kav::fuzz::LimitStackToHostThreadSize();
  static ScenarioHost host;
  if (!host.Load()) Fail("cannot load the plugin", host.error());
  static std::vector<Entry> entries;
  for (const KavResourceEntry& record : host.host().resource_entries()) {
    Entry entry{&record, record.path_template != nullptr ? record.path_template : "", {}};
    const KavApiParameter* parameter = record.parameters;
    for (uint32_t i = 0; parameter != nullptr && i < record.parameter_count; ++i) {
      entry.parameters.emplace_back(parameter->name != nullptr ? parameter->name : "");
      parameter = parameter->next;
    }
    entries.push_back(std::move(entry));
  }
  if (entries.empty()) Fail("the plugin serves nothing", "");
  g_host = &host;
  g_entries = &entries;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  HostValueTrees trees;
  const Entry& entry = (*g_entries)[input.ConsumeIntegralInRange<size_t>(0, g_entries->size() - 1)];

  KavRequest request{};
  const uint8_t method_choice = input.ConsumeIntegral<uint8_t>();
  request.method = method_choice < 200 ? method_choice % 9 : input.ConsumeIntegral<uint32_t>();
  if (input.ConsumeBool()) request.custom_method = trees.Text(input.ConsumeRandomLengthString(8));

  std::string url = input.ConsumeBool() ? entry.path : input.ConsumeRandomLengthString(64);
  if (input.ConsumeBool()) url += "?" + input.ConsumeRandomLengthString(512);
  request.url = input.ConsumeIntegral<uint8_t>() == 0 ? nullptr : trees.Text(url);
  request.user_data = entry.record->user_data;
  request.context = input.ConsumeIntegral<uint32_t>();

  const size_t header_count = input.ConsumeIntegralInRange<size_t>(0, 3);
  std::vector<KavHeaderEntry> headers(header_count);
  for (KavHeaderEntry& header : headers) {
    std::string name =
        input.ConsumeBool() && !entry.parameters.empty()
            ? entry.parameters[input.ConsumeIntegralInRange<size_t>(0, entry.parameters.size() - 1)]
            : input.ConsumeRandomLengthString(16);
    header.name = input.ConsumeIntegral<uint8_t>() == 0 ? nullptr : trees.Text(name);
    header.value = input.ConsumeIntegral<uint8_t>() == 0
                       ? nullptr
                       : trees.Text(input.ConsumeRandomLengthString(128));
  }
  request.headers = headers.empty() ? nullptr : headers.data();
  request.header_count = static_cast<uint32_t>(headers.size());

  const size_t argument_count = input.ConsumeIntegralInRange<size_t>(0, 3);
  std::vector<KavArgumentEntry> arguments(argument_count);
  for (KavArgumentEntry& argument : arguments) {
    const uint8_t naming = input.ConsumeIntegral<uint8_t>() % 4;
    if (naming == 1 && !entry.parameters.empty()) {
      argument.name = trees.Text(
          entry.parameters[input.ConsumeIntegralInRange<size_t>(0, entry.parameters.size() - 1)]);
    } else if (naming == 2) {
      argument.name = trees.Text(trees.Key(input));
    } else {
      argument.name = nullptr;  // positional
    }
    argument.value = trees.Tree(input, HostValueTrees::Limits{});
  }
  request.arguments = arguments.empty() ? nullptr : arguments.data();
  request.argument_count = static_cast<uint32_t>(arguments.size());

  if (input.ConsumeBool()) {
    const uint8_t choice = input.ConsumeIntegral<uint8_t>();
    request.content_type = choice < 240
                               ? trees.Text(kContentTypes[choice % std::size(kContentTypes)])
                           : choice < 250 ? trees.Text(input.ConsumeRandomLengthString(32))
                                          : nullptr;
    const std::string body = input.ConsumeRemainingBytesAsString();
    const char* stored = trees.Text(body);  // terminated one byte past the body
    request.body = reinterpret_cast<const uint8_t*>(stored);
    request.body_length = static_cast<uint32_t>(body.size());
  }

  KavResponse response{};
  entry.record->call(&response, &request);
  ReadAndRelease(response);

  g_host->host().ClearRecords();
  g_host->peers().ClearRecords();
  return 0;
}
