#include "host/scenario.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <utility>

#include "host/scenario_document.h"

namespace kav::host {
namespace {

using Kind = DocumentNode::Kind;

constexpr uint32_t kMaxRepeat = 10000;

// Reads a scenario document into the model. The first refusal is kept;
// every Read* returns false once it is set.
class ScenarioReader {
 public:
  explicit ScenarioReader(std::string_view source) : source_(source) {}

  const std::string& error() const { return error_; }

  bool ReadScenario(const DocumentNode& root, Scenario& scenario) {
    if (root.kind == Kind::kNull) return true;  // an empty file: nothing is served
    const DocumentNode* defaults = root.Find("queueDefaults");
    Queue queue_defaults;
    if (defaults != nullptr && !ReadQueue(*defaults, "queueDefaults", queue_defaults)) {
      return false;
    }
    queue_defaults_ = queue_defaults;
    return ReadMapping(
        root, "",
        {
            {"name", [&](auto& node, auto& path) { return ReadString(node, path, scenario.name); }},
            {"session",
             [&](auto& node, auto& path) {
               return ReadSession(node, path, scenario.session.emplace());
             }},
            {"platform",
             [&](auto& node, auto& path) { return ReadPlatform(node, path, scenario); }},
            {"queueDefaults", [](auto&, auto&) { return true; }},
            {"queues",
             [&](auto& node, auto& path) {
               return ReadQueues(node, path, scenario.queues.emplace());
             }},
            {"currentSummoner",
             [&](auto& node, auto& path) {
               return ReadInteger(node, path, scenario.current_summoner.emplace());
             }},
            {"summoners",
             [&](auto& node, auto& path) {
               return ReadKeyedBy(node, path, scenario.summoner_levels,
                                  [&](auto& level, auto& level_path, uint32_t& out) {
                                    return ReadInteger(level, level_path, out);
                                  });
             }},
            {"champions",
             [&](auto& node, auto& path) {
               return ReadKeyedBy(node, path, scenario.champions,
                                  [&](auto& data, auto& data_path, ChampionData& out) {
                                    return ReadChampionData(data, data_path, out);
                                  });
             }},
            {"leagues",
             [&](auto& node, auto& path) {
               return ReadKeyedBy(node, path, scenario.leagues,
                                  [&](auto& list, auto& list_path, std::vector<League>& out) {
                                    return ReadList(
                                        list, list_path, out,
                                        [&](auto& item, auto& item_path, League& league) {
                                          return ReadLeague(item, item_path, league);
                                        });
                                  });
             }},
            {"shutdownLaw",
             [&](auto& node, auto& path) {
               return ReadShutdownLaw(node, path, scenario.shutdown_law);
             }},
            {"gatekeeper",
             [&](auto& node, auto& path) {
               return ReadGatekeeper(node, path, scenario.gatekeeper);
             }},
            {"faults",
             [&](auto& node, auto& path) {
               return ReadList(node, path, scenario.faults,
                               [&](auto& item, auto& item_path, Fault& fault) {
                                 return ReadFault(item, item_path, fault);
                               });
             }},
            {"steps",
             [&](auto& node, auto& path) {
               return ReadList(node, path, scenario.steps,
                               [&](auto& item, auto& item_path, ScenarioStep& step) {
                                 return ReadStep(item, item_path, step);
                               });
             }},
        });
  }

 private:
  using MemberReader = std::function<bool(const DocumentNode&, const std::string&)>;
  struct Member {
    std::string_view key;
    MemberReader read;
  };

  static std::string Join(const std::string& path, std::string_view key) {
    return path.empty() ? std::string(key) : path + "." + std::string(key);
  }

  bool Fail(TextPosition position, const std::string& path, const std::string& message) {
    if (error_.empty()) {
      error_ = std::string(source_) + ":" + std::to_string(position.line) + ":" +
               std::to_string(position.column) + ": " + (path.empty() ? "" : path + ": ") + message;
    }
    return false;
  }

  bool Expected(const DocumentNode& node, const std::string& path, std::string_view what) {
    std::string found = node.KindDescription();
    if (node.IsScalar() && node.kind != Kind::kNull) found += " '" + node.text + "'";
    return Fail(node.position, path, "expected " + std::string(what) + ", found " + found);
  }

