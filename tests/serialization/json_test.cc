#include "serialization/json.h"

#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "binding/binding_property.h"
#include "binding/type_registry.h"

namespace kav {
namespace {

// A typed dump of a value: u5 unsigned, i-5 signed, f5 float, s"x" string,
// true/false, empty, [..] collection, {name:..} structure, b<n> blob,
// e<n> enum.
std::string Describe(const BindingProperty& value) {
  switch (value.Kind()) {
    case BindingKind::kEmpty:
      return "empty";
    case BindingKind::kBool:
      return value.AsBool() ? "true" : "false";
    case BindingKind::kSigned:
      return "i" + std::to_string(value.AsSigned());
    case BindingKind::kUnsigned:
      return "u" + std::to_string(value.AsUnsigned());
    case BindingKind::kFloat: {
      char text[32];
      std::snprintf(text, sizeof text, "f%.17g", value.AsFloat());
      return text;
    }
    case BindingKind::kString:
      return "s\"" + std::string(value.AsString()) + "\"";
    case BindingKind::kBlob:
      return "b" + std::to_string(value.Size());
    case BindingKind::kEnum:
      return "e" + std::to_string(value.AsEnum().value);
    case BindingKind::kCollection: {
      std::string out = "[";
      for (size_t i = 0; i < value.Size(); ++i) {
        if (i > 0) out += ',';
        out += Describe(value.At(i));
      }
      return out + "]";
    }
    case BindingKind::kStructure: {
      std::string out = "{";
      for (auto [name, member] : value.Members()) {
        if (out.size() > 1) out += ',';
        out += std::string(name) + ":" + Describe(member);
      }
      return out + "}";
    }
  }
  return "?";
}

TEST(JsonReadTest, MapsTextToValues) {
  struct Row {
    const char* name;
    std::string text;
    const char* expected;
  };
  const Row rows[] = {
      {"empty text", "", "empty"},
      {"blanks and a line feed", " \t\r\n ", "empty"},
      {"null", "null", "empty"},
      {"true", "true", "true"},
      {"leading blanks", "  \"x\"", "s\"x\""},
      {"non-negative integer", "5", "u5"},
      {"negative integer", "-5", "i-5"},
      {"negative zero", "-0", "i0"},
      {"fraction", "5.0", "f5"},
      {"exponent", "1e2", "f100"},
      {"largest 32-bit unsigned", "4294967295", "u4294967295"},
      {"largest 64-bit unsigned", "18446744073709551615", "u18446744073709551615"},
      {"largest 64-bit unsigned plus one", "18446744073709551616", "f1.8446744073709552e+19"},
      {"smallest 64-bit signed", "-9223372036854775808", "i-9223372036854775808"},
      {"smallest 64-bit signed minus one", "-9223372036854775809", "f-9.2233720368547758e+18"},
      {"escaped NUL ends a string", "\"a\\u0000b\"", "s\"a\""},
      {"escaped NUL ends a member name", "{\"a\\u0000b\":1}", "{a:u1}"},
      {"raw NUL ends the text", std::string("[1]\0[", 5), "[u1]"},
      {"empty array and object", "[[],{},null]", "[[],{},empty]"},
      {"members in name order", "{\"b\":1,\"a\":2,\"B\":3}", "{B:u3,a:u2,b:u1}"},
      {"repeated scalar replaces", "{\"a\":1,\"a\":\"x\"}", "{a:s\"x\"}"},
      {"repeated null keeps", "{\"a\":1,\"a\":null}", "{a:u1}"},
      {"repeated array appends", "{\"a\":[1],\"a\":[2,3]}", "{a:[u1,u2,u3]}"},
      {"repeated object merges", "{\"a\":{\"x\":1,\"y\":1},\"a\":{\"y\":2,\"z\":3}}",
       "{a:{x:u1,y:u2,z:u3}}"},
      {"kind change replaces", "{\"a\":[1],\"a\":{\"b\":2}}", "{a:{b:u2}}"},
      {"nested containers", "[{\"a\":[true,{\"b\":[]}]},[[-1]]]", "[{a:[true,{b:[]}]},[[i-1]]]"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingResult result = DeserializeJson(row.text);
    EXPECT_TRUE(result.Ok()) << result.Error();
    EXPECT_EQ(Describe(result), row.expected);
  }
}

TEST(JsonReadTest, ReportsRapidJsonErrorsWithOffsetFromTextStart) {
  struct Row {
    const char* name;
    std::string text;
    std::string expected;
  };
  const std::string nesting_error = "Error: Nesting deeper than " +
                                    std::to_string(kJsonMaxNesting) + " levels. at offset " +
                                    std::to_string(kJsonMaxNesting + 1) + ".";
  const Row rows[] = {
      {"trailing comma", "[1,]", "Error: Invalid value. at offset 3."},
      {"two roots", "1 2",
       "Error: The document root must not be followed by other values. at offset 2."},
      {"offset counts skipped blanks", "  [1,]", "Error: Invalid value. at offset 5."},
      {"missing colon", "{\"a\" 1}",
       "Error: Missing a colon after a name of object member. at offset 5."},
      {"NaN literal", "NaN", "Error: Invalid value. at offset 0."},
      {"unterminated string", "[\"ab",
       "Error: Missing a closing quotation mark in string. at offset 4."},
      {"one level too deep", std::string(kJsonMaxNesting + 1, '['), nesting_error},
      {"far too deep", std::string(100000, '['), nesting_error},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingResult result = DeserializeJson(row.text);
    EXPECT_FALSE(result.Ok());
    EXPECT_EQ(result.Error(), row.expected);
    // The partial value is dropped: only the "error" member is left.
    EXPECT_EQ(result.Size(), 1u);
  }
}

// Strings and member names are read two ways: straight from the text when
// they hold no escape or control character, through RapidJSON's decoding
// otherwise. Both must give the same texts, and errors inside a string must
// keep RapidJSON's messages and offsets.
TEST(JsonReadTest, StringsReadAlikeWithAndWithoutEscapes) {
  struct Row {
    const char* name;
    std::string text;
    std::string expected;  // the value's dump, or the error message
  };
  const std::string long_plain(300, 'x');
  const Row rows[] = {
      {"plain", "[\"abc\"]", "[s\"abc\"]"},
      {"empty", "[\"\"]", "[s\"\"]"},
      {"bytes above 0x7F", "[\"\xC3\xA9t\xC3\xA9\"]", "[s\"\xC3\xA9t\xC3\xA9\"]"},
      {"long plain", "\"" + long_plain + "\"", "s\"" + long_plain + "\""},
      {"escape first", "[\"\\tab\"]", "[s\"\tab\"]"},
      {"escape after plain bytes", "[\"ab\\\"c\\/d\"]", "[s\"ab\"c/d\"]"},
      {"escape last", "[\"ab\\n\"]", "[s\"ab\n\"]"},
      {"unicode escape", "[\"caf\\u00e9\"]", "[s\"caf\xC3\xA9\"]"},
      {"plain member name", "{\"name\":\"v\"}", "{name:s\"v\"}"},
      {"escaped member name", "{\"na\\u006De\":1,\"a\":2}", "{a:u2,name:u1}"},
      {"plain and escaped names alike", "{\"k\":1,\"\\u006b\":2}", "{k:u2}"},
      {"raw control character", "[\"ab\x01\"]",
       "Error: Invalid escape character in string. at offset 4."},
      {"raw tab in a member name", "{\"a\tb\":1}",
       "Error: Invalid escape character in string. at offset 3."},
      {"unknown escape", "[\"ab\\qc\"]", "Error: Invalid escape character in string. at offset 4."},
      {"bad unicode escape", "[\"\\u12G4\"]",
       "Error: Incorrect hex digit after \\u escape in string. at offset 2."},
      {"text ends in a member name", "{\"abc",
       "Error: Missing a closing quotation mark in string. at offset 5."},
      {"text ends after an escape", "[\"a\\n",
       "Error: Missing a closing quotation mark in string. at offset 5."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingResult result = DeserializeJson(row.text);
    EXPECT_EQ(result.Ok() ? Describe(result) : std::string(result.Error()), row.expected);
  }
}

TEST(JsonReadTest, AcceptsNestingUpToTheLimitAndAllTextForms) {
  std::string deepest = std::string(kJsonMaxNesting, '[') + std::string(kJsonMaxNesting, ']');
  BindingResult deep = DeserializeJson(deepest);
  ASSERT_TRUE(deep.Ok()) << deep.Error();
  EXPECT_EQ(SerializeJson(deep), deepest);

  // The view form stops at the end of the view; the pointer form reads on.
  const char text[] = "[1]]";
  EXPECT_EQ(Describe(DeserializeJson(std::string_view(text, 3))), "[u1]");
  EXPECT_EQ(DeserializeJson(static_cast<const char*>(text)).Error(),
            "Error: The document root must not be followed by other values. at offset 3.");
}

BindingProperty Built(const std::function<void(BindingProperty&)>& build) {
  BindingProperty value;
  build(value);
  return value;
}

enum class TestShade : int32_t {};
enum class UnregisteredShade : int32_t {};

TEST(JsonWriteTest, WritesValues) {
  const StaticTypeIdentity& shade = StaticType::Of<TestShade>();
  TypeRegistry registry;
  registry.RegisterType("TestShade", sizeof(TestShade), shade, true)
      .AddEnumValue("Red", 1)
      .AddEnumValue("Beta", 3)
      .AddEnumValue("Alpha", 3);
  struct Row {
    const char* name;
    BindingProperty value;
    const char* newline;
    const char* expected;
    const TypeRegistry* registry = nullptr;
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const Row rows[] = {
      {"empty at top level", BindingProperty(), nullptr, ""},
      {"empty nested", Built([](BindingProperty& v) { v.Append(); }), nullptr, "[null]"},
      {"integral float keeps .0", Built([](BindingProperty& v) { v.SetFloat(5.0); }), nullptr,
       "5.0"},
      {"negative zero", Built([](BindingProperty& v) { v.SetFloat(-0.0); }), nullptr, "-0.0"},
      {"shortest float", Built([](BindingProperty& v) { v.SetFloat(0.1); }), nullptr, "0.1"},
      {"non-finite floats become null", Built([&](BindingProperty& v) {
         v.Append().SetFloat(nan);
         v.Append().SetFloat(-inf);
         v.Append().SetFloat(inf);
       }),
       nullptr, "[null,null,null]"},
      {"integers", Built([](BindingProperty& v) {
         v.Append().SetSigned(std::numeric_limits<int64_t>::min());
         v.Append().SetUnsigned(std::numeric_limits<uint64_t>::max());
       }),
       nullptr, "[-9223372036854775808,18446744073709551615]"},
      {"string escapes",
       Built([](BindingProperty& v) { v.SetString("q\"b\\\x01\x1f\n/\xc3\xa9"); }), nullptr,
       "\"q\\\"b\\\\\\u0001\\u001F\\n/\xc3\xa9\""},
      {"blobs in Base64", Built([](BindingProperty& v) {
         for (std::string_view bytes : {"", "f", "fo", "foo", "foob", "\xff\xfe"}) {
           v.Append().SetBlob(
               std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
         }
       }),
       nullptr, "[\"\",\"Zg==\",\"Zm8=\",\"Zm9v\",\"Zm9vYg==\",\"//4=\"]"},
      {"enum without registry is a number", Built([&](BindingProperty& v) { v.SetEnum(3, shade); }),
       nullptr, "3"},
      {"enum by first name in name order", Built([&](BindingProperty& v) { v.SetEnum(3, shade); }),
       nullptr, "\"Alpha\"", &registry},
      {"enum value without a name", Built([&](BindingProperty& v) { v.SetEnum(-2, shade); }),
       nullptr, "-2", &registry},
      {"enum of an unregistered type",
       Built([](BindingProperty& v) { v.SetEnum(1, StaticType::Of<UnregisteredShade>()); }),
       nullptr, "1", &registry},
      {"members in name order", Built([](BindingProperty& v) {
         v.Member("b").SetBool(true);
         v.Member("a").SetBool(false);
       }),
       nullptr, "{\"a\":false,\"b\":true}"},
      {"empty newline is compact",
       Built([](BindingProperty& v) { v.Member("a").Append().SetUnsigned(1); }), "", "{\"a\":[1]}"},
      {"indented with line feeds", Built([](BindingProperty& v) {
         v.Member("a").Append().SetUnsigned(1);
         v.Member("a").Append().SetUnsigned(2);
         v.Member("b").MakeStructure();
       }),
       "\n", "{\n    \"a\": [\n        1,\n        2\n    ],\n    \"b\": {}\n}"},
      {"indented with CR LF",
       Built([](BindingProperty& v) { v.Member("a").Append().SetString("x\ny"); }), "\r\n",
       "{\r\n    \"a\": [\r\n        \"x\\ny\"\r\n    ]\r\n}"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(SerializeJson(row.value, row.registry, row.newline), row.expected);
  }
}

// Texts are written with runs of plain bytes copied whole and the rest
// escaped one by one; the result must be RapidJSON's own, as value and as
// member name, wherever the escapes fall.
TEST(JsonWriteTest, WritesTextsAsRapidJsonDoes) {
  std::string every_control;
  for (char c = 1; c < 0x20; ++c) every_control += c;
  const std::string long_plain(5000, 'p');
  struct Row {
    const char* name;
    std::string text;
  };
  const Row rows[] = {
      {"empty", ""},
      {"plain", "queueAvailability"},
      {"quote first", "\"abc"},
      {"backslash last", "abc\\"},
      {"escapes between runs", "ab\"cd\\ef\ngh"},
      {"only escapes", "\"\\\"\\"},
      {"every control character", "x" + every_control + "y"},
      {"DEL and bytes above 0x7F stay", "a\x7f\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80z"},
      {"slash stays", "a/b"},
      {"long plain", long_plain},
      {"long with an escape at the end", long_plain + "\t"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartArray();
    writer.String(row.text.data(), static_cast<rapidjson::SizeType>(row.text.size()));
    writer.StartObject();
    writer.Key(row.text.data(), static_cast<rapidjson::SizeType>(row.text.size()));
    writer.Bool(true);
    writer.EndObject();
    writer.EndArray();

    BindingProperty value;
    value.Append().SetString(row.text);
    value.Append().Member(row.text).SetBool(true);
    EXPECT_EQ(SerializeJson(value), std::string(buffer.GetString(), buffer.GetSize()));
  }
}

TEST(JsonRoundTripTest, CanonicalTextsSurvive) {
  const char* const texts[] = {
      "true",
      "\"\"",
      "[1,-2,3.5,-0.0,1e+300,\"x\",true,false,null]",
      "{\"\":{},\"a\":[[],[{}]],\"b\\u0001\":\"\\\"\\\\\"}",
      "[18446744073709551615,-9223372036854775808,1.8446744073709552e19]",
      "{\"id\":420,\"queueAvailability\":\"Available\",\"sizes\":[1,2,3,4,5]}",
  };
  for (const char* text : texts) {
    SCOPED_TRACE(text);
    BindingResult first = DeserializeJson(text);
    ASSERT_TRUE(first.Ok()) << first.Error();
    for (const char* newline : {static_cast<const char*>(nullptr), "\n", "\r\n"}) {
      BindingResult again = DeserializeJson(SerializeJson(first, nullptr, newline));
      ASSERT_TRUE(again.Ok()) << again.Error();
      EXPECT_EQ(Describe(again), Describe(first));
    }
  }
}

}  // namespace
}  // namespace kav
