// BindingProperty: the one generic value of the framework, and BindingResult,
// a value with a success flag in which conversions and decoders report.
//
// A value is a tree: scalars at the leaves, ordered collections and named
// structures inside. All nodes of one tree share one BindingStore, owned by
// the tree's root and created lazily on the first operation that needs heap
// storage. The store owns the tree's payload records and nodes (served from
// small-object pools) and its interned strings (one reference-counted entry
// per distinct content, member names included).
//
// Ownership rules:
//  * A value created by itself (a local, a field, a result) is a root and
//    owns its store. Children refer to the root's store and do not own it.
//  * Values of different trees never share storage. Moving between two roots
//    swaps them wholesale; any other move deep-copies into the destination's
//    store and clears the source. Copies are always deep.
//  * Copies and moves within one tree work in either direction, except
//    moving a value into one of its own descendants (REQUIRES: never done).
//  * References returned by At, Append and Member stay valid until that
//    element or member is removed (Clear, overwrite of the container, or a
//    kind change of an ancestor). Growing a collection may move its elements:
//    do not hold an element reference across Append/At on the same
//    collection. Structure members never move.
//
// Thread-safety: a tree and its store are used by one thread at a time. The
// process-wide page provider behind all stores is internally locked.
#ifndef KAV_BINDING_BINDING_PROPERTY_H_
#define KAV_BINDING_BINDING_PROPERTY_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "binding/static_type.h"

namespace kav {

enum class BindingKind : uint8_t {
  kEmpty = 0,
  kBool = 1,
  kSigned = 2,
  kUnsigned = 3,
  kFloat = 4,
  kString = 5,
  kBlob = 6,
  kEnum = 7,
  kCollection = 8,
  kStructure = 9,
};

// "empty", "bool", "signed", "unsigned", "float", "string", "blob", "enum",
// "collection", "structure"; "" for any other code.
const char* KindName(uint32_t code);

// Payload of an enum value: the enumerator and the identity of its type.
struct BindingEnum {
  int32_t value = 0;
  const StaticTypeIdentity* type = nullptr;
};

class BindingStore;
class BindingPropertyVisitor;
namespace binding_internal {
struct InternedString;
struct MemberNode;
struct StructureRecord;
// What the interned-string cache knows of a text without reading all of it:
// its first and last bytes (all of them up to 16 bytes).
struct TextProbe {
  uint64_t head = 0;
  uint64_t tail = 0;
};
}  // namespace binding_internal

class BindingProperty {
 public:
  class MemberIterator;
  struct MemberRange {
    MemberIterator begin() const;
    MemberIterator end() const;
    const BindingProperty* owner;
  };

  // Empty, no store, owning.
  BindingProperty() noexcept;
  BindingProperty(const BindingProperty& other);
  BindingProperty(BindingProperty&& other) noexcept;
  BindingProperty& operator=(const BindingProperty& other);
  BindingProperty& operator=(BindingProperty&& other) noexcept;
  ~BindingProperty();

  // Releases the payload; the value becomes empty. Store and owning flag stay.
  void Clear() noexcept;

  // ---- Inspection: never changes the value, never fails. ----
  BindingKind Kind() const { return kind_; }
  bool IsEmpty() const { return kind_ == BindingKind::kEmpty; }
  // empty 0; string bytes; blob bytes; collection elements; structure
  // members; any other kind 1.
  size_t Size() const;

  // The payload when the kind matches exactly, otherwise `fallback`.
  bool AsBool(bool fallback = false) const {
    return kind_ == BindingKind::kBool ? payload_.boolean : fallback;
  }
  int64_t AsSigned(int64_t fallback = 0) const {
    return kind_ == BindingKind::kSigned ? payload_.i64 : fallback;
  }
  uint64_t AsUnsigned(uint64_t fallback = 0) const {
    return kind_ == BindingKind::kUnsigned ? payload_.u64 : fallback;
  }
  double AsFloat(double fallback = 0.0) const {
    return kind_ == BindingKind::kFloat ? payload_.f64 : fallback;
  }
  // The returned view of a string is always followed by a NUL byte.
  std::string_view AsString(std::string_view fallback = {}) const;
  std::span<const uint8_t> AsBlob(std::span<const uint8_t> fallback = {}) const;
  BindingEnum AsEnum(BindingEnum fallback = {}) const;

  // Element `index` of a collection; a shared static empty value otherwise.
  const BindingProperty& At(size_t index) const;
  // Member `name` of a structure; a shared static empty value otherwise.
  const BindingProperty& Find(std::string_view name) const;
  // Members of a structure in byte-wise name order; empty for other kinds.
  MemberRange Members() const { return MemberRange{this}; }

  // Depth-first walk reporting each node to `visitor`.
  void Visit(BindingPropertyVisitor& visitor) const;

