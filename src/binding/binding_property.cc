#include "binding/binding_property.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>
#include <stdexcept>
#include <type_traits>

#include "binding/binding_store.h"
#include "binding/binding_walk.h"

namespace kav {

using binding_internal::BlobRecord;
using binding_internal::CollectionBlock;
using binding_internal::InternedString;
using binding_internal::MemberNode;
using binding_internal::StructureRecord;
using binding_internal::TreeNode;

namespace {

// The most elements a collection may hold.
constexpr size_t kMaxElements = 0x0FFFFFFF;
// Elements of a collection's first block: as many as fit the largest pool slot.
constexpr size_t kFirstCapacity = std::max<size_t>(
    1, (BindingStore::kLargestPooledSize - sizeof(CollectionBlock)) / sizeof(BindingProperty));

static_assert(sizeof(CollectionBlock) % alignof(BindingProperty) == 0);
static_assert(sizeof(MemberNode) <= BindingStore::kLargestPooledSize &&
                  sizeof(TreeNode) <= BindingStore::kLargestPooledSize,
              "member and tree nodes must come from the pools");
static_assert(std::is_standard_layout_v<MemberNode>);

[[noreturn]] void ThrowTooManyElements() {
  throw std::length_error("vector too long");
}

// The member node holding `value`. REQUIRES: `value` is a member's value.
MemberNode* NodeOfMember(BindingProperty* value) {
  return reinterpret_cast<MemberNode*>(reinterpret_cast<char*>(value) -
                                       offsetof(MemberNode, value));
}

size_t CollectionBytes(size_t capacity) {
  return sizeof(CollectionBlock) + capacity * sizeof(BindingProperty);
}

size_t BlobBytes(size_t size) {
  return (sizeof(BlobRecord) + size + alignof(BlobRecord) - 1) & ~(alignof(BlobRecord) - 1);
}

// Strings and names end at their first NUL byte.
std::string_view UpToFirstNul(std::string_view text) {
  if (text.empty()) return text;
  const void* nul = std::memchr(text.data(), '\0', text.size());
  if (nul == nullptr) return text;
  return text.substr(0, static_cast<size_t>(static_cast<const char*>(nul) - text.data()));
}

uint64_t LoadBigEndian64(const char* bytes) {
  uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  if constexpr (std::endian::native == std::endian::little) {
#ifdef _MSC_VER
    word = _byteswap_uint64(word);
#else
    word = __builtin_bswap64(word);
#endif
  }
  return word;
}

// Byte-wise unsigned comparison, as strcmp orders terminated names. Names
// mostly differ within their first 8 bytes, which compare as one word.
[[gnu::always_inline]] inline int CompareNames(std::string_view name, const InternedString* other) {
  const char* left = name.data();
  const char* right = other->Text();
  const size_t common = std::min<size_t>(name.size(), other->length);
  if (common >= 8) {
    const uint64_t left_word = LoadBigEndian64(left);
    const uint64_t right_word = LoadBigEndian64(right);
    if (left_word != right_word) return left_word < right_word ? -1 : 1;
    const int order = std::memcmp(left + 8, right + 8, common - 8);
    if (order != 0) return order;
  } else {
    for (size_t i = 0; i < common; ++i) {
      if (left[i] != right[i]) {
        return static_cast<uint8_t>(left[i]) < static_cast<uint8_t>(right[i]) ? -1 : 1;
      }
    }
  }
  if (name.size() == other->length) return 0;
  return name.size() < other->length ? -1 : 1;
}

bool IsContainer(BindingKind kind) {
  return kind == BindingKind::kCollection || kind == BindingKind::kStructure;
}

// ---- Structure members: a chain in name order, and a red-black tree ----
//
// Structures of up to kLinearMembers members have no tree (a null root):
// searching their short chain costs no more than descending a tree, and
// decoders then put members in place without linking one (msgpack_bench
// ReadMessagePackBench, json_bench ReadWithCodec). The tree is built when
// one more member arrives.
constexpr size_t kLinearMembers = 16;

// The tree of a larger structure allows insertion only.
//
// Nodes keep no parent link: insertion records its descent path instead.
// A red-black tree of n nodes is at most 2*log2(n+1) deep.
constexpr size_t kMaxTreeDepth = 2 * 8 * sizeof(size_t);

void Relink(StructureRecord& tree, TreeNode* parent, TreeNode* old_child, TreeNode* new_child) {
  if (parent == nullptr) {
    tree.root = new_child;
  } else if (parent->left == old_child) {
    parent->left = new_child;
  } else {
    parent->right = new_child;
  }
}

// Restores the red-black rules after `node` (red) was linked below
// path[depth - 1]; path[0 .. depth) are its ancestors from the root down.
void RebalanceAfterInsert(StructureRecord& tree, TreeNode** path, size_t depth, TreeNode* node) {
  while (depth >= 2 && path[depth - 1]->red) {
    TreeNode* parent = path[depth - 1];
    TreeNode* grandparent = path[depth - 2];
    TreeNode* above = depth >= 3 ? path[depth - 3] : nullptr;
    if (parent == grandparent->left) {
      TreeNode* uncle = grandparent->right;
      if (uncle != nullptr && uncle->red) {
        parent->red = uncle->red = false;
        grandparent->red = true;
        node = grandparent;
        depth -= 2;
        continue;
      }
      if (node == parent->right) {  // rotate left at parent
        parent->right = node->left;
        node->left = parent;
        grandparent->left = node;
        std::swap(node, parent);
      }
      grandparent->left = parent->right;  // rotate right at grandparent
      parent->right = grandparent;
      Relink(tree, above, grandparent, parent);
    } else {
      TreeNode* uncle = grandparent->left;
      if (uncle != nullptr && uncle->red) {
        parent->red = uncle->red = false;
        grandparent->red = true;
        node = grandparent;
        depth -= 2;
        continue;
      }
      if (node == parent->left) {  // rotate right at parent
        parent->left = node->right;
        node->right = parent;
        grandparent->right = node;
        std::swap(node, parent);
      }
      grandparent->right = parent->left;  // rotate left at grandparent
      parent->left = grandparent;
      Relink(tree, above, grandparent, parent);
    }
    parent->red = false;
    grandparent->red = true;
    break;
  }
  tree.root->red = false;
}

// Links sorted[lo, hi) (not empty) into a balanced tree: every level above
// `red_depth` is full, so colouring exactly the nodes at `red_depth` (the
// deepest level) red gives every path the same number of black nodes.
TreeNode* BuildBalanced(TreeNode* const* sorted, size_t lo, size_t hi, size_t depth,
                        size_t red_depth) {
  const size_t middle = lo + (hi - lo) / 2;
  TreeNode* node = sorted[middle];
  node->red = depth == red_depth;
  node->left = middle > lo ? BuildBalanced(sorted, lo, middle, depth + 1, red_depth) : nullptr;
  node->right =
      middle + 1 < hi ? BuildBalanced(sorted, middle + 1, hi, depth + 1, red_depth) : nullptr;
  return node;
}

// Tree nodes taken before the member that needs them is linked, so that a
// failed allocation leaves the structure as it was. What is not handed over
// goes back to the store.
class SpareTreeNodes {
 public:
  static constexpr size_t kMost = kLinearMembers + 1;

