#include "platform/dynamic_library.h"

#include <dlfcn.h>

#include <utility>

namespace kav {
namespace {

std::string LastLoaderError() {
  const char* text = dlerror();
  return text != nullptr ? text : "unknown loader error";
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
  const int keep = unloading == Unloading::kNeverUnload ? RTLD_NODELETE : 0;
  handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | keep);
  if (handle_ == nullptr) error_ = LastLoaderError();
  return handle_ != nullptr;
}

void DynamicLibrary::Close() noexcept {
  if (handle_ != nullptr) dlclose(std::exchange(handle_, nullptr));
}

void* DynamicLibrary::Symbol(const char* name) {
  dlerror();
  void* address = dlsym(handle_, name);
  if (address == nullptr) error_ = LastLoaderError();
  return address;
}

}  // namespace kav
