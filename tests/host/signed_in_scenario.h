// A world where `self` is signed in at level 30 with champions enough for
// every queue, practice games and the gatekeeper switched on, and the
// gatekeeper answering during the post. Queues and restrictions are the
// test's own.
#pragma once

#include <cstdint>

#include "host/scenario.h"

namespace kav::host {

inline Scenario SignedInScenario(uint64_t self) {
  Scenario scenario;
  scenario.session = LoginSession{"SUCCEEDED", self, 5001};
  scenario.practice_game_enabled = PlatformSwitch::Of(true);
  scenario.gate_keeper_enabled = PlatformSwitch::Of(true);
  scenario.summoner_levels = {{self, 30}};
  ChampionData champions;
  champions.playable_counts = ChampionPlayableCounts{25, 2, 10, 1};
  scenario.champions[self] = champions;
  scenario.gatekeeper.delivery = ProxyDelivery::kDuringPost;
  return scenario;
}

}  // namespace kav::host
