// BindingWalk: the depth-first walk behind BindingProperty::Visit, as a
// template over the visitor type. A visitor whose type is known at compile
// time (the writers of the codecs) has its calls inlined into the walk;
// BindingProperty::Visit instantiates the same walk with the virtual
// BindingPropertyVisitor, so both report exactly the same call sequence:
//   scalars by kind (VisitNull, VisitBool, ..., VisitEnum);
//   collections as BeginCollection(n), then per element BeginElement(i),
//   the element's walk, EndElement(i), then EndCollection();
//   structures as BeginStructure(n), then per member in name order
//   VisitKey(name), the member's walk, EndMember(name), then EndStructure().
// A kind code outside the ten kinds reports nothing.
//
// A Visitor needs the sixteen operations of BindingPropertyVisitor (any
// results are ignored); it need not derive from it.
//
// Any depth is safe: the walk recurses at most kRecursionLevels levels and
// goes on with an explicit stack below that.
//
// Thread-safety: the walk only reads the tree; like every use of a tree it
// must not overlap a change of it.
#ifndef KAV_BINDING_BINDING_WALK_H_
#define KAV_BINDING_BINDING_WALK_H_

#include <cstddef>
#include <cstring>
#include <new>
#include <string_view>

#include "binding/binding_property.h"
#include "binding/binding_store.h"

namespace kav {

class BindingWalk {
 public:
  // Levels walked by recursion (a few KiB of stack) before the explicit stack
  // takes over.
  static constexpr int kRecursionLevels = 64;

  template <class Visitor>
  static void Walk(const BindingProperty& value, Visitor& visitor) {
    WalkLevels(value, visitor, kRecursionLevels);
  }

 private:
  using CollectionBlock = binding_internal::CollectionBlock;
  using StructureRecord = binding_internal::StructureRecord;
  using MemberNode = binding_internal::MemberNode;
  using InternedString = binding_internal::InternedString;

  // Reports a value that is not a container; false for containers.
  template <class Visitor>
  [[gnu::always_inline]] static bool VisitLeaf(const BindingProperty& value, Visitor& visitor) {
    switch (value.kind_) {
      case BindingKind::kEmpty:
        visitor.VisitNull();
        return true;
      case BindingKind::kBool:
        visitor.VisitBool(value.payload_.boolean);
        return true;
      case BindingKind::kSigned:
        visitor.VisitSigned(value.payload_.i64);
        return true;
      case BindingKind::kUnsigned:
        visitor.VisitUnsigned(value.payload_.u64);
        return true;
      case BindingKind::kFloat:
        visitor.VisitFloat(value.payload_.f64);
        return true;
      case BindingKind::kString:
        visitor.VisitString(static_cast<const InternedString*>(value.payload_.record)->View());
        return true;
      case BindingKind::kBlob:
        visitor.VisitBlob(value.AsBlob());
        return true;
      case BindingKind::kEnum:
        visitor.VisitEnum(*static_cast<const BindingEnum*>(value.payload_.record));
        return true;
      case BindingKind::kCollection:
      case BindingKind::kStructure:
        return false;
    }
    return true;  // an unknown kind reports nothing
  }

  // The common case: recursion keeps each level's position in registers.
  template <class Visitor>
  static void WalkLevels(const BindingProperty& value, Visitor& visitor, int levels_left) {
    if (VisitLeaf(value, visitor)) return;
    if (levels_left == 0) {
      WalkDeep(value, visitor);
      return;
    }
    if (value.kind_ == BindingKind::kCollection) {
      const auto* block = static_cast<const CollectionBlock*>(value.payload_.record);
      const size_t count = block != nullptr ? block->size : 0;
      visitor.BeginCollection(count);
      for (size_t i = 0; i < count; ++i) {
        visitor.BeginElement(i);
        const BindingProperty& element = block->Elements()[i];
        if (!VisitLeaf(element, visitor)) WalkLevels(element, visitor, levels_left - 1);
        visitor.EndElement(i);
      }
      visitor.EndCollection();
    } else {
      const auto* tree = static_cast<const StructureRecord*>(value.payload_.record);
      visitor.BeginStructure(tree != nullptr ? tree->count : 0);
      for (const MemberNode* member = tree != nullptr ? tree->first : nullptr; member != nullptr;
           member = member->next) {
        const std::string_view name = member->name->View();
        visitor.VisitKey(name);
        if (!VisitLeaf(member->value, visitor)) {
          WalkLevels(member->value, visitor, levels_left - 1);
        }
        visitor.EndMember(name);
      }
      visitor.EndStructure();
    }
  }

