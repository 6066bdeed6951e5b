#include "host/scenario_writing.h"

#include <utility>

#include "host/reference_host.h"

namespace kav::host {
namespace {

Value RestrictionToValue(const GatekeeperRestriction& restriction) {
  Value::Map map = {
      {"queueId", Value::Signed(restriction.queue_id)},
      {"summonerId", Value::Unsigned(restriction.summoner_id)},
      {"reason", Value::String(restriction.reason)},
      {"remainingMillis", Value::Signed(restriction.remaining_millis)},
      {"summonerName", Value::String(restriction.summoner_name)},
      {"payload", Value::String(restriction.payload)},
  };
  if (!restriction.with_members.empty()) {
    Value::Array members;
    for (uint64_t member : restriction.with_members) members.push_back(Value::Unsigned(member));
    map.push_back({"withMembers", Value::MakeArray(std::move(members))});
  }
  return Value::MakeMap(std::move(map));
}

}  // namespace

Value GatekeeperToValue(const Gatekeeper& gatekeeper) {
  Value::Array restrictions;
  for (const GatekeeperRestriction& restriction : gatekeeper.restrictions) {
    restrictions.push_back(RestrictionToValue(restriction));
  }
  Value::Map map = {{"restrictions", Value::MakeArray(std::move(restrictions))}};
  if (!gatekeeper.answers.empty()) {
    Value::Array answers;
    for (const GatekeeperAnswer& answer : gatekeeper.answers) {
      Value::Map entry = {{"query", Value::Unsigned(answer.query)}};
      if (answer.error.has_value()) {
        entry.push_back({"error", Value::String(*answer.error)});
      } else {
        Value::Array scripted;
        for (const GatekeeperRestriction& restriction : answer.restrictions) {
          scripted.push_back(RestrictionToValue(restriction));
        }
        entry.push_back({"restrictions", Value::MakeArray(std::move(scripted))});
      }
      answers.push_back(Value::MakeMap(std::move(entry)));
    }
    map.push_back({"answers", Value::MakeArray(std::move(answers))});
  }
  if (gatekeeper.delivery == ProxyDelivery::kDuringPost) {
    map.push_back({"delivery", Value::String("duringPost")});
  } else if (gatekeeper.yields <= 1) {
    map.push_back({"delivery", Value::String("nextYield")});
  } else {
    map.push_back({"delivery", Value::String("afterYields")});
    map.push_back({"yields", Value::Unsigned(gatekeeper.yields)});
  }
  if (!gatekeeper.error.empty()) map.push_back({"error", Value::String(gatekeeper.error)});
  if (gatekeeper.error_times.has_value()) {
    map.push_back({"errorTimes", Value::Unsigned(*gatekeeper.error_times)});
  }
  return Value::MakeMap(std::move(map));
}

Value FaultToValue(const Fault& fault) {
  Value::Map map = {{"path", Value::String(fault.path)}};
  if (fault.method != 0) map.push_back({"method", Value::String(MethodName(fault.method))});
  if (fault.times.has_value()) map.push_back({"times", Value::Unsigned(*fault.times)});
  if (fault.error.has_value()) {
    map.push_back({"error", Value::String(*fault.error)});
    map.push_back({"status", Value::Unsigned(fault.status)});
  } else if (fault.body.has_value()) {
    map.push_back({"body", *fault.body});
  } else {
    map.push_back({"streamChunks", Value::Unsigned(fault.stream_chunks)});
  }
  return Value::MakeMap(std::move(map));
}

}  // namespace kav::host
