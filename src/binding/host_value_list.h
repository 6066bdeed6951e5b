// HostValueList<T>: an answer that is a list of T, given either as values or
// as picks from a source list whose host values are kept as images
// (binding/host_value_images.h). Both convert exactly as std::vector<T>
// does, and a function answering one is described as answering
// std::vector<T>; only the cost differs: picks are converted once per
// source value and copied from then on (eligibility_bench
// CachedSelfEligibility/N/M).
//
// Ownership: a list of picks refers to the source, the images and the picks,
// which its maker keeps unchanged, and the images in step with the source
// (HostValueImages::Clear when the source changes), until the list is
// converted or gone.
//
// Thread-compatible; converting a list of picks stores images, so the
// images' holder serialises it with every other use of them.
#ifndef KAV_BINDING_HOST_VALUE_LIST_H_
#define KAV_BINDING_HOST_VALUE_LIST_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "binding/binding_property.h"
#include "binding/host_value.h"
#include "binding/host_value_images.h"
#include "binding/type_converter.h"
#include "platform/allocation.h"

namespace kav {

template <class T>
class HostValueList {
 public:
  // A list of `values`.
  HostValueList(std::vector<T> values) : values_(std::move(values)) {}  // NOLINT: implicit
  // A list of `source[picks[0]]`, `source[picks[1]]`, ... with their host
  // values in `images`. REQUIRES: every pick < source.size().
  HostValueList(std::span<const T> source, HostValueImages& images, std::span<const uint32_t> picks)
      : source_(source), images_(&images), picks_(picks) {}

  bool IsPicks() const { return images_ != nullptr; }
  size_t size() const { return IsPicks() ? picks_.size() : values_.size(); }
  const T& operator[](size_t index) const {
    return IsPicks() ? source_[picks_[index]] : values_[index];
  }

  // Lays a list of picks out as one kind-9 value in one block (as
  // LayOutHostValue would the array that ValueTraits<std::vector<T>>::ToHost
  // builds), storing the images it lacks first; `element_type`, `registry`
  // and `names` as for ValueTraits<T>::ToHost. A conversion failure goes
  // into `status` and leaves `target` as it is. Throws std::bad_alloc.
  // REQUIRES: IsPicks().
  void LayOutPicks(BindingResult& status, KavHostValue& target, const TypeDescription* element_type,
                   const TypeRegistry& registry, const TypeRegistry* names) const {
    if (!images_->Fits(source_.size(), names)) images_->Reset(source_.size(), names);
    for (uint32_t pick : picks_) {
      if (images_->Has(pick)) continue;
      // Built in scratch memory, then stored: one conversion per source
      // value for as long as the images last.
      alignas(kPluginBlockAlignment) std::byte scratch[kImageScratchBytes];
      HostValueArena arena(scratch);
      KavHostValue built{};
      ValueTraits<T>::ToHost(status, built, source_[pick], element_type, registry, names, &arena);
      if (!status.Ok()) return;
      images_->Store(pick, built);
    }
    images_->LayOutArray(target, picks_);
  }

  // The values as a vector (a copy for a list of picks).
  std::vector<T> ToVector() const {
    if (!IsPicks()) return values_;
    std::vector<T> values;
    values.reserve(picks_.size());
    for (uint32_t pick : picks_) values.push_back(source_[pick]);
    return values;
  }
  const std::vector<T>& values() const { return values_; }

 private:
  static constexpr size_t kImageScratchBytes = 2048;

  std::vector<T> values_;
  std::span<const T> source_;
  HostValueImages* images_ = nullptr;
  std::span<const uint32_t> picks_;
};

template <class T>
struct ValueTraits<HostValueList<T>> {
  using VectorTraits = ValueTraits<std::vector<T>>;
  static constexpr TypeKind kKind = VectorTraits::kKind;
  static TypeSpecification Specification(const TypeRegistry& registry) {
    return VectorTraits::Specification(registry);
  }
  static void From(BindingResult& status, HostValueList<T>& native, const BindingProperty& source,
                   std::string_view path, const TypeDescription* type,
                   const TypeRegistry& registry) {
    std::vector<T> values;
    VectorTraits::From(status, values, source, path, type, registry);
    native = HostValueList<T>(std::move(values));
  }
  static void To(BindingResult& status, BindingProperty& target, const HostValueList<T>& native,
                 const TypeDescription* type, const TypeRegistry& registry) {
    if (!native.IsPicks()) {
      VectorTraits::To(status, target, native.values(), type, registry);
      return;
    }
    VectorTraits::To(status, target, native.ToVector(), type, registry);
  }
  static void ToHost(BindingResult& status, KavHostValue& target, const HostValueList<T>& native,
                     const TypeDescription* type, const TypeRegistry& registry,
                     const TypeRegistry* names, HostValueArena* arena = nullptr) {
    if (!native.IsPicks()) {
      VectorTraits::ToHost(status, target, native.values(), type, registry, names, arena);
      return;
    }
    KavHostValue* elements = SetHostArray(target, native.size(), arena);
    for (size_t index = 0; index < native.size(); ++index) {
      ValueTraits<T>::ToHost(status, *elements++, native[index], type, registry, names, arena);
      if (!status.Ok()) return;
    }
  }
};

}  // namespace kav

#endif  // KAV_BINDING_HOST_VALUE_LIST_H_
