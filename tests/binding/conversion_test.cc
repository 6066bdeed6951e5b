#include "binding/conversion.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>

#include "binding/declare.h"
#include "binding/host_value.h"
#include "binding/property_text.h"
#include "binding/type_registry.h"
#include "platform/allocation.h"

namespace kav::conversion_test {

enum class Color : int32_t { kRed = 0, kGreen = 2, kBlue = 3 };

struct Inner {
  int32_t a = 0;
  std::string b;
};

struct Sample {
  bool flag = false;
  int8_t i8 = 0;
  int16_t i16 = 0;
  int32_t i32 = 0;
  int64_t i64 = 0;
  uint8_t u8 = 0;
  uint16_t u16 = 0;
  uint32_t u32 = 0;
  uint64_t u64 = 0;
  float f32 = 0;
  double f64 = 0;
  std::string text;
  Color color = Color::kRed;
  BindingProperty object;
  std::optional<int32_t> maybe;
  Inner inner;
  std::vector<int32_t> list;
  std::map<std::string, int32_t> map;
  std::unordered_map<std::string, Inner> inners;
  std::vector<bool> bits;
};

struct WithRequired {
  int32_t id = 0;
  std::string name;
};

struct Omitting {
  int32_t omitted = 0;
  int32_t kept = 0;
  double ratio = 0;
  std::string label;
  std::vector<int32_t> items;
  bool on = false;
  Color color = Color::kRed;
};

struct Unregistered {
  int32_t x = 0;
};

// Two fields under one member name: the later one's value wins.
struct SharedName {
  int32_t first = 0;
  std::string second;
  bool last = false;
};

struct HoldsUnregistered {
  int32_t before = 0;
  Unregistered inside;
};

constexpr auto BindingEnumerators(const Color*) {
  return Enumerators<Color>(
      {{"Red", Color::kRed}, {"Green", Color::kGreen}, {"Blue", Color::kBlue}});
}

constexpr auto BindingFields(const Inner*) {
  return Fields(Field("a", &Inner::a), Field("b", &Inner::b));
}

constexpr auto BindingFields(const Sample*) {
  return Fields(
      Field("flag", &Sample::flag), Field("i8", &Sample::i8), Field("i16", &Sample::i16),
      Field("i32", &Sample::i32), Field("i64", &Sample::i64), Field("u8", &Sample::u8),
      Field("u16", &Sample::u16), Field("u32", &Sample::u32), Field("u64", &Sample::u64),
      Field("f32", &Sample::f32), Field("f64", &Sample::f64), Field("text", &Sample::text),
      Field("color", &Sample::color), Field("object", &Sample::object),
      Field("maybe", &Sample::maybe), Field("inner", &Sample::inner), Field("list", &Sample::list),
      Field("map", &Sample::map), Field("inners", &Sample::inners), Field("bits", &Sample::bits));
}

constexpr auto BindingFields(const WithRequired*) {
  return Fields(Field("id", &WithRequired::id, kRequired), Field("name", &WithRequired::name));
}

constexpr auto BindingFields(const Omitting*) {
  return Fields(Field("omitted", &Omitting::omitted, kOmitIfDefault),
                Field("kept", &Omitting::kept), Field("ratio", &Omitting::ratio, kOmitIfDefault),
                Field("label", &Omitting::label, kOmitIfDefault),
                Field("items", &Omitting::items, kOmitIfDefault),
                Field("on", &Omitting::on, kOmitIfDefault),
                Field("color", &Omitting::color, kOmitIfDefault));
}

constexpr auto BindingFields(const SharedName*) {
  return Fields(Field("same", &SharedName::first), Field("same", &SharedName::second),
                Field("last", &SharedName::last));
}

constexpr auto BindingFields(const HoldsUnregistered*) {
  return Fields(Field("before", &HoldsUnregistered::before),
                Field("inside", &HoldsUnregistered::inside));
}

namespace {

using testing_support::PropertyText;

BindingProperty Signed(int64_t v) {
  BindingProperty p;
  p.SetSigned(v);
  return p;
}
BindingProperty Unsigned(uint64_t v) {
  BindingProperty p;
  p.SetUnsigned(v);
  return p;
}
BindingProperty Float(double v) {
  BindingProperty p;
  p.SetFloat(v);
  return p;
}
BindingProperty Text(std::string_view v) {
  BindingProperty p;
  p.SetString(v);
  return p;
}
BindingProperty Bool(bool v) {
  BindingProperty p;
  p.SetBool(v);
  return p;
}
BindingProperty ColorValue(int32_t v) {
  BindingProperty p;
  p.SetEnum(v, StaticType::Of<Color>());
  return p;
}
BindingProperty List(std::initializer_list<BindingProperty> elements) {
  BindingProperty p;
  p.MakeCollection();
  for (const BindingProperty& element : elements) p.Append() = element;
  return p;
}
BindingProperty Object(std::initializer_list<std::pair<const char*, BindingProperty>> members) {
  BindingProperty p;
  p.MakeStructure();
  for (const auto& [name, value] : members) p.Member(name) = value;
  return p;
}

class ConversionTest : public ::testing::Test {
 protected:
  ConversionTest() {
    RegisterEnumeration<Color>(registry_, "Color");
    RegisterStructure<Inner>(registry_, "Inner");
    RegisterStructure<Sample>(registry_, "Sample");
    RegisterStructure<WithRequired>(registry_, "WithRequired");
    RegisterStructure<Omitting>(registry_, "Omitting");
    RegisterStructure<HoldsUnregistered>(registry_, "HoldsUnregistered");
    RegisterStructure<SharedName>(registry_, "SharedName");
  }

