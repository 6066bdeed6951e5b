// The stack the fuzz targets run on.
//
// A host may call the plugin on a thread with a stack as small as 1 MiB, so
// every target runs its inputs on such a stack: recursion that input can
// deepen without bound overflows it, and AddressSanitizer reports the
// overflow as a finding instead of the input passing on a roomier stack.
#ifndef KAV_FUZZ_SMALL_STACK_H_
#define KAV_FUZZ_SMALL_STACK_H_

#include <cstddef>

namespace kav::fuzz {

inline constexpr size_t kHostThreadStack = 1 << 20;

// Limits the growth of the calling (main) thread's stack to
// kHostThreadStack. Call from LLVMFuzzerInitialize, which libFuzzer runs on
// the thread that then runs every input.
void LimitStackToHostThreadSize();

}  // namespace kav::fuzz

#endif  // KAV_FUZZ_SMALL_STACK_H_
