// Running test code on a thread with a host-sized stack.
//
// A host may call the plugin on a thread with a stack of only 1 MiB; code
// that recurses over input-controlled depth overflows such a stack long
// before the 8 MiB of a test's main thread. Tests of hostile input run
// their calls through RunOnSmallStack so that such recursion crashes the
// test instead of passing unnoticed.
#ifndef KAV_TESTS_SUPPORT_SMALL_STACK_H_
#define KAV_TESTS_SUPPORT_SMALL_STACK_H_

#include <cstddef>
#include <functional>

namespace kav::testing_support {

inline constexpr size_t kHostThreadStackBytes = 1 << 20;

// Runs `work` on a new thread whose stack is `stack_bytes` and waits for it.
void RunOnSmallStack(const std::function<void()>& work, size_t stack_bytes = kHostThreadStackBytes);

}  // namespace kav::testing_support

#endif  // KAV_TESTS_SUPPORT_SMALL_STACK_H_
