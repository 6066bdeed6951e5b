// Host values coming in: a fuzzed host value tree delivered as the payload
// of events to the module's subscriptions (bare, or wrapped as a resource
// change of a resource the module observes), and handed to the module as
// the answer to one of the requests it makes - during a call, or at
// start-up, when its observations read their resources. The module must
// take every value or drop it, answer its calls, release every response
// and shut down cleanly.
//
// The module lives among the peers of the demo scenario. Starting one costs
// tens of milliseconds under the sanitizers, so inputs share one module:
// after an input that delivered events the peers publish the observed
// resources that the events named again, which puts the module back into
// the scenario's state, and the module is replaced every kInputsPerModule
// inputs (its observer tables keep the resources that fuzzed sessions made
// it observe). Answers at start-up (one input in 256) get a module of
// their own.
//
// Leaks: while fuzzing, LeakSanitizer runs at exit only, so the plugin's
// own count of bytes in use stands in for it. An input after which the
// plugin holds more bytes than before destroys the module at once; the
// library's bytes in use must then be back where they were before the
// module was loaded. Bytes left behind may be the library's own lasting
// state, built once when first needed, so the input is run again on a
// fresh module: bytes left behind again fail it. A leak thus fails the very
// input that made it. A replaced module must leave nothing behind either.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "finding.h"
#include "host/scenario_host.h"
#include "host_value_trees.h"
#include "small_stack.h"