  explicit SpareTreeNodes(BindingStore& store) : store_(store) {}
  SpareTreeNodes(const SpareTreeNodes&) = delete;
  SpareTreeNodes& operator=(const SpareTreeNodes&) = delete;
  ~SpareTreeNodes() {
    while (count_ > 0) store_.Free(nodes_[--count_], sizeof(TreeNode));
  }

  // REQUIRES: count <= kMost.
  void Take(size_t count) {
    for (; count_ < count; ++count_) {
      nodes_[count_] = static_cast<TreeNode*>(store_.Allocate(sizeof(TreeNode)));
    }
  }
  // REQUIRES: one was taken and not handed over yet.
  TreeNode* HandOver() { return nodes_[--count_]; }

 private:
  BindingStore& store_;
  TreeNode* nodes_[kMost];
  size_t count_ = 0;
};

// Gives a structure that has just outgrown the linear form its tree over
// the members' name-order chain. REQUIRES: count == kLinearMembers + 1, and
// as many nodes in `spare`.
void LinkTree(StructureRecord& tree, SpareTreeNodes& spare) {
  TreeNode* sorted[kLinearMembers + 1];
  size_t count = 0;
  for (MemberNode* member = tree.first; member != nullptr; member = member->next) {
    TreeNode* node = spare.HandOver();
    node->member = member;
    sorted[count++] = node;
  }
  const size_t red_depth = static_cast<size_t>(std::bit_width(count) - 1);
  tree.root = BuildBalanced(sorted, 0, count, 0, red_depth);
  tree.root->red = false;
}

// Frees a structure's tree without a stack: rotating each left child up
// leaves a node with no left child, which goes.
void FreeTree(BindingStore& store, TreeNode* node) noexcept {
  while (node != nullptr) {
    if (TreeNode* left = node->left; left != nullptr) {
      node->left = left->right;
      left->right = node;
      node = left;
    } else {
      TreeNode* right = node->right;
      store.Free(node, sizeof(TreeNode));
      node = right;
    }
  }
}

const MemberNode* FindNode(const StructureRecord* tree, std::string_view name) {
  if (tree == nullptr) return nullptr;
  if (tree->root == nullptr) {  // a small structure: its members in name order
    for (const MemberNode* node = tree->first; node != nullptr; node = node->next) {
      const int order = CompareNames(name, node->name);
      if (order <= 0) return order == 0 ? node : nullptr;
    }
    return nullptr;
  }
  const TreeNode* node = tree->root;
  while (node != nullptr) {
    const int order = CompareNames(name, node->member->name);
    if (order == 0) return node->member;
    node = order < 0 ? node->left : node->right;
  }
  return nullptr;
}

// ---- Explicit stacks for the walks, so that depth costs no call stack ----

// A LIFO of trivially copyable items that spills from an inline array to the
// heap when it grows past N.
template <class T, size_t N>
class WorkStack {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  WorkStack() = default;
  WorkStack(const WorkStack&) = delete;
  WorkStack& operator=(const WorkStack&) = delete;
  ~WorkStack() {
    if (items_ != inline_items_) ::operator delete(items_);
  }

  bool Empty() const { return size_ == 0; }
  T& Top() { return items_[size_ - 1]; }
  T Pop() { return items_[--size_]; }
  void Push(const T& item) {
    if (size_ == capacity_) Grow();
    items_[size_++] = item;
  }

 private:
  void Grow() {
    auto* grown = static_cast<T*>(::operator new(capacity_ * 2 * sizeof(T)));
    std::memcpy(static_cast<void*>(grown), items_, size_ * sizeof(T));
    if (items_ != inline_items_) ::operator delete(items_);
    items_ = grown;
    capacity_ *= 2;
  }

