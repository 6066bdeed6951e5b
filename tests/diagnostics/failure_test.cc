#include <gtest/gtest.h>

#include <string>

#include "plugin/maybe_type.h"

namespace kav {
namespace {

TEST(FailureTest, MakeFormatsAndRecordsTheCode) {
  struct Case {
    const char* name;
    Failure failure;
    uint32_t code;
    std::string message;
    FormatParameters parameters;
  };
  const Case cases[] = {
      {"with a code",
       Failure::Make(404, "Error response for {method} {url}: {error}", {"GET", "/a", "gone"}),
       404,
       "Error response for GET /a: gone",
       {{"method", "GET"}, {"url", "/a"}, {"error", "gone"}, {"errorCode_int", 404u}}},
      {"without a code", Failure::Make(0, "Bad {#what}", {"x"}), 0, "Bad x", {{"what_str", "x"}}},
      {"internal with a text",
       Failure::Internal("it {broke}"),
       500,
       "it {broke}",
       {{"errorCode_int", 500u}}},
      {"internal without a text",
       Failure::Internal(""),
       500,
       "Internal server error",
       {{"errorCode_int", 500u}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.failure.code, c.code);
    EXPECT_EQ(c.failure.message, c.message);
    EXPECT_TRUE(c.failure.parameters == c.parameters);
  }
}

TEST(FailureTest, MaybeTypeHoldsOneOfValueAndFailure) {
  MaybeType<Failure, int> value = 3;
  ASSERT_TRUE(value.HasValue());
  EXPECT_EQ(value.Value(), 3);

  MaybeType<Failure, int> failed = Failure::Make(400, "no {x}", {1});
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.Error().message, "no 1");
  EXPECT_EQ(failed.Error().parameters.at("errorCode_int").u64, 400u);
}

}  // namespace
}  // namespace kav