namespace {

using kav::fuzz::HostValueTrees;
using kav::host::ReferenceHost;
using kav::host::Scenario;
using kav::host::ScenarioHost;

using kav::fuzz::Fail;

// A call of the main job, with the requests the module makes during it.
struct ProbeCall {
  const char* method;
  const char* url;
  std::optional<std::string> body;
};

const ProbeCall kCalls[] = {
    {"POST", "/kav-queue-eligibility/v1/eligibility",
     R"({"summonerIds":[1001,1002],"queueIds":[400,420,440,450]})"},
    {"GET", "/kav-queue-eligibility/v3/custom?teamSize=5&pickMode=BLIND", std::nullopt},
    {"GET", "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]&queueIds=[420,440]",
     std::nullopt},
    {"GET", "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001,1002]&queueIds=[420,440]",
     std::nullopt},
};

struct Read {
  uint32_t method;
  std::string path;  // the URL up to "?"
};

struct Probe {
  Scenario scenario;
  std::vector<Read> start_reads;              // by the observations, at start-up
  std::vector<std::vector<Read>> call_reads;  // per call of kCalls
  std::vector<std::string> observed_uris;
};

Probe* g_probe = nullptr;
uint64_t g_bytes_without_module = 0;  // the library's bytes in use with no module alive
std::unique_ptr<ScenarioHost> g_host;
size_t g_inputs_on_host = 0;
constexpr size_t kInputsPerModule = 1000;

std::vector<Read> ReadsOf(const ReferenceHost& host, size_t from) {
  std::vector<Read> reads;
  for (size_t i = from; i < host.requests().size(); ++i) {
    const auto& request = host.requests()[i];
    std::string path = request.url.substr(0, request.url.find('?'));
    // The service proxy's answers arrive as events matched to what the
    // peers answered; a replaced answer would leave the module waiting.
    if (path.starts_with("/kav-login/v1/service-proxy")) continue;
    reads.push_back({request.method, std::move(path)});
  }
  return reads;
}

// The library's bytes in use after a module was destroyed, and what they
// were before it was loaded (the statistics are the library's: `expected`
// counts the other modules alive).
struct LeftOver {
  uint64_t bytes = 0;
  uint64_t expected = 0;
};

LeftOver Destroyed(ScenarioHost& host, uint64_t expected) {
  host.Destroy();
  return {host.host().GetMemoryStatistics().BytesInUse(), expected};
}

std::unique_ptr<ScenarioHost> LoadedHost() {
  auto host = std::make_unique<ScenarioHost>(g_probe->scenario);
  if (!host->Load()) Fail("cannot load the plugin", host->error());
  return host;
}

// Delivers `payload` to the subscription of `name` as the host does.
void Deliver(ReferenceHost& host, const std::string& name, const KavHostValue& payload,
             uint32_t word) {
  const kav::host::Subscription* subscription = host.ActiveSubscription(name);
  if (subscription == nullptr) return;
  const kav::host::Subscription copy = *subscription;
  KavEvent event{};
  event.name = name.c_str();
  event.payload = payload;
  event.word = word;
  event.context = copy.context;
  copy.callback(&event);
}

// A payload read from `input`: a bare tree, or a resource change.
KavHostValue Payload(FuzzedDataProvider& input, HostValueTrees& trees) {
  if (!input.ConsumeBool()) return trees.Tree(input, HostValueTrees::Limits{});
  std::string uri = input.ConsumeBool() && !g_probe->observed_uris.empty()
                        ? g_probe->observed_uris[input.ConsumeIntegralInRange<size_t>(
                              0, g_probe->observed_uris.size() - 1)]
                        : input.ConsumeRandomLengthString(48);
  if (input.ConsumeBool() && uri.starts_with("/")) uri.erase(0, 1);
  KavHostValue event_type{};
  event_type.kind = KAV_VALUE_SIGNED;
  event_type.payload.i64 = input.ConsumeIntegralInRange<int64_t>(-1, 3);
  if (input.ConsumeIntegral<uint8_t>() < 16)
    event_type = trees.Tree(input, HostValueTrees::Limits{});
  return trees.Map({{"uri", trees.String(uri)},
                    {"eventType", event_type},
                    {"data", trees.Tree(input, HostValueTrees::Limits{})}});
}

// The observed resources that `payload` may change: those named by the
// texts of "uri" members at its top level (read up to the terminator, and
// up to the length field when that is shorter), with or without their
// leading "/". Every observed resource when a "uri" member is not a text.
void AddTouchedUris(const KavHostValue& payload, std::set<std::string>& touched) {
  // Maps with more entries than an ordinary map have fewer than they say.
  if (payload.kind != KAV_VALUE_MAP || payload.payload.ref.data == nullptr ||
      payload.payload.ref.size > HostValueTrees::Limits{}.max_elements) {
    return;
  }
  const auto* entries = static_cast<const KavHostMapEntry*>(payload.payload.ref.data);
  for (uint32_t i = 0; i < payload.payload.ref.size; ++i) {
    if (entries[i].key == nullptr || std::string_view(entries[i].key) != "uri") continue;
    const KavHostValue& value = entries[i].value;
    if ((value.kind != KAV_VALUE_STRING_BORROWED && value.kind != KAV_VALUE_STRING_OWNED) ||
        value.payload.ref.data == nullptr) {
      touched.insert(g_probe->observed_uris.begin(), g_probe->observed_uris.end());
      return;
    }
    const std::string_view text(static_cast<const char*>(value.payload.ref.data));
    for (std::string_view uri : {text, text.substr(0, value.payload.ref.size)}) {
      for (const std::string& observed : g_probe->observed_uris) {
        if (uri == observed || (!uri.starts_with('/') && observed == "/" + std::string(uri)))
          touched.insert(observed);
      }
    }
  }
}

// Publishes the observed resources in `uris` with the scenario's value
// again.
void RestoreScenarioState(ScenarioHost& host, const std::set<std::string>& uris) {
  for (const std::string& uri : uris) {
    if (std::optional<kav::host::Value> value = host.peers().ResourceValue(uri)) {
      host.peers().PublishResource(uri, kav::host::ResourceEventType::kUpdate, *value);
    } else {
      host.peers().PublishResource(uri, kav::host::ResourceEventType::kDelete, {});
    }
  }
}

// An answer at start-up, to a module of its own.
LeftOver AnswerAtStartUp(FuzzedDataProvider& input, HostValueTrees& trees) {
  const uint64_t bytes_before =
      g_host ? g_host->host().GetMemoryStatistics().BytesInUse() : g_bytes_without_module;
  ScenarioHost host(g_probe->scenario);
  const Read& read =
      g_probe
          ->start_reads[input.ConsumeIntegralInRange<size_t>(0, g_probe->start_reads.size() - 1)];
  host.host().SetResource(
      read.path, read.method,
      kav::host::HostAnswer::Record(trees.Tree(input, HostValueTrees::Limits{})));
  if (!host.Load()) Fail("cannot load the plugin", host.error());
  const ProbeCall& call = kCalls[1];
  (void)host.Call(call.method, call.url, call.body);
  if (host.host().outstanding_responses() != 0) Fail("a response was never released", call.url);
  return Destroyed(host, bytes_before);
}

// Runs one input. When the module's bytes in use grew (or `check` asks),
// destroys the module and says what it left behind.
std::optional<LeftOver> Run(const uint8_t* data, size_t size, bool check) {
  FuzzedDataProvider input(data, size);
  HostValueTrees trees;
  const uint8_t mode = input.ConsumeIntegral<uint8_t>();
  if (mode == 255) {
    if (g_probe->start_reads.empty()) return std::nullopt;
    return AnswerAtStartUp(input, trees);
  }
  if (!g_host || ++g_inputs_on_host > kInputsPerModule) {
    if (g_host) {
      const LeftOver left = Destroyed(*g_host, g_bytes_without_module);
      if (left.bytes != left.expected) {
        Fail("a module leaked over its inputs (bytes in use after it was destroyed, and before)",
             std::to_string(left.bytes) + " " + std::to_string(left.expected));
      }
    }
    g_host.reset();
    g_host = LoadedHost();
    g_inputs_on_host = 1;
  }
  ScenarioHost& host = *g_host;

  const uint64_t bytes_before = host.host().GetMemoryStatistics().BytesInUse();
  // Events.
  std::set<std::string> touched;
  const size_t events = mode % 2 == 0 ? input.ConsumeIntegralInRange<size_t>(1, 4) : 0;
  for (size_t i = 0; i < events; ++i) {
    const std::vector<std::string> names = host.host().ActiveEventNames();
    if (names.empty()) break;
    const std::string& name = names[input.ConsumeIntegralInRange<size_t>(0, names.size() - 1)];
    const KavHostValue payload = Payload(input, trees);
    AddTouchedUris(payload, touched);
    Deliver(host.host(), name, payload, input.ConsumeIntegral<uint32_t>());
  }

  // An answer during a call; the cheaper calls more often.
  if (mode % 2 == 1 || mode % 8 == 2) {
    const uint8_t pick = input.ConsumeIntegral<uint8_t>();
    const size_t call_index = pick < 128 ? 1 : pick < 192 ? 2 : pick < 224 ? 3 : 0;
    const std::vector<Read>& reads = g_probe->call_reads[call_index];
    const bool answered = mode % 2 == 1 && !reads.empty();
    Read read;
    if (answered) {
      read = reads[input.ConsumeIntegralInRange<size_t>(0, reads.size() - 1)];
      host.host().SetResource(
          read.path, read.method,
          kav::host::HostAnswer::Record(trees.Tree(input, HostValueTrees::Limits{})));
    }
    const ProbeCall& call = kCalls[call_index];
    const kav::host::CallOutcome outcome = host.Call(call.method, call.url, call.body);
    if (answered) host.host().RemoveResource(read.path, read.method);
    if (!outcome.reached_plugin) Fail("the call did not reach the plugin", call.url);
    if (host.host().outstanding_responses() != 0) Fail("a response was never released", call.url);
  }
  RestoreScenarioState(host, touched);
  host.host().ClearRecords();
  host.peers().ClearRecords();
  if (!check && host.host().GetMemoryStatistics().BytesInUse() <= bytes_before) return std::nullopt;
  const LeftOver left = Destroyed(host, g_bytes_without_module);
  g_host.reset();
  return left;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kav::fuzz::LimitStackToHostThreadSize();
  static Probe probe;
  probe.scenario = kav::host::DemoScenario();
  ScenarioHost host(probe.scenario);
  if (!host.Load()) Fail("cannot load the plugin", host.error());
  probe.start_reads = ReadsOf(host.host(), 0);
  for (const Read& read : probe.start_reads) probe.observed_uris.push_back(read.path);
  for (const ProbeCall& call : kCalls) {
    const size_t before = host.host().requests().size();
    (void)host.Call(call.method, call.url, call.body);
    probe.call_reads.push_back(ReadsOf(host.host(), before));
  }
  host.Destroy();
  g_bytes_without_module = host.host().GetMemoryStatistics().BytesInUse();
  g_probe = &probe;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::optional<LeftOver> left = Run(data, size, false);
  if (!left || left->bytes == left->expected) return 0;
  // Bytes left behind once may be the library's own lasting state, built
  // when first needed (the names of types first met, for one). The same
  // input on a fresh module finds that state built: what it leaves behind
  // again is a leak.
  g_bytes_without_module += left->bytes - left->expected;  // modulo 2^64: either way
  g_host.reset();
  left = Run(data, size, true);
  if (left && left->bytes != left->expected) {
    Fail("the module leaked (bytes in use after it was destroyed, and before it was loaded)",
         std::to_string(left->bytes) + " " + std::to_string(left->expected));
  }
  return 0;
}
