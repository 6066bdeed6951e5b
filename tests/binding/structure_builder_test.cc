// StructureBuilder must give exactly the structures that BindingProperty::
// Member gives for the same names, whatever the order of the names, their
// repetition within and across structures, and their number; and the
// structures it links must go on working as ordinary ones.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "binding/binding_property.h"
#include "binding/binding_store.h"

namespace kav {
namespace {

using Names = std::vector<std::string>;

// "name=value,..." in iteration order, each member also checked by Find.
std::string Describe(const BindingProperty& structure) {
  std::string out;
  for (auto [name, member] : structure.Members()) {
    out += std::string(name) + "=" + std::to_string(member.AsUnsigned()) + ",";
    if (&structure.Find(name) != &member) out += "(not found)";
  }
  return out + "#" + std::to_string(structure.Size());
}

// Members added after linking go through tree insertion and must find the
// tree in order.
void AddLater(BindingProperty& structure) {
  for (const char* name : {"zz", "0", "m", "id", "k5"}) structure.Member(name).SetUnsigned(99);
}

Names Range(int count, bool reversed) {
  Names names;
  for (int i = 0; i < count; ++i) names.push_back("n" + std::to_string(reversed ? count - i : i));
  return names;
}

TEST(StructureBuilderTest, GivesTheStructuresThatMemberGives) {
  struct Row {
    const char* name;
    std::vector<Names> objects;
  };
  // Each count of members up to the collected limit, twice in a row: the
  // second object of each pair is laid out from the shape of the first.
  std::vector<Names> every_count_twice;
  for (int count = 1; count <= 32; ++count) {
    every_count_twice.push_back(Range(count, count % 2 == 0));
    every_count_twice.push_back(Range(count, count % 2 == 0));
  }
  const Row rows[] = {
      {"every member count twice in a row", every_count_twice},
      {"same names in a row",
       {{"id", "type", "numPlayers"}, {"id", "type", "numPlayers"}, {"id", "type", "numPlayers"}}},
      {"names change between objects",
       {{"a", "b", "c"}, {"a", "b"}, {"a", "b", "c", "d"}, {"b", "a", "c"}, {"a", "x", "c"}}},
      {"a name repeated within an object", {{"x", "y", "x"}, {"x", "y", "x"}, {"x", "y"}}},
      {"names end at their first NUL",
       {{std::string("a\0b", 3), "a", "c"}, {"a", std::string("c\0", 2)}}},
      {"the empty name", {{"", "a"}, {"", "a"}, {"a", ""}}},
      {"one member and none", {{"only"}, {}, {"only"}, {}}},
      {"more members than are collected", {Range(40, true), Range(40, true), Range(33, false)}},
      {"long names",
       {{"restrictionCodeWithAVeryLongName", "restrictionCodeWithAVeryLongNamf"},
        {"restrictionCodeWithAVeryLongName", "restrictionCodeWithAVeryLongNamf"}}},
      {"long names differing only in the middle",
       {{"restrictionCodeXWithAVeryLongName", "b"},
        {"restrictionCodeYWithAVeryLongName", "b"},
        {"restrictionCodeYWithAVeryLongName", "a"}}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingProperty built;
    BindingProperty expected;
    {
      StructureBuilder builder;
      for (const Names& object : row.objects) {
        BindingProperty& structure = built.Append();
        structure.MakeStructure();
        BindingProperty& reference = expected.Append();
        reference.MakeStructure();
        builder.Open(structure);
        for (size_t i = 0; i < object.size(); ++i) {
          builder.Member(object[i]).SetUnsigned(i + 1);
          reference.Member(object[i]).SetUnsigned(i + 1);
        }
        builder.Close();
      }
    }
    ASSERT_EQ(built.Size(), expected.Size());
    for (size_t i = 0; i < built.Size(); ++i) {
      SCOPED_TRACE(i);
      EXPECT_EQ(Describe(built.At(i)), Describe(expected.At(i)));
      AddLater(built.At(i));
      AddLater(expected.At(i));
      EXPECT_EQ(Describe(built.At(i)), Describe(expected.At(i)));
    }
    // The builder holds no name beyond its life.
    EXPECT_EQ(built.StoreForTesting()->InternedCount(),
              expected.StoreForTesting()->InternedCount());
  }
}

TEST(StructureBuilderTest, NestsAndFillsExistingStructures) {
  BindingProperty root;
  root.Member("kept").SetUnsigned(7);
  {
    StructureBuilder builder;
    builder.Open(root);  // has a member already: filled member by member
    builder.Member("b").SetUnsigned(2);
    EXPECT_EQ(builder.Member("kept").AsUnsigned(), 7u);
    for (int pass = 0; pass < 2; ++pass) {
      BindingProperty& inner = builder.Member(pass == 0 ? "inner" : "other");
      inner.MakeStructure();
      builder.Open(inner);
      builder.Member("z").SetUnsigned(26);
      builder.Member("a").SetUnsigned(1);
      builder.Close();
    }
    BindingProperty& open = builder.Member("open");
    open.MakeStructure();
    builder.Open(open);
    builder.Member("y").SetUnsigned(25);
    builder.Member("x").SetUnsigned(24);
    // Left open: the builder's end closes it.
  }
  EXPECT_EQ(Describe(root), "b=2,inner=0,kept=7,open=0,other=0,#5");
  EXPECT_EQ(Describe(root.Find("inner")), "a=1,z=26,#2");
  EXPECT_EQ(Describe(root.Find("other")), "a=1,z=26,#2");
  EXPECT_EQ(Describe(root.Find("open")), "x=24,y=25,#2");
}

}  // namespace
}  // namespace kav
