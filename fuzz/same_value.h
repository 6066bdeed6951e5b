// Structural equality and depth of BindingProperty trees, for the checks of
// the fuzz targets. Iterative: the trees may be deep.
#ifndef KAV_FUZZ_SAME_VALUE_H_
#define KAV_FUZZ_SAME_VALUE_H_

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "binding/binding_property.h"

namespace kav::fuzz {

// A non-negative signed integer (as "-0" reads) and the unsigned integer of
// the same value: JSON writes both the same way.
inline bool SameInteger(const BindingProperty& a, const BindingProperty& b) {
  if (a.Kind() == BindingKind::kSigned && b.Kind() == BindingKind::kUnsigned) {
    return a.AsSigned() >= 0 && static_cast<uint64_t>(a.AsSigned()) == b.AsUnsigned();
  }
  if (a.Kind() == BindingKind::kUnsigned && b.Kind() == BindingKind::kSigned) {
    return SameInteger(b, a);
  }
  return false;
}

// Floats that are equal, both NaN, or finite neighbours within four units
// in the last place: the JSON reader parses numbers the fast way (not to
// full precision), so a float written and read back may differ in its last
// bits.
inline bool SameFloat(double x, double y) {
  if (x == y || (std::isnan(x) && std::isnan(y))) return true;
  if (!std::isfinite(x) || !std::isfinite(y) || std::signbit(x) != std::signbit(y)) return false;
  int64_t a = 0;
  int64_t b = 0;
  std::memcpy(&a, &x, sizeof a);
  std::memcpy(&b, &y, sizeof b);
  return (a > b ? a - b : b - a) <= 4;
}

// Same kinds, payloads, elements and members (in order). Floats compare as
// SameFloat; integers by value whatever their signedness kind; enums by
// value and type. A non-finite float of `written` matches an empty value of
// `read_back` (JSON has no form for it and writes null).
inline bool SameValue(const BindingProperty& written, const BindingProperty& read_back) {
  std::vector<std::pair<const BindingProperty*, const BindingProperty*>> pending{
      {&written, &read_back}};
  while (!pending.empty()) {
    const auto [a, b] = pending.back();
    pending.pop_back();
    if (SameInteger(*a, *b)) continue;
    if (a->Kind() == BindingKind::kFloat && !std::isfinite(a->AsFloat()) && b->IsEmpty()) continue;
    if (a->Kind() != b->Kind()) return false;
    switch (a->Kind()) {
      case BindingKind::kEmpty:
        break;
      case BindingKind::kBool:
        if (a->AsBool() != b->AsBool()) return false;
        break;
      case BindingKind::kSigned:
        if (a->AsSigned() != b->AsSigned()) return false;
        break;
      case BindingKind::kUnsigned:
        if (a->AsUnsigned() != b->AsUnsigned()) return false;
        break;
      case BindingKind::kFloat:
        if (!SameFloat(a->AsFloat(), b->AsFloat())) return false;
        break;
      case BindingKind::kString:
        if (a->AsString() != b->AsString()) return false;
        break;
      case BindingKind::kBlob: {
        const auto x = a->AsBlob();
        const auto y = b->AsBlob();
        if (x.size() != y.size() || !std::equal(x.begin(), x.end(), y.begin())) return false;
        break;
      }
      case BindingKind::kEnum:
        if (a->AsEnum().value != b->AsEnum().value || a->AsEnum().type != b->AsEnum().type) {
          return false;
        }
        break;
      case BindingKind::kCollection:
        if (a->Size() != b->Size()) return false;
        for (size_t i = 0; i < a->Size(); ++i) pending.emplace_back(&a->At(i), &b->At(i));
        break;
      case BindingKind::kStructure: {
        if (a->Size() != b->Size()) return false;
        auto x = a->Members().begin();
        auto y = b->Members().begin();
        for (; x != a->Members().end(); ++x, ++y) {
          if ((*x).first != (*y).first) return false;
          pending.emplace_back(&(*x).second, &(*y).second);
        }
        break;
      }
    }
  }
  return true;
}

// The number of collections and structures nested in `value`, itself
// included (0 for a scalar). Iterative.
inline size_t ContainerDepth(const BindingProperty& value) {
  size_t deepest = 0;
  std::vector<std::pair<const BindingProperty*, size_t>> pending{{&value, 0}};
  while (!pending.empty()) {
    const auto [node, above] = pending.back();
    pending.pop_back();
    if (node->Kind() == BindingKind::kCollection) {
      deepest = std::max(deepest, above + 1);
      for (size_t i = 0; i < node->Size(); ++i) pending.emplace_back(&node->At(i), above + 1);
    } else if (node->Kind() == BindingKind::kStructure) {
      deepest = std::max(deepest, above + 1);
      for (auto [name, member] : node->Members()) pending.emplace_back(&member, above + 1);
    }
  }
  return deepest;
}

}  // namespace kav::fuzz

#endif  // KAV_FUZZ_SAME_VALUE_H_
