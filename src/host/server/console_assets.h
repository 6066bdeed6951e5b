// The console page's files, built into the binary from
// src/host/server/console/ (see console_assets.cmake).
#ifndef KAV_HOST_SERVER_CONSOLE_ASSETS_H_
#define KAV_HOST_SERVER_CONSOLE_ASSETS_H_

#include <string_view>

namespace kav::host {

struct ConsoleAsset {
  std::string_view path;  // "/", "/console.css", ...
  std::string_view content_type;
  std::string_view content;
};

// The asset served at `path`; null when none.
const ConsoleAsset* FindConsoleAsset(std::string_view path);

}  // namespace kav::host

#endif  // KAV_HOST_SERVER_CONSOLE_ASSETS_H_