  // Reads each member of a mapping with the reader of its key; refuses keys
  // without a reader.
  bool ReadMapping(const DocumentNode& node, const std::string& path,
                   const std::vector<Member>& readers) {
    if (node.kind != Kind::kMapping) return Expected(node, path, "a mapping");
    for (const DocumentMember& member : node.members) {
      auto reader = std::find_if(readers.begin(), readers.end(),
                                 [&](const Member& known) { return known.key == member.key; });
      if (reader == readers.end()) {
        std::string known;
        for (const Member& each : readers)
          known += (known.empty() ? "" : ", ") + std::string(each.key);
        return Fail(member.key_position, path,
                    "unknown key '" + member.key + "' (known keys: " + known + ")");
      }
      if (!reader->read(member.value, Join(path, member.key))) return false;
    }
    return true;
  }

  template <class T, class ReadOne>
  bool ReadList(const DocumentNode& node, const std::string& path, std::vector<T>& out,
                ReadOne read_one) {
    if (node.kind != Kind::kSequence) return Expected(node, path, "a list");
    out.clear();
    for (size_t i = 0; i < node.elements.size(); ++i) {
      T item{};
      const std::string item_path = path + "[" + std::to_string(i) + "]";
      if (!read_one(node.elements[i], item_path, item)) return false;
      out.push_back(std::move(item));
    }
    return true;
  }

  // A mapping from decimal ids (keys) to values.
  template <class Id, class T, class ReadOne>
  bool ReadKeyedBy(const DocumentNode& node, const std::string& path, std::map<Id, T>& out,
                   ReadOne read_one) {
    if (node.kind != Kind::kMapping) return Expected(node, path, "a mapping");
    for (const DocumentMember& member : node.members) {
      Id id{};
      const char* end = member.key.data() + member.key.size();
      auto [stop, failure] = std::from_chars(member.key.data(), end, id);
      if (failure != std::errc() || stop != end) {
        return Fail(member.key_position, path,
                    "key '" + member.key + "' is not an id (a decimal number)");
      }
      T value{};
      const std::string value_path = Join(path, member.key);
      if (!read_one(member.value, value_path, value)) return false;
      out[id] = std::move(value);
    }
    return true;
  }

  bool ReadBool(const DocumentNode& node, const std::string& path, bool& out) {
    if (node.kind != Kind::kBool) return Expected(node, path, "true or false");
    out = node.boolean;
    return true;
  }

  bool ReadString(const DocumentNode& node, const std::string& path, std::string& out) {
    if (node.kind != Kind::kString) return Expected(node, path, "a string");
    out = node.text;
    return true;
  }

  bool ReadChoice(const DocumentNode& node, const std::string& path,
                  std::initializer_list<std::string_view> choices, std::string& out) {
    std::string list;
    for (std::string_view choice : choices) {
      if (node.kind == Kind::kString && node.text == choice) {
        out = node.text;
        return true;
      }
      list += (list.empty() ? "" : ", ") + std::string(choice);
    }
    return Expected(node, path, "one of " + list);
  }

  template <class Int>
  bool ReadInteger(const DocumentNode& node, const std::string& path, Int& out) {
    using Limits = std::numeric_limits<Int>;
    const std::string range =
        "an integer from " + std::to_string(Limits::min()) + " to " + std::to_string(Limits::max());
    if (node.kind != Kind::kInteger) return Expected(node, path, range);
    if (node.negative) {
      if constexpr (Limits::is_signed) {
        if (node.signed_value >= static_cast<int64_t>(Limits::min())) {
          out = static_cast<Int>(node.signed_value);
          return true;
        }
      }
    } else if (node.unsigned_value <= static_cast<uint64_t>(Limits::max())) {
      out = static_cast<Int>(node.unsigned_value);
      return true;
    }
    return Expected(node, path, range);
  }

  template <class Int>
  bool ReadIntegers(const DocumentNode& node, const std::string& path, std::vector<Int>& out) {
    return ReadList(node, path, out, [&](auto& item, auto& item_path, Int& value) {
      return ReadInteger(item, item_path, value);
    });
  }

