// Value conversion of argument texts into every target type the registry
// knows: bool, every integer width, float, double, string, object, blob,
// the enumerations and records of the eligibility API and of the host,
// optionals, vectors and maps.
//
// The first byte picks the target type and how the rest of the input
// becomes the source value: as a string (how texts from the query, the
// path and headers arrive), or decoded the way a structured argument's text
// is (MessagePack, JSON or YAML by its first characters). What converts
// must convert back to a value, and to host records that read back.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "binding/builtin_types.h"
#include "binding/conversion.h"
#include "binding/host_value.h"
#include "finding.h"
#include "plugin/host_types.h"
#include "queue_eligibility/api_types.h"
#include "serialization/json.h"
#include "serialization/msgpack.h"
#include "serialization/yaml.h"
#include "small_stack.h"

namespace {

using namespace kav;
namespace api = queue_eligibility::api;
namespace mqds = queue_eligibility::mqds;

TypeRegistry* g_registry = nullptr;

using kav::fuzz::Fail;

// The source value of an argument text: decoded for a structured target as
// call dispatch guesses its format, else the text itself.
BindingResult SourceOf(std::string_view text, bool structured) {
  if (structured) {
    const size_t first = text.find_first_not_of(' ');
    const std::string_view trimmed = first == std::string_view::npos ? "" : text.substr(first);
    if (kav::LooksLikeMessagePack(text.data(), text.size())) {
      uint32_t consumed = 0;
      return ReadMessagePack(reinterpret_cast<const uint8_t*>(text.data()),
                             static_cast<uint32_t>(text.size()), consumed);
    }
    if (!trimmed.empty() && (trimmed.front() == '{' || trimmed.front() == '[')) {
      return DeserializeJson(text);
    }
    if (trimmed.starts_with("---")) return ReadYaml(text);
  }
  BindingResult value;
  value.SetString(text);
  return value;
}

template <class T>
void Convert(const BindingProperty& source) {
  const TypeRegistry& registry = *g_registry;
  T native{};
  BindingResult status;
  if (!FromBindingProperty(status, source, "argument", native, registry)) {
    if (status.Error().empty()) Fail("a failed conversion without a message", "");
    return;
  }

  // Back to a value, and converted again (which may fail: a text may give
  // a value, such as NaN, that the rule for its own kind refuses).
  BindingResult back = ToBindingProperty(native, registry);
  if (!back.Ok()) Fail("a converted value does not convert back", back.Error());
  T again{};
  BindingResult again_status;
  if (!FromBindingProperty(again_status, back, "argument", again, registry) &&
      again_status.Error().empty()) {
    Fail("a failed conversion without a message", "");
  }

  // Straight to the host's records, as answers go, and through a value.
  BindingResult host_status;
  KavHostValue direct{};
  try {
    ValueTraits<T>::ToHost(host_status, direct, native, nullptr, registry, &registry);
  } catch (const std::bad_alloc&) {
    Fail("out of memory writing a host value", "");
  }
  KavHostValue through{};
  if (!ToHostValue(through, back, &registry)) Fail("a value does not become a host value", "");
  BindingResult read_status;
  BindingProperty read;
  if (host_status.Ok() && !FromHostValue(read_status, read, direct, "argument")) {
    Fail("a host value written does not read back", read_status.Error());
  }
  ReleaseHostValue(direct);
  ReleaseHostValue(through);
}

using Converter = void (*)(const BindingProperty&);

struct Target {
  Converter convert;
  bool structured;
};

const Target kTargets[] = {
    {Convert<bool>, false},
    {Convert<int8_t>, false},
    {Convert<int16_t>, false},
    {Convert<int32_t>, false},
    {Convert<int64_t>, false},
    {Convert<uint8_t>, false},
    {Convert<uint16_t>, false},
    {Convert<uint32_t>, false},
    {Convert<uint64_t>, false},
    {Convert<float>, false},
    {Convert<double>, false},
    {Convert<std::string>, false},
    {Convert<std::vector<std::byte>>, false},
    {Convert<std::optional<bool>>, false},
    {Convert<std::optional<int32_t>>, false},
    {Convert<api::QueueAvailability>, false},
    {Convert<api::EligibilityRestrictionCode>, false},
    {Convert<api::LoginSessionStates>, false},
    {Convert<PluginResourceEventType>, false},
    {Convert<BindingProperty>, true},
    {Convert<api::Queue>, true},
    {Convert<api::EligibilityRestriction>, true},
    {Convert<api::Eligibility>, true},
    {Convert<api::EligibilityQueryParams>, true},
    {Convert<api::SummonerResource>, true},
    {Convert<api::CollectionsChampion>, true},
    {Convert<api::CollectionsPlayableChampionCounts>, true},
    {Convert<api::QueueShutdownStatus>, true},
    {Convert<api::LoginSession>, true},
    {Convert<api::ChampionPlayableCountsForEligibility>, true},
    {Convert<api::League>, true},
    {Convert<mqds::GetQueueRestrictionsForQueuesRequestV2>, true},
    {Convert<mqds::GatekeeperRestrictionDtoV3>, true},
    {Convert<Resource>, true},
    {Convert<PluginServiceProxyResponse>, true},
    {Convert<std::vector<uint64_t>>, true},
    {Convert<std::vector<int32_t>>, true},
    {Convert<std::vector<bool>>, true},
    {Convert<std::vector<std::string>>, true},
    {Convert<std::vector<api::Queue>>, true},
    {Convert<std::vector<api::Eligibility>>, true},
    {Convert<std::vector<api::League>>, true},
    {Convert<std::vector<api::CollectionsChampion>>, true},
    {Convert<std::map<std::string, std::string>>, true},
    {Convert<std::unordered_map<std::string, int32_t>>, true},
    {Convert<std::map<std::string, std::vector<uint64_t>>>, true},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kav::fuzz::LimitStackToHostThreadSize();
  static TypeRegistry registry;
  static queue_eligibility::ServiceTypeTables tables;
  RegisterBuiltins(registry);
  DeclareHostTypesAndEvents(registry);
  queue_eligibility::RegisterEligibilityApiTypes(registry, "KavQueueEligibility", {}, tables);
  g_registry = &registry;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const Target& target = kTargets[data[0] % std::size(kTargets)];
  // Half of the choices take a structured target's text as a plain string.
  const bool decode = target.structured && (data[0] / std::size(kTargets)) % 2 == 0;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  BindingResult source = SourceOf(text, decode);
  if (!source.Ok()) return 0;
  target.convert(source);
  return 0;
}
