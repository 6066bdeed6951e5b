#include "platform/thread.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace kav {

uint32_t CurrentThreadId() {
  // The kernel's thread id, as tools such as top and gdb show it.
  thread_local const uint32_t id = static_cast<uint32_t>(syscall(SYS_gettid));
  return id;
}

}  // namespace kav
