#ifdef _WIN32
#include "platform/debug_output.h"

#include <windows.h>

namespace kav {

bool IsDebuggerAttached() {
  return IsDebuggerPresent() != FALSE;
}

void WriteDebuggerOutput(const char* text) {
  if (text) OutputDebugStringA(text);
}

}  // namespace kav
#endif  // _WIN32
