#include "queue_eligibility/api_types.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "binding/conversion.h"
#include "binding/host_value.h"
#include "binding/type_registry.h"
#include "platform/allocation.h"

namespace kav::queue_eligibility {
namespace {

using namespace api;

const std::vector<std::string> kTags = {"Plugins", "kav-queue-eligibility"};

class ApiTypesTest : public ::testing::Test {
 protected:
  ApiTypesTest() { RegisterEligibilityApiTypes(registry_, "KavQueueEligibility", kTags, tables_); }

  TypeRegistry registry_;
  ServiceTypeTables tables_;
};

TEST_F(ApiTypesTest, RegistersEveryTypeInOrderWithTags) {
  const std::vector<std::string> expected = {
      "KavQueueEligibilityQueueAvailability",
      "KavQueueEligibilityQueue",
      "KavQueueEligibilityEligibilityRestrictionCode",
      "KavQueueEligibilityEligibilityRestriction",
      "KavQueueEligibilityEligibility",
      "KavQueueEligibilityEligibilityQueryParams",
      "KavQueueEligibilitySummonerSummoner",
      "KavQueueEligibilityCollectionsRental",
      "KavQueueEligibilityCollectionsOwnership",
      "KavQueueEligibilityCollectionsChampion",
      "KavQueueEligibilityCollectionsPlayableChampionCounts",
      "KavQueueEligibilityQueueShutdownStatus",
      "KavQueueEligibilityLoginSessionStates",
      "KavQueueEligibilityLoginSession",
      "KavQueueEligibilityChampionPlayableCountsForEligibility",
      "KavQueueEligibilityLeague",
      "QueueEligilibilityGatekeeperRestrictionDtoV3",
      "QueueEligilibilityGetQueueRestrictionsForQueuesRequestV2",
  };
  std::vector<std::string> names;
  for (const TypeDescription* type : registry_.Types()) {
    names.push_back(type->name);
    SCOPED_TRACE(type->name);
    EXPECT_EQ(type->tags, kTags);
    EXPECT_EQ(type->description, "");
    for (const FieldDescriptor& field : type->fields) {
      EXPECT_EQ(field.flags, 0u) << field.name;
      EXPECT_EQ(field.description, "") << field.name;
    }
  }
  EXPECT_EQ(names, expected);

  const TypeDescription* states = registry_.FindType(StaticType::Of<LoginSessionStates>());
  ASSERT_NE(states, nullptr);
  EXPECT_EQ(states->values.at("ERROR").value, 3);
  EXPECT_EQ(states->values.at("SUCCEEDED").value, 1);
  EXPECT_STREQ(registry_.EnumValueName(StaticType::Of<EligibilityRestrictionCode>(), 21),
               "UnknownRestriction");
  EXPECT_EQ(registry_.FindType(StaticType::Of<EligibilityRestrictionCode>())->values.size(), 22u);

  // The service lookup tables.
  const auto& request = tables_.byTypeName.at(std::string(kGetQueueRestrictionsRequestTypeName));
  EXPECT_EQ(request.className,
            "com.orvogames.platform.gatekeeper.frontend.GetQueueRestrictionsForQueuesRequestV2");
  EXPECT_EQ(request.identity, &StaticType::Of<mqds::GetQueueRestrictionsForQueuesRequestV2>());
  EXPECT_EQ(tables_.classNameById.at(StaticType::Id<mqds::GatekeeperRestrictionDtoV3>()),
            "com.orvogames.platform.gatekeeper.frontend.GatekeeperRestrictionDtoV3");
  EXPECT_EQ(tables_.byTypeName.size(), 2u);
  EXPECT_EQ(tables_.classNameById.size(), 2u);
}

// One record: its value with every field set to a non-default value, and the
// wire names it must carry.
struct RecordRow {
  const char* name;
  // Runs native -> value -> host value -> value -> native and compares.
  std::function<void(const TypeRegistry&, const TypeRegistry*)> round_trip;
  std::function<std::vector<std::string>(const TypeRegistry&)> member_names;
};

template <class T>
void RoundTrip(const T& original, const TypeRegistry& registry, const TypeRegistry* host_registry) {
  BindingResult value = ToBindingProperty(original, registry);
  ASSERT_TRUE(value.Ok()) << value.Error();

  const uint64_t in_use = ReadMemoryStatistics().BytesInUse();
  KavHostValue host;
  ASSERT_TRUE(ToHostValue(host, value, host_registry));
  T restored{};
  {
    BindingResult status;
    BindingProperty back;
    EXPECT_TRUE(FromHostValue(status, back, host, "<result>")) << status.Error();
    EXPECT_TRUE(FromBindingProperty(status, back, "<result>", restored, registry))
        << status.Error();
  }
  ReleaseHostValue(host);
  EXPECT_EQ(ReadMemoryStatistics().BytesInUse(), in_use) << "host value memory given back";
  EXPECT_TRUE(restored == original);
}

template <class T>
RecordRow Row(const char* name, T original) {
  return RecordRow{name,
                   [original](const TypeRegistry& registry, const TypeRegistry* host_registry) {
                     RoundTrip(original, registry, host_registry);
                   },
                   [original](const TypeRegistry& registry) {
                     std::vector<std::string> names;
                     BindingResult value = ToBindingProperty(original, registry);
                     for (auto [member, unused] : value.Members()) names.emplace_back(member);
                     return names;
                   }};
}

Queue FullQueue() {
  Queue queue;
  queue.id = 420;
  queue.type = "RANKED_SOLO_5x5";
  queue.num_players_per_team = 5;
  queue.maximum_participant_list_size = 2;
  queue.min_level = 30;
  queue.max_level = 4000000000u;
  queue.queue_availability = QueueAvailability::kDoesntMeetRequirements;
  queue.are_free_champions_allowed = true;
  queue.is_ranked = true;
  queue.champions_required_to_play = 20;
  queue.allowable_premade_sizes = {1, 2};
  queue.show_position_selector = true;
  return queue;
}

EligibilityRestriction FullRestriction() {
  EligibilityRestriction restriction;
  restriction.restriction_code = EligibilityRestrictionCode::kPlayerTimedRestriction;
  restriction.restriction_args = {{"minLevel", "30"}};
  restriction.expired_timestamp = 18446744073709551615u;
  restriction.summoner_ids = {1, 18446744073709551615u};
  return restriction;
}

TEST_F(ApiTypesTest, EveryRecordSurvivesTheHostBoundary) {
  Eligibility eligibility;
  eligibility.queue_id = -1;
  eligibility.eligible = true;
  eligibility.restrictions = {FullRestriction(), FullRestriction()};
  eligibility.restrictions[1].restriction_code = EligibilityRestrictionCode::kUnknownRestriction;

  CollectionsChampion champion;
  champion.disabled_queues = {"ARAM", ""};
  champion.free_to_play = true;
  champion.ownership = {true, true, {true}};
  champion.purchased = 1700000000000u;
  champion.ranked_play_enabled = true;

  const RecordRow rows[] = {
      Row("Queue", FullQueue()),
      Row("EligibilityRestriction", FullRestriction()),
      Row("Eligibility", eligibility),
      Row("EligibilityQueryParams", EligibilityQueryParams{{7, 8}, {400, -3}}),
      Row("SummonerSummoner", SummonerResource{9007199254740993u, 512}),
      Row("CollectionsRental", CollectionsRental{true}),
      Row("CollectionsOwnership", CollectionsOwnership{true, true, {true}}),
      Row("CollectionsChampion", champion),
      Row("CollectionsPlayableChampionCounts", CollectionsPlayableChampionCounts{170}),
      Row("QueueShutdownStatus", QueueShutdownStatus{true}),
      Row("LoginSession", LoginSession{LoginSessionStates::kLoggingOut, 11, 12}),
      Row("ChampionPlayableCountsForEligibility",
          ChampionPlayableCountsForEligibility{1, 2, 3, 4294967295u}),
      Row("League", League{"RANKED_FLEX_SR", "GOLD"}),
      Row("GetQueueRestrictionsForQueuesRequestV2",
          mqds::GetQueueRestrictionsForQueuesRequestV2{{420, 440}, {5}, {"QUEUE_DODGER"}}),
      Row("GatekeeperRestrictionDtoV3",
          mqds::GatekeeperRestrictionDtoV3{"name", "LEAVER_BUSTED", -9223372036854775807 - 1,
                                           "{\"x\":1}", 450, 77}),
      // A list of records, the answer of every eligibility resource.
      Row("list of Eligibility", std::vector<Eligibility>{eligibility, Eligibility{}}),
  };
  for (const RecordRow& row : rows) {
    SCOPED_TRACE(row.name);
    {
      SCOPED_TRACE("enumerators as names");
      row.round_trip(registry_, &registry_);
    }
    {
      SCOPED_TRACE("enumerators as numbers");
      row.round_trip(registry_, nullptr);
    }
  }
}

// The wire names, as the produced values carry them (in name order).
TEST_F(ApiTypesTest, WireNames) {
  using Names = std::vector<std::string>;
  const std::pair<RecordRow, Names> rows[] = {
      {Row("Queue", Queue{}),
       {"allowablePremadeSizes", "areFreeChampionsAllowed", "championsRequiredToPlay", "id",
        "isRanked", "maxLevel", "maximumParticipantListSize", "minLevel", "numPlayersPerTeam",
        "queueAvailability", "showPositionSelector", "type"}},
      {Row("EligibilityRestriction", EligibilityRestriction{}),
       {"expiredTimestamp", "restrictionArgs", "restrictionCode", "summonerIds"}},
      {Row("Eligibility", Eligibility{}), {"eligible", "queueId", "restrictions"}},
      {Row("EligibilityQueryParams", EligibilityQueryParams{}), {"queueIds", "summonerIds"}},
      {Row("SummonerSummoner", SummonerResource{}), {"summonerId", "summonerLevel"}},
      {Row("CollectionsRental", CollectionsRental{}), {"rented"}},
      {Row("CollectionsOwnership", CollectionsOwnership{}),
       {"freeToPlayReward", "owned", "rental"}},
      {Row("CollectionsChampion", CollectionsChampion{}),
       {"disabledQueues", "freeToPlay", "ownership", "purchased", "rankedPlayEnabled"}},
      {Row("CollectionsPlayableChampionCounts", CollectionsPlayableChampionCounts{}),
       {"championsOwned"}},
      {Row("QueueShutdownStatus", QueueShutdownStatus{}), {"isDisabled"}},
      {Row("LoginSession", LoginSession{}), {"accountId", "state", "summonerId"}},
      {Row("ChampionPlayableCountsForEligibility", ChampionPlayableCountsForEligibility{}),
       {"championsFreeToPlay", "championsFreeToPlayReward", "championsOwned", "championsRented"}},
      {Row("League", League{}), {"leagueTier", "queueType"}},
      {Row("GetQueueRestrictionsForQueuesRequestV2",
           mqds::GetQueueRestrictionsForQueuesRequestV2{}),
       {"queueIds", "queueRestrictionsToExclude", "summonerIds"}},
      {Row("GatekeeperRestrictionDtoV3", mqds::GatekeeperRestrictionDtoV3{}),
       {"payload", "queueId", "reason", "remainingMillis", "summonerId", "summonerName"}},
  };
  for (const auto& [row, names] : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.member_names(registry_), names);
  }
}

}  // namespace
}  // namespace kav::queue_eligibility
