#include "host/peers.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>
#include <type_traits>
#include <utility>

#include "host/json_value.h"

namespace kav::host {
namespace {

constexpr std::string_view kSessionPath = "/kav-login/v1/session";
constexpr std::string_view kPracticeGamePath =
    "/kav-platform-config/v1/namespaces/ClientSystemStates/practiceGameEnabled";
constexpr std::string_view kGateKeeperSwitchPath =
    "/kav-platform-config/v1/namespaces/HvxLobby/QueueEligibilityGateKeeperEnabled";
constexpr std::string_view kQueuesPath = "/kav-game-queues/v1/queues";
constexpr std::string_view kCurrentSummonerPath = "/kav-summoner/v1/current-summoner";
constexpr std::string_view kSummonerPrefix = "/kav-summoner/v1/summoners/";
constexpr std::string_view kInventoryPrefix = "/kav-champions/v1/inventories/";
constexpr std::string_view kChampionsSuffix = "/champions-minimal";
constexpr std::string_view kPlayableCountSuffix = "/champions-playable-count";
constexpr std::string_view kLeaguesPrefix = "/kav-leagues/v1/summoner-leagues/";
constexpr std::string_view kDisabledQueuesPath = "/kav-kr-shutdown-law/v1/disabled-queues";
constexpr std::string_view kQueueStatusPrefix = "/kav-kr-shutdown-law/v1/queue-status/";
constexpr std::string_view kCustomStatusPath = "/kav-kr-shutdown-law/v1/custom-status";

constexpr std::string_view kGatekeeperService = "gatekeeper";
constexpr std::string_view kGatekeeperMethod = "getQueueRestrictionsForQueuesV2";

std::string_view PathOf(std::string_view url) {
  return url.substr(0, url.find('?'));
}

// A whole text of decimal digits (with a sign for signed types).
template <class Int>
std::optional<Int> ParseId(std::string_view text) {
  Int id{};
  const char* end = text.data() + text.size();
  auto [stop, failure] = std::from_chars(text.data(), end, id);
  if (text.empty() || failure != std::errc() || stop != end) return std::nullopt;
  return id;
}

// The id between `prefix` and `suffix` of `path`.
template <class Int>
std::optional<Int> IdIn(std::string_view path, std::string_view prefix,
                        std::string_view suffix = {}) {
  if (path.size() < prefix.size() + suffix.size() || !path.starts_with(prefix) ||
      !path.ends_with(suffix)) {
    return std::nullopt;
  }
  return ParseId<Int>(path.substr(prefix.size(), path.size() - prefix.size() - suffix.size()));
}

// ---- Records in their wire form ------------------------------------------------

Value Text(std::string_view text) {
  return Value::String(std::string(text));
}

template <class Int>
Value Number(Int number) {
  if constexpr (std::is_signed_v<Int>) {
    return Value::Signed(number);
  } else {
    return Value::Unsigned(number);
  }
}

template <class T, class ToValue>
Value ListOf(const std::vector<T>& items, ToValue to_value) {
  Value::Array array;
  array.reserve(items.size());
  for (const T& item : items) array.push_back(to_value(item));
  return Value::MakeArray(std::move(array));
}

template <class Int>
Value Numbers(const std::vector<Int>& numbers) {
  return ListOf(numbers, [](Int number) { return Number(number); });
}

Value SessionValue(const LoginSession& session) {
  return Value::MakeMap({{"state", Text(session.state)},
                         {"summonerId", Number(session.summoner_id)},
                         {"accountId", Number(session.account_id)}});
}

Value QueueValue(const Queue& queue) {
  return Value::MakeMap({
      {"id", Number(queue.id)},
      {"type", Text(queue.type)},
      {"numPlayersPerTeam", Number(queue.num_players_per_team)},
      {"maximumParticipantListSize", Number(queue.maximum_participant_list_size)},
      {"minLevel", Number(queue.min_level)},
      {"maxLevel", Number(queue.max_level)},
      {"queueAvailability", Text(queue.queue_availability)},
      {"areFreeChampionsAllowed", Value::Bool(queue.are_free_champions_allowed)},
      {"isRanked", Value::Bool(queue.is_ranked)},
      {"championsRequiredToPlay", Number(queue.champions_required_to_play)},
      {"allowablePremadeSizes", Numbers(queue.allowable_premade_sizes)},
      {"showPositionSelector", Value::Bool(queue.show_position_selector)},
  });
}

Value QueuesValue(const std::vector<Queue>& queues) {
  return ListOf(queues, QueueValue);
}

Value SummonerValue(uint64_t id, uint32_t level) {
  return Value::MakeMap({{"summonerId", Number(id)}, {"summonerLevel", Number(level)}});
}

Value ChampionValue(const CollectionsChampion& champion) {
  return Value::MakeMap({
      {"disabledQueues", ListOf(champion.disabled_queues, Text)},
      {"freeToPlay", Value::Bool(champion.free_to_play)},
      {"ownership",
       Value::MakeMap({{"freeToPlayReward", Value::Bool(champion.free_to_play_reward)},
                       {"owned", Value::Bool(champion.owned)},
                       {"rental", Value::MakeMap({{"rented", Value::Bool(champion.rented)}})}})},
      {"purchased", Number(champion.purchased)},
      {"rankedPlayEnabled", Value::Bool(champion.ranked_play_enabled)},
  });
}

Value CountsValue(const ChampionPlayableCounts& counts) {
  return Value::MakeMap({
      {"championsOwned", Number(counts.champions_owned)},
      {"championsRented", Number(counts.champions_rented)},
      {"championsFreeToPlay", Number(counts.champions_free_to_play)},
      {"championsFreeToPlayReward", Number(counts.champions_free_to_play_reward)},
  });
}

Value LeagueValue(const League& league) {
  return Value::MakeMap(
      {{"queueType", Text(league.queue_type)}, {"leagueTier", Text(league.league_tier)}});
}

Value ShutdownStatusValue(bool disabled) {
  return Value::MakeMap({{"isDisabled", Value::Bool(disabled)}});
}

Value SwitchValue(const PlatformSwitch& platform_switch) {
  return platform_switch.value.has_value() ? Value::Bool(*platform_switch.value) : Value();
}

Value RestrictionValue(const GatekeeperRestriction& restriction) {
  return Value::MakeMap({
      {"summonerName", Text(restriction.summoner_name)},
      {"reason", Text(restriction.reason)},
      {"remainingMillis", Number(restriction.remaining_millis)},
      {"payload", Text(restriction.payload)},
      {"queueId", Number(restriction.queue_id)},
      {"summonerId", Number(restriction.summoner_id)},
  });
}

Value ServiceProxyEvent(std::string uuid, std::string service, std::string method,
                        std::string payload, std::string status, std::string error) {
  return Value::MakeMap({
      {"uuid", Value::String(std::move(uuid))},
      {"serviceName", Value::String(std::move(service))},
      {"methodName", Value::String(std::move(method))},
      {"payload", Value::String(std::move(payload))},
      {"status", Value::String(std::move(status))},
      {"error", Value::String(std::move(error))},
  });
}

// ---- Reading the plugin's arguments and payloads ---------------------------------

const std::string* StringArgument(const RecordedRequest& request, size_t index) {
  if (index >= request.arguments.size()) return nullptr;
  const Value& value = request.arguments[index].value;
  return value.kind() == Value::Kind::kString ? &value.AsString() : nullptr;
}

bool IsInteger(const Value& value) {
  return value.kind() == Value::Kind::kSigned || value.kind() == Value::Kind::kUnsigned;
}

// The integers of member `key` of `map` into `out`; false when the member
// is there but not a list of integers in range. A missing member is empty.
template <class Int>
bool ReadIntegers(const Value& map, std::string_view key, std::vector<Int>& out) {
  const Value* list = map.Find(key);
  if (list == nullptr || list->IsNull()) return true;
  if (list->kind() != Value::Kind::kArray) return false;
  for (const Value& element : list->AsArray()) {
    if (element.kind() == Value::Kind::kSigned) {
      const int64_t number = element.AsSigned();
      if (number < static_cast<int64_t>(std::numeric_limits<Int>::min())) return false;
      if (number >= 0 && static_cast<uint64_t>(number) > std::numeric_limits<Int>::max()) {
        return false;
      }
      out.push_back(static_cast<Int>(number));
    } else if (element.kind() == Value::Kind::kUnsigned &&
               element.AsUnsigned() <= std::numeric_limits<Int>::max()) {
      out.push_back(static_cast<Int>(element.AsUnsigned()));
    } else {
      return false;
    }
  }
  return true;
}

bool ReadStrings(const Value& map, std::string_view key, std::vector<std::string>& out) {
  const Value* list = map.Find(key);
  if (list == nullptr || list->IsNull()) return true;
  if (list->kind() != Value::Kind::kArray) return false;
  for (const Value& element : list->AsArray()) {
    if (element.kind() != Value::Kind::kString) return false;
    out.push_back(element.AsString());
  }
  return true;
}

template <class T>
bool Contains(const std::vector<T>& items, const T& item) {
  return std::find(items.begin(), items.end(), item) != items.end();
}

// `text` in `count` pieces of (nearly) equal length; at least one piece.
std::vector<std::string> SplitIntoChunks(const std::string& text, uint32_t count) {
  std::vector<std::string> chunks;
  const size_t pieces = std::max<size_t>(1, std::min<size_t>(count, text.size()));
  const size_t size = (text.size() + pieces - 1) / pieces;
  for (size_t start = 0; start < text.size(); start += size) {
    chunks.push_back(text.substr(start, size));
  }
  if (chunks.empty()) chunks.emplace_back();
  return chunks;
}

}  // namespace

// ---- Event names ----------------------------------------------------------------

std::string ResourceEventName(std::string_view uri) {
  std::string name = "OnJsonApiEvent";
  size_t start = 0;
  while (start <= uri.size()) {
    size_t end = uri.find('/', start);
    if (end == std::string_view::npos) end = uri.size();
    if (end > start) name.append("_").append(uri.substr(start, end - start));
    start = end + 1;
  }
  return name;
}

bool EventNameCovers(std::string_view event_name, std::string_view uri) {
  if (event_name == "OnJsonApiEvent") return true;
  const std::string full = ResourceEventName(uri);
  return full == event_name || (full.size() > event_name.size() && full.starts_with(event_name) &&
                                full[event_name.size()] == '_');
}

// ---- Peers -------------------------------------------------------------------------

Peers::Peers(Scenario scenario)
    : state_(std::move(scenario)), fault_uses_(state_.faults.size(), 0) {}

void Peers::Attach(ReferenceHost& host) {
  host_ = &host;
  host.SetFallbackHandler([this](const RecordedRequest& request) { return Answer(request); });
}

HostAnswer Peers::Answer(const RecordedRequest& request) {
  const std::string_view path = PathOf(request.url);
  for (size_t i = 0; i < state_.faults.size(); ++i) {
    const Fault& fault = state_.faults[i];
    if (fault.path != path || (fault.method != 0 && fault.method != request.method)) continue;
    if (fault.times.has_value() && fault_uses_[i] >= *fault.times) continue;
    ++fault_uses_[i];
    if (fault.error.has_value()) return HostAnswer::Error(fault.status, *fault.error);
    if (fault.body.has_value()) return HostAnswer::Body(*fault.body);
    HostAnswer regular = RegularAnswer(request, path);
    if (regular.kind != HostAnswer::Kind::kBody) return regular;
    return HostAnswer::Stream(SplitIntoChunks(regular.body.ToJson(), fault.stream_chunks),
                              regular.status);
  }
  return RegularAnswer(request, path);
}

HostAnswer Peers::RegularAnswer(const RecordedRequest& request, std::string_view path) {
  const bool post = request.method == KAV_METHOD_POST;
  if (path == kServiceProxyUuidPath && post) return ServiceProxyUuidRequest(request);
  if (path == kServiceProxyMethodPath && post) return ServiceProxyMethodRequest(request);
  std::optional<Value> value = ResourceValue(path);
  if (!value.has_value()) return HostAnswer::Error(404, "Not found: " + request.url);
  if (request.method != KAV_METHOD_GET) {
    return HostAnswer::Error(
        405, std::string("Method not allowed: ") + MethodName(request.method) + " " + request.url);
  }
  return HostAnswer::Body(std::move(*value));
}

void Peers::ClearRecords() {
  gatekeeper_queries_.clear();
  delivered_events_.clear();
}

std::optional<uint64_t> Peers::CurrentSummonerId() const {
  if (state_.current_summoner.has_value()) return state_.current_summoner;
  if (state_.session.has_value()) return state_.session->summoner_id;
  return std::nullopt;
}

std::optional<Value> Peers::ResourceValue(std::string_view path) const {
  if (auto overridden = overrides_.find(path); overridden != overrides_.end()) {
    return overridden->second;
  }
  if (path == kSessionPath) {
    if (!state_.session.has_value()) return std::nullopt;
    return SessionValue(*state_.session);
  }
  if (path == kPracticeGamePath || path == kGateKeeperSwitchPath) {
    const PlatformSwitch& platform_switch =
        path == kPracticeGamePath ? state_.practice_game_enabled : state_.gate_keeper_enabled;
    if (!platform_switch.present) return std::nullopt;
    return SwitchValue(platform_switch);
  }
  if (path == kQueuesPath) {
    if (!state_.queues.has_value()) return std::nullopt;
    return QueuesValue(*state_.queues);
  }
  std::optional<uint64_t> summoner_id;
  if (path == kCurrentSummonerPath) {
    summoner_id = CurrentSummonerId();
  } else {
    summoner_id = IdIn<uint64_t>(path, kSummonerPrefix);
  }
  if (summoner_id.has_value()) {
    auto level = state_.summoner_levels.find(*summoner_id);
    if (level == state_.summoner_levels.end()) return std::nullopt;
    return SummonerValue(*summoner_id, level->second);
  }
  if (auto id = IdIn<uint64_t>(path, kInventoryPrefix, kChampionsSuffix)) {
    auto data = state_.champions.find(*id);
    if (data == state_.champions.end() || !data->second.inventory.has_value()) return std::nullopt;
    return ListOf(*data->second.inventory, ChampionValue);
  }
  if (auto id = IdIn<uint64_t>(path, kInventoryPrefix, kPlayableCountSuffix)) {
    auto data = state_.champions.find(*id);
    if (data == state_.champions.end() || !data->second.playable_counts.has_value()) {
      return std::nullopt;
    }
    return CountsValue(*data->second.playable_counts);
  }
  if (auto id = IdIn<uint64_t>(path, kLeaguesPrefix)) {
    auto leagues = state_.leagues.find(*id);
    if (leagues == state_.leagues.end()) return std::nullopt;
    return ListOf(leagues->second, LeagueValue);
  }
  if (path == kDisabledQueuesPath) return Numbers(state_.shutdown_law.disabled_queues);
  if (auto id = IdIn<int32_t>(path, kQueueStatusPrefix)) {
    auto status = state_.shutdown_law.queue_status.find(*id);
    return ShutdownStatusValue(status != state_.shutdown_law.queue_status.end() && status->second);
  }
  if (path == kCustomStatusPath) return ShutdownStatusValue(state_.shutdown_law.custom_disabled);
  return std::nullopt;
}

// ---- Service proxy ---------------------------------------------------------------

HostAnswer Peers::ServiceProxyUuidRequest(const RecordedRequest& request) {
  const std::string* service = StringArgument(request, 0);
  const std::string* method = StringArgument(request, 1);
  const std::string* payload = StringArgument(request, 3);
  if (request.arguments.size() != 4 || service == nullptr || method == nullptr ||
      !IsInteger(request.arguments[2].value) || payload == nullptr) {
    return HostAnswer::Error(400,
                             "Bad service proxy request: expected the service name, the method "
                             "name, the plugin handle and the payload text");
  }
  char uuid[40];
  std::snprintf(uuid, sizeof(uuid), "00000000-0000-4000-8000-%012llx",
                static_cast<unsigned long long>(next_uuid_++));
  ServiceAnswer answer = CallService(*service, *method, *payload);
  ScheduleAnswer("OnServiceProxyUuidEvent",
                 ServiceProxyEvent(uuid, *service, *method, std::move(answer.payload),
                                   std::move(answer.status), std::move(answer.error)));
  return HostAnswer::Body(Value::String(uuid));
}

HostAnswer Peers::ServiceProxyMethodRequest(const RecordedRequest& request) {
  const std::string* service = StringArgument(request, 0);
  const std::string* method = StringArgument(request, 1);
  const std::string* response_method = StringArgument(request, 2);
  const std::string* further = StringArgument(request, 3);
  const std::string* payload = StringArgument(request, 5);
  if (request.arguments.size() != 6 || service == nullptr || method == nullptr ||
      response_method == nullptr || further == nullptr || !IsInteger(request.arguments[4].value) ||
      payload == nullptr) {
    return HostAnswer::Error(400,
                             "Bad service proxy request: expected the service name, the method "
                             "name, the response method name, a text, the plugin handle and the "
                             "payload text");
  }
  ServiceAnswer answer = CallService(*service, *method, *payload);
  ScheduleAnswer("OnServiceProxyMethodEvent",
                 ServiceProxyEvent("", *service, *response_method, std::move(answer.payload),
                                   std::move(answer.status), std::move(answer.error)));
  return HostAnswer::Body(Value());
}

Peers::ServiceAnswer Peers::CallService(const std::string& service, const std::string& method,
                                        const std::string& payload) {
  if (service == kGatekeeperService && method == kGatekeeperMethod) {
    return QueryGatekeeper(payload);
  }
  return {"", "404", "Unknown service method: " + service + "." + method};
}

Peers::ServiceAnswer Peers::QueryGatekeeper(const std::string& payload) {
  GatekeeperQuery& query = gatekeeper_queries_.emplace_back();
  JsonError json_error;
  std::optional<Value> request = ParseJson(payload, &json_error);
  if (!request.has_value()) {
    query.error = "payload is not JSON: " + json_error.ToString();
  } else if (request->kind() != Value::Kind::kMap) {
    query.error = "payload is not an object";
  } else if (!ReadIntegers(*request, "queueIds", query.queue_ids) ||
             !ReadIntegers(*request, "summonerIds", query.summoner_ids) ||
             !ReadStrings(*request, "queueRestrictionsToExclude", query.excluded_reasons)) {
    query.error = "queueIds, summonerIds or queueRestrictionsToExclude has the wrong type";
  }
  if (!query.error.empty()) return {"", "400", "Bad gatekeeper request: " + query.error};

  const Gatekeeper& gatekeeper = state_.gatekeeper;
  const uint32_t number = static_cast<uint32_t>(gatekeeper_queries_.size());
  for (const GatekeeperAnswer& scripted : gatekeeper.answers) {
    if (scripted.query != number) continue;
    if (scripted.error.has_value()) return {"", "500", *scripted.error};
    return {ListOf(scripted.restrictions, RestrictionValue).ToJson(), "200", ""};
  }
  if (!gatekeeper.error.empty() &&
      (!gatekeeper.error_times.has_value() || gatekeeper_errors_ < *gatekeeper.error_times)) {
    ++gatekeeper_errors_;
    return {"", "500", gatekeeper.error};
  }
  Value::Array answer;
  for (const GatekeeperRestriction& restriction : gatekeeper.restrictions) {
    const bool members_present =
        std::all_of(restriction.with_members.begin(), restriction.with_members.end(),
                    [&](uint64_t member) { return Contains(query.summoner_ids, member); });
    if (Contains(query.queue_ids, restriction.queue_id) &&
        Contains(query.summoner_ids, restriction.summoner_id) &&
        !Contains(query.excluded_reasons, restriction.reason) && members_present) {
      answer.push_back(RestrictionValue(restriction));
    }
  }
  return {Value::MakeArray(std::move(answer)).ToJson(), "200", ""};
}

void Peers::ScheduleAnswer(std::string event_name, Value payload) {
  if (state_.gatekeeper.delivery == ProxyDelivery::kDuringPost || host_ == nullptr) {
    Deliver(event_name, payload);
    return;
  }
  ++pending_answers_;
  host_->ScheduleAtYield(std::max<uint32_t>(1, state_.gatekeeper.yields),
                         [this, event_name = std::move(event_name), payload = std::move(payload)] {
                           --pending_answers_;
                           Deliver(event_name, payload);
                         });
}

size_t Peers::Deliver(const std::string& event_name, const Value& payload) {
  const size_t callbacks = host_ != nullptr ? host_->Deliver(event_name, payload) : 0;
  delivered_events_.push_back({event_name, payload, callbacks});
  return callbacks;
}

// ---- Changes -----------------------------------------------------------------------

size_t Peers::PublishResource(std::string_view uri, ResourceEventType type, const Value& data) {
  // The modelled state is published: a value set for the path gives way.
  if (auto overridden = overrides_.find(uri); overridden != overrides_.end()) {
    overrides_.erase(overridden);
  }
  return Publish(uri, type, data);
}

size_t Peers::Publish(std::string_view uri, ResourceEventType type, const Value& data) {
  const Value payload = Value::MakeMap({{"uri", Text(uri)},
                                        {"eventType", Value::Signed(static_cast<int64_t>(type))},
                                        {"data", data}});
  size_t callbacks = 0;
  bool delivered = false;
  if (host_ != nullptr) {
    for (const std::string& name : host_->ActiveEventNames()) {
      if (!EventNameCovers(name, uri)) continue;
      callbacks += Deliver(name, payload);
      delivered = true;
    }
  }
  if (!delivered) delivered_events_.push_back({ResourceEventName(uri), payload, 0});
  return callbacks;
}

void Peers::PublishSwitch(std::string_view uri, const PlatformSwitch& value) {
  if (value.present) {
    PublishResource(uri, ResourceEventType::kUpdate, SwitchValue(value));
  } else {
    PublishResource(uri, ResourceEventType::kDelete, Value());
  }
}

void Peers::Apply(const ScenarioAction& action) {
  if (const auto* set = std::get_if<SetQueues>(&action)) {
    const bool existed = state_.queues.has_value();
    state_.queues = set->queues;
    PublishResource(kQueuesPath, existed ? ResourceEventType::kUpdate : ResourceEventType::kCreate,
                    QueuesValue(set->queues));
  } else if (std::holds_alternative<DeleteSession>(action)) {
    state_.session.reset();
    PublishResource(kSessionPath, ResourceEventType::kDelete, Value());
  } else if (const auto* set_session = std::get_if<SetSession>(&action)) {
    const bool existed = state_.session.has_value();
    state_.session = set_session->session;
    PublishResource(kSessionPath, existed ? ResourceEventType::kUpdate : ResourceEventType::kCreate,
                    SessionValue(set_session->session));
  } else if (const auto* practice = std::get_if<SetPracticeGameEnabled>(&action)) {
    state_.practice_game_enabled = practice->value;
    PublishSwitch(kPracticeGamePath, practice->value);
  } else if (const auto* gate_keeper = std::get_if<SetGateKeeperEnabled>(&action)) {
    state_.gate_keeper_enabled = gate_keeper->value;
    PublishSwitch(kGateKeeperSwitchPath, gate_keeper->value);
  } else if (const auto* level = std::get_if<SetSummonerLevel>(&action)) {
    const std::optional<uint64_t> id = CurrentSummonerId();
    if (!id.has_value()) return;
    state_.summoner_levels[*id] = level->level;
    const Value summoner = SummonerValue(*id, level->level);
    PublishResource(kCurrentSummonerPath, ResourceEventType::kUpdate, summoner);
    PublishResource(std::string(kSummonerPrefix) + std::to_string(*id), ResourceEventType::kUpdate,
                    summoner);
  } else if (const auto* set_resource = std::get_if<SetPeerResource>(&action)) {
    const bool existed = ResourceValue(set_resource->path).has_value();
    overrides_[set_resource->path] = set_resource->value;
    Publish(set_resource->path, existed ? ResourceEventType::kUpdate : ResourceEventType::kCreate,
            set_resource->value);
  } else if (const auto* delete_resource = std::get_if<DeletePeerResource>(&action)) {
    overrides_[delete_resource->path] = std::nullopt;
    Publish(delete_resource->path, ResourceEventType::kDelete, Value());
  } else if (const auto* set_gatekeeper = std::get_if<SetGatekeeper>(&action)) {
    state_.gatekeeper = set_gatekeeper->gatekeeper;
    gatekeeper_errors_ = 0;
  } else if (const auto* add_fault = std::get_if<AddFault>(&action)) {
    state_.faults.push_back(add_fault->fault);
    fault_uses_.push_back(0);
  } else if (std::holds_alternative<ClearFaults>(action)) {
    state_.faults.clear();
    fault_uses_.clear();
  } else if (const auto* counts = std::get_if<SetChampionCounts>(&action)) {
    const std::optional<uint64_t> id = CurrentSummonerId();
    if (!id.has_value()) return;
    state_.champions[*id].playable_counts = counts->counts;
    PublishResource(
        std::string(kInventoryPrefix) + std::to_string(*id) + std::string(kPlayableCountSuffix),
        ResourceEventType::kUpdate, CountsValue(counts->counts));
  }
}

std::vector<std::string> Peers::ResourcePaths() const {
  std::vector<std::string> paths = {
      std::string(kSessionPath),          std::string(kPracticeGamePath),
      std::string(kGateKeeperSwitchPath), std::string(kQueuesPath),
      std::string(kCurrentSummonerPath),  std::string(kDisabledQueuesPath),
      std::string(kCustomStatusPath)};
  for (const auto& [id, level] : state_.summoner_levels) {
    paths.push_back(std::string(kSummonerPrefix) + std::to_string(id));
  }
  for (const auto& [id, data] : state_.champions) {
    const std::string inventory = std::string(kInventoryPrefix) + std::to_string(id);
    paths.push_back(inventory + std::string(kChampionsSuffix));
    paths.push_back(inventory + std::string(kPlayableCountSuffix));
  }
  for (const auto& [id, leagues] : state_.leagues) {
    paths.push_back(std::string(kLeaguesPrefix) + std::to_string(id));
  }
  for (const auto& [id, disabled] : state_.shutdown_law.queue_status) {
    paths.push_back(std::string(kQueueStatusPrefix) + std::to_string(id));
  }
  for (const auto& [path, value] : overrides_) paths.push_back(path);
  std::sort(paths.begin(), paths.end());
  paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
  std::erase_if(paths, [&](const std::string& path) { return !ResourceValue(path).has_value(); });
  return paths;
}

}  // namespace kav::host
