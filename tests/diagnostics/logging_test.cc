#include "diagnostics/logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/log_target.h"
#include "platform/thread.h"

namespace kav {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The test program's file name as the system reports it.
#ifdef _WIN32
constexpr char kProgramName[] = "kav_diagnostics_tests.exe";
#else
constexpr char kProgramName[] = "kav_diagnostics_tests";
#endif

// GoogleTest's own regular expressions are the POSIX ones where the system
// has them and a small subset without brackets on Windows; std::regex
// (ECMAScript) is the same everywhere.
MATCHER_P(MatchesFully, pattern, std::string("matches ") + pattern) {
  return std::regex_match(arg, std::regex(pattern));
}

// Keeps every line it is given, formatted with its own format.
class CapturingLogTarget final : public LogTarget {
 public:
  explicit CapturingLogTarget(const char* name = "CapturingLogTarget") : name_(name) {
    ConnectOutput();
  }
  ~CapturingLogTarget() override { Detach(); }

  const char* GetName() const override { return name_; }
  bool Output(const LogRecord& record) override {
    char line[kLogBufferSize];
    FormatLine(line, sizeof(line), record);
    std::lock_guard<std::recursive_mutex> lock(target_lock());
    lines_.emplace_back(line);
    return true;
  }
  std::vector<std::string> lines() const {
    std::lock_guard<std::recursive_mutex> lock(target_lock());
    return lines_;
  }