  struct Frame {
    const BindingProperty* elements;  // collection: its elements
    const MemberNode* member;         // structure: the current member
    size_t index;                     // collection: the current element
    size_t count;                     // collection: its size
    bool is_structure;
    bool child_open;  // the current element or member was begun, not ended
  };

  // A LIFO of frames that spills from an inline array to the heap.
  class FrameStack {
   public:
    FrameStack() = default;
    FrameStack(const FrameStack&) = delete;
    FrameStack& operator=(const FrameStack&) = delete;
    ~FrameStack() {
      if (items_ != inline_items_) ::operator delete(items_);
    }
    bool Empty() const { return size_ == 0; }
    Frame& Top() { return items_[size_ - 1]; }
    void Pop() { --size_; }
    void Push(const Frame& frame) {
      if (size_ == capacity_) {
        auto* grown = static_cast<Frame*>(::operator new(capacity_ * 2 * sizeof(Frame)));
        std::memcpy(static_cast<void*>(grown), items_, size_ * sizeof(Frame));
        if (items_ != inline_items_) ::operator delete(items_);
        items_ = grown;
        capacity_ *= 2;
      }
      items_[size_++] = frame;
    }

   private:
    Frame inline_items_[32];
    Frame* items_ = inline_items_;
    size_t size_ = 0;
    size_t capacity_ = 32;
  };

  // Walks any depth with an explicit stack.
  template <class Visitor>
  static void WalkDeep(const BindingProperty& top, Visitor& visitor) {
    FrameStack frames;
    const BindingProperty* next = &top;
    for (;;) {
      if (next != nullptr && !VisitLeaf(*next, visitor)) {
        if (next->kind_ == BindingKind::kCollection) {
          const auto* block = static_cast<const CollectionBlock*>(next->payload_.record);
          const size_t count = block != nullptr ? block->size : 0;
          visitor.BeginCollection(count);
          frames.Push(
              {block != nullptr ? block->Elements() : nullptr, nullptr, 0, count, false, false});
        } else {
          const auto* tree = static_cast<const StructureRecord*>(next->payload_.record);
          visitor.BeginStructure(tree != nullptr ? tree->count : 0);
          frames.Push({nullptr, tree != nullptr ? tree->first : nullptr, 0, 0, true, false});
        }
      }
      next = nullptr;
      if (frames.Empty()) return;
      Frame& frame = frames.Top();
      if (frame.is_structure) {
        if (frame.child_open) {
          visitor.EndMember(frame.member->name->View());
          frame.member = frame.member->next;
          frame.child_open = false;
        }
        if (frame.member != nullptr) {
          visitor.VisitKey(frame.member->name->View());
          frame.child_open = true;
          next = &frame.member->value;
        } else {
          frames.Pop();
          visitor.EndStructure();
        }
      } else {
        if (frame.child_open) {
          visitor.EndElement(frame.index);
          ++frame.index;
          frame.child_open = false;
        }
        if (frame.index < frame.count) {
          visitor.BeginElement(frame.index);
          frame.child_open = true;
          next = &frame.elements[frame.index];
        } else {
          frames.Pop();
          visitor.EndCollection();
        }
      }
    }
  }
};

}  // namespace kav

#endif  // KAV_BINDING_BINDING_WALK_H_