  T inline_items_[N];
  T* items_ = inline_items_;
  size_t size_ = 0;
  size_t capacity_ = N;
};

}  // namespace

// The algorithms over whole trees: release, deep copy and member insertion
// (the walk is BindingWalk, in binding_walk.h). A friend of BindingProperty. None of them recurses
// more than a fixed number of levels, so any depth is safe.
class BindingTree {
 public:
  static const BindingProperty kNoValue;

  static void ReleaseLeaf(BindingStore& store, BindingProperty& value) noexcept;
  static void ReleaseContainer(BindingStore& store, BindingKind kind, void* record) noexcept;
  static void Copy(BindingProperty& destination, const BindingProperty& source);
  static BindingProperty& InsertMember(BindingProperty& structure, std::string_view name,
                                       const uint32_t* known_hash);

  static const InternedString* StringOf(const BindingProperty& value) {
    return static_cast<const InternedString*>(value.payload_.record);
  }
  static const BlobRecord* BlobOf(const BindingProperty& value) {
    return static_cast<const BlobRecord*>(value.payload_.record);
  }
  static CollectionBlock* CollectionOf(const BindingProperty& value) {
    return static_cast<CollectionBlock*>(value.payload_.record);
  }
  static StructureRecord* StructureOf(const BindingProperty& value) {
    return static_cast<StructureRecord*>(value.payload_.record);
  }

 private:
  // Written over a container child's slot while that child is being
  // released: where to resume in the parent once it is done.
  struct ReturnLink {
    void* parent_record;
    BindingProperty* parent_slot;  // the parent's own slot, or null at the top
    BindingKind parent_kind;
  };
  static_assert(sizeof(ReturnLink) <= sizeof(BindingProperty));

