// DynamicLibrary: a shared library loaded at run time (dlopen / LoadLibrary)
// and the lookup of its exported symbols.
//
// Move-only; closing happens in the destructor or through Close. Not
// thread-safe: one owner uses an instance at a time (the system loader itself
// is thread-safe).
#ifndef KAV_PLATFORM_DYNAMIC_LIBRARY_H_
#define KAV_PLATFORM_DYNAMIC_LIBRARY_H_

#include <string>

namespace kav {

class DynamicLibrary {
 public:
  DynamicLibrary() = default;
  DynamicLibrary(DynamicLibrary&& other) noexcept;
  DynamicLibrary& operator=(DynamicLibrary&& other) noexcept;
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;
  ~DynamicLibrary();

  enum class Unloading : bool {
    kOnClose,     // Close lets the system unload the library
    kNeverUnload  // the library stays mapped for the rest of the process
  };

  // Loads the library at `path` (symbols resolved at once, kept local to the
  // library). Closes a library loaded before. Returns false and keeps the
  // loader's explanation in error() when the library cannot be loaded.
  // kNeverUnload suits libraries that carry their own C++ runtime, whose
  // process-wide state does not survive unloading cleanly.
  [[nodiscard]] bool Open(const std::string& path, Unloading unloading = Unloading::kOnClose);
  void Close() noexcept;

  bool IsOpen() const { return handle_ != nullptr; }
  const std::string& error() const { return error_; }

  // The address of the exported symbol, or null (error() then says why).
  // REQUIRES: IsOpen().
  void* Symbol(const char* name);

 private:
  void* handle_ = nullptr;
  std::string error_;
};

}  // namespace kav

#endif  // KAV_PLATFORM_DYNAMIC_LIBRARY_H_