  bool ReadStrings(const DocumentNode& node, const std::string& path,
                   std::vector<std::string>& out) {
    return ReadList(node, path, out, [&](auto& item, auto& item_path, std::string& value) {
      return ReadString(item, item_path, value);
    });
  }

  bool ReadSwitch(const DocumentNode& node, const std::string& path, PlatformSwitch& out) {
    out.present = true;
    out.value.reset();
    if (node.kind == Kind::kNull) return true;
    return ReadBool(node, path, out.value.emplace());
  }

  bool ReadSession(const DocumentNode& node, const std::string& path, LoginSession& session) {
    return ReadMapping(node, path,
                       {
                           {"state",
                            [&](auto& value, auto& value_path) {
                              return ReadChoice(
                                  value, value_path,
                                  {"IN_PROGRESS", "SUCCEEDED", "LOGGING_OUT", "ERROR"},
                                  session.state);
                            }},
                           {"summonerId",
                            [&](auto& value, auto& value_path) {
                              return ReadInteger(value, value_path, session.summoner_id);
                            }},
                           {"accountId",
                            [&](auto& value, auto& value_path) {
                              return ReadInteger(value, value_path, session.account_id);
                            }},
                       });
  }

  bool ReadPlatform(const DocumentNode& node, const std::string& path, Scenario& scenario) {
    return ReadMapping(node, path,
                       {
                           {"practiceGameEnabled",
                            [&](auto& value, auto& value_path) {
                              return ReadSwitch(value, value_path, scenario.practice_game_enabled);
                            }},
                           {"QueueEligibilityGateKeeperEnabled",
                            [&](auto& value, auto& value_path) {
                              return ReadSwitch(value, value_path, scenario.gate_keeper_enabled);
                            }},
                       });
  }

  bool ReadQueues(const DocumentNode& node, const std::string& path, std::vector<Queue>& out) {
    return ReadList(node, path, out, [&](auto& item, auto& item_path, Queue& queue) {
      queue = queue_defaults_;
      return ReadQueue(item, item_path, queue);
    });
  }

  bool ReadQueue(const DocumentNode& node, const std::string& path, Queue& queue) {
    auto integer = [&](auto& field) {
      return [&](const DocumentNode& value, const std::string& value_path) {
        return ReadInteger(value, value_path, field);
      };
    };
    auto boolean = [&](bool& field) {
      return [&](const DocumentNode& value, const std::string& value_path) {
        return ReadBool(value, value_path, field);
      };
    };
    return ReadMapping(
        node, path,
        {
            {"id", integer(queue.id)},
            {"type", [&](auto& value,
                         auto& value_path) { return ReadString(value, value_path, queue.type); }},
            {"numPlayersPerTeam", integer(queue.num_players_per_team)},
            {"maximumParticipantListSize", integer(queue.maximum_participant_list_size)},
            {"minLevel", integer(queue.min_level)},
            {"maxLevel", integer(queue.max_level)},
            {"queueAvailability",
             [&](auto& value, auto& value_path) {
               return ReadChoice(value, value_path,
                                 {"Available", "PlatformDisabled", "DoesntMeetRequirements"},
                                 queue.queue_availability);
             }},
            {"areFreeChampionsAllowed", boolean(queue.are_free_champions_allowed)},
            {"isRanked", boolean(queue.is_ranked)},
            {"championsRequiredToPlay", integer(queue.champions_required_to_play)},
            {"allowablePremadeSizes",
             [&](auto& value, auto& value_path) {
               return ReadIntegers(value, value_path, queue.allowable_premade_sizes);
             }},
            {"showPositionSelector", boolean(queue.show_position_selector)},
        });
  }

  bool ReadChampionData(const DocumentNode& node, const std::string& path, ChampionData& data) {
    return ReadMapping(
        node, path,
        {
            {"inventory",
             [&](auto& value, auto& value_path) { return ReadInventory(value, value_path, data); }},
            {"playableCounts",
             [&](auto& value, auto& value_path) {
               return ReadCounts(value, value_path, data.playable_counts.emplace());
             }},
        });
  }

