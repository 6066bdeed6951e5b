#ifdef _WIN32
#include "platform/process.h"

#include <windows.h>

namespace kav {

void ExitProcessNow(int exit_code) {
  // TerminateProcess, unlike ExitProcess, runs no DLL detach code.
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exit_code));
  for (;;) {
  }
}

}  // namespace kav
#endif  // _WIN32
