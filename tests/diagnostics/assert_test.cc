#include "diagnostics/assert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagnostics/log_target.h"
#include "diagnostics/logging.h"

namespace kav {
namespace {

TEST(AssertionReportTest, AppendsTheGivenParts) {
  struct Case {
    const char* name;
    const char* expression;
    const char* file;
    int32_t line;
    const char* function;
    const char* description;
    const char* expected;
  };
  const Case cases[] = {
      {"nothing given", nullptr, nullptr, 0, nullptr, nullptr, "Assertion failed!\n\n"},
      {"empty texts count as none", "", "", 0, "", "", "Assertion failed!\n\n"},
      {"only an expression", "x > 0", nullptr, 0, nullptr, nullptr,
       "Assertion failed!\n\nExpression: x > 0"},
      {"expression, file and line", "ok", "a.cc", 7, nullptr, nullptr,
       "Assertion failed!\n\nFile: a.cc\nLine: 7\n\nExpression: ok"},
      {"negative line", nullptr, nullptr, -12, nullptr, nullptr,
       "Assertion failed!\n\nLine: -12\n\n"},
      {"every part", "p", "f.cc", 3, "Run", "why",
       "Assertion failed!\n\nFile: f.cc\nLine: 3\n\nFunction: Run\n\nExpression: p\n\n"
       "Description: why"},
      {"description without expression", nullptr, nullptr, 0, nullptr, "why",
       "Assertion failed!\n\n\n\nDescription: why"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(BuildAssertionReport(c.expression, c.file, c.line, c.function, c.description),
              c.expected);
  }
}

class RecordingLogTarget final : public LogTarget {
 public:
  RecordingLogTarget() { ConnectOutput(); }
  ~RecordingLogTarget() override { Detach(); }
  bool Output(const LogRecord& record) override {
    levels.push_back(record.level);
    categories.push_back(record.categories);
    messages.emplace_back(record.message);
    return true;
  }
  std::vector<int32_t> levels;
  std::vector<uint64_t> categories;
  std::vector<std::string> messages;
};

TEST(AssertTest, LogsTheReportAsOneDebugError) {
  AcquireLogger();
  UnregisterBuiltInLogTargets();
  {
    RecordingLogTarget target;
    target.Configure({kLogOkay, 0, 0, nullptr});
    Assert("a == b", "values differ by 100%", "x.cc", 12, "Check");
    ASSERT_EQ(target.messages.size(), 1u);
    EXPECT_EQ(target.levels[0], kLogError);
    EXPECT_EQ(target.categories[0], kCategoryDbg);
    EXPECT_EQ(target.messages[0],
              BuildAssertionReport("a == b", "x.cc", 12, "Check", "values differ by 100%"));
  }
  ReleaseLogger();
}

TEST(FatalErrorDeathTest, LogsTheReportAndEndsTheProcess) {
  EXPECT_EXIT(FatalError("ALE-EECF0606", "The core is not compatible"), testing::ExitedWithCode(3),
              " ERROR\\| Assertion failed!\n\nExpression: ALE-EECF0606\n\n"
              "Description: The core is not compatible\n");
}

}  // namespace
}  // namespace kav