  // Champions, each repeated as often as its "repeat" says.
  bool ReadInventory(const DocumentNode& node, const std::string& path, ChampionData& data) {
    if (node.kind != Kind::kSequence) return Expected(node, path, "a list");
    std::vector<CollectionsChampion>& inventory = data.inventory.emplace();
    for (size_t i = 0; i < node.elements.size(); ++i) {
      const std::string item_path = path + "[" + std::to_string(i) + "]";
      CollectionsChampion champion;
      uint32_t repeat = 1;
      if (!ReadChampion(node.elements[i], item_path, champion, repeat)) return false;
      if (repeat == 0 || repeat > kMaxRepeat) {
        return Fail(node.elements[i].position, item_path + ".repeat",
                    "expected 1 to " + std::to_string(kMaxRepeat));
      }
      inventory.insert(inventory.end(), repeat, champion);
    }
    return true;
  }

  bool ReadChampion(const DocumentNode& node, const std::string& path,
                    CollectionsChampion& champion, uint32_t& repeat) {
    auto boolean = [&](bool& field) {
      return [&](const DocumentNode& value, const std::string& value_path) {
        return ReadBool(value, value_path, field);
      };
    };
    return ReadMapping(
        node, path,
        {
            {"disabledQueues",
             [&](auto& value, auto& value_path) {
               return ReadStrings(value, value_path, champion.disabled_queues);
             }},
            {"freeToPlay", boolean(champion.free_to_play)},
            {"ownership",
             [&](auto& value, auto& value_path) {
               return ReadMapping(value, value_path,
                                  {
                                      {"freeToPlayReward", boolean(champion.free_to_play_reward)},
                                      {"owned", boolean(champion.owned)},
                                      {"rental",
                                       [&](auto& rental, auto& rental_path) {
                                         return ReadMapping(rental, rental_path,
                                                            {{"rented", boolean(champion.rented)}});
                                       }},
                                  });
             }},
            {"purchased",
             [&](auto& value, auto& value_path) {
               return ReadInteger(value, value_path, champion.purchased);
             }},
            {"rankedPlayEnabled", boolean(champion.ranked_play_enabled)},
            {"repeat",
             [&](auto& value, auto& value_path) { return ReadInteger(value, value_path, repeat); }},
        });
  }

  bool ReadCounts(const DocumentNode& node, const std::string& path,
                  ChampionPlayableCounts& counts) {
    auto integer = [&](uint32_t& field) {
      return [&](const DocumentNode& value, const std::string& value_path) {
        return ReadInteger(value, value_path, field);
      };
    };
    return ReadMapping(
        node, path,
        {
            {"championsOwned", integer(counts.champions_owned)},
            {"championsRented", integer(counts.champions_rented)},
            {"championsFreeToPlay", integer(counts.champions_free_to_play)},
            {"championsFreeToPlayReward", integer(counts.champions_free_to_play_reward)},
        });
  }

  bool ReadLeague(const DocumentNode& node, const std::string& path, League& league) {
    return ReadMapping(node, path,
                       {
                           {"queueType",
                            [&](auto& value, auto& value_path) {
                              return ReadString(value, value_path, league.queue_type);
                            }},
                           {"leagueTier",
                            [&](auto& value, auto& value_path) {
                              return ReadString(value, value_path, league.league_tier);
                            }},
                       });
  }

  bool ReadShutdownLaw(const DocumentNode& node, const std::string& path, ShutdownLaw& law) {
    return ReadMapping(node, path,
                       {
                           {"disabledQueues",
                            [&](auto& value, auto& value_path) {
                              return ReadIntegers(value, value_path, law.disabled_queues);
                            }},
                           {"queueStatus",
                            [&](auto& value, auto& value_path) {
                              return ReadKeyedBy(value, value_path, law.queue_status,
                                                 [&](auto& status, auto& status_path, bool& out) {
                                                   return ReadBool(status, status_path, out);
                                                 });
                            }},
                           {"customStatus",
                            [&](auto& value, auto& value_path) {
                              return ReadBool(value, value_path, law.custom_disabled);
                            }},
                       });
  }

