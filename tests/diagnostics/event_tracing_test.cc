#include "diagnostics/event_tracing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/thread.h"

namespace kav {
namespace {

TEST(TracingEnableTest, ControlCodesDecideWhichEventsAreEnabled) {
  static constexpr TracingEventInfo kEvents[] = {
      {0, 0},    // 0: any level, no keywords
      {4, 0},    // 1: verbose, no keywords
      {2, 0x1},  // 2: error level, keyword 1
      {3, 0x6},  // 3: keywords 2 and 4
  };
  struct Case {
    const char* name;
    uint32_t control_code;
    uint8_t level;
    uint64_t match_any;
    uint64_t match_all;
    bool enabled;
    std::vector<bool> events;
  };
  const Case cases[] = {
      {"session level 0 takes every level",
       kTracingEnable,
       0,
       0x1,
       0,
       true,
       {true, true, true, false}},
      {"level limits events", kTracingEnable, 3, 0xFF, 0, true, {true, false, true, true}},
      {"keywords must meet match-any", kTracingEnable, 5, 0x4, 0, true, {true, true, false, true}},
      {"keywords must hold match-all",
       kTracingEnable,
       5,
       0xFF,
       0x6,
       true,
       {true, true, false, true}},
      {"match-all beyond the event's keywords",
       kTracingEnable,
       5,
       0xFF,
       0x8,
       true,
       {true, true, false, false}},
      {"no match-any keyword", kTracingEnable, 5, 0, 0, true, {true, true, false, false}},
      {"disable clears everything",
       kTracingDisable,
       5,
       0xFF,
       0xFF,
       false,
       {false, false, false, false}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TracingProviderState state(kEvents);
    state.ApplyControl(kTracingEnable, 5, 0xFF, 0);  // a session was on before
    state.ApplyControl(c.control_code, c.level, c.match_any, c.match_all);
    EXPECT_EQ(state.enabled(), c.enabled);
    for (size_t i = 0; i < c.events.size(); ++i) {
      EXPECT_EQ(state.IsEventEnabled(i), c.events[i]) << "event " << i;
    }
    if (c.control_code == kTracingDisable) {
      EXPECT_EQ(state.level(), 0);
      EXPECT_EQ(state.match_any(), 0u);
      EXPECT_EQ(state.match_all(), 0u);
    }
  }
  TracingProviderState state(kEvents);
  state.ApplyControl(kTracingEnable, 5, 0xFF, 0);
  state.ApplyControl(2, 0, 0, 0);  // capture-state and other codes change nothing
  EXPECT_TRUE(state.enabled());
  EXPECT_EQ(state.level(), 5);
}

// A fake system: registers every provider, and enables those whose index is
// in `sessions` during registration, as the system does for a running
// session.
struct FakeSystem {
  std::vector<size_t> sessions;
  std::vector<uint64_t> unregistered;
  int registrations = 0;
  struct Written {
    uint64_t handle;
    TracingEventDescriptor descriptor;
    uint32_t thread_id;
    std::string text;
  };
  std::vector<Written> written;
};
FakeSystem* g_fake = nullptr;

uint32_t FakeRegister(const TracingGuid* guid, TracingRegistration* registration,
                      uint64_t* handle) {
  for (size_t i = 0; i < EventTracing::kProviderCount; ++i) {
    if (std::memcmp(guid, &EventTracing::ProviderGuid(i), sizeof(TracingGuid)) != 0) continue;
    ++g_fake->registrations;
    *handle = 100 + i;
    for (size_t session : g_fake->sessions) {
      if (session == i)
        registration->callback(kTracingEnable, 4, ~uint64_t{0}, 0, registration->context);
    }
    return 0;
  }
  return 87;  // an unknown provider
}

uint32_t FakeWrite(uint64_t handle, const TracingEventDescriptor* descriptor, uint32_t count,
                   const TracingDataItem* items) {
  FakeSystem::Written written{handle, *descriptor, 0, ""};
  if (count == 2 && items[0].size == sizeof(uint32_t)) {
    std::memcpy(&written.thread_id, reinterpret_cast<const void*>(items[0].address), 4);
    written.text.assign(reinterpret_cast<const char*>(items[1].address), items[1].size);
  }
  g_fake->written.push_back(written);
  return 0;
}

uint32_t FakeUnregister(uint64_t handle) {
  g_fake->unregistered.push_back(handle);
  return 0;
}

TEST(EventTracingTest, StartRegistersProvidersAndNamesTheThread) {
  struct Case {
    const char* name;
    EventTracingFunctions functions;
    std::vector<size_t> sessions;
    int registrations;
    size_t thread_names;
  };
  const EventTracingFunctions all = {&FakeRegister, &FakeWrite, &FakeUnregister};
  const Case cases[] = {
      {"no tracing session", all, {}, 4, 0},
      {"session on the thread provider", all, {EventTracing::kThreadProvider}, 4, 1},
      {"session on another provider", all, {0, 2, 3}, 4, 0},
      {"no tracing library", {}, {EventTracing::kThreadProvider}, 0, 0},
      {"no write function",
       {&FakeRegister, nullptr, &FakeUnregister},
       {EventTracing::kThreadProvider},
       4,
       0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeSystem fake;
    fake.sessions = c.sessions;
    g_fake = &fake;
    EventTracing tracing;
    tracing.Start(c.functions);
    EXPECT_EQ(fake.registrations, c.registrations);
    ASSERT_EQ(fake.written.size(), c.thread_names);
    if (c.thread_names == 1) {
      const FakeSystem::Written& name = fake.written[0];
      EXPECT_EQ(name.handle, 100u + EventTracing::kThreadProvider);
      EXPECT_EQ(name.descriptor.id, 103);
      EXPECT_EQ(name.descriptor.opcode, 14);
      EXPECT_EQ(name.descriptor.task, 2);
      EXPECT_EQ(name.descriptor.keyword, 1u);
      EXPECT_EQ(name.thread_id, CurrentThreadId());
      EXPECT_EQ(name.text, std::string("Main thread", 12));
    }
    tracing.Start(c.functions);  // registered providers are skipped
    EXPECT_EQ(fake.registrations, c.registrations);
    tracing.Stop();
    EXPECT_EQ(fake.unregistered.size(),
              c.functions.unregister_provider ? size_t(c.registrations) : 0u);
    for (size_t i = 0; i < EventTracing::kProviderCount; ++i) EXPECT_EQ(tracing.handle(i), 0u);
    g_fake = nullptr;
  }
}

TEST(EventTracingTest, ProcessTracingIsSilentlyOffWithoutTheSystemLibrary) {
  StartEventTracing();
  StopEventTracing();
}

}  // namespace
}  // namespace kav
