#ifdef _WIN32
#include "platform/thread.h"

#include <windows.h>

namespace kav {

uint32_t CurrentThreadId() {
  return static_cast<uint32_t>(GetCurrentThreadId());
}

}  // namespace kav
#endif  // _WIN32
