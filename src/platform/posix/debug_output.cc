#include "platform/debug_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

namespace kav {

bool IsDebuggerAttached() {
  // "TracerPid:\t<pid>" in /proc/self/status is non-zero under a debugger.
  // Read with plain system calls into a stack buffer: this runs on the
  // logging path, which must not allocate.
  const int file = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  char status[4096];
  size_t used = 0;
  ssize_t got;
  while (used < sizeof(status) - 1 &&
         (got = read(file, status + used, sizeof(status) - 1 - used)) > 0) {
    used += static_cast<size_t>(got);
  }
  close(file);
  status[used] = 0;
  const char* tracer = std::strstr(status, "TracerPid:");
  if (!tracer) return false;
  tracer += std::strlen("TracerPid:");
  while (*tracer == ' ' || *tracer == '\t') ++tracer;
  return *tracer >= '1' && *tracer <= '9';
}

void WriteDebuggerOutput(const char* text) {
  if (!text || !IsDebuggerAttached()) return;
  size_t left = std::strlen(text);
  while (left > 0) {
    const ssize_t written = write(STDERR_FILENO, text, left);
    if (written <= 0) return;
    text += written;
    left -= static_cast<size_t>(written);
  }
}

}  // namespace kav
