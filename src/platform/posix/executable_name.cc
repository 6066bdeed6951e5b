#include "platform/executable_name.h"

#include <unistd.h>

#include <algorithm>

namespace kav {

size_t ReadExecutableName(char* buffer, size_t size) {
  if (size == 0) return 0;
  buffer[0] = 0;
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
  if (length <= 0) return 0;
  const std::string_view name =
      FileNameAfterLast(std::string_view(path, static_cast<size_t>(length)), '/');
  const size_t copied = std::min(name.size(), size - 1);
  name.copy(buffer, copied);
  buffer[copied] = 0;
  return copied;
}

}  // namespace kav