  // ---- Building: each setter clears the old payload first. ----
  void SetBool(bool value) {
    ClearForScalar();
    payload_.boolean = value;
    kind_ = BindingKind::kBool;
  }
  void SetSigned(int64_t value) {
    ClearForScalar();
    payload_.i64 = value;
    kind_ = BindingKind::kSigned;
  }
  void SetUnsigned(uint64_t value) {
    ClearForScalar();
    payload_.u64 = value;
    kind_ = BindingKind::kUnsigned;
  }
  void SetFloat(double value) {
    ClearForScalar();
    payload_.f64 = value;
    kind_ = BindingKind::kFloat;
  }
  // A string ends at its first NUL byte, whatever its given length.
  void SetString(const char* text);  // NUL-terminated; null means ""
  void SetString(std::string_view text);
  void SetString(std::string&& text);
  void SetBlob(std::span<const uint8_t> bytes);
  void SetBlob(std::vector<uint8_t>&& bytes);
  void SetEnum(int32_t value, const StaticTypeIdentity& type);

  // Become an empty collection / structure unless already one.
  void MakeCollection() {
    if (kind_ != BindingKind::kCollection) BecomeCollection();
  }
  void MakeStructure() {
    if (kind_ != BindingKind::kStructure) BecomeStructure();
  }
  // Reserve room for `count` elements of a collection; else nothing.
  // Throws std::length_error beyond 0x0FFFFFFF elements.
  void Reserve(size_t count);
  // Makes this a collection if needed, appends empty elements until `index`
  // exists and returns that element.
  BindingProperty& At(size_t index);
  // Makes this a collection if needed (any other kind is cleared first) and
  // appends one empty element.
  BindingProperty& Append();
  // Makes this a structure if needed and returns the member, inserting an
  // empty one when missing. Like strings, names end at their first NUL byte.
  BindingProperty& Member(std::string_view name);
  // The name `member` is held under, NUL-terminated. REQUIRES: `member` is
  // a member of a structure, as Member and StructureBuilder::Member return
  // it, and still in place.
  static std::string_view NameOfMember(const BindingProperty& member);

  // For tests: the store of this value's tree, null while none was needed.
  const BindingStore* StoreForTesting() const { return store_; }

 private:
  friend class BindingStore;
  friend class MemberIterator;
  friend class BindingTree;  // the tree algorithms, in binding_property.cc
  friend class BindingWalk;  // the templated walk, in binding_walk.h
  friend class StructureBuilder;

  struct StaticTag {};
  // The shared static empty value, constant-initialised.
  constexpr explicit BindingProperty(StaticTag) noexcept {}
  // A child: empty, in `store`'s tree, not owning it.
  explicit BindingProperty(BindingStore* store) noexcept : store_(store), owns_store_(false) {}

  // Clear() when the payload holds anything to release.
  void ClearForScalar() noexcept {
    if (kind_ > BindingKind::kFloat) Clear();
  }
  // The store, created for a root on first need. Children always have one.
  BindingStore& Store() { return store_ != nullptr ? *store_ : CreateStore(); }
  BindingStore& CreateStore();
  // Clear(), first copying `text` into `holder` when it may live in the
  // storage that clearing releases.
  void ClearKeeping(std::string_view& text, std::string& holder);
  void BecomeCollection() noexcept {
    ClearForScalar();
    payload_.record = nullptr;
    kind_ = BindingKind::kCollection;
  }
  void BecomeStructure() noexcept {
    ClearForScalar();
    payload_.record = nullptr;
    kind_ = BindingKind::kStructure;
  }
  // Makes room for `count` elements in total. REQUIRES: a collection.
  void GrowCollection(size_t count);
  // At(index) when the element neither exists nor fits the capacity.
  BindingProperty& Extend(size_t index);

  union Payload {
    bool boolean;
    int64_t i64;
    uint64_t u64;
    double f64;
    void* record;  // string entry, blob, enum record, collection or structure
  };

  Payload payload_{};
  BindingStore* store_ = nullptr;
  BindingKind kind_ = BindingKind::kEmpty;
  bool owns_store_ = true;
};

// Iterates a structure's members as (name, value) in byte-wise name order.
class BindingProperty::MemberIterator {
 public:
  using value_type = std::pair<std::string_view, const BindingProperty&>;
  value_type operator*() const;
  MemberIterator& operator++();
  bool operator==(const MemberIterator& other) const { return node_ == other.node_; }
  bool operator!=(const MemberIterator& other) const { return node_ != other.node_; }

 private:
  friend struct BindingProperty::MemberRange;
  friend class BindingStore;
  const void* node_ = nullptr;
};

// A value plus a success flag. Failure: ok false and the value is a structure
// whose only member "error" holds the message (see SetError).
class [[nodiscard]] BindingResult : public BindingProperty {
 public:
  BindingResult() = default;
  explicit BindingResult(const BindingProperty& value) : BindingProperty(value) {}
  explicit BindingResult(BindingProperty&& value) : BindingProperty(std::move(value)) {}
  BindingResult(const BindingResult&) = default;
  BindingResult(BindingResult&&) noexcept = default;
  BindingResult& operator=(const BindingResult&) = default;
  BindingResult& operator=(BindingResult&&) noexcept = default;

  bool Ok() const { return ok_; }
  // The message of a failure; "" when ok or when "error" is missing or not a
  // string.
  std::string_view Error() const;
  // Clears the value, lowers ok and stores the message as member "error".
  void SetError(std::string_view message);

