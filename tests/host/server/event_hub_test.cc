// The fan-out of the host's events to event streams.
#include "host/server/event_hub.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kav::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string Joined(const std::vector<std::string>& frames) {
  std::string joined;
  for (const std::string& frame : frames) joined += frame;
  return joined;
}

TEST(EventHubTest, StreamsSeeHistoryThenNewFramesAndLoseOnlyTheOldestWhenSlow) {
  EventHub hub(EventHubLimits{.history = 2, .queue = 3, .subscribers = 2});
  hub.Publish("log", "{\"n\":1}");
  hub.Publish("log", "{\"n\":2}");
  hub.Publish("log", "{\"n\":3}");
  auto first = hub.Subscribe();
  ASSERT_NE(first, nullptr);
  // The history: the last two frames.
  EXPECT_THAT(first->Wait(std::chrono::milliseconds(0)),
              ElementsAre("id: 2\nevent: log\ndata: {\"n\":2}\n\n",
                          "id: 3\nevent: log\ndata: {\"n\":3}\n\n"));
  for (int n = 4; n <= 8; ++n) hub.Publish("plugin", "{\"n\":" + std::to_string(n) + "}");
  // Five frames for a queue of three: the two oldest are dropped, and said.
  const std::vector<std::string> frames = first->Wait(std::chrono::milliseconds(0));
  ASSERT_EQ(frames.size(), 4u);
  EXPECT_EQ(frames[0], "event: dropped\ndata: {\"frames\":2}\n\n");
  EXPECT_THAT(Joined(frames), HasSubstr("id: 6\n"));
  EXPECT_THAT(Joined(frames), HasSubstr("id: 8\n"));
  EXPECT_THAT(Joined(frames), ::testing::Not(HasSubstr("id: 5\n")));

  auto second = hub.Subscribe();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(hub.Subscribe(), nullptr);  // two streams at most
  hub.Unsubscribe(second);
  EXPECT_TRUE(second->closed());
  EXPECT_NE(hub.Subscribe(), nullptr);

  hub.Close();
  EXPECT_TRUE(first->closed());
  EXPECT_TRUE(first->Wait(std::chrono::milliseconds(0)).empty());
  EXPECT_EQ(hub.Subscribe(), nullptr);
  EXPECT_EQ(hub.published(), 8u);
}

}  // namespace
}  // namespace kav::host
