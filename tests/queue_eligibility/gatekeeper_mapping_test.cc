// The translation of one gatekeeper answer entry into a restriction, with a
// fixed clock: every reason word, an unknown one, the arguments taken from
// the queue, the expiry, and the codes that never reach an eligibility list.
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "diagnostics/log_target.h"
#include "diagnostics/logging.h"
#include "queue_eligibility/gatekeeper.h"

namespace kav::queue_eligibility {
namespace {

using api::EligibilityRestrictionCode;
using Code = EligibilityRestrictionCode;

// Keeps the text of every line it is given.
class WarningLines final : public LogTarget {
 public:
  WarningLines() {
    ConnectOutput();
    Configure({.level = kLogWarn, .included = 0, .excluded = 0, .format = "#M"});
  }
  ~WarningLines() override { Detach(); }
  const char* GetName() const override { return "WarningLines"; }
  bool Output(const LogRecord& record) override {
    char line[kLogBufferSize];
    std::string text(line, FormatLine(line, sizeof(line), record));
    while (!text.empty() && text.back() == '\n') text.pop_back();
    std::lock_guard<std::recursive_mutex> lock(target_lock());
    lines_.push_back(std::move(text));
    return true;
  }
  std::vector<std::string> Take() {
    std::lock_guard<std::recursive_mutex> lock(target_lock());
    return std::exchange(lines_, {});
  }

 private:
  std::vector<std::string> lines_;
};

std::string ArgsText(const api::EligibilityRestriction& restriction) {
  std::string text;
  for (const auto& [key, value] : restriction.restriction_args) {
    text += (text.empty() ? "" : ",") + key + "=" + value;
  }
  return text;
}

class GatekeeperMappingTest : public ::testing::Test {
 protected:
  void SetUp() override { AcquireLogger(); }
  void TearDown() override { ReleaseLogger(); }
};

TEST_F(GatekeeperMappingTest, EveryReasonWordMapsToItsCodeAndArguments) {
  api::Queue queue;
  queue.id = 420;
  queue.champions_required_to_play = 20;
  queue.maximum_participant_list_size = 2;
  queue.min_level = 30;
  queue.max_level = 500;
  const std::vector<api::Queue> queues = {queue};
  constexpr int64_t kNow = 5'000'000'123'456'789;  // ns; 5,000,000,123 ms and a fraction

  struct Row {
    const char* reason;
    Code code;
    const char* args;
    bool reaches_list;
  };
  const Row rows[] = {
      {"QUEUE_STATE_NOT_ON", Code::kQueueDisabled, "", true},
      {"PLAYER_BANNED", Code::kPlayerBannedRestriction, "", true},
      {"MIN_CHAMPIONS_RESTRICTED", Code::kPlayerAvailableChampionRestriction,
       "playerAvailableChampionRestriction=20", true},
      {"MIN_CHAMPIONS_RESTRICTED_NO_FREE", Code::kPlayerAvailableChampionRestriction,
       "playerAvailableChampionRestriction=20", true},
      {"TIER_DELTA_RESTRICTED", Code::kTeamDivisionRestriction, "", true},
      {"MAX_PREMADE_SIZE_VIOLATED", Code::kTeamMaxSizeRestriction, "teamMaxSizeRestriction=2",
       true},
      {"BINGE_PREVENTION", Code::kPlayerBingeRestriction, "", true},
      {"QUEUE_DODGER", Code::kPlayerDodgeRestriction, "", false},
      {"ALREADY_IN_GAME", Code::kPlayerInGameRestriction, "", false},
      {"LEAVER_BUSTED", Code::kPlayerLeaverBustedRestriction, "", false},
      {"LEAVER_BUSTER_TAINTED_WARNING", Code::kPlayerLeaverTaintedWarningRestriction, "", false},
      {"MAX_LEVEL_RESTRICTED", Code::kPlayerMaxLevelRestriction, "playerMaxLevelRestriction=500",
       true},
      {"MIN_LEVEL_RESTRICTED", Code::kPlayerMinLevelRestriction, "playerMinLevelRestriction=30",
       true},
      {"MINOR_RESTRICTED", Code::kPlayerMinorRestriction, "", true},
      {"RANKED_RESTRICTED", Code::kPlayerRankedSuspensionRestriction, "", true},
      {"HIGH_MMR_PREMADE_SIZE_RESTRICTED", Code::kTeamHighMMRMaxSizeRestriction, "", true},
      {"PREREQUISITE_QUEUES_NOT_PLAYED", Code::kPrerequisiteQueuesNotPlayedRestriction, "", true},
      // Matching is exact: anything else is unknown.
      {"player_banned", Code::kUnknownRestriction, "", true},
      {"PLAYER_BANNED ", Code::kUnknownRestriction, "", true},
      {"", Code::kUnknownRestriction, "", true},
  };
  EXPECT_EQ(kGatekeeperReasonCodes.size(), 17u);
  WarningLines warnings;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.reason);
    mqds::GatekeeperRestrictionDtoV3 entry;
    entry.reason = row.reason;
    entry.queue_id = 420;
    entry.summoner_id = 1002;
    entry.remaining_millis = 60'000;
    entry.summoner_name = "not used";
    entry.payload = "{\"not\":\"used\"}";
    const api::EligibilityRestriction restriction = MapGatekeeperRestriction(entry, queues, kNow);
    EXPECT_EQ(restriction.restriction_code, row.code);
    EXPECT_EQ(ArgsText(restriction), row.args);
    EXPECT_EQ(restriction.expired_timestamp, 5'000'000'123u + 60'000u);
    EXPECT_EQ(restriction.summoner_ids, std::vector<uint64_t>{1002});
    EXPECT_EQ(IsDroppedGatekeeperCode(restriction.restriction_code), !row.reaches_list);
    const bool known = row.code != Code::kUnknownRestriction;
    EXPECT_EQ(warnings.Take(), known
                                   ? std::vector<std::string>{}
                                   : std::vector<std::string>{"Unable to map gatekeeper reason: " +
                                                              std::string(row.reason)});
  }
}

