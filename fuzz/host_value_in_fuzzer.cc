// Host values coming in: a fuzzed host value tree delivered as the payload
// of events to the module's subscriptions (bare, or wrapped as a resource
// change of a resource the module observes), and handed to the module as
// the answer to one of the requests it makes - during a call, or at
// start-up, when its observations read their resources. The module must
// take every value or drop it, answer its calls, release every response
// and shut down cleanly.
//
// The module lives among the peers of the demo scenario. Starting one costs
// milliseconds, so inputs share one module: after an input that delivered
// events the peers publish every observed resource again, which puts the
// module back into the scenario's state, and the module is replaced every
// kInputsPerModule inputs (its observer tables keep the resources that
// fuzzed sessions made it observe). Answers at start-up get a module of
// their own.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/scenario_host.h"
#include "host_value_trees.h"
#include "small_stack.h"

namespace {

using kav::fuzz::HostValueTrees;
using kav::host::ReferenceHost;
using kav::host::Scenario;
using kav::host::ScenarioHost;

[[noreturn]] void Fail(const char* what, std::string_view detail) {
  std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(detail.size()), detail.data());
  std::abort();
}

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

// Publishes every observed resource with the scenario's value again.
void RestoreScenarioState(ScenarioHost& host) {
  for (const std::string& uri : g_probe->observed_uris) {
    if (std::optional<kav::host::Value> value = host.peers().ResourceValue(uri)) {
      host.peers().PublishResource(uri, kav::host::ResourceEventType::kUpdate, *value);
    } else {
      host.peers().PublishResource(uri, kav::host::ResourceEventType::kDelete, {});
    }
  }
}

// An answer at start-up, to a module of its own.
void AnswerAtStartUp(FuzzedDataProvider& input, HostValueTrees& trees) {
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
  g_probe = &probe;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  HostValueTrees trees;
  const uint8_t mode = input.ConsumeIntegral<uint8_t>();
  if (mode % 64 == 63) {
    if (!g_probe->start_reads.empty()) AnswerAtStartUp(input, trees);
    return 0;
  }
  if (!g_host || ++g_inputs_on_host > kInputsPerModule) {
    g_host.reset();
    g_host = LoadedHost();
    g_inputs_on_host = 1;
  }
  ScenarioHost& host = *g_host;

  // Events.
  const size_t events = mode % 2 == 0 ? input.ConsumeIntegralInRange<size_t>(1, 4) : 0;
  for (size_t i = 0; i < events; ++i) {
    const std::vector<std::string> names = host.host().ActiveEventNames();
    if (names.empty()) break;
    const std::string& name = names[input.ConsumeIntegralInRange<size_t>(0, names.size() - 1)];
    const KavHostValue payload = Payload(input, trees);
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
  if (events != 0) RestoreScenarioState(host);
  host.host().ClearRecords();
  host.peers().ClearRecords();
  return 0;
}
