#include "host_value_trees.h"

#include <cstdint>
#include <cstring>

namespace kav::fuzz {
namespace {

// Names the plugin looks for: its parameters, the fields of the records it
// reads and the wrappers of its events.
constexpr std::string_view kNames[] = {
    "summonerIds",
    "queueIds",
    "teamSize",
    "pickMode",
    "eligibilityQueryParam",
    "uri",
    "eventType",
    "data",
    "state",
    "summonerId",
    "accountId",
    "id",
    "type",
    "queueAvailability",
    "minLevel",
    "maxLevel",
    "isRanked",
    "championsRequiredToPlay",
    "maximumParticipantListSize",
    "allowablePremadeSizes",
    "summonerLevel",
    "isDisabled",
    "championCount",
    "playableChampionCount",
    "queueType",
    "status",
    "payload",
    "uuid",
    "error",
    "value",
    "",
};

void SetKind(KavHostValue& value, uint32_t kind, const void* data, uint32_t size) {
  value.kind = kind;
  value.payload.ref.data = data;
  value.payload.ref.size = size;
}

}  // namespace

const char* HostValueTrees::Text(std::string_view text) {
  return texts_.emplace_back(text).c_str();
}

KavHostValue HostValueTrees::String(std::string_view text) {
  KavHostValue value{};
  SetKind(value, KAV_VALUE_STRING_BORROWED, Text(text), static_cast<uint32_t>(text.size()));
  return value;
}

KavHostValue* HostValueTrees::Array(size_t count) {
  auto& block = arrays_.emplace_back(new KavHostValue[count == 0 ? 1 : count]);
  std::memset(static_cast<void*>(block.get()), 0, sizeof(KavHostValue) * (count == 0 ? 1 : count));
  return block.get();
}

KavHostMapEntry* HostValueTrees::Entries(size_t count) {
  auto& block = entries_.emplace_back(new KavHostMapEntry[count == 0 ? 1 : count]);
  std::memset(static_cast<void*>(block.get()), 0,
              sizeof(KavHostMapEntry) * (count == 0 ? 1 : count));
  return block.get();
}

std::string HostValueTrees::Key(FuzzedDataProvider& input) {
  if (input.ConsumeBool()) {
    return std::string(kNames[input.ConsumeIntegralInRange<size_t>(0, std::size(kNames) - 1)]);
  }
  return input.ConsumeRandomLengthString(24);
}

KavHostValue HostValueTrees::Map(const std::vector<std::pair<std::string, KavHostValue>>& entries) {
  KavHostMapEntry* block = Entries(entries.size());
  for (size_t i = 0; i < entries.size(); ++i) {
    block[i].key = Text(entries[i].first);
    block[i].value = entries[i].second;
    block[i].owns_key = 0;
  }
  KavHostValue value{};
  SetKind(value, KAV_VALUE_MAP, entries.empty() ? nullptr : block,
          static_cast<uint32_t>(entries.size()));
  return value;
}

KavHostValue HostValueTrees::Tree(FuzzedDataProvider& input, const Limits& limits) {
  KavHostValue root{};
  std::vector<KavHostValue*> pending{&root};
  size_t nodes = 0;
  bool chained = false;  // one long chain per tree is plenty
  while (!pending.empty()) {
    KavHostValue& value = *pending.back();
    pending.pop_back();
    std::memset(static_cast<void*>(&value), 0, sizeof value);
    if (++nodes > limits.max_nodes || input.remaining_bytes() == 0) continue;
    switch (input.ConsumeIntegral<uint8_t>() % 16) {
      case 0:
        break;  // null
      case 1:
        value.kind = KAV_VALUE_BOOL;
        value.payload.boolean = input.ConsumeIntegral<uint8_t>();  // not only 0 and 1
        break;
      case 2:
        value.kind = KAV_VALUE_SIGNED;
        value.payload.i64 = input.ConsumeIntegral<int64_t>();
        break;
      case 3:
        value.kind = KAV_VALUE_UNSIGNED;
        value.payload.u64 = input.ConsumeIntegral<uint64_t>();
        break;
      case 4: {
        value.kind = KAV_VALUE_FLOAT;
        const uint64_t bits = input.ConsumeIntegral<uint64_t>();  // NaNs and infinities too
        std::memcpy(&value.payload.f64, &bits, sizeof bits);
        break;
      }
      case 5:
      case 6: {
        const std::string text = input.ConsumeRandomLengthString(64);
        const uint32_t length = input.ConsumeBool() ? static_cast<uint32_t>(text.size())
                                                    : input.ConsumeIntegral<uint32_t>();
        SetKind(value, input.ConsumeBool() ? KAV_VALUE_STRING_BORROWED : KAV_VALUE_STRING_OWNED,
                Text(text), length);
        break;
      }
      case 7:
      case 8: {
        const std::string text = input.ConsumeRandomLengthString(64);
        const std::vector<uint8_t>& bytes = blobs_.emplace_back(text.begin(), text.end());
        SetKind(value, input.ConsumeBool() ? KAV_VALUE_BLOB_BORROWED : KAV_VALUE_BLOB_OWNED,
                bytes.empty() ? nullptr : bytes.data(), static_cast<uint32_t>(bytes.size()));
        break;
      }
      case 9: {
        const size_t count = input.ConsumeIntegralInRange<size_t>(0, limits.max_elements);
        KavHostValue* elements = Array(count);
        SetKind(value, KAV_VALUE_ARRAY, count == 0 ? nullptr : elements,
                static_cast<uint32_t>(count));
        for (size_t i = count; i-- > 0;) pending.push_back(&elements[i]);
        break;
      }
      case 10: {
        const size_t count = input.ConsumeIntegralInRange<size_t>(0, limits.max_elements);
        KavHostMapEntry* entries = Entries(count);
        SetKind(value, KAV_VALUE_MAP, count == 0 ? nullptr : entries, static_cast<uint32_t>(count));
        for (size_t i = count; i-- > 0;) {
          const uint8_t key_choice = input.ConsumeIntegral<uint8_t>();
          entries[i].key = key_choice < 8 ? nullptr : Text(Key(input));  // a null key now and then
          entries[i].owns_key = key_choice & 1;  // the plugin never frees a host's key
          pending.push_back(&entries[i].value);
        }
        break;
      }
      case 11:
        // A kind no host value has.
        value.kind = input.ConsumeIntegralInRange<uint32_t>(KAV_VALUE_MAP + 1, UINT32_MAX);
        break;
      case 12: {
        if (chained) break;
        chained = true;
        // A chain of one-element arrays or maps around one value.
        const size_t length = input.ConsumeIntegralInRange<size_t>(1, limits.max_chain);
        const bool maps = input.ConsumeBool();
        KavHostValue* link = &value;
        for (size_t level = 0; level < length; ++level) {
          if (maps) {
            KavHostMapEntry* entry = Entries(1);
            entry->key = Text("data");
            SetKind(*link, KAV_VALUE_MAP, entry, 1);
            link = &entry->value;
          } else {
            KavHostValue* element = Array(1);
            SetKind(*link, KAV_VALUE_ARRAY, element, 1);
            link = element;
          }
        }
        pending.push_back(link);
        break;
      }
      case 13: {
        // A count the plugin must refuse before reading any element: only
        // one element is really there.
        KavHostValue* element = Array(1);
        const uint32_t count = input.ConsumeIntegralInRange<uint32_t>(0x10000000u, UINT32_MAX);
        SetKind(value, input.ConsumeBool() ? KAV_VALUE_ARRAY : KAV_VALUE_MAP, element, count);
        break;
      }
      case 14:
        // A count without elements.
        SetKind(value, input.ConsumeBool() ? KAV_VALUE_ARRAY : KAV_VALUE_MAP, nullptr,
                input.ConsumeIntegralInRange<uint32_t>(1, 0xFFFFFFFFu));
        break;
      case 15: {
        // A wide array of null records.
        const size_t count = input.ConsumeIntegralInRange<size_t>(0, limits.max_wide);
        KavHostValue* elements = Array(count);
        SetKind(value, KAV_VALUE_ARRAY, count == 0 ? nullptr : elements,
                static_cast<uint32_t>(count));
        break;
      }
    }
  }
  return root;
}

}  // namespace kav::fuzz
