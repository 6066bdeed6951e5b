#include "binding/binding_property.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "binding/binding_store.h"
#include "binding/static_type.h"
#include "platform/page_provider.h"

namespace kav {
namespace {

enum class Color { kRed = 2 };

size_t InternedCount(const BindingProperty& root) {
  const BindingStore* store = root.StoreForTesting();
  return store != nullptr ? store->InternedCount() : 0;
}

// Writes the visitor calls as compact text, e.g. "[0:u1/0,]" for a
// collection holding unsigned 1.
class RecordingVisitor final : public BindingPropertyVisitor {
 public:
  std::string calls;

  void VisitNull() override { calls += "n"; }
  void VisitBool(bool value) override { calls += value ? "T" : "F"; }
  void VisitSigned(int64_t value) override { calls += "i" + std::to_string(value); }
  void VisitUnsigned(uint64_t value) override { calls += "u" + std::to_string(value); }
  void VisitFloat(double value) override { calls += "f" + std::to_string(static_cast<int>(value)); }
  void VisitString(std::string_view value) override { calls += "'" + std::string(value) + "'"; }
  void VisitBlob(std::span<const uint8_t> bytes) override {
    calls += "b" + std::to_string(bytes.size());
  }
  void VisitEnum(const BindingEnum& value) override { calls += "e" + std::to_string(value.value); }
  void BeginCollection(size_t count) override { calls += "[" + std::to_string(count) + ":"; }
  void BeginElement(size_t index) override { calls += std::to_string(index) + "<"; }
  void EndElement(size_t index) override { calls += ">" + std::to_string(index) + ","; }
  void EndCollection() override { calls += "]"; }
  void BeginStructure(size_t count) override { calls += "{" + std::to_string(count) + ":"; }
  void VisitKey(std::string_view name) override { calls += std::string(name) + "="; }
  void EndMember(std::string_view name) override { calls += "/" + std::string(name) + ";"; }
  void EndStructure() override { calls += "}"; }
};

std::string Walk(const BindingProperty& value) {
  RecordingVisitor visitor;
  value.Visit(visitor);
  return visitor.calls;
}

TEST(BindingPropertyTest, KindSizeAndWalkByKind) {
  const uint8_t bytes[] = {1, 2, 3, 4};
  struct Row {
    const char* name;
    std::function<void(BindingProperty&)> build;
    BindingKind kind;
    size_t size;
    const char* walk;
  };
  const Row rows[] = {
      {"fresh", [](BindingProperty&) {}, BindingKind::kEmpty, 0, "n"},
      {"bool true", [](BindingProperty& v) { v.SetBool(true); }, BindingKind::kBool, 1, "T"},
      {"signed", [](BindingProperty& v) { v.SetSigned(-4); }, BindingKind::kSigned, 1, "i-4"},
      {"unsigned", [](BindingProperty& v) { v.SetUnsigned(9); }, BindingKind::kUnsigned, 1, "u9"},
      {"float", [](BindingProperty& v) { v.SetFloat(2.5); }, BindingKind::kFloat, 1, "f2"},
      {"three-byte string", [](BindingProperty& v) { v.SetString("abc"); }, BindingKind::kString, 3,
       "'abc'"},
      {"empty string", [](BindingProperty& v) { v.SetString(""); }, BindingKind::kString, 0, "''"},
      {"null text", [](BindingProperty& v) { v.SetString(static_cast<const char*>(nullptr)); },
       BindingKind::kString, 0, "''"},
      {"string cut at NUL", [](BindingProperty& v) { v.SetString(std::string_view("ab\0c", 4)); },
       BindingKind::kString, 2, "'ab'"},
      {"blob", [&](BindingProperty& v) { v.SetBlob(bytes); }, BindingKind::kBlob, 4, "b4"},
      {"enum", [](BindingProperty& v) { v.SetEnum(2, StaticType::Of<Color>()); },
       BindingKind::kEnum, 1, "e2"},
      {"empty collection", [](BindingProperty& v) { v.MakeCollection(); }, BindingKind::kCollection,
       0, "[0:]"},
      {"empty structure", [](BindingProperty& v) { v.MakeStructure(); }, BindingKind::kStructure, 0,
       "{0:}"},
      {"At(5) on empty", [](BindingProperty& v) { v.At(5).SetUnsigned(1); },
       BindingKind::kCollection, 6, "[6:0<n>0,1<n>1,2<n>2,3<n>3,4<n>4,5<u1>5,]"},
      {"scalar becomes collection on Append",
       [](BindingProperty& v) {
         v.SetBool(true);
         v.Append().SetString("x");
       },
       BindingKind::kCollection, 1, "[1:0<'x'>0,]"},
      {"MakeCollection keeps elements",
       [](BindingProperty& v) {
         v.Append();
         v.MakeCollection();
       },
       BindingKind::kCollection, 1, "[1:0<n>0,]"},
      {"members b, a, B iterate B, a, b",
       [](BindingProperty& v) {
         v.Member("b").SetSigned(1);
         v.Member("a").SetSigned(2);
         v.Member("B").SetSigned(3);
       },
       BindingKind::kStructure, 3, "{3:B=i3/B;a=i2/a;b=i1/b;}"},
      {"same member twice keeps the second value",
       [](BindingProperty& v) {
         v.Member("x").SetString("first");
         v.Member("x").SetUnsigned(2);
       },
       BindingKind::kStructure, 1, "{1:x=u2/x;}"},
      {"names compare as unsigned bytes",
       [](BindingProperty& v) {
         v.Member("\xC3\xA9").SetBool(false);
         v.Member("z").SetBool(true);
         v.Member("").MakeCollection();
       },
       BindingKind::kStructure, 3, "{3:=[0:]/;z=T/z;\xC3\xA9=F/\xC3\xA9;}"},
      {"Member on a collection makes a structure",
       [](BindingProperty& v) {
         v.Append().SetBool(true);
         v.Member("x");
       },
       BindingKind::kStructure, 1, "{1:x=n/x;}"},
      {"setter replaces a structure",
       [](BindingProperty& v) {
         v.Member("a").Member("b").SetString("deep");
         v.SetSigned(1);
       },
       BindingKind::kSigned, 1, "i1"},
      {"nested",
       [](BindingProperty& v) {
         v.Member("list").Append().Member("k").SetString("v");
         v.Member("list").Append();
       },
       BindingKind::kStructure, 1, "{1:list=[2:0<{1:k='v'/k;}>0,1<n>1,]/list;}"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingProperty value;
    row.build(value);
    EXPECT_EQ(value.Kind(), row.kind);
    EXPECT_EQ(value.Size(), row.size);
    EXPECT_EQ(Walk(value), row.walk);
    EXPECT_EQ(value.IsEmpty(), row.kind == BindingKind::kEmpty);
    BindingProperty copy(value);
    EXPECT_EQ(Walk(copy), row.walk) << "copy";
    value.Clear();
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_EQ(InternedCount(value), 0u);
  }
}

TEST(BindingPropertyTest, KindNames) {
  const char* expected[] = {"empty", "bool", "signed",     "unsigned",  "float", "string",
                            "blob",  "enum", "collection", "structure", ""};
  for (uint32_t code = 0; code < std::size(expected); ++code) {
    SCOPED_TRACE(code);
    EXPECT_STREQ(KindName(code), expected[code]);
  }
  EXPECT_STREQ(KindName(0xFFFFFFFF), "");
}

TEST(BindingPropertyTest, AccessorsReturnPayloadOnlyForTheirOwnKind) {
  BindingProperty unsigned_three;
  unsigned_three.SetUnsigned(3);
  BindingProperty signed_three;
  signed_three.SetSigned(3);
  BindingProperty text;
  text.SetString("hi");
  BindingProperty enumerated;
  enumerated.SetEnum(-1, StaticType::Of<Color>());
  const uint8_t fallback_bytes[] = {7};

  EXPECT_EQ(unsigned_three.AsSigned(7), 7);
  EXPECT_EQ(unsigned_three.AsUnsigned(7), 3u);
  EXPECT_EQ(signed_three.AsUnsigned(7), 7u);
  EXPECT_EQ(signed_three.AsFloat(1.5), 1.5);
  EXPECT_TRUE(signed_three.AsBool(true));
  EXPECT_EQ(signed_three.AsString("d"), "d");
  EXPECT_EQ(text.AsSigned(-2), -2);
  EXPECT_EQ(text.AsString(), "hi");
  EXPECT_EQ(text.AsString().data()[2], '\0');
  EXPECT_EQ(text.AsBlob(fallback_bytes).size(), 1u);
  EXPECT_EQ(enumerated.AsEnum().value, -1);
  EXPECT_EQ(enumerated.AsEnum().type, &StaticType::Of<Color>());
  EXPECT_EQ(text.AsEnum(BindingEnum{5, nullptr}).value, 5);
}

TEST(BindingPropertyTest, ReadOnlyLookupsNeverChangeTheValue) {
  BindingProperty list;
  list.Append().SetString("a");
  const BindingProperty& read_only = list;
  EXPECT_TRUE(read_only.Find("x").IsEmpty());
  EXPECT_TRUE(read_only.At(1).IsEmpty());
  EXPECT_EQ(&read_only.At(1), &read_only.Find("x")) << "one shared empty value";
  EXPECT_EQ(read_only.At(0).AsString(), "a");
  EXPECT_EQ(list.Kind(), BindingKind::kCollection);
  EXPECT_EQ(list.Size(), 1u);
  EXPECT_TRUE(read_only.Members().begin() == read_only.Members().end());

  BindingProperty structure;
  structure.Member("name").SetString("v");
  const BindingProperty& read_structure = structure;
  EXPECT_EQ(read_structure.Find("name").AsString(), "v");
  EXPECT_EQ(read_structure.Find(std::string_view("name\0x", 6)).AsString(), "v");
  EXPECT_TRUE(read_structure.Find("nam").IsEmpty());
  EXPECT_TRUE(read_structure.Find("names").IsEmpty());
  EXPECT_TRUE(read_structure.At(0).IsEmpty());
}

TEST(BindingPropertyTest, ReserveBeyondTheLimitThrowsLengthError) {
  BindingProperty list;
  list.MakeCollection();
  list.Reserve(100);
  EXPECT_EQ(list.Size(), 0u);
  EXPECT_THROW(list.Reserve(0x10000000), std::length_error);
  EXPECT_THROW(list.At(0x0FFFFFFF), std::length_error);
  BindingProperty scalar;
  scalar.SetBool(true);
  scalar.Reserve(0x10000000);  // not a collection: nothing happens
  EXPECT_EQ(scalar.Kind(), BindingKind::kBool);
}

// Member references must survive any number of later insertions; checked
// against std::map. Long sorted runs would unbalance a tree that failed to
// rebalance (and overrun its fixed-depth insertion path).
TEST(BindingPropertyTest, MembersStayPutAndSortedInAnyInsertionOrder) {
  auto padded = [](int i) {
    std::string digits = std::to_string(i);
    return std::string(8 - digits.size(), '0') + digits;
  };
  std::mt19937 random(12345);
  struct Row {
    const char* name;
    std::function<std::string(int)> name_of;
    int count;
  };
  const Row rows[] = {
      {"random with repeats", [&](int) { return std::to_string(random() % 2000); }, 3000},
      {"ascending", [&](int i) { return padded(i); }, 20000},
      {"descending", [&](int i) { return padded(20000 - i); }, 20000},
      {"zigzag", [&](int i) { return padded(i % 2 == 0 ? i : 20000 - i); }, 20000},
      {"long shared prefix",
       [&](int) { return "restrictionArgs." + padded(static_cast<int>(random() % 5000)); }, 3000},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    // A member, so that clearing it releases each record (a root drops its
    // store's pages whole).
    BindingProperty root;
    BindingProperty& structure = root.Member("structure");
    structure.MakeStructure();
    const size_t pages_before = PageProvider::Process().Statistics().pages_in_use;
    std::map<std::string, BindingProperty*> model;
    for (int i = 0; i < row.count; ++i) {
      const std::string name = row.name_of(i);
      BindingProperty& member = structure.Member(name);
      auto [it, inserted] = model.emplace(name, &member);
      ASSERT_EQ(it->second, &member) << name;
      if (inserted) member.SetString(name);
    }
    ASSERT_EQ(structure.Size(), model.size());
    auto expected = model.begin();
    for (const auto& [name, member] : structure.Members()) {
      ASSERT_EQ(name, expected->first);
      ASSERT_EQ(&member, expected->second);
      ASSERT_EQ(member.AsString(), name);
      ++expected;
    }
    const BindingProperty& read_only = structure;
    EXPECT_EQ(&read_only.Find(model.begin()->first), model.begin()->second);
    EXPECT_EQ(InternedCount(structure), model.size() + 1) << "each name is a key and a value";
    structure.Clear();
    EXPECT_EQ(PageProvider::Process().Statistics().pages_in_use, pages_before)
        << "members, names and the tree all go back";
  }
}

// Small structures are searched along their name-order chain, larger ones
// through a tree built when they outgrow the chain; either way every member
// is found, no absent name is, and members inserted across the change of
// form keep their place. Names are "m<2i>", so "m<2i+1>" and names before
// the first and after the last are absent.
TEST(BindingPropertyTest, FindsEveryMemberAndNoOtherAtEverySize) {
  auto name = [](int i) {
    std::string digits = std::to_string(i);
    return "m" + std::string(4 - digits.size(), '0') + digits;
  };
  struct Row {
    const char* order;
    std::function<int(int, int)> rank;  // the i-th of n names inserted
  };
  const Row rows[] = {
      {"ascending", [](int i, int) { return i; }},
      {"descending", [](int i, int n) { return n - 1 - i; }},
      {"outside in", [](int i, int n) { return i % 2 == 0 ? i / 2 : n - 1 - i / 2; }},
  };
  for (const Row& row : rows) {
    for (int count : {1, 2, 15, 16, 17, 18, 40}) {
      SCOPED_TRACE(std::string(row.order) + ", " + std::to_string(count) + " members");
      BindingProperty built;
      std::map<std::string, BindingProperty*> model;
      for (int i = 0; i < count; ++i) {
        const std::string member = name(2 * row.rank(i, count) + 2);
        BindingProperty& value = built.Member(member);
        value.SetString(member);
        model.emplace(member, &value);
        // Every member so far stays where it was and is found.
        for (const auto& [present, address] : model) {
          ASSERT_EQ(&std::as_const(built).Find(present), address) << present << " after " << i;
        }
      }
      ASSERT_EQ(built.Size(), model.size());
      for (int i = 0; i <= 2 * count + 2; i += 2) {
        const std::string absent = i == 0 ? "a" : name(i + 1);
        EXPECT_TRUE(std::as_const(built).Find(absent).IsEmpty()) << absent;
      }
      EXPECT_TRUE(std::as_const(built).Find("z").IsEmpty());
      auto expected = model.begin();
      for (const auto& [member, value] : built.Members()) {
        ASSERT_EQ(member, expected->first);
        ASSERT_EQ(&value, expected->second);
        ++expected;
      }
      // A copy (inserted in name order) finds the same members.
      const BindingProperty copy(built);
      for (const auto& [present, address] : model) {
        EXPECT_EQ(copy.Find(present).AsString(), present);
      }
    }
  }
}

// The recent-strings cache in front of the interning table must keep texts
// apart that share their length and most of the bytes it probes (the first
// and last 8): those of a decoded document repeat by the thousand, and each
// miss costs a full hash.
TEST(BindingStoreTest, RecentStringsStayFoundWhenTheyDifferInFewBytes) {
  struct Row {
    const char* name;
    std::vector<std::string> texts;
  };
  const Row rows[] = {
      {"differ in the 7th and 8th bytes",
       {"PlayerTimedRestriction", "PlayerLevelRestriction", "PlayerMinorRestriction"}},
      {"differ in the first byte", {"aueueId", "bueueId", "cueueId"}},
      {"differ in the last byte", {"summonerIdA", "summonerIdB", "summonerIdC"}},
      {"differ in the last 8 of 16 bytes",
       {"expiredTimestamp", "expiredTimeStamp", "expiredTimestAmp"}},
      {"short texts", {"30", "31", "40"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingProperty list;
    for (const std::string& text : row.texts) list.Append().SetString(text);
    const BindingStore& store = *list.StoreForTesting();
    for (const std::string& text : row.texts) {
      const auto* found = store.FindRecent(text);
      ASSERT_NE(found, nullptr) << text;
      EXPECT_EQ(found->View(), text);
    }
  }
}

TEST(BindingPropertyTest, CopiesInternRepeatedStringsOnce) {
  BindingProperty source;
  for (int i = 0; i < 50; ++i) {
    BindingProperty& item = source.Append();
    item.Member("name").SetString("same");
    item.Member("tags").Append().SetString("same");
  }
  EXPECT_EQ(InternedCount(source), 3u);  // "name", "tags", "same"

  BindingProperty destination;
  destination.Member("holder") = source;
  EXPECT_EQ(InternedCount(destination), 4u);  // plus "holder"
  EXPECT_EQ(Walk(destination.Find("holder")), Walk(source));

  BindingProperty& copy = destination.Member("holder");
  for (size_t i = 0; i < copy.Size(); ++i) {
    copy.At(i).Member("name").Clear();
    copy.At(i).Member("tags").At(0).SetUnsigned(1);
  }
  EXPECT_EQ(InternedCount(destination), 3u) << "'same' gone, names stay";
  copy.Clear();
  EXPECT_EQ(InternedCount(destination), 1u);
  EXPECT_EQ(InternedCount(source), 3u) << "copying leaves the source alone";
}

TEST(BindingPropertyTest, MovesAndCopiesBetweenTrees) {
  struct Row {
    const char* name;
    std::function<void(BindingProperty& a, BindingProperty& b)> act;
    const char* a_after;
    const char* b_after;
  };
  // Both trees start as a = {"x": ["s", 1]}, b = {"y": "t"}.
  const Row rows[] = {
      {"move child of a into root b",
       [](BindingProperty& a, BindingProperty& b) { b = std::move(a.Member("x")); }, "{1:x=n/x;}",
       "[2:0<'s'>0,1<u1>1,]"},
      {"copy child of a into root b",
       [](BindingProperty& a, BindingProperty& b) { b = a.Find("x"); },
       "{1:x=[2:0<'s'>0,1<u1>1,]/x;}", "[2:0<'s'>0,1<u1>1,]"},
      {"move root a into child of b",
       [](BindingProperty& a, BindingProperty& b) { b.Member("y") = std::move(a); }, "n",
       "{1:y={1:x=[2:0<'s'>0,1<u1>1,]/x;}/y;}"},
      {"move root into root swaps then clears",
       [](BindingProperty& a, BindingProperty& b) { b = std::move(a); }, "n",
       "{1:x=[2:0<'s'>0,1<u1>1,]/x;}"},
      {"move-construct from a child",
       [](BindingProperty& a, BindingProperty& b) {
         BindingProperty taken(std::move(a.Member("x").At(0)));
         b.Member("taken") = taken;
       },
       "{1:x=[2:0<n>0,1<u1>1,]/x;}", "{2:taken='s'/taken;y='t'/y;}"},
      {"copy descendant into ancestor",
       [](BindingProperty& a, BindingProperty&) { a = a.Find("x").At(0); }, "'s'", "{1:y='t'/y;}"},
      {"move descendant into ancestor",
       [](BindingProperty& a, BindingProperty&) { a = std::move(a.Member("x")); },
       "[2:0<'s'>0,1<u1>1,]", "{1:y='t'/y;}"},
      {"copy ancestor into descendant",
       [](BindingProperty& a, BindingProperty&) { a.Member("x").At(1) = a; },
       "{1:x=[2:0<'s'>0,1<{1:x=[2:0<'s'>0,1<u1>1,]/x;}>1,]/x;}", "{1:y='t'/y;}"},
      {"self assignment",
       [](BindingProperty& a, BindingProperty&) {
         BindingProperty& self = a;
         a = self;
         a = std::move(self);
       },
       "{1:x=[2:0<'s'>0,1<u1>1,]/x;}", "{1:y='t'/y;}"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingProperty a;
    a.Member("x").Append().SetString("s");
    a.Member("x").Append().SetUnsigned(1);
    BindingProperty b;
    b.Member("y").SetString("t");
    row.act(a, b);
    EXPECT_EQ(Walk(a), row.a_after);
    EXPECT_EQ(Walk(b), row.b_after);
    a.Clear();
    EXPECT_EQ(InternedCount(a), 0u) << "a's store empties";
  }
}

// A setter's argument may point into the very tree it replaces. The texts
// are longer than any pool slot, so they live on the heap where a read after
// release would be caught by the address sanitizer.
TEST(BindingPropertyTest, SettersTakeArgumentsFromTheirOwnTree) {
  const std::string long_text(100, 'x');
  const std::vector<uint8_t> long_bytes(100, 7);
  struct Row {
    const char* name;
    std::function<void(BindingProperty&)> act;
    const char* walk_prefix;
  };
  const Row rows[] = {
      {"string from an element of itself",
       [](BindingProperty& v) { v.SetString(v.At(0).AsString()); }, "'xxx"},
      {"string from its own string",
       [](BindingProperty& v) {
         v.SetString(v.At(0).AsString());
         v.SetString(v.AsString());
       },
       "'xxx"},
      {"string from its own blob",
       [](BindingProperty& v) {
         v.SetBlob(v.At(1).AsBlob());
         const auto bytes = v.AsBlob();
         v.SetString(std::string_view(reinterpret_cast<const char*>(bytes.data()), 3));
       },
       "'\x07"},
      {"blob from an element of itself", [](BindingProperty& v) { v.SetBlob(v.At(1).AsBlob()); },
       "b100"},
      {"blob from its own blob",
       [](BindingProperty& v) {
         v.SetBlob(v.At(1).AsBlob());
         v.SetBlob(v.AsBlob());
       },
       "b100"},
      {"member named by an element of itself",
       [](BindingProperty& v) { v.Member(v.At(0).AsString()).SetBool(true); }, "{1:xxx"},
      {"member named by one of its members",
       [](BindingProperty& v) {
         const std::string text(v.At(0).AsString());
         v.Member("k").SetString(text);  // v is a structure now
         v.Member(v.Find("k").AsString()).SetBool(true);
       },
       "{2:k="},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingProperty value;
    value.Append().SetString(long_text);
    value.Append().SetBlob(long_bytes);
    row.act(value);
    std::string walk = Walk(value);
    for (char& c : walk) {
      if (c == '\x07') c = 'B';
    }
    std::string expected = row.walk_prefix;
    for (char& c : expected) {
      if (c == '\x07') c = 'B';
    }
    EXPECT_EQ(walk.substr(0, expected.size()), expected) << walk.substr(0, 40);
  }
}

TEST(BindingPropertyTest, ResultErrorMessages) {
  struct Row {
    const char* name;
    std::function<void(BindingResult&)> build;
    bool ok;
    const char* error;
  };
  const Row rows[] = {
      {"fresh", [](BindingResult&) {}, true, ""},
      {"failed", [](BindingResult& r) { r.SetError("went wrong"); }, false, "went wrong"},
      {"failed over a value",
       [](BindingResult& r) {
         r.Member("error").SetString("old");
         r.Append();
         r.SetError("new");
       },
       false, "new"},
      {"ok with an error member",
       [](BindingResult& r) { r.Member("error").SetString("not a failure"); }, true, ""},
      {"failed, error not a string",
       [](BindingResult& r) {
         r.SetError("x");
         r.Member("error").SetSigned(1);
       },
       false, ""},
      {"message from its own member",
       [](BindingResult& r) {
         r.SetError("again");
         r.SetError(r.Error());
       },
       false, "again"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingResult result;
    row.build(result);
    EXPECT_EQ(result.Ok(), row.ok);
    EXPECT_EQ(result.Error(), row.error);
    if (!row.ok && *row.error != '\0') {
      EXPECT_EQ(result.Size(), 1u);
    }
    BindingResult moved(std::move(result));
    EXPECT_EQ(moved.Ok(), row.ok) << "the flag travels with the value";
    EXPECT_EQ(moved.Error(), row.error);
  }
  BindingProperty value;
  value.SetSigned(4);
  BindingResult from_value(value);
  EXPECT_TRUE(from_value.Ok());
  EXPECT_EQ(from_value.AsSigned(), 4);
}

// Depth that would overflow the call stack if any walk recursed.
TEST(BindingPropertyTest, DeepTreesCopyWalkAndReleaseWithoutRecursion) {
  constexpr int kDepth = 100000;
  BindingProperty root;
  BindingProperty* cursor = &root;
  for (int i = 0; i < kDepth; ++i) {
    cursor = i % 2 == 0 ? &cursor->Append() : &cursor->Member("k");
  }
  cursor->SetString("leaf");

  BindingProperty copy(root);
  RecordingVisitor visitor;
  copy.Visit(visitor);
  EXPECT_EQ(visitor.calls.size(), Walk(root).size());

  BindingProperty holder;
  holder.Member("tree") = root;   // copy into a child
  holder.Member("tree").Clear();  // releases a deep child
  EXPECT_EQ(InternedCount(holder), 1u);
  holder.Member("tree") = std::move(copy);
  EXPECT_TRUE(copy.IsEmpty());
  // Destructors drop the stores of `root` and `holder` whole.
}

TEST(BindingPropertyTest, DroppedTreesReturnAllPages) {
  const size_t pages_before = PageProvider::Process().Statistics().pages_in_use;
  {
    std::vector<BindingProperty> trees(200);
    for (size_t t = 0; t < trees.size(); ++t) {
      for (int i = 0; i < 300; ++i) {
        BindingProperty& item = trees[t].Append();
        item.Member("id").SetUnsigned(i);
        item.Member("name").SetString("item " + std::to_string(i));
      }
      if (t % 2 == 0) trees[t].At(5).Clear();
    }
    EXPECT_GT(PageProvider::Process().Statistics().pages_in_use, pages_before);
    for (size_t t = 0; t < trees.size(); t += 3) trees[t].Clear();
    for (size_t t = 1; t < trees.size(); t += 3) trees[t].Member("gone");
  }
  EXPECT_EQ(PageProvider::Process().Statistics().pages_in_use, pages_before);
}

TEST(StaticTypeTest, DisplayAndStaticNames) {
  char display[10];
  static_type_detail::FormatDisplayName(0x00AB12EF, display);
  EXPECT_STREQ(display, "#00AB12EF");
  const char* name = static_type_detail::MakeStaticName("class ", "kav::Thing");
  EXPECT_STREQ(name, "const char *__cdecl StaticType::Name<class kav::Thing>(void)");
  EXPECT_EQ(static_type_detail::MakeStaticName("class ", "kav::Thing"), name) << "interned";
  EXPECT_STREQ(StaticType::Name<int>(), "const char *__cdecl StaticType::Name<int>(void)");
  EXPECT_STREQ(StaticType::Name<Color>(),
               "const char *__cdecl StaticType::Name<enum kav::{anonymous}::Color>(void)");
}

}  // namespace
}  // namespace kav
