// HostValueImages: host values laid out once and copied into answers many
// times. Each image is one value's records, owned texts and bytes in a
// relocatable form (its pointers kept relative to the image); an answer that
// is an array of stored values is then sized from the images, made with one
// allocation, filled by one copy per image and finished by moving each
// image's pointers to where the copy landed (eligibility_bench
// CachedSelfEligibility/50/50 and 400/400: no conversion per call).
//
// The arrays laid out are one-block values exactly as LayOutHostValue makes
// them (binding/host_value.h): the same records, kinds, counts, ownership
// bytes and zero-terminated texts, released with one ReleaseHostValue.
// Borrowed texts and bytes (kinds 5, 7) and keys that an entry does not own
// are copied as pointers: they must outlive every answer made from the
// image.
//
// The images stand for values of a source list by index; the holder clears
// them whenever that list changes, and they are built for one enumerator
// naming (the registry given to the conversion, or none).
//
// Thread-compatible: one thread at a time.
#ifndef KAV_BINDING_HOST_VALUE_IMAGES_H_
#define KAV_BINDING_HOST_VALUE_IMAGES_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "kav/plugin_host.h"

namespace kav {

class TypeRegistry;

class HostValueImages {
 public:
  HostValueImages() = default;
  HostValueImages(const HostValueImages&) = delete;
  HostValueImages& operator=(const HostValueImages&) = delete;

  // Forgets every image; the memory is kept for the next ones.
  void Clear() noexcept;
  // Whether the images stand for a source of `count` values converted with
  // enumerator names from `names`. When not, Reset must come first.
  bool Fits(size_t count, const TypeRegistry* names) const noexcept {
    return entries_.size() == count && names_ == names;
  }
  // Clear, then room for `count` images, none stored yet, for `names`.
  void Reset(size_t count, const TypeRegistry* names);

  bool Has(size_t index) const noexcept { return entries_[index].stored; }
  // Stores the image of `value` (built by this plugin; kinds 0 to 10) as
  // image `index`, replacing none. Throws std::bad_alloc.
  // REQUIRES: index < the count of the last Reset; !Has(index).
  void Store(size_t index, const KavHostValue& value);

  // `target` (overwritten without being released) becomes kind 9 with a
  // copy of the image of each of `picks`, in order, laid out in one block;
  // no block when `picks` is empty. Throws std::bad_alloc.
  // REQUIRES: Has(pick) for every pick.
  void LayOutArray(KavHostValue& target, std::span<const uint32_t> picks) const;

 private:
  struct Entry {
    size_t offset = 0;      // of the image in bytes_: its record, then the rest
    size_t size = 0;        // the record included
    size_t first_move = 0;  // in moves_
    size_t move_count = 0;
    bool stored = false;
  };

  std::vector<Entry> entries_;
  std::vector<std::byte> bytes_;
  // Positions, relative to their image, of the pointers that point into it
  // (each holding the offset of its target in the image).
  std::vector<uint32_t> moves_;
  const TypeRegistry* names_ = nullptr;
};

}  // namespace kav

#endif  // KAV_BINDING_HOST_VALUE_IMAGES_H_