TEST_F(GatekeeperMappingTest, ExpiryAndQueueArgumentsFollowTheEntry) {
  api::Queue queue;
  queue.id = 420;
  queue.min_level = 30;
  const std::vector<api::Queue> queues = {queue};
  struct Row {
    const char* name;
    int32_t queue_id;
    int64_t remaining_millis;
    int64_t now_ns;
    uint64_t expiry;
    const char* args;
    const char* warning;  // "" when none
  };
  const Row rows[] = {
      {"no time left", 420, 0, 7'999'999, 0, "playerMinLevelRestriction=30", ""},
      {"negative time", 420, -1, 7'999'999, 0, "playerMinLevelRestriction=30", ""},
      {"the clock's milliseconds, rounded down, plus the remainder", 420, 1, 7'999'999, 8,
       "playerMinLevelRestriction=30", ""},
      {"a clock at zero", 420, 250, 0, 250, "playerMinLevelRestriction=30", ""},
      {"a queue missing from the list", 9999, 0, 0, 0, "",
       "Unable to provide eligibility restriction arguments because queue details were not "
       "available: 9999"},
      {"a negative queue id is written unsigned", -1, 0, 0, 0, "",
       "Unable to provide eligibility restriction arguments because queue details were not "
       "available: 4294967295"},
  };
  WarningLines warnings;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    mqds::GatekeeperRestrictionDtoV3 entry;
    entry.reason = "MIN_LEVEL_RESTRICTED";
    entry.queue_id = row.queue_id;
    entry.summoner_id = 7;
    entry.remaining_millis = row.remaining_millis;
    const api::EligibilityRestriction restriction =
        MapGatekeeperRestriction(entry, queues, row.now_ns);
    EXPECT_EQ(restriction.expired_timestamp, row.expiry);
    EXPECT_EQ(ArgsText(restriction), row.args);
    EXPECT_EQ(warnings.Take(), *row.warning == '\0' ? std::vector<std::string>{}
                                                    : std::vector<std::string>{row.warning});
  }
}

}  // namespace
}  // namespace kav::queue_eligibility
