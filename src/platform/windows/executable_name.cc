#ifdef _WIN32
#include "platform/executable_name.h"

#include <windows.h>

#include <algorithm>

namespace kav {

size_t ReadExecutableName(char* buffer, size_t size) {
  if (size == 0) return 0;
  buffer[0] = 0;
  char path[MAX_PATH + 1];
  const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  if (length == 0) return 0;
  const std::string_view name = FileNameAfterLast(std::string_view(path, length), '\\');
  const size_t copied = std::min(name.size(), size - 1);
  name.copy(buffer, copied);
  buffer[copied] = 0;
  return copied;
}

}  // namespace kav
#endif  // _WIN32
