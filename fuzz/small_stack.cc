#include "small_stack.h"

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>

namespace kav::fuzz {

void LimitStackToHostThreadSize() {
  rlimit limit{};
  if (getrlimit(RLIMIT_STACK, &limit) != 0) return;
  limit.rlim_cur = kHostThreadStack;
  if (setrlimit(RLIMIT_STACK, &limit) != 0) {
    std::fprintf(stderr, "cannot limit the stack to %zu bytes\n", kHostThreadStack);
    std::abort();
  }
}

}  // namespace kav::fuzz