  bool ReadGatekeeper(const DocumentNode& node, const std::string& path, Gatekeeper& gatekeeper) {
    std::string delivery = "nextYield";
    const DocumentNode* delivery_node = nullptr;
    const DocumentNode* yields_node = nullptr;
    const bool read = ReadMapping(
        node, path,
        {
            {"restrictions",
             [&](auto& value, auto& value_path) {
               return ReadList(value, value_path, gatekeeper.restrictions,
                               [&](auto& item, auto& item_path, GatekeeperRestriction& out) {
                                 return ReadRestriction(item, item_path, out);
                               });
             }},
            {"answers",
             [&](auto& value, auto& value_path) {
               return ReadList(value, value_path, gatekeeper.answers,
                               [&](auto& item, auto& item_path, GatekeeperAnswer& out) {
                                 return ReadGatekeeperAnswer(item, item_path, out);
                               }) &&
                      CheckAnswersDiffer(value, value_path, gatekeeper.answers);
             }},
            {"delivery",
             [&](auto& value, auto& value_path) {
               delivery_node = &value;
               return ReadChoice(value, value_path, {"duringPost", "nextYield", "afterYields"},
                                 delivery);
             }},
            {"yields",
             [&](auto& value, auto& value_path) {
               yields_node = &value;
               return ReadInteger(value, value_path, gatekeeper.yields);
             }},
            {"error",
             [&](auto& value, auto& value_path) {
               return ReadString(value, value_path, gatekeeper.error);
             }},
            {"errorTimes",
             [&](auto& value, auto& value_path) {
               return ReadInteger(value, value_path, gatekeeper.error_times.emplace());
             }},
        });
    if (!read) return false;
    gatekeeper.delivery =
        delivery == "duringPost" ? ProxyDelivery::kDuringPost : ProxyDelivery::kAfterYields;
    if (yields_node != nullptr && delivery != "afterYields") {
      return Fail(yields_node->position, Join(path, "yields"),
                  "applies only to delivery: afterYields");
    }
    if (delivery == "afterYields" && gatekeeper.yields == 0) {
      return Fail(yields_node != nullptr ? yields_node->position : delivery_node->position,
                  Join(path, "yields"), "expected at least 1");
    }
    if (delivery != "afterYields") gatekeeper.yields = 1;
    return true;
  }

  bool ReadGatekeeperAnswer(const DocumentNode& node, const std::string& path,
                            GatekeeperAnswer& answer) {
    const DocumentNode* query_node = nullptr;
    bool has_restrictions = false;
    const bool read = ReadMapping(
        node, path,
        {
            {"query",
             [&](auto& value, auto& value_path) {
               query_node = &value;
               if (!ReadInteger(value, value_path, answer.query)) return false;
               return answer.query > 0 || Fail(value.position, value_path, "expected at least 1");
             }},
            {"restrictions",
             [&](auto& value, auto& value_path) {
               has_restrictions = true;
               return ReadList(value, value_path, answer.restrictions,
                               [&](auto& item, auto& item_path, GatekeeperRestriction& out) {
                                 if (!ReadRestriction(item, item_path, out)) return false;
                                 return out.with_members.empty() ||
                                        Fail(item.position, item_path,
                                             "withMembers applies only to "
                                             "gatekeeper.restrictions: an answer is reported "
                                             "as given");
                               });
             }},
            {"error",
             [&](auto& value, auto& value_path) {
               return ReadString(value, value_path, answer.error.emplace());
             }},
        });
    if (!read) return false;
    if (query_node == nullptr) return Fail(node.position, path, "an answer needs a query");
    if (has_restrictions == answer.error.has_value()) {
      return Fail(node.position, path, "an answer needs exactly one of restrictions, error");
    }
    return true;
  }

  bool CheckAnswersDiffer(const DocumentNode& node, const std::string& path,
                          const std::vector<GatekeeperAnswer>& answers) {
    for (size_t i = 0; i < answers.size(); ++i) {
      for (size_t j = 0; j < i; ++j) {
        if (answers[i].query != answers[j].query) continue;
        return Fail(node.elements[i].position, path + "[" + std::to_string(i) + "]",
                    "query " + std::to_string(answers[i].query) + " is answered twice");
      }
    }
    return true;
  }

