#ifdef _WIN32
#include "platform/dynamic_library.h"

#include <windows.h>

#include <utility>

namespace kav {
namespace {

std::string LastLoaderError() {
  return "Windows error " + std::to_string(static_cast<unsigned long>(GetLastError()));
}

}  // namespace

DynamicLibrary::DynamicLibrary(DynamicLibrary&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)), error_(std::move(other.error_)) {}

DynamicLibrary& DynamicLibrary::operator=(DynamicLibrary&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = std::exchange(other.handle_, nullptr);
    error_ = std::move(other.error_);
  }
  return *this;
}

DynamicLibrary::~DynamicLibrary() {
  Close();
}

bool DynamicLibrary::Open(const std::string& path, Unloading unloading) {
  Close();
  error_.clear();
  handle_ = LoadLibraryA(path.c_str());
  if (handle_ == nullptr) {
    error_ = LastLoaderError();
    return false;
  }
  if (unloading == Unloading::kNeverUnload) {
    // A second reference that is never given back pins the module.
    HMODULE pinned = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN, path.c_str(), &pinned);
  }
  return true;
}

void DynamicLibrary::Close() noexcept {
  if (handle_ != nullptr) FreeLibrary(static_cast<HMODULE>(std::exchange(handle_, nullptr)));
}

void* DynamicLibrary::Symbol(const char* name) {
  FARPROC address = GetProcAddress(static_cast<HMODULE>(handle_), name);
  if (address == nullptr) error_ = LastLoaderError();
  return reinterpret_cast<void*>(address);
}

}  // namespace kav
#endif  // _WIN32