 private:
  bool ok_ = true;
};

// Fills the structures of one tree as a decoder reads them. Members arrive
// in text order, and the objects of a list tend to repeat the same names in
// the same order. The members of a structure opened empty are collected
// without ordering and put in name order once, when it is closed - by the
// order remembered from the previous structure of the same depth when the
// names repeat it, else by sorting - instead of one tree insertion each.
// Structures that already have members, and very large ones, are filled
// member by member as BindingProperty::Member does.
//
// Open / Member / Close nest like the objects of the text. The result is the
// same as calling BindingProperty::Member for each name: names end at their
// first NUL byte, and a repeated name gives the member it named before.
// While a structure is open its members are reachable only through the
// references Member returned (Find, Size and iteration do not see them yet),
// until FillInPlace.
//
// REQUIRES: all structures opened belong to one tree; an open structure
// stays in place (its collection does not grow) until closed; the builder is
// destroyed before that tree is cleared or destroyed. Destroying the builder
// closes any structure still open.
//
// Thread-safety: as the tree it fills.
class StructureBuilder {
 public:
  StructureBuilder() = default;
  StructureBuilder(const StructureBuilder&) = delete;
  StructureBuilder& operator=(const StructureBuilder&) = delete;
  ~StructureBuilder();

  // Starts filling `structure`. REQUIRES: it is a structure.
  void Open(BindingProperty& structure);
  // The member `name` of the innermost open structure, inserted empty when
  // missing. The reference stays valid as Member's does.
  BindingProperty& Member(std::string_view name);
  // Puts the innermost open structure's members in order and closes it.
  void Close() noexcept;
  // Puts the members collected so far in place in every open structure and
  // fills every structure, open or opened later, member by member from now
  // on, so that Find, Size and iteration see each member once inserted.
  void FillInPlace() noexcept;

 private:
  // Structures with more members than this are filled member by member:
  // as many as a structure holds before it needs a tree, so that putting
  // the collected ones in place allocates nothing.
  static constexpr size_t kMaxCollected = 16;
  // Names are remembered for the structures of the first depths only.
  static constexpr size_t kRememberedDepths = 16;

  // The names of the last structure closed at one depth, in text order, and
  // their name order; each name holds a reference. The probes let a name be
  // recognised without reading the remembered one's text.
  struct Shape {
    const binding_internal::InternedString* names[kMaxCollected];
    binding_internal::TextProbe probes[kMaxCollected];
    uint8_t order[kMaxCollected];
    size_t count = 0;
  };
  struct Level {
    BindingProperty* structure;
    binding_internal::StructureRecord* record;  // allocated with the first member
    // The shape whose names the members so far repeat, in its order; null
    // once they stop doing so (or when none was remembered).
    const Shape* expected;
    uint32_t first_collected;  // its members in collected_
    uint32_t count;            // members collected so far
    bool direct;               // filled member by member
  };

  // Member when the name is not the next one of the level's shape.
  BindingProperty& Collect(Level& level, std::string_view name);
  void Link(Level& level, size_t depth, bool remember) noexcept;
  void Remember(size_t depth, binding_internal::MemberNode* const* nodes, const uint8_t* order,
                size_t count) noexcept;

  BindingStore* store_ = nullptr;
  std::vector<Level> levels_;
  // kMaxCollected slots for each open level that collects: the first
  // collected_top_ are in use.
  std::vector<binding_internal::MemberNode*> collected_;
  size_t collected_top_ = 0;
  // By depth, kRememberedDepths of them once the first is remembered; they
  // never move, so that a level can point at its shape.
  std::unique_ptr<Shape[]> shapes_;
  bool in_place_ = false;  // set by FillInPlace
};

// The walking interface of Visit. Scalars are reported by kind; collections
// as BeginCollection(n), then for each element BeginElement(i), the
// element's walk, EndElement(i), then EndCollection(); structures as
// BeginStructure(n), then for each member in name order VisitKey(name), the
// member's walk, EndMember(name), then EndStructure().
class BindingPropertyVisitor {
 public:
  virtual void VisitNull() = 0;
  virtual void VisitBool(bool value) = 0;
  virtual void VisitSigned(int64_t value) = 0;
  virtual void VisitUnsigned(uint64_t value) = 0;
  virtual void VisitFloat(double value) = 0;
  virtual void VisitString(std::string_view value) = 0;
  virtual void VisitBlob(std::span<const uint8_t> bytes) = 0;
  virtual void VisitEnum(const BindingEnum& value) = 0;
  virtual void BeginCollection(size_t count) = 0;
  virtual void BeginElement(size_t index) = 0;
  virtual void EndElement(size_t index) = 0;
  virtual void EndCollection() = 0;
  virtual void BeginStructure(size_t count) = 0;
  virtual void VisitKey(std::string_view name) = 0;
  virtual void EndMember(std::string_view name) = 0;
  virtual void EndStructure() = 0;
  virtual ~BindingPropertyVisitor() = default;
};

}  // namespace kav

#endif  // KAV_BINDING_BINDING_PROPERTY_H_