  bool ReadRestriction(const DocumentNode& node, const std::string& path,
                       GatekeeperRestriction& restriction) {
    auto text = [&](std::string& field) {
      return [&](const DocumentNode& value, const std::string& value_path) {
        return ReadString(value, value_path, field);
      };
    };
    auto integer = [&](auto& field) {
      return [&](const DocumentNode& value, const std::string& value_path) {
        return ReadInteger(value, value_path, field);
      };
    };
    return ReadMapping(node, path,
                       {
                           {"summonerName", text(restriction.summoner_name)},
                           {"reason", text(restriction.reason)},
                           {"remainingMillis", integer(restriction.remaining_millis)},
                           {"payload", text(restriction.payload)},
                           {"queueId", integer(restriction.queue_id)},
                           {"summonerId", integer(restriction.summoner_id)},
                           {"withMembers",
                            [&](auto& value, auto& value_path) {
                              return ReadIntegers(value, value_path, restriction.with_members);
                            }},
                       });
  }

  bool ReadMethod(const DocumentNode& node, const std::string& path, uint32_t& method) {
    static constexpr std::string_view kNames[] = {"DELETE", "GET",  "HEAD", "OPTIONS",
                                                  "PATCH",  "POST", "PUT"};
    std::string name;
    if (!ReadChoice(node, path, {"DELETE", "GET", "HEAD", "OPTIONS", "PATCH", "POST", "PUT"},
                    name)) {
      return false;
    }
    method = static_cast<uint32_t>(std::find(std::begin(kNames), std::end(kNames), name) -
                                   std::begin(kNames)) +
             1;
    return true;
  }

  bool ReadFault(const DocumentNode& node, const std::string& path, Fault& fault) {
    int answers = 0;
    const bool read = ReadMapping(
        node, path,
        {
            {"path", [&](auto& value,
                         auto& value_path) { return ReadString(value, value_path, fault.path); }},
            {"method",
             [&](auto& value, auto& value_path) {
               return ReadMethod(value, value_path, fault.method);
             }},
            {"times",
             [&](auto& value, auto& value_path) {
               return ReadInteger(value, value_path, fault.times.emplace());
             }},
            {"error",
             [&](auto& value, auto& value_path) {
               ++answers;
               return ReadString(value, value_path, fault.error.emplace());
             }},
            {"status",
             [&](auto& value, auto& value_path) {
               return ReadInteger(value, value_path, fault.status);
             }},
            {"body",
             [&](auto& value, auto&) {
               ++answers;
               fault.body = value.ToValue();
               return true;
             }},
            {"streamChunks",
             [&](auto& value, auto& value_path) {
               ++answers;
               if (!ReadInteger(value, value_path, fault.stream_chunks)) return false;
               return fault.stream_chunks > 0 ||
                      Fail(value.position, value_path, "expected at least 1");
             }},
        });
    if (!read) return false;
    if (fault.path.empty()) return Fail(node.position, path, "a fault needs a path");
    if (answers != 1) {
      return Fail(node.position, path, "a fault needs exactly one of error, body, streamChunks");
    }
    return true;
  }

