#include "platform/event_tracing.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace kav {
namespace {

// The system's own tracing functions, looked up at run time. Without a
// tracing session Windows accepts registrations and writes and calls no
// enable callback; Wine behaves the same (its EventWrite writes nowhere).
TEST(SystemEventTracingTest, FunctionsAreLookedUpWhereTheSystemHasThem) {
  EventTracingFunctions functions{};
  const bool loaded = LoadEventTracing(&functions);
#if defined(_WIN32)
  ASSERT_TRUE(loaded);
  ASSERT_NE(functions.register_provider, nullptr);
  ASSERT_NE(functions.write_event, nullptr);
  ASSERT_NE(functions.unregister_provider, nullptr);

  static int enable_calls = 0;
  TracingRegistration registration{
      [](uint32_t, uint8_t, uint64_t, uint64_t, void*) { ++enable_calls; }, nullptr};
  const TracingGuid provider = {
      0x5a1c7e0f, 0x2b44, 0x4d1e, {0x9a, 0x31, 0x6c, 0x0e, 0x55, 0x12, 0x7b, 0xd3}};
  uint64_t handle = 0;
  EXPECT_EQ(functions.register_provider(&provider, &registration, &handle), 0u);
  EXPECT_NE(handle, 0u);
  const TracingEventDescriptor descriptor = {103, 0, 0, 0, 14, 2, 1};
  const uint32_t thread_id = 42;
  const TracingDataItem item = {reinterpret_cast<uintptr_t>(&thread_id), sizeof(thread_id), 0};
  EXPECT_EQ(functions.write_event(handle, &descriptor, 1, &item), 0u);
  EXPECT_EQ(functions.unregister_provider(handle), 0u);
  EXPECT_EQ(enable_calls, 0);
#else
  EXPECT_FALSE(loaded);
  EXPECT_EQ(functions.register_provider, nullptr);
  EXPECT_EQ(functions.write_event, nullptr);
  EXPECT_EQ(functions.unregister_provider, nullptr);
#endif
  UnloadEventTracing();
}

}  // namespace
}  // namespace kav