 private:
  const char* name_;
  std::vector<std::string> lines_;
};

// Each test runs with a logger of its own: the Release of the last user
// destroys the logger, and the next use creates a fresh one with defaults.
class LoggingTest : public ::testing::Test {
 protected:
  void SetUp() override { AcquireLogger(); }
  void TearDown() override { ReleaseLogger(); }
};

LogTargetSettings SettingsOf(LogTargetRecord* record) {
  return {record->get_level(record), record->get_included(record), record->get_excluded(record),
          "#M"};
}

TEST_F(LoggingTest, BuiltInTargetsHaveTheirDefaults) {
  const LoggingTable& table = GetLoggingTable();
  struct Case {
    LogTargetRecord* record;
    const char* name;
    int32_t level;
    uint64_t included;
    uint64_t excluded;
    const char* format;
    bool registered;
  };
  const Case cases[] = {
      {table.std_err_target(), "StdErrLogTarget", 1, kCategoryDbg, kCategoryGen, "#E(#T): #L| #M",
       true},
      {table.std_out_target(), "StdOutLogTarget", 1, kCategoryGen, kCategoryDbg, "#M", false},
      {table.debugger_target(), "DebuggerConsoleLogTarget", 1, kCategoryDbg, 0, "#E(#T): #L| #M",
       true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogTargetRecord* record = c.record;
    EXPECT_EQ(record->interface_version(record), 1);
    EXPECT_STREQ(record->get_name(record), c.name);
    EXPECT_EQ(record->get_level(record), c.level);
    EXPECT_EQ(record->get_included(record), c.included);
    EXPECT_EQ(record->get_excluded(record), c.excluded);
    EXPECT_STREQ(record->get_format(record), c.format);
    EXPECT_EQ(record->is_registered(record), c.registered);
  }
  EXPECT_EQ(table.interface_version(), 1);
  EXPECT_EQ(GetLogLevel(), kLogWarn);
  EXPECT_EQ(GetExcludedLogCategories(), kCategoryXtr);
}

TEST_F(LoggingTest, DefaultFilteringOfTheBuiltInTargets) {
  const LoggingTable& table = GetLoggingTable();
  // Stand-ins with the built-in targets' level and masks, whose lines can be
  // read back.
  CapturingLogTarget std_err_like("StdErrLike"), std_out_like("StdOutLike"),
      debugger_like("DebuggerLike");
  std_err_like.Configure(SettingsOf(table.std_err_target()));
  std_out_like.Configure(SettingsOf(table.std_out_target()));
  debugger_like.Configure(SettingsOf(table.debugger_target()));
  UnregisterBuiltInLogTargets();
  struct Case {
    const char* message;
    int32_t level;
    uint64_t categories;
    bool to_std_err;
    bool to_std_out;
    bool to_debugger;
  };
  const Case cases[] = {
      {"okay is below the logger's level", kLogOkay, 0, false, false, false},
      {"XTR is excluded by the logger", kLogWarn, kCategoryXtr, false, false, false},
      {"no category reaches every target", kLogError, 0, true, true, true},
      {"GEN skips the stderr target", kLogWarn, kCategoryGen, false, true, false},
      {"DBG skips the stdout target", kLogWarn, kCategoryDbg, true, false, true},
      {"NET is included nowhere", kLogAlways, kCategoryNet, false, false, false},
      {"DBG and GEN reach only the debugger", kLogError, kCategoryDbg | kCategoryGen, false, false,
       true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    const size_t before[] = {std_err_like.lines().size(), std_out_like.lines().size(),
                             debugger_like.lines().size()};
    Log(c.level, c.categories, "%s", c.message);
    EXPECT_EQ(std_err_like.lines().size() - before[0], c.to_std_err ? 1u : 0u);
    EXPECT_EQ(std_out_like.lines().size() - before[1], c.to_std_out ? 1u : 0u);
    EXPECT_EQ(debugger_like.lines().size() - before[2], c.to_debugger ? 1u : 0u);
  }
}

TEST_F(LoggingTest, LoggerAndTargetFiltersApplyInOrder) {
  struct Case {
    const char* name;
    int32_t logger_level;
    uint64_t logger_excluded;
    bool muted;
    LogTargetSettings target;
    int32_t level;
    uint64_t categories;
    bool delivered;
  };
  const Case cases[] = {
      {"level at the thresholds", 2, 0, false, {2, 0, 0, "#M"}, 2, 0, true},
      {"below the logger's level", 2, 0, false, {0, 0, 0, "#M"}, 1, 0, false},
      {"below the target's level", 0, 0, false, {3, 0, 0, "#M"}, 2, 0, false},
      {"muted logger", 0, 0, true, {0, 0, 0, "#M"}, 3, 0, false},
      {"one excluded bit of several",
       0,
       kCategoryNet,
       false,
       {0, 0, 0, "#M"},
       1,
       kCategoryDbg | kCategoryNet,
       false},
      {"excluded by the target", 0, 0, false, {0, 0, kCategoryMem, "#M"}, 1, kCategoryMem, false},
      {"not among the target's included",
       0,
       0,
       false,
       {0, kCategoryDsk, 0, "#M"},
       1,
       kCategoryMem,
       false},
      {"one of the target's included",
       0,
       0,
       false,
       {0, kCategoryDsk, 0, "#M"},
       1,
       kCategoryMem | kCategoryDsk,
       true},
      {"no category passes category filters",
       0,
       0,
       false,
       {0, kCategoryDsk, kCategoryMem, "#M"},
       1,
       0,
       true},
      {"excluded wins over included",
       0,
       0,
       false,
       {0, kCategoryDsk, kCategoryDsk, "#M"},
       1,
       kCategoryDsk,
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    UnregisterBuiltInLogTargets();
    SetLogLevel(c.logger_level);
    SetExcludedLogCategories(c.logger_excluded);
    if (c.muted) MuteLogger();
    CapturingLogTarget target;
    target.Configure(c.target);
    Log(c.level, c.categories, "message");
    EXPECT_EQ(target.lines().size(), c.delivered ? 1u : 0u);
    UnmuteLogger();
  }
}

TEST_F(LoggingTest, StdErrTargetWritesLinesButNotGeneralOnes) {
  testing::internal::CaptureStderr();
  Log(kLogError, kCategoryGen, "general %d", 1);
  Log(kLogError, 0, "plain %d", 2);
  const std::string captured = testing::internal::GetCapturedStderr();
  char thread_id[16];
  std::snprintf(thread_id, sizeof(thread_id), "%08X", CurrentThreadId());
  EXPECT_EQ(captured, std::string(kProgramName) + "(" + thread_id + "):  ERROR| plain 2\n");
}

TEST_F(LoggingTest, StdOutTargetWritesOnlyOnceRegistered) {
  const LoggingTable& table = GetLoggingTable();
  LogTargetRecord* std_err = table.std_err_target();
  std_err->unregister_target(std_err);
  LogTargetRecord* std_out = table.std_out_target();
  testing::internal::CaptureStdout();
  Log(kLogWarn, kCategoryGen, "before");
  std_out->register_target(std_out);
  Log(kLogWarn, kCategoryGen, "after");
  Log(kLogWarn, kCategoryDbg, "debug");
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "after\n");
}

TEST_F(LoggingTest, TargetsRegisterOnceAndLeaveWhenDestroyed) {
  const LoggingTable& table = GetLoggingTable();
  auto target = std::make_unique<CapturingLogTarget>("Findable");
  target->SetFormat("#M");
  LogTargetRecord* record = target->record();
  EXPECT_STREQ(record->get_format(record), "#M");
  EXPECT_EQ(table.find_target("Findable"), nullptr);
  EXPECT_EQ(table.find_target("StdErrLogTarget"), table.std_err_target());
  UnregisterBuiltInLogTargets();
  EXPECT_EQ(table.find_target("StdErrLogTarget"), nullptr);
  record->register_target(record);
  record->register_target(record);
  EXPECT_TRUE(record->is_registered(record));
  EXPECT_EQ(table.find_target("Findable"), record);
  EXPECT_EQ(table.find_target("Findabl"), nullptr);
  Log(kLogWarn, 0, "once");
  EXPECT_THAT(target->lines(), ElementsAre("once\n"));

  table.add_target(record);  // a raw second entry
  table.remove_target(record);
  EXPECT_FALSE(record->is_registered(record));
  Log(kLogWarn, 0, "gone");
  EXPECT_EQ(target->lines().size(), 1u);

  target->Configure({kLogOkay, 0, 0, "#L|#M"});
  EXPECT_TRUE(target->IsRegistered());
  target.reset();
  EXPECT_EQ(table.find_target("Findable"), nullptr);
  Log(kLogError, 0, "after destruction");  // must not touch the destroyed target
}

TEST(LoggerLifetimeTest, LastReleaseUnregistersTargetsAndResetsState) {
  CapturingLogTarget target;
  AcquireLogger();
  AcquireLogger();
  target.Configure({kLogOkay, 0, 0, "#M"});
  SetLogLevel(kLogAlways);
  GetLoggingTable().set_hold();
  EXPECT_TRUE(IsLoggerHoldSet());
  ReleaseLogger();
  EXPECT_TRUE(target.IsRegistered());
  ReleaseLogger();
  EXPECT_FALSE(target.IsRegistered());
  AcquireLogger();
  EXPECT_EQ(GetLogLevel(), kLogWarn);
  EXPECT_FALSE(IsLoggerHoldSet());
  EXPECT_TRUE(
      GetLoggingTable().std_err_target()->is_registered(GetLoggingTable().std_err_target()));
  ReleaseLogger();
}

TEST(CategoryMaskTest, ComparesThreeLettersAndAllocatesNewTags) {
  const uint64_t fresh = CategoryMask("QZXW");
  struct Case {
    const char* tag;
    uint64_t expected;
  };
  const Case cases[] = {
      {"DBG", kCategoryDbg},     {"GEN", kCategoryGen},
      {"XTR", kCategoryXtr},     {"TST", kCategoryTst},
      {"NETWORK", kCategoryNet}, {"QZX", fresh},
      {"QZXQ", fresh},           {nullptr, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.tag ? c.tag : "null");
    EXPECT_EQ(CategoryMask(c.tag), c.expected);
  }
  EXPECT_NE(fresh, 0u);
  EXPECT_EQ(fresh & (fresh - 1), 0u) << "one bit";
  EXPECT_GT(fresh, kCategoryTst);
  EXPECT_NE(CategoryMask("QZY"), fresh);
  EXPECT_EQ(GetLoggingTable().category_mask("MEM"), kCategoryMem);
}

// Asks for 300 new tags in a fresh process, where the eight built-in tags
// take indices 0 to 7, and exits with 0 when the masks were as expected.
[[noreturn]] void FillCategoryTableAndExit() {
  char tag[4] = {'~', 0, 0, 0};
  std::set<uint64_t> bits;
  int empty_masks = 0;
  for (int i = 0; i < 300; ++i) {
    tag[1] = static_cast<char>('!' + i / 90);
    tag[2] = static_cast<char>('!' + i % 90);
    const uint64_t mask = CategoryMask(tag);
    if (mask == 0) {
      ++empty_masks;
    } else {
      bits.insert(mask);
    }
  }
  const bool ok = bits.size() == 56 && empty_masks == 244 && *bits.begin() == uint64_t{1} << 8 &&
                  *bits.rbegin() == uint64_t{1} << 63 && CategoryMask("~!!") == uint64_t{1} << 8 &&
                  CategoryMask("~~~") == 0;
  _exit(ok ? 0 : 1);
}

TEST(CategoryMaskTest, IndicesFrom64GiveTheEmptyMaskAndTheTableFills) {
  // Filling the table would leave no tag for other tests: do it in a child.
  EXPECT_EXIT(FillCategoryTableAndExit(), testing::ExitedWithCode(0), "");
}

TEST(CategoryMaskTest, ConcurrentFirstUseOfOneTagGivesOneBit) {
  std::vector<uint64_t> masks(4);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < masks.size(); ++i) {
    threads.emplace_back([&masks, i] { masks[i] = CategoryMask("RCE"); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(masks, ElementsAre(masks[0], masks[0], masks[0], masks[0]));
  EXPECT_NE(masks[0], 0u);
}

TEST(CategoryNamesTest, ListsTagsInIndexOrder) {
  struct Case {
    const char* name;
    uint64_t mask;
    size_t size;
    const char* expected;
  };
  const Case cases[] = {
      {"none", 0, 64, ""},
      {"one", kCategoryNet, 64, "NET"},
      {"index order", kCategoryNet | kCategoryDbg | kCategoryPrf, 64, "DBG;PRF;NET"},
      {"cut to the buffer", kCategoryDbg | kCategoryGen, 5, "DBG;"},
      {"unused bit", uint64_t{1} << 63, 64, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    char buffer[64];
    const size_t length = CategoryNames(buffer, c.size, c.mask);
    EXPECT_STREQ(buffer, c.expected);
    EXPECT_EQ(length, std::string(c.expected).size());
  }
}

TEST(FormatRecordTest, ReplacesCodesAndEndsWithOneLineFeed) {
  const CalendarTime time = {2024, 3, 5, 7, 8, 9, 45};
  struct Case {
    const char* name;
    const char* format;
    int32_t level;
    uint64_t categories;
    const char* message;
    size_t size;
    std::string expected;
  };
  const Case cases[] = {
      {"default format", kDefaultLogFormat, kLogError, kCategoryDbg, "hello", 4096,
       "2024-03-05T07:08:09.045|  ERROR| DBG| hello\n"},
      {"empty format", "", kLogWarn, 0, "x", 4096, "\n"},
      {"unknown code gives its letter", "#Q#", kLogWarn, 0, "", 4096, "Q\n"},
      {"doubled hash", "a##b", kLogWarn, 0, "", 4096, "a#b\n"},
      {"message ending in a line feed", "#M", kLogWarn, 0, "line\n", 4096, "line\n"},
      {"message with inner line feeds", "#M", kLogWarn, 0, "a\nb", 4096, "a\nb\n"},
      {"empty message", "#M", kLogWarn, 0, "", 4096, "\n"},
      {"level words", "#L|", kLogOkay, 0, "", 4096, "  OKAY|\n"},
      {"unknown level", "#L", 9, 0, "", 4096, "  ????\n"},
      {"category tags", "#G", kLogWarn, kCategoryGen | kCategoryNet, "", 4096, "GEN;NET\n"},
      {"no categories", "[#G]", kLogWarn, 0, "", 4096, "[]\n"},
      {"executable name", "#E", kLogWarn, 0, "", 4096, std::string(kProgramName) + "\n"},
      {"fits with its line feed", "abcd", kLogWarn, 0, "", 6, "abcd\n"},
      {"full buffer gives up its last character", "abcdefgh", kLogWarn, 0, "", 6, "abcd\n"},
      {"full buffer ending in a line feed", "abcd\n", kLogWarn, 0, "", 6, "abcd\n"},
      {"cut inside a code", "ab#M", kLogWarn, 0, "123456", 6, "ab12\n"},
      {"smallest buffer", "abc", kLogWarn, 0, "", 2, "\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogRecord record;
    record.time = time;
    record.level = c.level;
    record.categories = c.categories;
    record.message = c.message;
    char buffer[4096];
    const size_t length = FormatRecord(buffer, c.size, c.format, record);
    EXPECT_EQ(std::string(buffer), c.expected);
    EXPECT_EQ(length, c.expected.size());
  }
}

TEST(FormatRecordTest, ThreadIdAndClockCodes) {
  LogRecord record;
  char buffer[128];
  FormatRecord(buffer, sizeof(buffer), "#T|#H", record);
  EXPECT_THAT(std::string(buffer), MatchesFully("[0-9A-F]{8}\\|[0-9]{6}\\.[0-9]{3}\n"));
}

TEST(FormatRecordTest, TimestampsAndLevelNames) {
  const CalendarTime time = {987, 12, 31, 23, 59, 1, 7};
  char buffer[64];
  EXPECT_EQ(FormatTimestamp(buffer, sizeof(buffer), time), 23u);
  EXPECT_STREQ(buffer, "0987-12-31T23:59:01.007");
  EXPECT_EQ(FormatFileTimestamp(buffer, sizeof(buffer), time), 19u);
  EXPECT_STREQ(buffer, "0987-12-31T23-59-01");
  EXPECT_EQ(FormatTimestamp(buffer, 5, time), 4u);
  EXPECT_STREQ(buffer, "0987");
  const char* const words[] = {"  OKAY", "  WARN", " ERROR", "ALWAYS"};
  for (int32_t level = 0; level < 4; ++level) {
    EXPECT_STREQ(GetLoggingTable().level_name(level), words[level]);
  }
}

TEST_F(LoggingTest, LinesOfConcurrentThreadsStayWhole) {
  UnregisterBuiltInLogTargets();
  CapturingLogTarget target;
  target.Configure({kLogWarn, 0, 0, "#M"});
  constexpr int kThreads = 4;
  constexpr int kLines = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) Log(kLogWarn, 0, "thread %d line %d", t, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::vector<std::string> lines = target.lines();
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
  for (const std::string& line : lines) {
    ASSERT_THAT(line, MatchesFully("thread [0-9] line [0-9]+\n"));
  }
}

TEST_F(LoggingTest, LongMessagesAreCut) {
  UnregisterBuiltInLogTargets();
  CapturingLogTarget target;
  target.Configure({kLogWarn, 0, 0, "#M"});
  const std::string long_text(5000, 'z');
  Log(kLogWarn, 0, "%s", long_text.c_str());
  ASSERT_EQ(target.lines().size(), 1u);
  // 4095 message characters; the line's buffer gives its last one to "\n".
  EXPECT_EQ(target.lines()[0], std::string(4094, 'z') + "\n");
  EXPECT_THAT(GetLoggingTable().find_target("StdErrLogTarget"), testing::IsNull());
}

}  // namespace
}  // namespace kav