  // Assigns `input` to a fresh T at path "p" and returns the status.
  template <class T>
  std::function<BindingResult()> Into(BindingProperty input) {
    return [this, input] {
      BindingResult status;
      T native{};
      (void)FromBindingProperty(status, input, "p", native, registry_);
      return status;
    };
  }

  TypeRegistry registry_;
};

// Each message of the value conversion, produced by the input named in the row.
TEST_F(ConversionTest, EveryFailureMessage) {
  struct Row {
    const char* name;
    std::function<BindingResult()> convert;
    std::string message;
  };
  const Row rows[] = {
      {"M1 empty to int32", Into<int32_t>(BindingProperty()), "A value for 'p' is required."},
      {"M1 empty to registered structure", Into<Inner>(BindingProperty()),
       "A value for 'p' is required."},
      {"M2 number to bool", Into<bool>(Signed(1)),
       "Couldn't assign value to 'p' of type bool because the input is of an invalid type "
       "signed."},
      {"M3 True to bool", Into<bool>(Text("True")),
       "Value True for 'p' of type bool is in an incorrect format. Options are \"true\", "
       "\"false\", \"1\", \"0\"."},
      {"M4 trailing blank to int32", Into<int32_t>(Text("42 ")),
       "Value 42  for 'p' of type int32 is in an incorrect format"},
      {"M4 word to double", Into<double>(Text("1.5x")),
       "Value 1.5x for 'p' of type double is in an incorrect format"},
      {"M5 unsigned above int32", Into<int32_t>(Unsigned(2147483648u)),
       "Value 2147483648 for 'p' of type int32 is out of range"},
      {"M5 signed below int8", Into<int8_t>(Signed(-129)),
       "Value -129 for 'p' of type int8 is out of range"},
      {"M5 negative float to uint32", Into<uint32_t>(Float(-0.5)),
       "Value -0.5 for 'p' of type uint32 is out of range"},
      {"M5 minus text to uint64", Into<uint64_t>(Text("-1")),
       "Value -1 for 'p' of type uint64 is out of range"},
      {"M5 text above uint8", Into<uint8_t>(Text("0x100")),
       "Value 0x100 for 'p' of type uint8 is out of range"},
      {"M5 int64 overflow text", Into<int64_t>(Text("9223372036854775808")),
       "Value 9223372036854775808 for 'p' of type int64 is out of range"},
      {"M5 enum value above uint8", Into<uint8_t>(ColorValue(300)),
       "Value 300 for 'p' of type uint8 is out of range"},
      {"M5 float beyond float32", Into<float>(Float(1e300)),
       "Value 1e+300 for 'p' of type float is out of range"},
      {"M5 float 2^63 to int64", Into<int64_t>(Float(9223372036854775808.0)),
       "Value 9.22337e+18 for 'p' of type int64 is out of range"},
      {"M5 NaN to int32", Into<int32_t>(Float(std::nan(""))),
       "Value nan for 'p' of type int32 is out of range"},
      {"M5 text overflowing double", Into<double>(Text("1e999")),
       "Value 1e999 for 'p' of type double is out of range"},
      {"M6 bool to int32", Into<int32_t>(Bool(true)),
       "Couldn't assign value to 'p' of type int32 because the input is of an invalid type "
       "bool."},
      {"M6 collection to uint16", Into<uint16_t>(List({})),
       "Couldn't assign value to 'p' of type uint16 because the input is of an invalid type "
       "collection."},
      {"M6 structure to double", Into<double>(Object({})),
       "Couldn't assign value to 'p' of type double because the input is of an invalid type "
       "structure."},
      {"M7 unknown number text", Into<Color>(Text("7")),
       "7 is not a valid Color enumeration value for 'p'."},
      {"M7 unknown name", Into<Color>(Text("Purple")),
       "Purple is not a valid Color enumeration value for 'p'."},
      {"M7 unknown signed", Into<Color>(Signed(1)),
       "1 is not a valid Color enumeration value for 'p'."},
      {"M8 float to enum", Into<Color>(Float(2.0)),
       "Couldn't assign value to 'p' of enum type because the input is of an invalid type "
       "float."},
      {"M9 number to string", Into<std::string>(Signed(5)),
       "Couldn't assign value to 'p' because the input is not a string."},
      {"M10 enum without name to string", Into<std::string>(ColorValue(9)),
       "9 is not a valid enumeration value for 'p'."},
      {"M11 unregistered structure", Into<Unregistered>(Object({})),
       "Couldn't assign value to 'p' because the input is an unregistered structure or not a "
       "structure at all."},
      {"M12 text to structure", Into<Inner>(Text("x")),
       "Couldn't assign value to 'p' of type Inner because the input not a structure."},
      {"M13 missing required field", Into<WithRequired>(Object({{"name", Text("n")}})),
       "Couldn't assign value to 'p' of type WithRequired because the input structure doesn't "
       "have required field 'id'."},
      {"M13 null required field", Into<WithRequired>(Object({{"id", BindingProperty()}})),
       "Couldn't assign value to 'p' of type WithRequired because the input structure doesn't "
       "have required field 'id'."},
      {"M14 unregistered structure out",
       [this] { return ToBindingProperty(Unregistered{}, registry_); },
       "Couldn't convert native value because it's an unregistered structure."},
      {"M14 unregistered structure nested",
       [this] { return ToBindingProperty(HoldsUnregistered{}, registry_); },
       "Couldn't convert native value because it's an unregistered structure."},
      {"M15 number to vector", Into<std::vector<int32_t>>(Signed(1)),
       "Couldn't assign value to 'p' of type vector because the input not a collection."},
      {"M16 collection to map", Into<std::map<std::string, int32_t>>(List({Signed(1)})),
       "Couldn't assign value to 'p' of type map because the input not a structure."},
      {"M17 unknown host kind",
       [] {
         KavHostValue host{};
         host.kind = 11;
         BindingResult status;
         BindingProperty target;
         EXPECT_FALSE(FromHostValue(status, target, host, "p"));
         return status;
       },
       "Couldn't assign value to 'p' of type object because the input is of an incompatible "
       "type ''."},
      // Paths are never joined: a field reports its own name, an element its
      // container's path.
      {"field path", Into<Sample>(Object({{"inner", Object({{"a", Text("z")}})}})),
       "Value z for 'a' of type int32 is in an incorrect format"},
      {"element path", Into<std::vector<int32_t>>(List({Signed(1), Text("q")})),
       "Value q for 'p' of type int32 is in an incorrect format"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingResult status = row.convert();
    EXPECT_FALSE(status.Ok());
    EXPECT_EQ(status.Error(), row.message);
  }
}

// Accepted inputs: each row assigns one member of a Sample and checks the
// produced native value by converting it back.
TEST_F(ConversionTest, AcceptedInputs) {
  struct Row {
    const char* field;
    BindingProperty input;
    std::string expected;  // PropertyText of the field after the round trip
  };
  const Row rows[] = {
      {"flag", Text("1"), "true"},
      {"flag", Text("false"), "false"},
      {"flag", Bool(true), "true"},
      {"i32", Unsigned(5), "s5"},
      {"i32", Float(5.7), "s5"},
      {"i32", Float(-5.7), "s-5"},
      {"i32", Text(" 42"), "s42"},
      {"i32", Text("0x10"), "s16"},
      {"i32", Text("010"), "s8"},
      {"i32", Text("-2147483648"), "s-2147483648"},
      {"i32", Text(""), "s0"},
      {"i32", ColorValue(3), "s3"},
      {"i8", Signed(-128), "s-128"},
      {"u8", Signed(255), "u255"},
      {"u16", Float(-0.0), "u0"},
      {"u64", Unsigned(18446744073709551615u), "u18446744073709551615"},
      {"u64", Text("18446744073709551615"), "u18446744073709551615"},
      {"i64", Text("-9223372036854775808"), "s-9223372036854775808"},
      {"f64", Signed(-3), "f-3.000000"},
      {"f64", Unsigned(18446744073709551615u), "f18446744073709551616.000000"},
      {"f64", Text("0x1p-2"), "f0.250000"},
      {"f64", Text(""), "f0.000000"},
      {"f32", Text("2.5"), "f2.500000"},
      {"text", ColorValue(2), "\"Green\""},
      {"text", Text("abc"), "\"abc\""},
      {"color", Text("Blue"), "enum(3)"},
      {"color", Text("2"), "enum(2)"},
      {"color", Unsigned(0x100000002u), "enum(2)"},  // low 32 bits
      {"color", ColorValue(3), "enum(3)"},
      {"object", List({Signed(1), BindingProperty()}), "[s1,null]"},
      {"object", Text("as is"), "\"as is\""},
      {"maybe", Text("12"), "s12"},
      {"inner", Object({{"a", Signed(1)}, {"x", Text("ignored")}}), "{a:s1,b:\"\"}"},
      {"list", List({Signed(1), BindingProperty(), Signed(3)}), "[s1,s0,s3]"},
      {"map", Object({{"k", Signed(1)}, {"gone", BindingProperty()}}), "{k:s1}"},
      {"inners", Object({{"x", Object({{"b", Text("y")}})}}), "{x:{a:s0,b:\"y\"}}"},
      {"bits", List({Bool(true), Text("0"), Bool(true)}), "[true,false,true]"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.field) + " <- " + PropertyText(row.input));
    BindingResult status;
    Sample sample;
    ASSERT_TRUE(
        FromBindingProperty(status, Object({{row.field, row.input}}), "p", sample, registry_))
        << status.Error();
    BindingResult back = ToBindingProperty(sample, registry_);
    ASSERT_TRUE(back.Ok()) << back.Error();
    EXPECT_EQ(PropertyText(back.Find(row.field)), row.expected);
  }
}

// What a failed or failing conversion leaves in the native target.
TEST_F(ConversionTest, TargetsAfterFailure) {
  BindingResult failed;
  failed.SetError("earlier");

  int32_t number = 7;
  EXPECT_FALSE(FromBindingProperty(failed, Signed(5), "p", number, registry_));
  EXPECT_EQ(number, 0) << "scalar gets its zero value";

  std::string text = "old";
  EXPECT_FALSE(FromBindingProperty(failed, Text("new"), "p", text, registry_));
  EXPECT_EQ(text, "");

  std::vector<int32_t> list = {1, 2};
  EXPECT_FALSE(FromBindingProperty(failed, List({Signed(3)}), "p", list, registry_));
  EXPECT_TRUE(list.empty()) << "containers are emptied even when already failed";

  Inner inner{4, "kept"};
  EXPECT_FALSE(FromBindingProperty(failed, Object({{"a", Signed(9)}}), "p", inner, registry_));
  EXPECT_EQ(inner.a, 4) << "a structure is left as it was";
  EXPECT_EQ(failed.Error(), "earlier") << "the first message stays";

  // Own failures: the failing scalar is zeroed, earlier elements and fields stay.
  BindingResult status;
  number = 7;
  EXPECT_FALSE(FromBindingProperty(status, Text("x"), "p", number, registry_));
  EXPECT_EQ(number, 0);

  status = BindingResult();
  EXPECT_FALSE(
      FromBindingProperty(status, List({Signed(1), Text("x"), Signed(3)}), "p", list, registry_));
  EXPECT_EQ(list, (std::vector<int32_t>{1, 0, 0}));

  status = BindingResult();
  std::map<std::string, int32_t> map;
  EXPECT_FALSE(FromBindingProperty(status, Object({{"a", Signed(1)}, {"b", Text("x")}}), "p", map,
                                   registry_));
  EXPECT_EQ(map, (std::map<std::string, int32_t>{{"a", 1}}));

  status = BindingResult();
  Sample sample;
  sample.text = "untouched";
  EXPECT_FALSE(FromBindingProperty(
      status, Object({{"flag", Bool(true)}, {"i8", Signed(1000)}, {"text", Text("late")}}), "p",
      sample, registry_));
  EXPECT_TRUE(sample.flag);
  EXPECT_EQ(sample.text, "untouched") << "fields after the failure are not read";

  status = BindingResult();
  std::optional<int32_t> maybe = 3;
  EXPECT_TRUE(FromBindingProperty(status, BindingProperty(), "p", maybe, registry_));
  EXPECT_FALSE(maybe.has_value()) << "empty input: no value, no failure";
}

TEST_F(ConversionTest, MissingMembersKeepFieldValues) {
  Sample sample;
  sample.i32 = 11;
  sample.list = {5};
  BindingResult status;
  ASSERT_TRUE(FromBindingProperty(status, Object({{"i32", BindingProperty()}, {"u8", Signed(2)}}),
                                  "p", sample, registry_));
  EXPECT_EQ(sample.i32, 11);
  EXPECT_EQ(sample.list, std::vector<int32_t>{5});
  EXPECT_EQ(sample.u8, 2);
}

TEST_F(ConversionTest, OmitIfDefaultLeavesOutDefaultsOnly) {
  Omitting defaults;
  BindingResult value = ToBindingProperty(defaults, registry_);
  ASSERT_TRUE(value.Ok());
  EXPECT_EQ(PropertyText(value), "{kept:s0}");

  Omitting set;
  set.omitted = 1;
  set.ratio = std::nan("");
  set.label = "l";
  set.items = {0};
  set.on = true;
  set.color = Color::kGreen;
  value = ToBindingProperty(set, registry_);
  ASSERT_TRUE(value.Ok());
  EXPECT_EQ(PropertyText(value),
            "{color:enum(2),items:[s0],kept:s0,label:\"l\",omitted:s1,on:true,ratio:fnan}");
}

TEST_F(ConversionTest, ToPropertyShapes) {
  Sample sample;
  sample.i8 = -1;
  sample.u16 = 7;
  sample.f32 = 0.5f;
  sample.color = Color::kBlue;
  sample.object.SetString("o");
  sample.inners["k"] = Inner{2, "two"};
  BindingResult value = ToBindingProperty(sample, registry_);
  ASSERT_TRUE(value.Ok());
  EXPECT_EQ(PropertyText(value),
            "{bits:[],color:enum(3),f32:f0.500000,f64:f0.000000,flag:false,i16:s0,i32:s0,"
            "i64:s0,i8:s-1,inner:{a:s0,b:\"\"},inners:{k:{a:s2,b:\"two\"}},list:[],map:{},"
            "maybe:null,object:\"o\",text:\"\",u16:u7,u32:u0,u64:u0,u8:u0}");
  EXPECT_EQ(value.Find("color").AsEnum().type, &StaticType::Of<Color>());

  std::vector<Inner> list = {{1, "a"}};
  value = ToBindingProperty(list, registry_);
  ASSERT_TRUE(value.Ok());
  EXPECT_EQ(PropertyText(value), "[{a:s1,b:\"a\"}]");
}

// Everything a host value holds, its ownership included, as text.
std::string HostText(const KavHostValue& value) {
  const uint32_t kind = value.kind;
  const uint32_t size = value.payload.ref.size;
  const void* data = value.payload.ref.data;
  switch (kind) {
    case KAV_VALUE_NULL:
      return "null";
    case KAV_VALUE_BOOL:
      return value.payload.boolean ? "true" : "false";
    case KAV_VALUE_SIGNED:
      return "s" + std::to_string(value.payload.i64);
    case KAV_VALUE_UNSIGNED:
      return "u" + std::to_string(value.payload.u64);
    case KAV_VALUE_FLOAT:
      return "f" + std::to_string(value.payload.f64);
    case KAV_VALUE_STRING_BORROWED:
    case KAV_VALUE_STRING_OWNED:
    case KAV_VALUE_BLOB_BORROWED:
    case KAV_VALUE_BLOB_OWNED: {
      std::string text = "k" + std::to_string(kind) + "(" + std::to_string(size) + ")";
      // Strings carry their terminating zero as well.
      const size_t bytes = size + (kind <= KAV_VALUE_STRING_OWNED ? 1 : 0);
      for (size_t i = 0; data != nullptr && i < bytes; ++i) {
        text += std::to_string(static_cast<const uint8_t*>(data)[i]) + ".";
      }
      return text;
    }
    case KAV_VALUE_ARRAY: {
      std::string text = "[";
      for (uint32_t i = 0; i < size; ++i) {
        text += HostText(static_cast<const KavHostValue*>(data)[i]) + ",";
      }
      return text + (data == nullptr ? "no block]" : "]");
    }
    case KAV_VALUE_MAP: {
      std::string text = "{";
      for (uint32_t i = 0; i < size; ++i) {
        const KavHostMapEntry& entry = static_cast<const KavHostMapEntry*>(data)[i];
        const int owns_key = entry.owns_key;
        text += std::string(entry.key) + "/" + std::to_string(owns_key) + ":" +
                HostText(entry.value) + ",";
      }
      return text + (data == nullptr ? "no block}" : "}");
    }
    default:
      return "?";
  }
}

// The host value of `native` built directly, and built through a
// BindingProperty: as text, or the error each way gave.
template <class T>
std::pair<std::string, std::string> BothWays(const T& native, const TypeRegistry& registry,
                                             const TypeRegistry* names) {
  KavHostValue direct{};
  BindingResult status;
  ValueTraits<T>::ToHost(status, direct, native, nullptr, registry, names);
  std::string direct_text =
      status.Ok() ? HostText(direct) : "error: " + std::string(status.Error());
  ReleaseHostValue(direct);

  std::string through_text;
  BindingResult property = ToBindingProperty(native, registry);
  if (!property.Ok()) {
    through_text = "error: " + std::string(property.Error());
  } else {
    KavHostValue through{};
    EXPECT_TRUE(ToHostValue(through, property, names));
    through_text = HostText(through);
    ReleaseHostValue(through);
  }
  return {direct_text, through_text};
}

TEST_F(ConversionTest, DirectHostValueEqualsTheWayThroughBindingProperty) {
  Sample full;
  full.flag = true;
  full.i8 = -8;
  full.u64 = 18446744073709551615u;
  full.f32 = 0.25f;
  full.f64 = -1e300;
  full.text = std::string("cut\0here", 8);
  full.color = Color::kGreen;
  full.object.Member("x").Append().SetString("y");
  full.maybe = 5;
  full.inner = Inner{1, "one"};
  full.list = {3, -1, 2};
  full.map = {{"b", 2}, {"a", 1}, {"", 0}, {"\xff", 9}, {"ab", 3}};
  full.inners = {{"z", Inner{26, "z"}}, {"m", Inner{13, "m"}}, {"a", Inner{1, "a"}}};
  full.bits = {true, false, true};

  Sample nul_keys;  // keys that a NUL cuts short meet as one member
  nul_keys.map = {{std::string("k\0a", 3), 1}, {std::string("k\0b", 3), 2}, {"k", 3}};

  Omitting set;
  set.omitted = 1;
  set.label = "l";
  set.items = {0};
  set.color = Color::kBlue;

  SharedName shared{7, "seven", true};
  Sample unnamed;
  unnamed.color = static_cast<Color>(42);
  std::optional<Inner> absent;
  std::vector<std::optional<int32_t>> gaps = {1, std::nullopt, 3};
  std::vector<std::byte> blob = {std::byte{0}, std::byte{255}};
  std::vector<std::vector<Inner>> nested = {{}, {Inner{1, "a"}, Inner{2, ""}}};

  struct Row {
    const char* name;
    std::function<std::pair<std::string, std::string>()> both;
  };
  const TypeRegistry* names = &registry_;
  const Row rows[] = {
      {"every kind", [&] { return BothWays(full, registry_, names); }},
      {"defaults", [&] { return BothWays(Sample{}, registry_, names); }},
      {"enumerators as numbers without a registry",
       [&] { return BothWays(full, registry_, nullptr); }},
      {"enumerator without a name", [&] { return BothWays(unnamed, registry_, names); }},
      {"map keys cut by NUL", [&] { return BothWays(nul_keys, registry_, names); }},
      {"all omitted but one", [&] { return BothWays(Omitting{}, registry_, names); }},
      {"some omitted", [&] { return BothWays(set, registry_, names); }},
      {"two fields, one name", [&] { return BothWays(shared, registry_, names); }},
      {"unregistered structure inside",
       [&] { return BothWays(HoldsUnregistered{}, registry_, names); }},
      {"unregistered structure", [&] { return BothWays(Unregistered{}, registry_, names); }},
      {"empty optional", [&] { return BothWays(absent, registry_, names); }},
      {"vector with gaps", [&] { return BothWays(gaps, registry_, names); }},
      {"blob", [&] { return BothWays(blob, registry_, names); }},
      {"empty blob", [&] { return BothWays(std::vector<std::byte>{}, registry_, names); }},
      {"nested vectors", [&] { return BothWays(nested, registry_, names); }},
  };
  const MemoryStatistics before = ReadMemoryStatistics();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto [direct, through] = row.both();
    EXPECT_EQ(direct, through);
  }
  EXPECT_EQ(ReadMemoryStatistics().BytesInUse(), before.BytesInUse());
}

}  // namespace
}  // namespace kav::conversion_test
