// Internal to binding/host_value*: the block of a one-block host value and
// the checked arithmetic that sizes it (binding/host_value.h says how such a
// value is laid out and released). Nothing outside those files includes it.
#ifndef KAV_BINDING_HOST_VALUE_BLOCK_H_
#define KAV_BINDING_HOST_VALUE_BLOCK_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "binding/host_value.h"
#include "platform/allocation.h"

namespace kav::host_value_internal {

// Adds `more` bytes to a one-block size; std::bad_alloc when the sum would
// not fit in memory.
inline size_t AddBytes(size_t total, size_t more) {
  if (more > SIZE_MAX / 2 - total) throw std::bad_alloc();
  return total + more;
}

// A one-block value: its block, with the outermost records at
// kOneBlockOffset, and the cursor that lays the rest of the tree out in it.
// The block is freed with this object unless it was handed over.
class OneBlock {
 public:
  // `bytes`: the whole tree's arrays, entries and owned texts.
  explicit OneBlock(size_t bytes) {
    block_ = static_cast<std::byte*>(PluginAllocate(AddBytes(bytes, kOneBlockOffset)));
    if (reinterpret_cast<uintptr_t>(block_) % kPluginBlockAlignment != 0) {
      // A heap that breaks its promise cannot carry one-block values.
      PluginFree(block_);
      throw std::bad_alloc();
    }
    std::memset(block_, 0, kOneBlockOffset);
    cursor_ = block_ + kOneBlockOffset;
  }
  OneBlock(const OneBlock&) = delete;
  OneBlock& operator=(const OneBlock&) = delete;
  ~OneBlock() { PluginFree(block_); }

  // The value laid out now owns the block.
  void HandOver() noexcept { block_ = nullptr; }

  // The next `size` bytes; the first call gets the outermost records.
  std::byte* Take(size_t size) {
    std::byte* taken = cursor_;
    cursor_ += size;
    return taken;
  }
  template <class Record>
  Record* TakeRecords(size_t count) {
    auto* records = reinterpret_cast<Record*>(Take(count * sizeof(Record)));
    std::memset(static_cast<void*>(records), 0, count * sizeof(Record));
    return records;
  }
  char* TakeText(const char* text, size_t size) {
    auto* copy = reinterpret_cast<char*>(Take(size + 1));
    if (size != 0) std::memcpy(copy, text, size);
    copy[size] = '\0';
    return copy;
  }

 private:
  std::byte* block_ = nullptr;
  std::byte* cursor_ = nullptr;
};

}  // namespace kav::host_value_internal

#endif  // KAV_BINDING_HOST_VALUE_BLOCK_H_
