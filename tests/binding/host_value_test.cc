#include "binding/host_value.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "binding/declare.h"
#include "binding/host_value_images.h"
#include "binding/property_text.h"
#include "binding/type_registry.h"
#include "platform/allocation.h"
#include "support/small_stack.h"

namespace kav::host_value_test {

enum class Shade : int32_t { kLight = 1, kDark = 2 };

constexpr auto BindingEnumerators(const Shade*) {
  return Enumerators<Shade>({{"Light", Shade::kLight}, {"Dark", Shade::kDark}});
}

namespace {

using testing_support::PropertyText;

KavHostValue HostString(const char* text, uint32_t length,
                        uint32_t kind = KAV_VALUE_STRING_BORROWED) {
  KavHostValue value{};
  value.kind = kind;
  value.payload.ref.data = text;
  value.payload.ref.size = length;
  return value;
}

KavHostValue HostSigned(int64_t number) {
  KavHostValue value{};
  value.kind = KAV_VALUE_SIGNED;
  value.payload.i64 = number;
  return value;
}

// Copies of packed fields (a reference cannot bind to them).
uint32_t KindOf(const KavHostValue& value) {
  return value.kind;
}
uint32_t SizeOf(const KavHostValue& value) {
  return value.payload.ref.size;
}

// A tree holding every kind of value.
BindingProperty EveryKind() {
  BindingProperty value;
  value.Member("b").SetBool(true);
  value.Member("s").SetSigned(-5);
  value.Member("u").SetUnsigned(18446744073709551615u);
  value.Member("f").SetFloat(2.5);
  value.Member("t").SetString("text");
  value.Member("e").SetString("");
  const uint8_t bytes[] = {1, 0, 2};
  value.Member("y").SetBlob(bytes);
  value.Member("n");
  BindingProperty& list = value.Member("l");
  list.Append().SetSigned(1);
  list.Append().MakeStructure();
  list.Append().MakeCollection();
  list.Append().Member("inner").SetString("x");
  return value;
}

TEST(HostValueTest, KindNames) {
  const char* expected[] = {"",       "bool", "signed", "unsigned",   "float",     "string",
                            "string", "blob", "blob",   "collection", "structure", ""};
  for (uint32_t kind = 0; kind < std::size(expected); ++kind) {
    SCOPED_TRACE(kind);
    EXPECT_STREQ(HostValueKindName(kind), expected[kind]);
  }
}

TEST(HostValueTest, RoundTripKeepsEveryKindAndReleasesAllMemory) {
  BindingProperty source = EveryKind();
  const uint64_t before = ReadMemoryStatistics().BytesInUse();

  KavHostValue host;
  ASSERT_TRUE(ToHostValue(host, source, nullptr));
  ASSERT_EQ(KindOf(host), static_cast<uint32_t>(KAV_VALUE_MAP));
  ASSERT_EQ(SizeOf(host), 9u);
  const auto* entries = static_cast<const KavHostMapEntry*>(host.payload.ref.data);
  struct Row {
    const char* key;
    uint32_t kind;
    uint32_t size;  // for kinds 6 to 10
  };
  const Row rows[] = {
      // in member-name order
      {"b", KAV_VALUE_BOOL, 0},         {"e", KAV_VALUE_STRING_OWNED, 0},
      {"f", KAV_VALUE_FLOAT, 0},        {"l", KAV_VALUE_ARRAY, 4},
      {"n", KAV_VALUE_NULL, 0},         {"s", KAV_VALUE_SIGNED, 0},
      {"t", KAV_VALUE_STRING_OWNED, 4}, {"u", KAV_VALUE_UNSIGNED, 0},
      {"y", KAV_VALUE_BLOB_OWNED, 3},
  };
  for (size_t i = 0; i < std::size(rows); ++i) {
    SCOPED_TRACE(rows[i].key);
    EXPECT_STREQ(entries[i].key, rows[i].key);
    EXPECT_EQ(int{entries[i].owns_key}, 1);
    EXPECT_EQ(KindOf(entries[i].value), rows[i].kind);
    if (rows[i].kind >= KAV_VALUE_STRING_OWNED) {
      EXPECT_EQ(SizeOf(entries[i].value), rows[i].size);
    }
  }
  EXPECT_STREQ(static_cast<const char*>(entries[1].value.payload.ref.data), "")
      << "an empty string is still a terminated text";
  EXPECT_GT(ReadMemoryStatistics().BytesInUse(), before);

  BindingResult status;
  BindingProperty back;
  ASSERT_TRUE(FromHostValue(status, back, host, "<result>"));
  EXPECT_EQ(PropertyText(back), PropertyText(source));

  ReleaseHostValue(host);
  EXPECT_EQ(KindOf(host), static_cast<uint32_t>(KAV_VALUE_NULL));
  EXPECT_EQ(uint64_t{host.payload.u64}, 0u);
  EXPECT_EQ(ReadMemoryStatistics().BytesInUse(), before);
}

TEST(HostValueTest, EnumeratorsBecomeNamesWhenRegistered) {
  TypeRegistry registry;
  RegisterEnumeration<Shade>(registry, "Shade");
  struct Row {
    const char* name;
    int32_t value;
    const TypeRegistry* registry;
    uint32_t kind;
    std::string expected;
  };
  const Row rows[] = {
      {"registered name", 2, &registry, KAV_VALUE_STRING_OWNED, "Dark"},
      {"no registry", 2, nullptr, KAV_VALUE_SIGNED, "2"},
      {"no enumerator", -7, &registry, KAV_VALUE_SIGNED, "-7"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingProperty source;
    source.SetEnum(row.value, StaticType::Of<Shade>());
    KavHostValue host;
    ASSERT_TRUE(ToHostValue(host, source, row.registry));
    EXPECT_EQ(KindOf(host), row.kind);
    if (row.kind == KAV_VALUE_SIGNED) {
      EXPECT_EQ(std::to_string(host.payload.i64), row.expected);
    } else {
      EXPECT_EQ(static_cast<const char*>(host.payload.ref.data), row.expected);
      EXPECT_EQ(SizeOf(host), row.expected.size());
    }
    ReleaseHostValue(host);
  }
}

TEST(HostValueTest, ReadsHostRecords) {
  // Borrowed texts run to their zero byte whatever the length says.
  const char text[] = "abc";
  KavHostValue entry_values[] = {HostSigned(1), HostSigned(2), HostString(text, 99)};
  KavHostMapEntry entries[] = {
      {"a", entry_values[0], 0}, {"a", entry_values[1], 0}, {nullptr, entry_values[2], 0}};
  KavHostValue map{};
  map.kind = KAV_VALUE_MAP;
  map.payload.ref.data = entries;
  map.payload.ref.size = 3;

  BindingResult status;
  BindingProperty target;
  target.SetString("overwritten");
  ASSERT_TRUE(FromHostValue(status, target, map, "p"));
  EXPECT_EQ(PropertyText(target), "{:\"abc\",a:s2}") << "a repeated key keeps the last value";

  // An unknown kind inside an array fails the whole conversion; elements
  // before it stay.
  KavHostValue elements[3] = {HostSigned(7), HostSigned(8), {}};
  elements[2].kind = 42;
  KavHostValue array{};
  array.kind = KAV_VALUE_ARRAY;
  array.payload.ref.data = elements;
  array.payload.ref.size = 3;
  EXPECT_FALSE(FromHostValue(status, target, array, "list"));
  EXPECT_EQ(status.Error(),
            "Couldn't assign value to 'list' of type object because the input is of an "
            "incompatible type ''.");
  EXPECT_EQ(PropertyText(target), "[s7,s8,null]");

  // Releasing borrowed records frees nothing and only resets them.
  KavHostValue borrowed = HostString(text, 3);
  const uint64_t before = ReadMemoryStatistics().frees;
  ReleaseHostValue(borrowed);
  EXPECT_EQ(KindOf(borrowed), static_cast<uint32_t>(KAV_VALUE_NULL));
  EXPECT_EQ(ReadMemoryStatistics().frees, before);
  EXPECT_STREQ(text, "abc");
}

// A chain of `depth` one-element arrays (or maps with the key "k") around
// the signed value 1; `nodes` holds the records.
KavHostValue Chain(size_t depth, bool maps, std::vector<KavHostValue>& nodes,
                   std::vector<KavHostMapEntry>& entries) {
  nodes.assign(depth + 1, KavHostValue{});
  entries.assign(depth, KavHostMapEntry{});
  nodes[depth] = HostSigned(1);
  for (size_t level = depth; level-- > 0;) {
    KavHostValue& node = nodes[level];
    if (maps) {
      entries[level] = KavHostMapEntry{"k", nodes[level + 1], 0};
      node.kind = KAV_VALUE_MAP;
      node.payload.ref.data = &entries[level];
    } else {
      node.kind = KAV_VALUE_ARRAY;
      node.payload.ref.data = &nodes[level + 1];
    }
    node.payload.ref.size = 1;
  }
  return nodes[0];
}

KavHostValue Container(uint32_t kind, const void* data, uint32_t count) {
  KavHostValue value{};
  value.kind = kind;
  value.payload.ref.data = data;
  value.payload.ref.size = count;
  return value;
}

TEST(HostValueTest, HostileRecordsAreRefusedBeforeTheyAreRead) {
  // Each row's source is checked on a host-sized stack. Counts beyond the
  // limit stand over a single record: nothing past the count check may be
  // read.
  const KavHostValue one = HostSigned(1);
  const KavHostValue huge_count = Container(KAV_VALUE_ARRAY, &one, 0x10000000u);
  const KavHostValue elements_then_huge[] = {HostSigned(5), huge_count};
  struct Row {
    const char* name;
    size_t chain_depth;  // 0: `source` instead of a chain
    bool maps;
    KavHostValue source;
    std::string expected_error;  // empty: converted
  };
  const std::string too_deep =
      "Couldn't assign value to 'arg' because the input nests more than 1000 levels deep.";
  const Row rows[] = {
      {"arrays nested to the limit", kHostValueMaxDepth, false, {}, ""},
      {"maps nested to the limit", kHostValueMaxDepth, true, {}, ""},
      {"arrays nested past the limit", kHostValueMaxDepth + 1, false, {}, too_deep},
      {"maps nested past the limit", kHostValueMaxDepth + 1, true, {}, too_deep},
      {"a hostile chain", 200000, false, {}, too_deep},
      {"an array count beyond the element limit", 0, false, huge_count,
       "Couldn't assign value to 'arg' because the input holds 268435456 elements, more than "
       "268435455."},
      {"a map count of 2^32 - 1", 0, false, Container(KAV_VALUE_MAP, &one, 0xFFFFFFFFu),
       "Couldn't assign value to 'arg' because the input holds 4294967295 elements, more than "
       "268435455."},
      {"a count beyond the limit inside an array", 0, false,
       Container(KAV_VALUE_ARRAY, elements_then_huge, 2),
       "Couldn't assign value to 'arg' because the input holds 268435456 elements, more than "
       "268435455."},
      {"an array count without elements", 0, false, Container(KAV_VALUE_ARRAY, nullptr, 3),
       "Couldn't assign value to 'arg' because the input's 3 elements are missing."},
      {"a map count without entries", 0, false, Container(KAV_VALUE_MAP, nullptr, 1),
       "Couldn't assign value to 'arg' because the input's 1 elements are missing."},
      {"no elements and no pointer", 0, false, Container(KAV_VALUE_ARRAY, nullptr, 0), ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<KavHostValue> nodes;
    std::vector<KavHostMapEntry> entries;
    const KavHostValue source =
        row.chain_depth != 0 ? Chain(row.chain_depth, row.maps, nodes, entries) : row.source;
    BindingResult status;
    BindingProperty target;
    bool converted = false;
    testing_support::RunOnSmallStack(
        [&] { converted = FromHostValue(status, target, source, "arg"); });
    EXPECT_EQ(converted, row.expected_error.empty());
    EXPECT_EQ(status.Error(), row.expected_error);
  }
}

TEST(HostValueTest, ValuesNestedPastTheLimitAreNotHandedOver) {
  struct Row {
    const char* name;
    size_t depth;
    bool structures;
    bool converted;
  };
  const Row rows[] = {
      {"collections nested to the limit", kHostValueMaxDepth, false, true},
      {"structures nested to the limit", kHostValueMaxDepth, true, true},
      {"collections nested past the limit", kHostValueMaxDepth + 1, false, false},
      {"structures nested past the limit", kHostValueMaxDepth + 1, true, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingProperty source;
    BindingProperty* node = &source;
    for (size_t level = 0; level < row.depth; ++level) {
      node = row.structures ? &node->Member("k") : &node->Append();
    }
    node->SetSigned(1);
    const uint64_t before = ReadMemoryStatistics().BytesInUse();
    KavHostValue host;
    bool converted = false;
    testing_support::RunOnSmallStack([&] { converted = ToHostValue(host, source, nullptr); });
    EXPECT_EQ(converted, row.converted);
    if (!converted) {
      EXPECT_EQ(KindOf(host), static_cast<uint32_t>(KAV_VALUE_NULL));
      EXPECT_EQ(ReadMemoryStatistics().BytesInUse(), before) << "what was built is freed";
    }
    testing_support::RunOnSmallStack([&] { ReleaseHostValue(host); });
    EXPECT_EQ(ReadMemoryStatistics().BytesInUse(), before);
  }
}

// Everything a reader of `value` can see: kinds, counts, ownership bytes and
// the bytes of texts (with the zero that ends them) and blobs; not where the
// parts lie.
std::string Records(const KavHostValue& value) {
  const void* data = value.payload.ref.data;
  const uint32_t size = value.payload.ref.size;
  switch (value.kind) {
    case KAV_VALUE_BOOL:
      return value.payload.boolean != 0 ? "true" : "false";
    case KAV_VALUE_SIGNED:
      return "s" + std::to_string(value.payload.i64);
    case KAV_VALUE_UNSIGNED:
      return "u" + std::to_string(value.payload.u64);
    case KAV_VALUE_FLOAT:
      return "f" + std::to_string(value.payload.f64);
    case KAV_VALUE_STRING_OWNED: {
      const auto* text = static_cast<const char*>(data);
      return "\"" + std::string(text, size) + (text[size] == '\0' ? "\"" : "\"unterminated");
    }
    case KAV_VALUE_BLOB_OWNED: {
      std::string bytes = "blob" + std::to_string(size) + ":";
      for (uint32_t i = 0; i < size; ++i) {
        bytes += std::to_string(static_cast<const uint8_t*>(data)[i]) + ",";
      }
      return bytes;
    }
    case KAV_VALUE_ARRAY: {
      std::string text = "[" + std::to_string(size) + (data == nullptr ? " no block:" : ":");
      for (uint32_t i = 0; i < size; ++i) {
        text += Records(static_cast<const KavHostValue*>(data)[i]) + ",";
      }
      return text + "]";
    }
    case KAV_VALUE_MAP: {
      std::string text = "{" + std::to_string(size) + (data == nullptr ? " no block:" : ":");
      for (uint32_t i = 0; i < size; ++i) {
        const KavHostMapEntry& entry = static_cast<const KavHostMapEntry*>(data)[i];
        text += std::string(entry.key) + (entry.owns_key == 1 ? "=" : "(borrowed)=") +
                Records(entry.value) + ",";
      }
      return text + "}";
    }
    default:
      return "kind" + std::to_string(value.kind);
  }
}

// Whether every array, entry, key and text of `value`'s tree lies in
// [begin, end).
bool AllInside(const KavHostValue& value, const std::byte* begin, const std::byte* end) {
  const auto inside = [&](const void* pointer, size_t size) {
    const auto* bytes = static_cast<const std::byte*>(pointer);
    return std::less_equal<>()(begin, bytes) && std::less_equal<>()(bytes + size, end);
  };
  const void* data = value.payload.ref.data;
  const uint32_t size = value.payload.ref.size;
  switch (value.kind) {
    case KAV_VALUE_STRING_OWNED:
      return inside(data, size + 1);
    case KAV_VALUE_BLOB_OWNED:
      return data == nullptr || inside(data, size);
    case KAV_VALUE_ARRAY: {
      if (data == nullptr) return true;
      const auto* elements = static_cast<const KavHostValue*>(data);
      if (!inside(elements, size * sizeof(KavHostValue))) return false;
      for (uint32_t i = 0; i < size; ++i) {
        if (!AllInside(elements[i], begin, end)) return false;
      }
      return true;
    }
    case KAV_VALUE_MAP: {
      if (data == nullptr) return true;
      const auto* entries = static_cast<const KavHostMapEntry*>(data);
      if (!inside(entries, size * sizeof(KavHostMapEntry))) return false;
      for (uint32_t i = 0; i < size; ++i) {
        if (!inside(entries[i].key, std::strlen(entries[i].key) + 1)) return false;
        if (!AllInside(entries[i].value, begin, end)) return false;
      }
      return true;
    }
    default:
      return true;
  }
}

TEST(HostValueTest, OneBlockValuesShowTheSameRecordsInOneAllocation) {
  TypeRegistry registry;
  RegisterEnumeration<Shade>(registry, "Shade");
  enum class Way {
    kToHostValue,        // sized, then built in its block
    kLaidOutFromStack,   // built in an arena's initial memory, copied whole
    kLaidOutFromChunks,  // built in an arena that had to grow, copied region by region
    kCopied,             // built piece by piece, copied record by record
  };
  struct Row {
    const char* name;
    BindingProperty source;
    Way way;
    uint64_t blocks;  // held while the value lives
  };
  BindingProperty list_of_structures;
  for (int i = 0; i < 40; ++i) {
    BindingProperty& element = list_of_structures.Append();
    element.Member("queueId").SetSigned(400 + i);
    element.Member("shade").SetEnum(i % 2 + 1, StaticType::Of<Shade>());
    element.Member("restrictions").MakeCollection();
  }
  BindingProperty text;
  text.SetString("alone");
  BindingProperty empty_list;
  empty_list.MakeCollection();
  std::vector<Row> rows;
  for (Way way :
       {Way::kToHostValue, Way::kLaidOutFromStack, Way::kLaidOutFromChunks, Way::kCopied}) {
    rows.push_back({"every kind", EveryKind(), way, 1});
    rows.push_back({"a list of structures with enumerator names", list_of_structures, way, 1});
    rows.push_back({"a text alone", text, way, 1});
    rows.push_back({"an empty list", empty_list, way, 0});
  }

  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.name) + ", way " + std::to_string(static_cast<int>(row.way)));
    KavHostValue piecewise{};
    BuildHostValue(piecewise, row.source, &registry);
    const std::string expected = Records(piecewise);
    ReleaseHostValue(piecewise);

    KavHostValue elsewhere{};
    if (row.way == Way::kCopied) BuildHostValue(elsewhere, row.source, &registry);
    const MemoryStatistics before = ReadMemoryStatistics();
    KavHostValue host{};
    if (row.way == Way::kToHostValue) {
      ASSERT_TRUE(ToHostValue(host, row.source, &registry));
    } else if (row.way == Way::kCopied) {
      LayOutHostValue(host, elsewhere);
    } else {
      std::byte initial[8192];
      HostValueArena arena(row.way == Way::kLaidOutFromStack ? std::span<std::byte>(initial)
                                                             : std::span<std::byte>());
      KavHostValue built{};
      BuildHostValue(built, row.source, &registry, &arena);
      LayOutHostValue(host, built, arena);
    }
    const MemoryStatistics built = ReadMemoryStatistics();
    EXPECT_EQ(Records(host), expected);
    EXPECT_EQ(built.LiveAllocations() - before.LiveAllocations(), row.blocks);
    if (KindOf(host) == KAV_VALUE_ARRAY || KindOf(host) == KAV_VALUE_MAP) {
      if (const void* records = host.payload.ref.data) {
        // A one-block value's records start kOneBlockOffset bytes into its
        // block, and everything it owns lies in that block.
        const auto* block = static_cast<const std::byte*>(records) - kOneBlockOffset;
        EXPECT_TRUE(AllInside(host, block, block + PluginUsableSize(block)));
      }
    }

    ReleaseHostValue(host);
    EXPECT_EQ(KindOf(host), static_cast<uint32_t>(KAV_VALUE_NULL));
    const MemoryStatistics released = ReadMemoryStatistics();
    EXPECT_EQ(released.BytesInUse(), before.BytesInUse());
    EXPECT_EQ(released.frees - built.frees, row.blocks) << "released with one free";
    ReleaseHostValue(elsewhere);
  }
}

TEST(HostValueTest, ImagesLayOutTheirValuesAsOneBlockArrays) {
  TypeRegistry registry;
  RegisterEnumeration<Shade>(registry, "Shade");
  BindingProperty structure;
  structure.Member("queueId").SetSigned(400);
  structure.Member("shade").SetEnum(2, StaticType::Of<Shade>());
  structure.Member("restrictions").MakeCollection();
  structure.Member("args").Member("teamSize").SetString("3");
  BindingProperty text;
  text.SetString("alone");
  BindingProperty number;
  number.SetUnsigned(7);
  BindingProperty empty_list;
  empty_list.MakeCollection();
  const std::vector<BindingProperty> sources = {EveryKind(), structure, text, number, empty_list};
  // Borrowed parts stay pointers to where they were.
  static const char kBorrowedKey[] = "borrowed";
  static const char kBorrowedText[] = "outside";
  KavHostMapEntry borrowed_entry{};
  borrowed_entry.key = kBorrowedKey;
  borrowed_entry.value = HostString(kBorrowedText, 7);
  const KavHostValue borrowed = Container(KAV_VALUE_MAP, &borrowed_entry, 1);

  struct Row {
    const char* name;
    std::vector<uint32_t> picks;  // into sources, then the borrowed value last
  };
  const Row rows[] = {
      {"none", {}},
      {"one structure", {1}},
      {"every source once", {0, 1, 2, 3, 4, 5}},
      {"repeats, out of order", {3, 1, 1, 0, 3, 2, 1}},
      {"scalars and empties only", {3, 4, 3}},
      {"borrowed parts", {5, 2, 5}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<KavHostValue> values(sources.size() + 1);
    for (size_t i = 0; i < sources.size(); ++i) BuildHostValue(values[i], sources[i], &registry);
    values.back() = borrowed;
    std::string expected =
        row.picks.empty() ? "[0 no block:" : "[" + std::to_string(row.picks.size()) + ":";
    for (uint32_t pick : row.picks) expected += Records(values[pick]) + ",";
    expected += "]";

    HostValueImages images;
    images.Reset(values.size(), &registry);
    for (uint32_t pick : row.picks) {
      if (!images.Has(pick)) images.Store(pick, values[pick]);
    }
    for (size_t i = 0; i + 1 < values.size(); ++i)
      ReleaseHostValue(values[i]);  // images stand alone

    const MemoryStatistics before = ReadMemoryStatistics();
    KavHostValue host{};
    images.LayOutArray(host, row.picks);
    const MemoryStatistics built = ReadMemoryStatistics();
    EXPECT_EQ(Records(host), expected);
    EXPECT_EQ(KindOf(host), static_cast<uint32_t>(KAV_VALUE_ARRAY));
    const uint64_t blocks = row.picks.empty() ? 0 : 1;
    EXPECT_EQ(built.LiveAllocations() - before.LiveAllocations(), blocks);
    if (const void* records = host.payload.ref.data) {
      const auto* block = static_cast<const std::byte*>(records) - kOneBlockOffset;
      EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % kPluginBlockAlignment, 0u);
      if (std::find(row.picks.begin(), row.picks.end(), 5u) == row.picks.end()) {
        EXPECT_TRUE(AllInside(host, block, block + PluginUsableSize(block)));
      }
    }
    ReleaseHostValue(host);
    const MemoryStatistics released = ReadMemoryStatistics();
    EXPECT_EQ(released.BytesInUse(), before.BytesInUse());
    EXPECT_EQ(released.frees - built.frees, blocks) << "released with one free";
  }
}

}  // namespace
}  // namespace kav::host_value_test
