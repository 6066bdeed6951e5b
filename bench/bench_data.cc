#include "bench_data.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <iterator>
#include <string_view>
#include <vector>

namespace kav::bench {
namespace {

// Builds a value tree from the same calls that drive a RapidJSON Writer, so
// that one generator serves both forms. Numbers are all non-negative and are
// stored as unsigned, as the JSON reader stores them.
class TreeSink {
 public:
  explicit TreeSink(BindingProperty& root) : member_(&root) {}

  void StartObject() { Open().MakeStructure(); }
  void EndObject() { open_.pop_back(); }
  void StartArray() { Open().MakeCollection(); }
  void EndArray() { open_.pop_back(); }
  void Key(const char* name) { member_ = &open_.back()->Member(name); }
  void String(const char* text) { Next().SetString(std::string_view(text)); }
  void Bool(bool value) { Next().SetBool(value); }
  void Uint64(uint64_t value) { Next().SetUnsigned(value); }

 private:
  BindingProperty& Next() {
    if (!open_.empty() && open_.back()->Kind() == BindingKind::kCollection) {
      return open_.back()->Append();
    }
    return *member_;
  }
  BindingProperty& Open() {
    BindingProperty& target = Next();
    open_.push_back(&target);
    return target;
  }

  BindingProperty* member_;
  std::vector<BindingProperty*> open_;
};

constexpr const char* kQueueTypes[] = {"NORMAL",         "RANKED_SOLO_5x5", "ARAM_UNRANKED_5x5",
                                       "RANKED_FLEX_SR", "BOT_5x5",         "URF_5x5"};

constexpr const char* kRestrictionCodes[] = {"PlayerTimedRestriction", "PlayerLevelRestriction",
                                             "PlayerMinorRestriction",
                                             "PlayerRankedSuspensionRestriction"};

template <class Sink>
void WriteQueueList(Sink& sink, size_t count) {
  sink.StartArray();
  for (size_t i = 0; i < count; ++i) {
    const size_t type = i % std::size(kQueueTypes);
    sink.StartObject();
    sink.Key("id");
    sink.Uint64(400 + i);
    sink.Key("type");
    sink.String(kQueueTypes[type]);
    sink.Key("numPlayersPerTeam");
    sink.Uint64(i % 4 == 0 ? 3 : 5);
    sink.Key("maximumParticipantListSize");
    sink.Uint64(5);
    sink.Key("minLevel");
    sink.Uint64(1 + i % 30);
    sink.Key("maxLevel");
    sink.Uint64(2147483647);
    sink.Key("queueAvailability");
    sink.String("Available");
    sink.Key("areFreeChampionsAllowed");
    sink.Bool(i % 2 == 0);
    sink.Key("isRanked");
    sink.Bool(type == 1 || type == 3);
    sink.Key("championsRequiredToPlay");
    sink.Uint64(i % 3 == 0 ? 20 : 0);
    sink.Key("allowablePremadeSizes");
    sink.StartArray();
    for (uint64_t size = 1; size <= 5; ++size) sink.Uint64(size);
    sink.EndArray();
    sink.Key("showPositionSelector");
    sink.Bool(i % 5 == 0);
    sink.EndObject();
  }
  sink.EndArray();
}

template <class Sink>
void WriteEligibilityAnswer(Sink& sink, size_t count) {
  sink.StartArray();
  for (size_t i = 0; i < count; ++i) {
    const bool eligible = i % 3 == 0;
    sink.StartObject();
    sink.Key("queueId");
    sink.Uint64(400 + i);
    sink.Key("eligible");
    sink.Bool(eligible);
    sink.Key("restrictions");
    sink.StartArray();
    const size_t restrictions = eligible ? 0 : 1 + i % 2;
    for (size_t r = 0; r < restrictions; ++r) {
      sink.StartObject();
      sink.Key("restrictionCode");
      sink.String(kRestrictionCodes[(i + r) % std::size(kRestrictionCodes)]);
      sink.Key("restrictionArgs");
      sink.StartObject();
      sink.Key("minLevel");
      sink.String("30");
      sink.EndObject();
      sink.Key("expiredTimestamp");
      sink.Uint64(1700000000000 + i * 1000 + r);
      sink.Key("summonerIds");
      sink.StartArray();
      sink.Uint64(2450000001);
      sink.Uint64(2450000002 + i);
      sink.EndArray();
      sink.EndObject();
    }
    sink.EndArray();
    sink.EndObject();
  }
  sink.EndArray();
}

template <void (*Generate)(rapidjson::Writer<rapidjson::StringBuffer>&, size_t)>
std::string AsJson(size_t count) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  Generate(writer, count);
  return std::string(buffer.GetString(), buffer.GetSize());
}

template <void (*Generate)(TreeSink&, size_t)>
BindingProperty AsTree(size_t count) {
  BindingProperty root;
  TreeSink sink(root);
  Generate(sink, count);
  return root;
}

}  // namespace

std::string QueueListJson(size_t count) {
  return AsJson<WriteQueueList>(count);
}
BindingProperty QueueList(size_t count) {
  return AsTree<WriteQueueList>(count);
}

std::string EligibilityAnswerJson(size_t count) {
  return AsJson<WriteEligibilityAnswer>(count);
}
BindingProperty EligibilityAnswer(size_t count) {
  return AsTree<WriteEligibilityAnswer>(count);
}

}  // namespace kav::bench
