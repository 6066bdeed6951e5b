// Runs the public YAML test suite through ReadYaml.
//
// Every test is read (none may crash). Then:
//  * A test marked as an error must fail, unless it is listed in
//    kAcceptedErrorTests with the reason libyaml accepts it.
//  * A test with one JSON document must give the same value as its in.json.
//    Numbers compare by value (1.0 and 1 are equal; integers pass through a
//    double). The one typing difference from the suite's YAML 1.2 core
//    schema that occurs is accepted as such: block scalars are typed like
//    plain ones, so an empty one is an empty value, not "". The comparable
//    tests hold no plain yes/no/on/off words, octal or ".inf"-style numbers
//    or other forms that the reader types differently by design; a suite
//    revision that adds one fails here and names the test.
//  * A test the reader rejects by design is recognised by its message, and
//    the message's cause is checked against the test's event stream: a
//    multi-document stream, a tag outside str/int/float/bool, an anchor
//    defined twice.
//  * Valid tests that libyaml itself refuses or reads differently are listed
//    in kLibyamlDiffers with the reason; they are only read, not compared.
//  * A test without in.json has no value to compare; it only has to be read
//    without crashing.
// A summary of the counts is printed.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "serialization/reader_test_support.h"
#include "serialization/yaml.h"

namespace kav {
namespace {

namespace fs = std::filesystem;
using reader_test::Describe;

struct ListedCase {
  const char* id;
  const char* reason;
};

// Error tests that libyaml parses without complaint: its grammar is more
// lenient than the suite's in these corners, so the reader returns a value.
const ListedCase kAcceptedErrorTests[] = {
    {"9C9N", "flow sequence indented less than its mapping key"},
    {"9JBA", "comment right after the end of a flow sequence"},
    {"CVW2", "comment right after a comma in a flow sequence"},
    {"DK95/01", "tab used as indentation of a continuation line"},
    {"G5U8", "plain '-' entries in a flow sequence"},
    {"MUS6/00", "comment right after a %YAML directive"},
    {"MUS6/01", "%YAML directive repeated for one document"},
    {"QB6E", "continuation of a quoted scalar indented too little"},
    {"S98Z", "empty lines of a block scalar indented more than its content"},
    {"SU5Z", "comment right after a double-quoted scalar"},
    {"X4QW", "comment right after a block scalar indicator"},
    {"Y79Y/003", "tab at the start of a flow sequence entry"},
    {"YJV2", "plain '-' in a flow sequence"},
};

// Valid tests with a JSON value that libyaml rejects or reads differently
// from the suite: known gaps of libyaml against YAML 1.2, not of the reader.
const ListedCase kLibyamlDiffers[] = {
    {"2LFX", "reserved directive refused"},
    {"6LVF", "reserved directive refused"},
    {"MUS6/05", "unknown directive name refused"},
    {"MUS6/06", "unknown directive name refused"},
    {"BEC7", "%YAML 1.3 directive refused as incompatible"},
    {"W4TN", "directive after a document end marker refused"},
    {"2SXE", "':' inside an anchor name refused"},
    {"Y2GN", "':' ends an anchor name"},
    {"8XYN", "non-ASCII anchor name refused"},
    {"W5VH", "punctuation in an alias name refused"},
    {"4MUZ/00", "flow mapping ':' on the line after its key refused"},
    {"4MUZ/01", "flow mapping ':' on the line after its key refused"},
    {"4MUZ/02", "flow mapping ':' on the line after its key refused"},
    {"5MUD", "flow mapping ':' on the line after its key refused"},
    {"K3WX", "flow mapping ':' on the line after its key refused"},
    {"VJP3/01", "flow mapping ':' on the line after its key refused"},
    {"9SA2", "multi-line flow mapping key refused"},
    {"NJ66", "multi-line flow mapping key refused"},
    {"UT92", "multi-line flow mapping key refused"},
    {"58MP", "flow scalar starting with ':' refused"},
    {"5T43", "flow scalar starting with ':' refused"},
    {"HM87/00", "flow scalar starting with ':' refused"},
    {"DBG4", "plain scalar starting with ':' in a flow sequence refused"},
    {"652Z", "'?' starting a flow key read as an indicator"},
    {"HM87/01", "'?' starting a flow scalar read as an indicator"},
    {"6BCT", "tab as separation space refused"},
    {"6CA3", "tab before a top-level flow collection refused"},
    {"A2M4", "tab as separation space refused"},
    {"DK95/00", "tab before a plain scalar refused"},
    {"DK95/03", "tab before a plain scalar refused"},
    {"DK95/04", "tab in indentation refused"},
    {"Q5MG", "tab before a top-level flow collection refused"},
    {"Y79Y/001", "tab on an empty line of a block scalar refused"},
    {"Y79Y/010", "tab before a sequence entry refused"},
    {"96NN/00", "tab at the start of literal content refused"},
    {"96NN/01", "tab at the start of literal content refused"},
    {"R4YG", "tab at the start of block scalar content refused"},
    {"7Z25", "bare document after a document end marker refused"},
    {"M7A3", "bare document after a document end marker refused"},
    {"DK3J", "zero-indented block scalar refused"},
    {"FP8R", "zero-indented block scalar refused"},
    {"HWV9", "document end marker without a document refused"},
    {"QT73", "document end marker without a document refused"},
    {"JEF9/02", "trailing line of spaces dropped from a kept block scalar"},
    {"L24T/01", "trailing line of spaces dropped from a kept block scalar"},
};

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

const char* FindReason(const ListedCase* table, size_t size, const std::string& id) {
  for (size_t i = 0; i < size; ++i) {
    if (id == table[i].id) return table[i].reason;
  }
  return nullptr;
}

// The JSON texts of in.json, one per YAML document.
std::vector<rapidjson::Document> ParseJsonDocuments(const std::string& text) {
  std::vector<rapidjson::Document> documents;
  rapidjson::StringStream stream(text.c_str());
  for (;;) {
    while (stream.Peek() == ' ' || stream.Peek() == '\n' || stream.Peek() == '\r' ||
           stream.Peek() == '\t') {
      stream.Take();
    }
    if (stream.Peek() == '\0') break;
    rapidjson::Document document;
    document.ParseStream<rapidjson::kParseStopWhenDoneFlag>(stream);
    if (document.HasParseError()) break;
    documents.push_back(std::move(document));
  }
  return documents;
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

// Compares `value` with the suite's JSON value. An empty value where the
// suite has "" sets `empty_block_scalar`; any other difference makes the
// result false and is described in `problem`.
bool Compare(const BindingProperty& value, const rapidjson::Value& expected,
             bool& empty_block_scalar, std::string& problem) {
  if (expected.IsObject()) {
    if (value.Kind() != BindingKind::kStructure || value.Size() != expected.MemberCount()) {
      problem = "mapping differs: " + Describe(value);
      return false;
    }
    for (const auto& member : expected.GetObject()) {
      std::string name(member.name.GetString(), member.name.GetStringLength());
      bool present = false;
      for (auto [key, child] : value.Members()) present = present || key == name;
      if (!present) {
        problem = "missing member '" + name + "'";
        return false;
      }
      if (!Compare(value.Find(name), member.value, empty_block_scalar, problem)) return false;
    }
    return true;
  }
  if (expected.IsArray()) {
    if (value.Kind() != BindingKind::kCollection || value.Size() != expected.Size()) {
      problem = "sequence differs: " + Describe(value);
      return false;
    }
    for (rapidjson::SizeType i = 0; i < expected.Size(); ++i) {
      if (!Compare(value.At(i), expected[i], empty_block_scalar, problem)) return false;
    }
    return true;
  }
  // Leaves.
  if (expected.IsNull() && value.IsEmpty()) return true;
  if (expected.IsBool() && value.Kind() == BindingKind::kBool &&
      value.AsBool() == expected.GetBool()) {
    return true;
  }
  if (expected.IsNumber() && IsNumber(value) && Numeric(value) == expected.GetDouble()) {
    return true;
  }
  if (expected.IsString()) {
    std::string_view text(expected.GetString(), expected.GetStringLength());
    if (value.Kind() == BindingKind::kString && value.AsString() == text) return true;
    if (value.IsEmpty() && text.empty()) {
      empty_block_scalar = true;
      return true;
    }
  }
  problem = "leaf differs: " + Describe(value);
  return false;
}

// The rejections whose cause shows in the event stream.
bool RejectionExplainedByEvents(std::string_view message, const std::string& events,
                                std::string& reason) {
  if (message == "Multi-document YAML is not supported.") {
    size_t first = events.find("+DOC");
    if (first != std::string::npos && events.find("+DOC", first + 1) != std::string::npos) {
      reason = "multi-document stream";
      return true;
    }
  }
  const std::string_view tag_prefix = "Unsupported YAML tag '";
  if (message.starts_with(tag_prefix)) {
    std::string tag(message.substr(tag_prefix.size(), message.size() - tag_prefix.size() - 2));
    if (events.find("<" + tag + ">") != std::string::npos) {
      reason = "tag outside str/int/float/bool";
      return true;
    }
  }
  const std::string_view anchor_prefix = "Duplicate occurrence of anchor \"";
  if (message.starts_with(anchor_prefix)) {
    std::string name(message.substr(anchor_prefix.size()));
    name = name.substr(0, name.find('"'));
    std::string marker = "&" + name + " ";
    size_t first = events.find(marker);
    if (first != std::string::npos && events.find(marker, first + 1) != std::string::npos) {
      reason = "anchor defined twice";
      return true;
    }
  }
  return false;
}

struct SuiteTest {
  std::string id;  // "2G84/02" or "229Q"
  fs::path dir;
};

std::vector<SuiteTest> ListTests(const fs::path& root) {
  std::vector<SuiteTest> tests;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_regular_file() && entry.path().filename() == "===") {
      fs::path dir = entry.path().parent_path();
      tests.push_back({fs::relative(dir, root).generic_string(), dir});
    }
  }
  std::sort(tests.begin(), tests.end(),
            [](const SuiteTest& a, const SuiteTest& b) { return a.id < b.id; });
  return tests;
}

TEST(YamlConformanceTest, MatchesTheSuiteWhereTypingAgrees) {
  fs::path root = fs::path(KAV_CONFORMANCE_DIR) / "yaml" / "tests";
  if (!fs::is_directory(root)) {
    GTEST_SKIP() << "YAML conformance data not found at " << root;
  }
  std::vector<SuiteTest> tests = ListTests(root);
  ASSERT_FALSE(tests.empty());

  int compared = 0;
  int skipped = 0;
  int errors_rejected = 0;
  int errors_accepted = 0;
  std::map<std::string, int> by_design;

  for (const SuiteTest& test : tests) {
    SCOPED_TRACE(test.id);
    std::string yaml = ReadFile(test.dir / "in.yaml");
    BindingResult result = ReadYaml(yaml);

    if (fs::exists(test.dir / "error")) {
      if (const char* reason =
              FindReason(kAcceptedErrorTests, std::size(kAcceptedErrorTests), test.id)) {
        EXPECT_TRUE(result.Ok()) << "listed as accepted by libyaml (" << reason
                                 << ") but rejected: " << result.Error();
        ++errors_accepted;
      } else {
        EXPECT_FALSE(result.Ok()) << test.id << " error test accepted: " << Describe(result);
        ++errors_rejected;
      }
      continue;
    }
    if (const char* reason = FindReason(kLibyamlDiffers, std::size(kLibyamlDiffers), test.id)) {
      ++by_design["libyaml: " + std::string(reason)];
      continue;
    }
    if (!fs::exists(test.dir / "in.json")) {
      ++skipped;
      continue;
    }
    std::vector<rapidjson::Document> documents = ParseJsonDocuments(ReadFile(test.dir / "in.json"));
    std::string events = ReadFile(test.dir / "test.event");

    if (!result.Ok()) {
      std::string reason;
      if (RejectionExplainedByEvents(result.Error(), events, reason)) {
        ++by_design[reason];
      } else {
        ADD_FAILURE() << test.id << " rejected: " << result.Error();
      }
      continue;
    }
    if (documents.empty()) {  // a stream without documents
      EXPECT_TRUE(result.IsEmpty()) << test.id << " " << Describe(result);
      ++compared;
      continue;
    }
    // Accepted streams of several documents have empty ones before the last.
    for (size_t i = 0; i + 1 < documents.size(); ++i) {
      EXPECT_TRUE(documents[i].IsNull()) << test.id << " accepted a second document";
    }
    bool empty_block_scalar = false;
    std::string problem;
    if (!Compare(result, documents.back(), empty_block_scalar, problem)) {
      ADD_FAILURE() << test.id << " " << problem << "; value: " << Describe(result);
    } else if (empty_block_scalar) {
      ++by_design["empty block scalars are empty values"];
    } else {
      ++compared;
    }
  }

  int differs = 0;
  for (const auto& [reason, count] : by_design) differs += count;
  std::printf(
      "[ summary  ] YAML suite: %zu tests; %d compared equal, %d differ by design, "
      "%d skipped (no JSON value); error tests: %d rejected, %d accepted by libyaml\n",
      tests.size(), compared, differs, skipped, errors_rejected, errors_accepted);
  for (const auto& [reason, count] : by_design) {
    std::printf("[ summary  ]   %3d %s\n", count, reason.c_str());
  }
}

}  // namespace
}  // namespace kav
