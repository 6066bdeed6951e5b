// Shared pieces of the end-to-end eligibility tests: a base scenario of the
// plugin's peers, a compact text form of eligibility answers, and lookups
// in what the host recorded.
#ifndef KAV_TESTS_QUEUE_ELIGIBILITY_ELIGIBILITY_TEST_SUPPORT_H_
#define KAV_TESTS_QUEUE_ELIGIBILITY_ELIGIBILITY_TEST_SUPPORT_H_

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/host_value.h"
#include "host/reference_host.h"
#include "host/scenario.h"
#include "host/scenario_host.h"

namespace kav::eligibility_test {

inline constexpr uint64_t kSelf = 1001;

// A change to a scenario before the host loads it.
using ScenarioSetup = std::function<void(host::Scenario&)>;

// Log levels as the host receives them.
inline constexpr int32_t kWarn = 1;
inline constexpr int32_t kError = 2;
inline constexpr int32_t kAlways = 3;
inline constexpr char kV3[] = "/kav-queue-eligibility/v3/eligibility";

// An available queue `id` of type "QUEUE_<id>" for up to five players, from
// level 1, without champion requirements.
inline host::Queue MakeQueue(int32_t id, std::string availability = "Available") {
  host::Queue queue;
  queue.id = id;
  queue.type = "QUEUE_" + std::to_string(id);
  queue.num_players_per_team = 5;
  queue.maximum_participant_list_size = 5;
  queue.min_level = 1;
  queue.max_level = 500;
  queue.queue_availability = std::move(availability);
  queue.are_free_champions_allowed = true;
  queue.allowable_premade_sizes = {1, 2, 3, 4, 5};
  return queue;
}

// The signed-in summoner 1001 (level 30) with champion counts, 1002 (level
// 12) and 1003 (level 40); practice games and the gatekeeper switched on;
// queues 420 (ranked, position selection, 20 champions, level 30, up to 2
// players), 430, 440 (party sizes 1, 2, 5), 450, 1700 (PlatformDisabled)
// and 2000 (DoesntMeetRequirements); a gatekeeper without restrictions that
// answers at the next yield.
inline host::Scenario BaseScenario() {
  host::Scenario scenario;
  scenario.name = "eligibility";
  scenario.session = host::LoginSession{"SUCCEEDED", kSelf, 5001};
  scenario.practice_game_enabled = host::PlatformSwitch::Of(true);
  scenario.gate_keeper_enabled = host::PlatformSwitch::Of(true);
  host::Queue ranked = MakeQueue(420);
  ranked.type = "RANKED_SOLO_5x5";
  ranked.is_ranked = true;
  ranked.show_position_selector = true;
  ranked.are_free_champions_allowed = false;
  ranked.champions_required_to_play = 20;
  ranked.min_level = 30;
  ranked.maximum_participant_list_size = 2;
  ranked.allowable_premade_sizes = {1, 2};
  host::Queue flex = MakeQueue(440);
  flex.allowable_premade_sizes = {1, 2, 5};
  scenario.queues = std::vector<host::Queue>{MakeQueue(450),
                                             ranked,
                                             MakeQueue(430),
                                             flex,
                                             MakeQueue(1700, "PlatformDisabled"),
                                             MakeQueue(2000, "DoesntMeetRequirements")};
  scenario.summoner_levels = {{kSelf, 30}, {1002, 12}, {1003, 40}};
  host::ChampionData champions;
  champions.playable_counts = host::ChampionPlayableCounts{25, 2, 10, 1};
  host::CollectionsChampion owned;
  owned.owned = true;
  owned.ranked_play_enabled = true;
  champions.inventory = std::vector<host::CollectionsChampion>(25, owned);
  scenario.champions[kSelf] = champions;
  scenario.leagues[kSelf] = {{"RANKED_SOLO_5x5", "GOLD"}};
  scenario.gatekeeper.delivery = host::ProxyDelivery::kAfterYields;
  scenario.gatekeeper.yields = 1;
  return scenario;
}

// A gatekeeper restriction of `reason` for `summoner_id` in `queue_id`.
inline host::GatekeeperRestriction Restriction(int32_t queue_id, uint64_t summoner_id,
                                               std::string reason, int64_t remaining_millis = 0) {
  host::GatekeeperRestriction restriction;
  restriction.queue_id = queue_id;
  restriction.summoner_id = summoner_id;
  restriction.reason = std::move(reason);
  restriction.remaining_millis = remaining_millis;
  restriction.summoner_name = "summoner " + std::to_string(summoner_id);
  return restriction;
}

template <class Number>
std::string JsonList(std::initializer_list<Number> numbers) {
  std::string text = "[";
  for (Number number : numbers) {
    if (text.size() > 1) text += ",";
    text += std::to_string(number);
  }
  return text + "]";
}

// The v3 URL for a party and queues, lists written as JSON.
inline std::string V3Url(std::initializer_list<uint64_t> summoner_ids,
                         std::initializer_list<int32_t> queue_ids) {
  return std::string(kV3) + "?summonerIds=" + JsonList(summoner_ids) +
         "&queueIds=" + JsonList(queue_ids);
}

// A fault that answers every request of `path` with status 503 and `error`.
inline host::Fault ErrorFault(std::string path, std::string error) {
  host::Fault fault;
  fault.path = std::move(path);
  fault.error = std::move(error);
  fault.status = 503;
  return fault;
}

// The body of the v1 and v2 resources.
inline std::string QueryBody(std::initializer_list<uint64_t> summoner_ids,
                             std::initializer_list<int32_t> queue_ids) {
  return "{\"summonerIds\":" + JsonList(summoner_ids) + ",\"queueIds\":" + JsonList(queue_ids) +
         "}";
}

inline int64_t AsInteger(const host::Value* value) {
  if (value == nullptr) return -1;
  if (value->kind() == host::Value::Kind::kSigned) return value->AsSigned();
  if (value->kind() == host::Value::Kind::kUnsigned)
    return static_cast<int64_t>(value->AsUnsigned());
  return -1;
}

// The name of a restriction code as the host shows it: the plugin hands the
// code over as a number, and the host names it from the API description.
// A code that is still a number reads "<code N>".
inline std::string CodeName(const host::Value* code) {
  if (code != nullptr && code->kind() == host::Value::Kind::kString) return code->AsString();
  return "<code " + std::to_string(AsInteger(code)) + ">";
}

inline std::string SummarizeRestriction(const host::Value& restriction) {
  std::string text = CodeName(restriction.Find("restrictionCode"));
  const host::Value* args = restriction.Find("restrictionArgs");
  if (args != nullptr && args->kind() == host::Value::Kind::kMap && !args->AsMap().empty()) {
    text += "{";
    for (const host::MapEntry& entry : args->AsMap()) {
      if (text.back() != '{') text += ",";
      text += entry.key + "=" +
              (entry.value.kind() == host::Value::Kind::kString ? entry.value.AsString() : "?");
    }
    text += "}";
  }
  const host::Value* ids = restriction.Find("summonerIds");
  if (ids != nullptr && ids->kind() == host::Value::Kind::kArray && !ids->AsArray().empty()) {
    text += "[";
    for (const host::Value& id : ids->AsArray()) {
      if (text.back() != '[') text += " ";
      text += std::to_string(AsInteger(&id));
    }
    text += "]";
  }
  return text;
}

// An answer (a list of Eligibility) in one line: entries separated by " ",
// each "<queueId>:ok" or "<queueId>:" and its restrictions separated by ",",
// each "<CodeName>{key=value}[id id]" (braces and brackets only when not
// empty). An entry whose "eligible" disagrees with its restrictions is
// marked "!"; an answer that is not a list reads "<not a list>".
inline std::string Summarize(const host::Value& answer) {
  if (answer.kind() != host::Value::Kind::kArray) return "<not a list>";
  std::string text;
  for (const host::Value& entry : answer.AsArray()) {
    if (!text.empty()) text += " ";
    text += std::to_string(AsInteger(entry.Find("queueId"))) + ":";
    const host::Value* restrictions = entry.Find("restrictions");
    const host::Value* eligible = entry.Find("eligible");
    const bool none = restrictions == nullptr || restrictions->AsArray().empty();
    if (eligible == nullptr || eligible->kind() != host::Value::Kind::kBool ||
        eligible->AsBool() != none) {
      text += "!";
    }
    if (none) {
      text += "ok";
      continue;
    }
    bool first = true;
    for (const host::Value& restriction : restrictions->AsArray()) {
      if (!first) text += ",";
      first = false;
      text += SummarizeRestriction(restriction);
    }
  }
  return text;
}

// The "expiredTimestamp" of the first restriction of the entry of `queue_id`;
// -1 when there is none.
inline int64_t FirstExpiry(const host::Value& answer, int32_t queue_id) {
  if (answer.kind() != host::Value::Kind::kArray) return -1;
  for (const host::Value& entry : answer.AsArray()) {
    if (AsInteger(entry.Find("queueId")) != queue_id) continue;
    const host::Value* restrictions = entry.Find("restrictions");
    if (restrictions == nullptr || restrictions->AsArray().empty()) return -1;
    return AsInteger(restrictions->AsArray().front().Find("expiredTimestamp"));
  }
  return -1;
}

// How many log lines of the host have exactly `level` and `text`.
inline size_t CountLog(const host::ScenarioHost& host, int32_t level, std::string_view text) {
  size_t count = 0;
  for (const host::LogLine& line : host.log_lines()) {
    if (line.level == level && line.text == text) ++count;
  }
  return count;
}

// The log lines that start with `prefix`, as "<level> <text>".
inline std::vector<std::string> LogsStartingWith(const host::ScenarioHost& host,
                                                 std::string_view prefix) {
  std::vector<std::string> lines;
  for (const host::LogLine& line : host.log_lines()) {
    if (line.text.starts_with(prefix))
      lines.push_back(std::to_string(line.level) + " " + line.text);
  }
  return lines;
}

// How many requests of the plugin went to `url`.
inline size_t CountRequests(const host::ScenarioHost& host, std::string_view url) {
  size_t count = 0;
  for (const std::string& requested : host.requested_urls()) {
    if (requested == url) ++count;
  }
  return count;
}

// The queue ids of every gatekeeper query, one list per query.
inline std::vector<std::vector<int32_t>> GatekeeperBatches(const host::ScenarioHost& host) {
  std::vector<std::vector<int32_t>> batches;
  for (const host::GatekeeperQuery& query : host.gatekeeper_queries()) {
    batches.push_back(query.queue_ids);
  }
  return batches;
}

}  // namespace kav::eligibility_test

#endif  // KAV_TESTS_QUEUE_ELIGIBILITY_ELIGIBILITY_TEST_SUPPORT_H_
