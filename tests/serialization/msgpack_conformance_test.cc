// Runs every vector of the public MessagePack test suite through the reader:
// each encoding of a supported type must decode to the expected value, and
// the extension and timestamp encodings must be rejected as invalid data.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "serialization/msgpack.h"
#include "serialization/reader_test_support.h"

namespace kav {
namespace {

using reader_test::Describe;
using reader_test::FromHex;

std::string SuitePath() {
  return std::string(KAV_CONFORMANCE_DIR) + "/msgpack/dist/msgpack-test-suite.json";
}

bool ReadFile(const std::string& path, std::string& out) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  std::ostringstream content;
  content << file.rdbuf();
  out = content.str();
  return true;
}

double Numeric(const BindingProperty& value) {
  switch (value.Kind()) {
    case BindingKind::kSigned:
      return static_cast<double>(value.AsSigned());
    case BindingKind::kUnsigned:
      return static_cast<double>(value.AsUnsigned());
    default:
      return value.AsFloat();
  }
}

bool IsNumber(const BindingProperty& value) {
  return value.Kind() == BindingKind::kSigned || value.Kind() == BindingKind::kUnsigned ||
         value.Kind() == BindingKind::kFloat;
}

// Structural comparison with a JSON value of the suite; numbers compare by
// value whatever their kind.
bool Matches(const BindingProperty& value, const rapidjson::Value& expected) {
  if (expected.IsNull()) return value.IsEmpty();
  if (expected.IsBool()) {
    return value.Kind() == BindingKind::kBool && value.AsBool() == expected.GetBool();
  }
  if (expected.IsNumber()) {
    if (!IsNumber(value)) return false;
    if (expected.IsInt64() && value.Kind() == BindingKind::kSigned) {
      return value.AsSigned() == expected.GetInt64();
    }
    if (expected.IsUint64() && value.Kind() == BindingKind::kUnsigned) {
      return value.AsUnsigned() == expected.GetUint64();
    }
    return Numeric(value) == expected.GetDouble();
  }
  if (expected.IsString()) {
    return value.Kind() == BindingKind::kString &&
           value.AsString() == std::string_view(expected.GetString(), expected.GetStringLength());
  }
  if (expected.IsArray()) {
    if (value.Kind() != BindingKind::kCollection || value.Size() != expected.Size()) return false;
    for (rapidjson::SizeType i = 0; i < expected.Size(); ++i) {
      if (!Matches(value.At(i), expected[i])) return false;
    }
    return true;
  }
  if (value.Kind() != BindingKind::kStructure || value.Size() != expected.MemberCount()) {
    return false;
  }
  for (const auto& member : expected.GetObject()) {
    std::string_view name(member.name.GetString(), member.name.GetStringLength());
    const BindingProperty& found = value.Find(name);
    if (!Matches(found, member.value)) return false;
    if (found.IsEmpty() && !member.value.IsNull()) return false;
  }
  return true;
}

// A 64-bit integer given as decimal text; float encodings compare by value.
bool MatchesBignum(const BindingProperty& value, const std::string& decimal) {
  switch (value.Kind()) {
    case BindingKind::kSigned:
      return std::to_string(value.AsSigned()) == decimal;
    case BindingKind::kUnsigned:
      return std::to_string(value.AsUnsigned()) == decimal;
    case BindingKind::kFloat:
      return value.AsFloat() == std::strtod(decimal.c_str(), nullptr);
    default:
      return false;
  }
}

TEST(MessagePackConformanceTest, DecodesEveryVectorOfTheSuite) {
  std::string json;
  if (!ReadFile(SuitePath(), json)) {
    GTEST_SKIP() << "MessagePack conformance data not found at " << SuitePath();
  }
  rapidjson::Document suite;
  suite.Parse(json.c_str(), json.size());
  ASSERT_FALSE(suite.HasParseError());
  ASSERT_TRUE(suite.IsObject());

  int decoded = 0;
  int rejected = 0;
  for (const auto& file : suite.GetObject()) {
    for (const auto& test_case : file.value.GetArray()) {
      for (const auto& encoding : test_case["msgpack"].GetArray()) {
        std::string trace = std::string(file.name.GetString()) + " " + encoding.GetString();
        SCOPED_TRACE(trace);
        std::vector<uint8_t> bytes = FromHex(encoding.GetString());
        uint32_t consumed = 0;
        BindingResult result =
            ReadMessagePack(bytes.data(), static_cast<uint32_t>(bytes.size()), consumed);

        if (test_case.HasMember("ext") || test_case.HasMember("timestamp")) {
          EXPECT_EQ(result.Error(), "Invalid MessagePack data at position 1.");
          ++rejected;
          continue;
        }
        ASSERT_TRUE(result.Ok()) << result.Error();
        EXPECT_EQ(consumed, bytes.size());
        ++decoded;
        if (test_case.HasMember("bignum")) {
          EXPECT_TRUE(MatchesBignum(result, test_case["bignum"].GetString())) << Describe(result);
        }
        if (test_case.HasMember("binary")) {
          std::vector<uint8_t> expected = FromHex(test_case["binary"].GetString());
          ASSERT_EQ(result.Kind(), BindingKind::kBlob);
          auto blob = result.AsBlob();
          EXPECT_EQ(std::vector<uint8_t>(blob.begin(), blob.end()), expected);
        }
        for (const char* key : {"nil", "bool", "number", "string", "array", "map"}) {
          if (test_case.HasMember(key)) {
            EXPECT_TRUE(Matches(result, test_case[key])) << key << ": " << Describe(result);
          }
        }
      }
    }
  }
  std::printf(
      "[ summary  ] MessagePack suite: %d encodings decoded, %d extension encodings "
      "rejected\n",
      decoded, rejected);
  EXPECT_GT(decoded, 0);
}

}  // namespace
}  // namespace kav
