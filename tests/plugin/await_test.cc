// Await and Yield: how a wait shows to the host, and the fatal error of a
// future that cannot deliver.
#include "plugin/await.h"

#include <cstdlib>
#include <future>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "module_harness.h"

namespace kav {
namespace {

using host::HostCall;
using host::HostFunction;
using ::testing::ElementsAreArray;
using testing_support::ModuleHarness;

using Answer = MaybeType<Failure, int32_t>;

TEST(AwaitTest, WaitsByYieldingUntilTheFutureIsReady) {
  const std::string label = std::string("Wait: future<") + StaticType::Name<Answer>() + ">";
  const struct {
    const char* name;
    size_t fulfilled_at_yield;  // 0: before Await
    std::vector<HostCall> calls;
  } rows[] = {
      {"ready before", 0, {}},
      {"ready during the first yield",
       1,
       {{HostFunction::kBeginWait, label},
        {HostFunction::kYield, ""},
        {HostFunction::kEndWait, ""}}},
      {"ready during the third yield",
       3,
       {{HostFunction::kBeginWait, label},
        {HostFunction::kYield, ""},
        {HostFunction::kYield, ""},
        {HostFunction::kYield, ""},
        {HostFunction::kEndWait, ""}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ModuleHarness harness;
    ASSERT_TRUE(harness.Initialize());
    std::promise<Answer> promise;
    if (row.fulfilled_at_yield == 0) {
      promise.set_value(Answer(7));
    } else {
      harness.host().ScheduleAtYield(row.fulfilled_at_yield,
                                     [&promise] { promise.set_value(Answer(7)); });
    }
    Answer answer = harness.module().Await(promise.get_future());
    ASSERT_TRUE(answer.HasValue());
    EXPECT_EQ(answer.Value(), 7);
    EXPECT_THAT(harness.host().calls(), ElementsAreArray(row.calls));
  }
}

TEST(YieldTest, BracketsOneHostYieldWithAWait) {
  ModuleHarness harness;
  ASSERT_TRUE(harness.Initialize());
  harness.module().Yield();
  EXPECT_THAT(harness.host().calls(),
              ElementsAreArray(std::vector<HostCall>{{HostFunction::kBeginWait, "Wait: yield"},
                                                     {HostFunction::kYield, ""},
                                                     {HostFunction::kEndWait, ""}}));
}

// Awaits a future that cannot deliver; the fatal error is expected to end
// the process before the clean exit.
void AwaitBrokenFuture(bool with_state) {
  ModuleHarness harness;
  if (!harness.Initialize()) std::exit(1);
  harness.host().set_echo_log(true);
  std::future<Answer> future;
  if (with_state) {
    std::promise<Answer> promise;
    future = promise.get_future();
  }  // the promise goes without a value
  static_cast<void>(harness.module().Await(std::move(future)));
  std::exit(0);
}

bool EndedAbnormally(int status) {
  return !::testing::ExitedWithCode(0)(status);
}

TEST(AwaitDeathTest, FutureErrorsAreFatal) {
  // The report's lines are spelled out: in the regular expressions of
  // GoogleTest on Windows "." does not match a line feed.
  const struct {
    bool with_state;
    const char* expected;
  } rows[] = {
      {true,
       "ALE-6D828C10\n\nDescription: "
       "Caught std::future_error in AppModule::Await: \\(1\\) broken promise"},
      {false,
       "ALE-6D828C10\n\nDescription: "
       "Caught std::future_error in AppModule::Await: \\(4\\) no state"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expected);
    EXPECT_EXIT(AwaitBrokenFuture(row.with_state), EndedAbnormally, row.expected);
  }
}

}  // namespace
}  // namespace kav