  struct CopyTask {
    BindingProperty* destination;
    const BindingProperty* source;
  };
  static bool CopyLeaf(BindingProperty& destination, const BindingProperty& source);
};

constinit const BindingProperty BindingTree::kNoValue{BindingProperty::StaticTag{}};

void BindingTree::ReleaseLeaf(BindingStore& store, BindingProperty& value) noexcept {
  switch (value.kind_) {
    case BindingKind::kString:
      store.Release(StringOf(value));
      break;
    case BindingKind::kBlob:
      store.Free(value.payload_.record, BlobBytes(BlobOf(value)->size));
      break;
    case BindingKind::kEnum:
      store.Free(value.payload_.record, sizeof(BindingEnum));
      break;
    default:
      break;
  }
}

// Releases a container depth-first without a stack: while a child container
// is released, the child's slot in its parent holds a ReturnLink, and
// `slot` points at it (pointer reversal). Collections resume at the element
// after the slot, structures at the member node that holds the slot.
void BindingTree::ReleaseContainer(BindingStore& store, BindingKind kind, void* record) noexcept {
  BindingProperty* slot = nullptr;
  size_t index = 0;
  MemberNode* member = kind == BindingKind::kStructure && record
                           ? static_cast<StructureRecord*>(record)->first
                           : nullptr;
  for (;;) {
    BindingProperty* descend_into = nullptr;
    if (kind == BindingKind::kCollection) {
      auto* block = static_cast<CollectionBlock*>(record);
      if (block != nullptr) {
        BindingProperty* elements = block->Elements();
        for (; index < block->size; ++index) {
          if (IsContainer(elements[index].kind_)) {
            descend_into = &elements[index];
            break;
          }
          ReleaseLeaf(store, elements[index]);
        }
        if (descend_into == nullptr) store.Free(block, CollectionBytes(block->capacity));
      }
    } else {
      while (member != nullptr) {
        if (IsContainer(member->value.kind_)) {
          descend_into = &member->value;
          break;
        }
        ReleaseLeaf(store, member->value);
        store.Release(member->name);
        MemberNode* next = member->next;
        store.Free(member, sizeof(MemberNode));
        member = next;
      }
      if (descend_into == nullptr && record != nullptr) {
        FreeTree(store, static_cast<StructureRecord*>(record)->root);
        store.Free(record, sizeof(StructureRecord));
      }
    }

    if (descend_into != nullptr) {
      const BindingKind child_kind = descend_into->kind_;
      void* child_record = descend_into->payload_.record;
      const ReturnLink link{record, slot, kind};
      std::memcpy(static_cast<void*>(descend_into), &link, sizeof link);
      slot = descend_into;
      kind = child_kind;
      record = child_record;
      index = 0;
      member = kind == BindingKind::kStructure && record
                   ? static_cast<StructureRecord*>(record)->first
                   : nullptr;
      continue;
    }

    if (slot == nullptr) return;
    ReturnLink link;
    std::memcpy(&link, static_cast<const void*>(slot), sizeof link);
    new (slot) BindingProperty(&store);  // released: an empty leaf now
    kind = link.parent_kind;
    record = link.parent_record;
    if (kind == BindingKind::kCollection) {
      index = static_cast<size_t>(slot - static_cast<CollectionBlock*>(record)->Elements()) + 1;
    } else {
      member = NodeOfMember(slot);
    }
    slot = link.parent_slot;
  }
}

// Copies a value that has no children; false for containers.
bool BindingTree::CopyLeaf(BindingProperty& destination, const BindingProperty& source) {
  switch (source.kind_) {
    case BindingKind::kEmpty:
      destination.Clear();
      return true;
    case BindingKind::kBool:
      destination.SetBool(source.payload_.boolean);
      return true;
    case BindingKind::kSigned:
      destination.SetSigned(source.payload_.i64);
      return true;
    case BindingKind::kUnsigned:
      destination.SetUnsigned(source.payload_.u64);
      return true;
    case BindingKind::kFloat:
      destination.SetFloat(source.payload_.f64);
      return true;
    case BindingKind::kString: {
      const InternedString* text = StringOf(source);
      destination.Clear();
      const InternedString* copy = text->length == 0
                                       ? BindingStore::EmptyString()
                                       : destination.Store().Intern(text->View(), text->hash);
      destination.payload_.record = const_cast<InternedString*>(copy);
      destination.kind_ = BindingKind::kString;
      return true;
    }
    case BindingKind::kBlob:
      destination.SetBlob(source.AsBlob());
      return true;
    case BindingKind::kEnum: {
      const BindingEnum value = source.AsEnum();
      destination.SetEnum(value.value, *value.type);
      return true;
    }
    default:
      if (!IsContainer(source.kind_)) {
        destination.Clear();
        return true;
      }
      return false;
  }
}

// Deep copy without recursion. Each container is given all its children
// before any child is filled, so the pending destinations never move.
// REQUIRES: `source` is not in `destination`'s tree.
void BindingTree::Copy(BindingProperty& destination, const BindingProperty& source) {
  WorkStack<CopyTask, 32> pending;
  pending.Push({&destination, &source});
  while (!pending.Empty()) {
    const CopyTask task = pending.Pop();
    BindingProperty& to = *task.destination;
    const BindingProperty& from = *task.source;
    if (CopyLeaf(to, from)) continue;
    to.Clear();
    if (from.kind_ == BindingKind::kCollection) {
      to.BecomeCollection();
      const CollectionBlock* block = CollectionOf(from);
      if (block == nullptr || block->size == 0) continue;
      to.GrowCollection(block->size);
      CollectionBlock* copy = CollectionOf(to);
      for (uint32_t i = 0; i < block->size; ++i) {
        BindingProperty* element = new (copy->Elements() + i) BindingProperty(to.store_);
        copy->size = i + 1;
        if (!CopyLeaf(*element, block->Elements()[i])) {
          pending.Push({element, &block->Elements()[i]});
        }
      }
    } else {
      to.BecomeStructure();
      const StructureRecord* tree = StructureOf(from);
      if (tree == nullptr) continue;
      for (const MemberNode* node = tree->first; node != nullptr; node = node->next) {
        BindingProperty& member = InsertMember(to, node->name->View(), &node->name->hash);
        if (!CopyLeaf(member, node->value)) pending.Push({&member, &node->value});
      }
    }
  }
}

// Returns the member `name` (up to its first NUL byte) of `structure`,
// inserting an empty one when it is missing. A name greater than every
// present one (the case when members arrive in order) is appended without a
// search. `known_hash`, when given, is the FNV-1a hash of `name`, which then
// holds no NUL byte. REQUIRES: `structure` is a structure.
BindingProperty& BindingTree::InsertMember(BindingProperty& structure, std::string_view name,
                                           const uint32_t* known_hash) {
  BindingStore& store = structure.Store();
  // A recently interned equal name spares the NUL scan and the hashing.
  const InternedString* recent = known_hash == nullptr ? store.FindRecent(name) : nullptr;
  if (recent != nullptr) {
    name = recent->View();
  } else if (known_hash == nullptr) {
    name = UpToFirstNul(name);
  }
  auto* tree = StructureOf(structure);
  TreeNode* path[kMaxTreeDepth];
  size_t depth = 0;
  MemberNode* predecessor = nullptr;  // the member the new one follows
  bool as_left = false;
  const bool linear = tree == nullptr || tree->root == nullptr;
  if (tree != nullptr && linear) {
    const int order_to_last = CompareNames(name, tree->last->name);
    if (order_to_last == 0) return tree->last->value;
    if (order_to_last > 0) predecessor = tree->last;
    for (MemberNode* node = order_to_last > 0 ? nullptr : tree->first; node != nullptr;
         node = node->next) {
      const int order = CompareNames(name, node->name);
      if (order == 0) return node->value;
      if (order < 0) break;
      predecessor = node;
    }
  } else if (tree != nullptr) {
    const int order_to_last = CompareNames(name, tree->last->name);
    if (order_to_last == 0) return tree->last->value;
    if (order_to_last > 0) {
      // Greater than all: the new node goes right of the rightmost spine.
      for (TreeNode* node = tree->root; node != nullptr; node = node->right) {
        path[depth++] = node;
      }
      predecessor = tree->last;
    } else {
      TreeNode* node = tree->root;
      for (;;) {
        const int order = CompareNames(name, node->member->name);
        if (order == 0) return node->member->value;
        path[depth++] = node;
        if (order > 0) predecessor = node->member;
        TreeNode* next = order < 0 ? node->left : node->right;
        if (next == nullptr) {
          as_left = order < 0;
          break;
        }
        node = next;
      }
    }
  }
  // Storage and name first: when they cannot be had, nothing has changed.
  SpareTreeNodes spare(store);
  StructureRecord* fresh = nullptr;
  MemberNode* node = nullptr;
  try {
    if (tree == nullptr) {
      fresh = static_cast<StructureRecord*>(store.Allocate(sizeof(StructureRecord)));
    } else if (!linear) {
      spare.Take(1);
    } else if (tree->count == kLinearMembers) {
      spare.Take(kLinearMembers + 1);
    }
    node = static_cast<MemberNode*>(store.Allocate(sizeof(MemberNode)));
    if (recent != nullptr) {
      store.AddReference(recent);
      node->name = recent;
    } else {
      node->name = known_hash != nullptr ? store.Intern(name, *known_hash) : store.Intern(name);
    }
  } catch (...) {
    if (node != nullptr) store.Free(node, sizeof(MemberNode));
    if (fresh != nullptr) store.Free(fresh, sizeof(StructureRecord));
    throw;
  }
  if (fresh != nullptr) {
    *fresh = StructureRecord{nullptr, nullptr, nullptr, 0};
    structure.payload_.record = tree = fresh;
  }
  new (&node->value) BindingProperty(&store);
  if (predecessor == nullptr) {
    node->next = tree->first;
    tree->first = node;
  } else {
    node->next = predecessor->next;
    predecessor->next = node;
  }
  if (node->next == nullptr) tree->last = node;
  ++tree->count;
  if (linear) {
    if (tree->count > kLinearMembers) LinkTree(*tree, spare);
    return node->value;
  }
  TreeNode* tree_node = spare.HandOver();
  *tree_node = TreeNode{nullptr, nullptr, node, true};
  if (depth == 0) {
    tree->root = tree_node;
  } else if (as_left) {
    path[depth - 1]->left = tree_node;
  } else {
    path[depth - 1]->right = tree_node;
  }
  RebalanceAfterInsert(*tree, path, depth, tree_node);
  return node->value;
}

// ---- BindingProperty ----

const char* KindName(uint32_t code) {
  static constexpr const char* kNames[] = {"empty",  "bool", "signed", "unsigned",   "float",
                                           "string", "blob", "enum",   "collection", "structure"};
  return code < std::size(kNames) ? kNames[code] : "";
}

BindingProperty::BindingProperty() noexcept = default;

BindingProperty::BindingProperty(const BindingProperty& other) {
  try {
    BindingTree::Copy(*this, other);
  } catch (...) {
    delete store_;
    throw;
  }
}

BindingProperty::BindingProperty(BindingProperty&& other) noexcept {
  if (other.owns_store_) {
    payload_ = other.payload_;
    store_ = other.store_;
    kind_ = other.kind_;
    other.payload_ = Payload{};
    other.store_ = nullptr;
    other.kind_ = BindingKind::kEmpty;
  } else {
    BindingTree::Copy(*this, other);
    other.Clear();
  }
}

BindingProperty& BindingProperty::operator=(const BindingProperty& other) {
  if (this == &other) return *this;
  if (store_ != nullptr && store_ == other.store_) {
    // Within one tree: the source may be inside the destination or the other
    // way round, so it is copied out first.
    const BindingProperty detached(other);
    BindingTree::Copy(*this, detached);
  } else {
    BindingTree::Copy(*this, other);
  }
  return *this;
}

BindingProperty& BindingProperty::operator=(BindingProperty&& other) noexcept {
  if (this == &other) return *this;
  if (owns_store_ && other.owns_store_) {
    std::swap(payload_, other.payload_);
    std::swap(store_, other.store_);
    std::swap(kind_, other.kind_);
    other.Clear();
  } else if (store_ != nullptr && store_ == other.store_) {
    BindingProperty detached(std::move(other));  // copies out, clears `other`
    BindingTree::Copy(*this, detached);
  } else {
    BindingTree::Copy(*this, other);
    other.Clear();
  }
  return *this;
}

BindingProperty::~BindingProperty() {
  if (owns_store_) {
    delete store_;  // drops the whole tree's storage without walking it
  } else {
    Clear();
  }
}

void BindingProperty::Clear() noexcept {
  switch (kind_) {
    case BindingKind::kString:
      // The shared empty string may sit in a root that has no store.
      if (payload_.record != BindingStore::EmptyString()) {
        store_->Release(BindingTree::StringOf(*this));
      }
      break;
    case BindingKind::kBlob:
    case BindingKind::kEnum:
      BindingTree::ReleaseLeaf(*store_, *this);
      break;
    case BindingKind::kCollection:
    case BindingKind::kStructure:
      if (store_ == nullptr) break;  // an empty container of a fresh root
      if (owns_store_) {
        store_->Reset();  // the root's store holds nothing but this tree
      } else {
        BindingTree::ReleaseContainer(*store_, kind_, payload_.record);
      }
      break;
    default:
      break;
  }
  payload_ = Payload{};
  kind_ = BindingKind::kEmpty;
}

BindingStore& BindingProperty::CreateStore() {
  store_ = new BindingStore();
  return *store_;
}

void BindingProperty::ClearKeeping(std::string_view& text, std::string& holder) {
  if (kind_ == BindingKind::kBlob || IsContainer(kind_)) {
    holder.assign(text);
    text = holder;
  }
  Clear();
}

size_t BindingProperty::Size() const {
  switch (kind_) {
    case BindingKind::kEmpty:
      return 0;
    case BindingKind::kString:
      return BindingTree::StringOf(*this)->length;
    case BindingKind::kBlob:
      return BindingTree::BlobOf(*this)->size;
    case BindingKind::kCollection: {
      const CollectionBlock* block = BindingTree::CollectionOf(*this);
      return block != nullptr ? block->size : 0;
    }
    case BindingKind::kStructure: {
      const StructureRecord* tree = BindingTree::StructureOf(*this);
      return tree != nullptr ? tree->count : 0;
    }
    default:
      return 1;
  }
}

std::string_view BindingProperty::AsString(std::string_view fallback) const {
  return kind_ == BindingKind::kString ? BindingTree::StringOf(*this)->View() : fallback;
}

std::span<const uint8_t> BindingProperty::AsBlob(std::span<const uint8_t> fallback) const {
  if (kind_ != BindingKind::kBlob) return fallback;
  const BlobRecord* blob = BindingTree::BlobOf(*this);
  return {blob->Bytes(), blob->size};
}

BindingEnum BindingProperty::AsEnum(BindingEnum fallback) const {
  return kind_ == BindingKind::kEnum ? *static_cast<const BindingEnum*>(payload_.record) : fallback;
}

const BindingProperty& BindingProperty::At(size_t index) const {
  if (kind_ != BindingKind::kCollection) return BindingTree::kNoValue;
  const CollectionBlock* block = BindingTree::CollectionOf(*this);
  if (block == nullptr || index >= block->size) return BindingTree::kNoValue;
  return block->Elements()[index];
}

const BindingProperty& BindingProperty::Find(std::string_view name) const {
  if (kind_ != BindingKind::kStructure) return BindingTree::kNoValue;
  const InternedString* recent = store_ != nullptr ? store_->FindRecent(name) : nullptr;
  const MemberNode* node = FindNode(BindingTree::StructureOf(*this),
                                    recent != nullptr ? recent->View() : UpToFirstNul(name));
  return node != nullptr ? node->value : BindingTree::kNoValue;
}

void BindingProperty::Visit(BindingPropertyVisitor& visitor) const {
  BindingWalk::Walk(*this, visitor);
}

void BindingProperty::SetString(const char* text) {
  SetString(text != nullptr ? std::string_view(text) : std::string_view());
}

void BindingProperty::SetString(std::string_view text) {
  // Intern cuts the text at its first NUL byte.
  const InternedString* interned;
  if (kind_ <= BindingKind::kFloat) {
    // Nothing to release, so `text` cannot lie in this value's storage: the
    // case of every value a decoder fills (msgpack_bench
    // ReadMessagePackBench/queues).
    interned = text.empty() ? BindingStore::EmptyString() : Store().Intern(text);
    payload_.record = const_cast<InternedString*>(interned);
    kind_ = BindingKind::kString;
    return;
  }
  if (kind_ == BindingKind::kString) {
    // `text` may be this very string: take the new reference first.
    interned = text.empty() ? BindingStore::EmptyString() : Store().Intern(text);
    Clear();
  } else {
    std::string holder;
    ClearKeeping(text, holder);
    interned = text.empty() ? BindingStore::EmptyString() : Store().Intern(text);
  }
  payload_.record = const_cast<InternedString*>(interned);
  kind_ = BindingKind::kString;
}

void BindingProperty::SetString(std::string&& text) {
  SetString(std::string_view(text));
}

void BindingProperty::SetBlob(std::span<const uint8_t> bytes) {
  // `bytes` may lie in this value's own storage: copied before the old
  // payload goes (into a holder first when that is a whole container).
  std::vector<uint8_t> holder;
  if (IsContainer(kind_)) {
    holder.assign(bytes.begin(), bytes.end());
    bytes = holder;
    Clear();
  }
  auto* blob = static_cast<BlobRecord*>(Store().Allocate(BlobBytes(bytes.size())));
  blob->size = bytes.size();
  if (!bytes.empty()) std::memcpy(blob->Bytes(), bytes.data(), bytes.size());
  Clear();
  payload_.record = blob;
  kind_ = BindingKind::kBlob;
}

void BindingProperty::SetBlob(std::vector<uint8_t>&& bytes) {
  SetBlob(std::span<const uint8_t>(bytes));
  std::vector<uint8_t>().swap(bytes);
}

void BindingProperty::SetEnum(int32_t value, const StaticTypeIdentity& type) {
  Clear();
  auto* record = static_cast<BindingEnum*>(Store().Allocate(sizeof(BindingEnum)));
  *record = BindingEnum{value, &type};
  payload_.record = record;
  kind_ = BindingKind::kEnum;
}

void BindingProperty::GrowCollection(size_t count) {
  if (count > kMaxElements) ThrowTooManyElements();
  CollectionBlock* old = BindingTree::CollectionOf(*this);
  const size_t capacity = old != nullptr ? old->capacity : 0;
  if (count <= capacity) return;
  BindingStore& store = Store();
  auto* block = static_cast<CollectionBlock*>(store.Allocate(CollectionBytes(count)));
  block->capacity = static_cast<uint32_t>(count);
  block->size = 0;
  if (old != nullptr) {
    // Elements hold no pointers into themselves: relocating is a byte copy.
    block->size = old->size;
    std::memcpy(static_cast<void*>(block->Elements()), old->Elements(),
                old->size * sizeof(BindingProperty));
    store.Free(old, CollectionBytes(old->capacity));
  }
  payload_.record = block;
}

void BindingProperty::Reserve(size_t count) {
  if (kind_ != BindingKind::kCollection) return;
  GrowCollection(count);
}

BindingProperty& BindingProperty::At(size_t index) {
  if (kind_ == BindingKind::kCollection && payload_.record != nullptr) {
    // An element that exists or comes next within the capacity: what a
    // decoder filling a reserved collection asks for (msgpack_bench
    // ReadMessagePackBench).
    CollectionBlock* block = BindingTree::CollectionOf(*this);
    if (index < block->size) return block->Elements()[index];
    if (index == block->size && index < block->capacity) {
      block->size = static_cast<uint32_t>(index + 1);
      return *new (block->Elements() + index) BindingProperty(store_);
    }
  }
  return Extend(index);
}

BindingProperty& BindingProperty::Extend(size_t index) {
  MakeCollection();
  CollectionBlock* block = BindingTree::CollectionOf(*this);
  const size_t size = block != nullptr ? block->size : 0;
  if (index < size) return block->Elements()[index];
  if (index >= kMaxElements) ThrowTooManyElements();
  const size_t capacity = block != nullptr ? block->capacity : 0;
  if (index >= capacity) {
    // Leaving the pools for the heap, grow by more than usual: small arrays
    // then need one heap block rather than two.
    const size_t factor = capacity == kFirstCapacity ? 3 : 2;
    GrowCollection(
        std::min(kMaxElements, std::max({index + 1, capacity * factor, kFirstCapacity})));
    block = BindingTree::CollectionOf(*this);
  }
  for (size_t i = size; i <= index; ++i) new (block->Elements() + i) BindingProperty(store_);
  block->size = static_cast<uint32_t>(index + 1);
  return block->Elements()[index];
}

BindingProperty& BindingProperty::Append() {
  MakeCollection();
  CollectionBlock* block = BindingTree::CollectionOf(*this);
  if (block != nullptr && block->size < block->capacity) {
    BindingProperty* element = new (block->Elements() + block->size) BindingProperty(store_);
    ++block->size;
    return *element;
  }
  if (block == nullptr) {
    // The first element: a pool block of constant size (most collections
    // that decoders build are small).
    block = static_cast<CollectionBlock*>(Store().Allocate(CollectionBytes(kFirstCapacity)));
    block->capacity = static_cast<uint32_t>(kFirstCapacity);
    block->size = 1;
    payload_.record = block;
    return *new (block->Elements()) BindingProperty(store_);
  }
  return At(block != nullptr ? block->size : 0);
}

std::string_view BindingProperty::NameOfMember(const BindingProperty& member) {
  return NodeOfMember(const_cast<BindingProperty*>(&member))->name->View();
}

BindingProperty& BindingProperty::Member(std::string_view name) {
  if (kind_ == BindingKind::kStructure) return BindingTree::InsertMember(*this, name, nullptr);
  std::string holder;
  ClearKeeping(name, holder);
  payload_.record = nullptr;
  kind_ = BindingKind::kStructure;
  return BindingTree::InsertMember(*this, name, nullptr);
}

// ---- Member iteration ----

BindingProperty::MemberIterator BindingProperty::MemberRange::begin() const {
  MemberIterator it;
  if (owner->kind_ == BindingKind::kStructure) {
    const StructureRecord* tree = BindingTree::StructureOf(*owner);
    if (tree != nullptr) it.node_ = tree->first;
  }
  return it;
}

BindingProperty::MemberIterator BindingProperty::MemberRange::end() const {
  return MemberIterator();
}

BindingProperty::MemberIterator::value_type BindingProperty::MemberIterator::operator*() const {
  const auto* node = static_cast<const MemberNode*>(node_);
  return {node->name->View(), node->value};
}

BindingProperty::MemberIterator& BindingProperty::MemberIterator::operator++() {
  node_ = static_cast<const MemberNode*>(node_)->next;
  return *this;
}

// ---- BindingResult ----

std::string_view BindingResult::Error() const {
  if (ok_) return {};
  return Find("error").AsString();
}

void BindingResult::SetError(std::string_view message) {
  std::string holder(message);  // the message may live in this value
  Clear();
  ok_ = false;
  MakeStructure();
  Member("error").SetString(holder);
}

// ---- StructureBuilder ----

StructureBuilder::~StructureBuilder() {
  while (!levels_.empty()) Close();
  if (shapes_ == nullptr) return;
  for (size_t depth = 0; depth < kRememberedDepths; ++depth) {
    const Shape& shape = shapes_[depth];
    for (size_t i = 0; i < shape.count; ++i) store_->Release(shape.names[i]);
  }
}

void StructureBuilder::Open(BindingProperty& structure) {
  if (store_ == nullptr) store_ = &structure.Store();
  const size_t depth = levels_.size();
  // Filled member by member after FillInPlace or when it has members already.
  const bool direct = in_place_ || structure.payload_.record != nullptr;
  const Shape* expected = nullptr;
  const size_t first = collected_top_;
  if (!direct) {
    if (shapes_ != nullptr && depth < kRememberedDepths && shapes_[depth].count != 0) {
      expected = &shapes_[depth];
    }
    // Room for every member the level may collect, so that Member never
    // grows the list (and so needs no clean-up path).
    if (collected_.size() < first + kMaxCollected) collected_.resize(first + kMaxCollected);
    collected_top_ = first + kMaxCollected;
  }
  levels_.push_back(Level{&structure, nullptr, expected, static_cast<uint32_t>(first), 0, direct});
}

BindingProperty& StructureBuilder::Member(std::string_view name) {
  Level& level = levels_.back();
  if (level.expected != nullptr) {
    // Names distinct so far and equal to the remembered ones: this one, if
    // it is the next remembered name, is new in the structure too
    // (msgpack_bench ReadMessagePackBench).
    const Shape& shape = *level.expected;
    const uint32_t index = level.count;
    const InternedString* interned = index < shape.count ? shape.names[index] : nullptr;
    if (interned != nullptr && interned->length == name.size() &&
        binding_internal::SameText(binding_internal::Probe(name.data(), name.size()), name.data(),
                                   shape.probes[index], interned, name.size())) {
      // Storage first: when it cannot be had, no reference has been taken.
      BindingStore& store = *store_;
      if (level.record == nullptr) {
        level.record = static_cast<StructureRecord*>(store.Allocate(sizeof(StructureRecord)));
      }
      auto* node = static_cast<MemberNode*>(store.Allocate(sizeof(MemberNode)));
      store.AddReference(interned);
      node->name = interned;  // `next` is set when the level is linked
      new (&node->value) BindingProperty(&store);
      collected_[level.first_collected + index] = node;
      level.count = index + 1;
      return node->value;
    }
    level.expected = nullptr;
  }
  return Collect(level, name);
}

BindingProperty& StructureBuilder::Collect(Level& level, std::string_view name) {
  if (level.direct) return level.structure->Member(name);
  BindingStore& store = *store_;
  if (level.record == nullptr) {
    level.record = static_cast<StructureRecord*>(store.Allocate(sizeof(StructureRecord)));
  }
  auto* node = static_cast<MemberNode*>(store.Allocate(sizeof(MemberNode)));
  const InternedString* interned = nullptr;
  try {
    interned = store.Intern(name);  // cut at the first NUL byte
  } catch (...) {
    store.Free(node, sizeof(MemberNode));
    throw;
  }
  MemberNode** nodes = collected_.data() + level.first_collected;
  for (size_t i = 0; i < level.count; ++i) {
    if (nodes[i]->name == interned) {  // one entry per content
      store.Release(interned);
      store.Free(node, sizeof(MemberNode));
      return nodes[i]->value;
    }
  }
  if (level.count == kMaxCollected) {
    store.Release(interned);
    store.Free(node, sizeof(MemberNode));
    Link(level, levels_.size() - 1, false);
    level.direct = true;
    return level.structure->Member(name);
  }
  node->name = interned;
  new (&node->value) BindingProperty(&store);
  nodes[level.count++] = node;
  return node->value;
}

void StructureBuilder::Close() noexcept {
  Level level = levels_.back();
  levels_.pop_back();
  if (!level.direct) Link(level, levels_.size(), true);
}

void StructureBuilder::FillInPlace() noexcept {
  in_place_ = true;
  // Innermost first: linking a level frees its collected slots and those of
  // every level inside it.
  for (size_t depth = levels_.size(); depth-- > 0;) {
    Level& level = levels_[depth];
    if (level.direct) continue;
    Link(level, depth, false);
    level.direct = true;
  }
}

// Puts the level's collected members in name order into its structure and
// remembers their names for `depth` when `remember`. REQUIRES: no level
// inside it collects (it is the innermost that does, open or just closed)
// and `depth` is its depth.
void StructureBuilder::Link(Level& level, size_t depth, bool remember) noexcept {
  static_assert(kMaxCollected <= kLinearMembers, "collected structures need no tree");
  MemberNode* const* nodes = collected_.data() + level.first_collected;
  const size_t count = level.count;
  if (count == 0) {  // the structure stays empty, with no record
    if (level.record != nullptr) store_->Free(level.record, sizeof(StructureRecord));
    collected_top_ = level.first_collected;
    return;
  }
  const Shape* shape = level.expected;
  const uint8_t* order = nullptr;
  uint8_t sorted[kMaxCollected];
  if (shape != nullptr && shape->count == count) {
    // The same names as the structure before: the same order, without
    // comparing names (msgpack_bench ReadMessagePackBench).
    order = shape->order;
  } else {
    for (size_t i = 0; i < count; ++i) sorted[i] = static_cast<uint8_t>(i);
    std::sort(sorted, sorted + count, [nodes](uint8_t a, uint8_t b) {
      return CompareNames(nodes[a]->name->View(), nodes[b]->name) < 0;
    });
    order = sorted;
    if (remember) Remember(depth, nodes, sorted, count);
  }
  MemberNode* first = nodes[order[0]];
  MemberNode* last = first;
  for (size_t i = 1; i < count; ++i) {
    MemberNode* node = nodes[order[i]];
    last->next = node;
    last = node;
  }
  last->next = nullptr;
  *level.record = StructureRecord{nullptr, first, last, count};
  level.structure->payload_.record = level.record;
  collected_top_ = level.first_collected;
}

void StructureBuilder::Remember(size_t depth, MemberNode* const* nodes, const uint8_t* order,
                                size_t count) noexcept {
  if (depth >= kRememberedDepths) return;
  if (shapes_ == nullptr) {
    shapes_.reset(new (std::nothrow) Shape[kRememberedDepths]);
    if (shapes_ == nullptr) return;  // only a missed shortcut
  }
  Shape& shape = shapes_[depth];
  for (size_t i = 0; i < count; ++i) store_->AddReference(nodes[i]->name);
  for (size_t i = 0; i < shape.count; ++i) store_->Release(shape.names[i]);
  for (size_t i = 0; i < count; ++i) {
    shape.names[i] = nodes[i]->name;
    shape.probes[i] = binding_internal::Probe(nodes[i]->name->Text(), nodes[i]->name->length);
    shape.order[i] = order[i];
  }
  shape.count = count;
}

}  // namespace kav
