// The file name of the process's executable, without its directory.
//
// Thread-safe.
#ifndef KAV_PLATFORM_EXECUTABLE_NAME_H_
#define KAV_PLATFORM_EXECUTABLE_NAME_H_

#include <cstddef>
#include <string_view>

namespace kav {

// The part of `path` after its last `separator` (all of it when there is none).
constexpr std::string_view FileNameAfterLast(std::string_view path, char separator) {
  const size_t at = path.rfind(separator);
  return at == std::string_view::npos ? path : path.substr(at + 1);
}

// Writes the executable's file name with a NUL into buffer[0, size) and
// returns its length; 0 (and an empty buffer when size > 0) when it cannot be
// found. Longer names are cut. Does not allocate.
size_t ReadExecutableName(char* buffer, size_t size);

}  // namespace kav

#endif  // KAV_PLATFORM_EXECUTABLE_NAME_H_