  // A step of "steps"; without `with_before_call`, a change alone (no
  // "beforeCall" allowed).
  bool ReadStep(const DocumentNode& node, const std::string& path, ScenarioStep& step,
                bool with_before_call = true) {
    int actions = 0;
    bool has_before_call = false;
    auto action = [&](auto read) {
      return [&, read](const DocumentNode& value, const std::string& value_path) {
        ++actions;
        return read(value, value_path);
      };
    };
    const bool read = ReadMapping(
        node, path,
        {
            {"beforeCall",
             [&](auto& value, auto& value_path) {
               has_before_call = true;
               if (!ReadInteger(value, value_path, step.before_call)) return false;
               return step.before_call > 0 ||
                      Fail(value.position, value_path, "calls are counted from 1");
             }},
            {"setQueues", action([&](auto& value, auto& value_path) {
               SetQueues set;
               if (!ReadQueues(value, value_path, set.queues)) return false;
               step.action = std::move(set);
               return true;
             })},
            {"deleteSession", action([&](auto& value, auto& value_path) {
               bool yes = false;
               if (!ReadBool(value, value_path, yes)) return false;
               step.action = DeleteSession{};
               return yes || Fail(value.position, value_path, "only true is meaningful");
             })},
            {"setSession", action([&](auto& value, auto& value_path) {
               SetSession set;
               if (!ReadSession(value, value_path, set.session)) return false;
               step.action = std::move(set);
               return true;
             })},
            {"setPracticeGameEnabled", action([&](auto& value, auto& value_path) {
               SetPracticeGameEnabled set;
               if (!ReadSwitch(value, value_path, set.value)) return false;
               step.action = set;
               return true;
             })},
            {"setGateKeeperEnabled", action([&](auto& value, auto& value_path) {
               SetGateKeeperEnabled set;
               if (!ReadSwitch(value, value_path, set.value)) return false;
               step.action = set;
               return true;
             })},
            {"setSummonerLevel", action([&](auto& value, auto& value_path) {
               SetSummonerLevel set;
               if (!ReadInteger(value, value_path, set.level)) return false;
               step.action = set;
               return true;
             })},
            {"setChampionCounts", action([&](auto& value, auto& value_path) {
               SetChampionCounts set;
               if (!ReadCounts(value, value_path, set.counts)) return false;
               step.action = set;
               return true;
             })},
            {"setResource", action([&](auto& value, auto& value_path) {
               SetPeerResource set;
               if (!ReadPeerResource(value, value_path, set)) return false;
               step.action = std::move(set);
               return true;
             })},
            {"deleteResource", action([&](auto& value, auto& value_path) {
               DeletePeerResource remove;
               if (!ReadResourcePath(value, value_path, remove.path)) return false;
               step.action = std::move(remove);
               return true;
             })},
            {"setGatekeeper", action([&](auto& value, auto& value_path) {
               SetGatekeeper set;
               if (!ReadGatekeeper(value, value_path, set.gatekeeper)) return false;
               step.action = std::move(set);
               return true;
             })},
            {"addFault", action([&](auto& value, auto& value_path) {
               AddFault add;
               if (!ReadFault(value, value_path, add.fault)) return false;
               step.action = std::move(add);
               return true;
             })},
            {"clearFaults", action([&](auto& value, auto& value_path) {
               bool yes = false;
               if (!ReadBool(value, value_path, yes)) return false;
               step.action = ClearFaults{};
               return yes || Fail(value.position, value_path, "only true is meaningful");
             })},
        });
    if (!read) return false;
    if (with_before_call && !has_before_call) {
      return Fail(node.position, path, "a step needs beforeCall");
    }
    if (!with_before_call && has_before_call) {
      return Fail(node.position, path, "a change applied now has no beforeCall");
    }
    if (actions != 1) {
      return Fail(
          node.position, path,
          with_before_call ? "a step needs exactly one change" : "expected exactly one change");
    }
    return true;
  }

  bool ReadResourcePath(const DocumentNode& node, const std::string& path, std::string& out) {
    if (!ReadString(node, path, out)) return false;
    if (out.empty() || out[0] != '/' || out.find_first_of("?# ") != std::string::npos) {
      return Fail(node.position, path, "expected a resource path starting with '/', without query");
    }
    return true;
  }

  bool ReadPeerResource(const DocumentNode& node, const std::string& path, SetPeerResource& set) {
    bool has_value = false;
    const bool read = ReadMapping(node, path,
                                  {
                                      {"path",
                                       [&](auto& value, auto& value_path) {
                                         return ReadResourcePath(value, value_path, set.path);
                                       }},
                                      {"value",
                                       [&](auto& value, auto&) {
                                         has_value = true;
                                         set.value = value.ToValue();
                                         return true;
                                       }},
                                  });
    if (!read) return false;
    if (set.path.empty()) return Fail(node.position, path, "setResource needs a path");
    if (!has_value) return Fail(node.position, path, "setResource needs a value");
    return true;
  }

 public:
  // One change applied now (a step without "beforeCall").
  bool ReadChange(const DocumentNode& node, ScenarioAction& action) {
    ScenarioStep step;
    if (!ReadStep(node, "", step, /*with_before_call=*/false)) return false;
    action = std::move(step.action);
    return true;
  }

