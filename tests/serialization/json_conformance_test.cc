// Runs the JSONTestSuite parsing files through DeserializeJson and through
// RapidJSON's own reader on the same text, and requires the two to agree:
// the same files accepted and refused, and for a refused file the same
// message ("Error: <RapidJSON text> at offset <n>.").
//
// Both readers see the same text: DeserializeJson reads up to the first NUL
// byte, and the reference reads through a StringStream over the same buffer,
// which also takes NUL as the end of input. A file with an embedded NUL is
// therefore compared on its prefix before that NUL, not on all its bytes.
//
// Two deliberate differences are checked as such:
//  * A text of only white space (the empty file) is an empty value with
//    success for DeserializeJson; RapidJSON says "The document is empty.".
//  * Deeper than kJsonMaxNesting levels, DeserializeJson stops with its own
//    nesting message; the reference must then refuse the file as well.
// For files that nest deeper than the limit, running RapidJSON's recursive
// reader as the reference could itself overflow the stack, so the reference
// there is RapidJSON with kParseIterativeFlag, which cannot.
#include <gtest/gtest.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "serialization/json.h"

namespace kav {
namespace {

struct Outcome {
  bool ok;
  std::string message;  // empty when ok
};

// RapidJSON's reader on `text` (up to its NUL) with a handler that takes
// every value.
Outcome ReferenceOutcome(const char* text, bool iterative) {
  rapidjson::BaseReaderHandler<> accept_all;
  rapidjson::Reader reader;
  rapidjson::StringStream stream(text);
  rapidjson::ParseResult parsed =
      iterative ? reader.Parse<rapidjson::kParseIterativeFlag>(stream, accept_all)
                : reader.Parse<rapidjson::kParseDefaultFlags>(stream, accept_all);
  if (!parsed.IsError()) return {true, ""};
  return {false, "Error: " + std::string(rapidjson::GetParseError_En(parsed.Code())) +
                     " at offset " + std::to_string(parsed.Offset()) + "."};
}

// Deepest nesting of brackets and braces outside strings.
size_t MaxNesting(const char* text) {
  size_t depth = 0;
  size_t deepest = 0;
  bool in_string = false;
  for (const char* p = text; *p != '\0'; ++p) {
    if (in_string) {
      if (*p == '\\' && p[1] != '\0') {
        ++p;
      } else if (*p == '"') {
        in_string = false;
      }
    } else if (*p == '"') {
      in_string = true;
    } else if (*p == '[' || *p == '{') {
      deepest = std::max(deepest, ++depth);
    } else if ((*p == ']' || *p == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

bool IsBlank(const char* text) {
  return text[std::strspn(text, " \t\r\n")] == '\0';
}

TEST(JsonConformanceTest, AgreesWithRapidJsonOnEveryParsingFile) {
  const std::filesystem::path dir =
      std::filesystem::path(KAV_CONFORMANCE_DIR) / "json/test_parsing";
  if (!std::filesystem::is_directory(dir)) {
    GTEST_SKIP() << "JSON conformance data not found in " << dir;
  }
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (entry.path().extension() == ".json") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  ASSERT_FALSE(files.empty()) << "no .json files in " << dir;

  const std::string nesting_prefix =
      "Error: Nesting deeper than " + std::to_string(kJsonMaxNesting) + " levels.";
  std::vector<std::string> mismatches;
  for (const auto& file : files) {
    const std::string name = file.filename().string();
    SCOPED_TRACE(name);
    std::ifstream in(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const char* text = bytes.c_str();

    const bool deep = MaxNesting(text) > kJsonMaxNesting;
    const Outcome reference = ReferenceOutcome(text, deep);
    const BindingResult ours = DeserializeJson(bytes);
    const std::string our_message(ours.Error());

    bool agrees;
    if (IsBlank(text)) {
      agrees = ours.Ok() && ours.IsEmpty() && !reference.ok;
    } else if (our_message.starts_with(nesting_prefix)) {
      agrees = deep && !reference.ok;
    } else {
      agrees = ours.Ok() == reference.ok && our_message == reference.message;
    }
    if (!agrees) {
      mismatches.push_back(name + ": ours " + (ours.Ok() ? "accepted" : "'" + our_message + "'") +
                           ", RapidJSON" + (deep ? " (iterative) " : " ") +
                           (reference.ok ? "accepted" : "'" + reference.message + "'"));
      ADD_FAILURE() << mismatches.back();
    }
  }
  std::ostringstream list;
  for (const std::string& line : mismatches) list << "\n  " << line;
  EXPECT_TRUE(mismatches.empty()) << mismatches.size() << " of " << files.size()
                                  << " files disagree:" << list.str();
}

}  // namespace
}  // namespace kav
