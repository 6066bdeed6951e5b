// The plugin library's global operator new and delete, in every form, routed
// through the allocation table so that everything the plugin allocates is
// counted: its own objects, standard containers, and the C++ runtime that is
// linked statically into the library. The version script keeps these
// definitions local, so they bind only inside the library and never replace
// the host's.
//
// Aligned forms over-allocate and keep the table's block address in the word
// before the aligned address. Thread-safe like the allocation table.
#include <cstddef>
#include <cstdint>
#include <new>

#include "platform/allocation.h"

namespace {

void* AllocateAligned(std::size_t size, std::align_val_t alignment) {
  std::size_t align = static_cast<std::size_t>(alignment);
  if (align < alignof(void*)) align = alignof(void*);
  if (size > SIZE_MAX - align - sizeof(void*)) throw std::bad_alloc();
  void* block = kav::PluginAllocate(size + align + sizeof(void*));
  std::uintptr_t start = reinterpret_cast<std::uintptr_t>(block) + sizeof(void*);
  std::uintptr_t aligned = (start + align - 1) & ~(static_cast<std::uintptr_t>(align) - 1);
  reinterpret_cast<void**>(aligned)[-1] = block;
  return reinterpret_cast<void*>(aligned);
}

void FreeAligned(void* pointer) noexcept {
  if (pointer != nullptr) kav::PluginFree(static_cast<void**>(pointer)[-1]);
}

void* AllocateNoThrow(std::size_t size) noexcept {
  try {
    return kav::PluginAllocate(size);
  } catch (...) {
    return nullptr;
  }
}

void* AllocateAlignedNoThrow(std::size_t size, std::align_val_t alignment) noexcept {
  try {
    return AllocateAligned(size, alignment);
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

void* operator new(std::size_t size) {
  return kav::PluginAllocate(size);
}
void* operator new[](std::size_t size) {
  return kav::PluginAllocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateNoThrow(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateNoThrow(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return AllocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return AllocateAligned(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AllocateAlignedNoThrow(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AllocateAlignedNoThrow(size, alignment);
}

void operator delete(void* pointer) noexcept {
  kav::PluginFree(pointer);
}
void operator delete[](void* pointer) noexcept {
  kav::PluginFree(pointer);
}
void operator delete(void* pointer, std::size_t) noexcept {
  kav::PluginFree(pointer);
}
void operator delete[](void* pointer, std::size_t) noexcept {
  kav::PluginFree(pointer);
}
void operator delete(void* pointer, const std::nothrow_t&) noexcept {
  kav::PluginFree(pointer);
}
void operator delete[](void* pointer, const std::nothrow_t&) noexcept {
  kav::PluginFree(pointer);
}
void operator delete(void* pointer, std::align_val_t) noexcept {
  FreeAligned(pointer);
}
void operator delete[](void* pointer, std::align_val_t) noexcept {
  FreeAligned(pointer);
}
void operator delete(void* pointer, std::size_t, std::align_val_t) noexcept {
  FreeAligned(pointer);
}
void operator delete[](void* pointer, std::size_t, std::align_val_t) noexcept {
  FreeAligned(pointer);
}
void operator delete(void* pointer, std::align_val_t, const std::nothrow_t&) noexcept {
  FreeAligned(pointer);
}
void operator delete[](void* pointer, std::align_val_t, const std::nothrow_t&) noexcept {
  FreeAligned(pointer);
}