 private:
  std::string_view source_;
  std::string error_;
  Queue queue_defaults_;
};

bool EndsWith(std::string_view text, std::string_view suffix) {
  if (text.size() < suffix.size()) return false;
  return std::equal(suffix.begin(), suffix.end(), text.end() - suffix.size(), [](char a, char b) {
    return a == std::tolower(static_cast<unsigned char>(b));
  });
}

}  // namespace

ScenarioFormat DetectScenarioFormat(std::string_view file_name, std::string_view text) {
  if (EndsWith(file_name, ".yaml") || EndsWith(file_name, ".yml")) return ScenarioFormat::kYaml;
  if (EndsWith(file_name, ".json")) return ScenarioFormat::kJson;
  const size_t first = text.find_first_not_of(" \t\r\n");
  return first != std::string_view::npos && text[first] == '{' ? ScenarioFormat::kJson
                                                               : ScenarioFormat::kYaml;
}

namespace {

std::optional<DocumentNode> ReadDocument(std::string_view text, ScenarioFormat format,
                                         DocumentError* error) {
  return format == ScenarioFormat::kJson ? ReadJsonDocument(text, error)
                                         : ReadYamlDocument(text, error);
}

// "<source>:<line>:<column>: JSON: <message>" (or YAML).
std::string DocumentErrorText(const DocumentError& error, ScenarioFormat format,
                              std::string_view source) {
  return std::string(source) + ":" + std::to_string(error.position.line) + ":" +
         std::to_string(error.position.column) + ": " +
         (format == ScenarioFormat::kJson ? "JSON: " : "YAML: ") + error.message;
}

}  // namespace

ScenarioResult ParseScenario(std::string_view text, ScenarioFormat format,
                             std::string_view source) {
  ScenarioResult result;
  DocumentError document_error;
  std::optional<DocumentNode> document = ReadDocument(text, format, &document_error);
  if (!document.has_value()) {
    result.error = DocumentErrorText(document_error, format, source);
    return result;
  }
  ScenarioReader reader(source);
  Scenario scenario;
  if (!reader.ReadScenario(*document, scenario)) {
    result.error = reader.error();
    return result;
  }
  result.scenario = std::move(scenario);
  return result;
}

ScenarioResult LoadScenarioFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    ScenarioResult result;
    result.error = "cannot read " + path + ": " + std::strerror(errno);
    return result;
  }
  std::ostringstream text;
  text << file.rdbuf();
  const std::string content = text.str();
  return ParseScenario(content, DetectScenarioFormat(path, content), path);
}

namespace {

ScenarioActionResult ReadAction(const std::optional<DocumentNode>& document,
                                const DocumentError& document_error, ScenarioFormat format,
                                std::string_view source) {
  ScenarioActionResult result;
  if (!document.has_value()) {
    result.error = DocumentErrorText(document_error, format, source);
    return result;
  }
  ScenarioReader reader(source);
  ScenarioAction action;
  if (!reader.ReadChange(*document, action)) {
    result.error = reader.error();
    return result;
  }
  result.action = std::move(action);
  return result;
}

}  // namespace

ScenarioActionResult ParseScenarioAction(std::string_view text, ScenarioFormat format,
                                         std::string_view source) {
  DocumentError error;
  return ReadAction(ReadDocument(text, format, &error), error, format, source);
}

ScenarioActionResult ParseScenarioAction(std::string_view change, std::string_view value_text,
                                         ScenarioFormat format, std::string_view source) {
  DocumentError error;
  std::optional<DocumentNode> value = ReadDocument(value_text, format, &error);
  std::optional<DocumentNode> document;
  if (value.has_value()) {
    DocumentNode& mapping = document.emplace();
    mapping.kind = DocumentNode::Kind::kMapping;
    mapping.position = value->position;
    mapping.members.push_back({std::string(change), value->position, std::move(*value)});
  }
  return ReadAction(document, error, format, source);
}

Scenario DemoScenario() {
  ScenarioResult result = ParseScenario(DemoScenarioText(), ScenarioFormat::kYaml, "demo");
  // The demo is compiled in and covered by the tests; an error is a defect.
  return result.ok() ? std::move(*result.scenario) : Scenario{};
}

}  // namespace kav::host
