#include "binding/binding_store.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>
#include <stdexcept>

#include "platform/page_provider.h"

namespace kav {
namespace {

using binding_internal::InternedString;
using binding_internal::Probe;
using binding_internal::RecentSlot;

constexpr size_t RoundUp(size_t size, size_t alignment) {
  return (size + alignment - 1) & ~(alignment - 1);
}

size_t InternedBytes(size_t length) {
  return RoundUp(sizeof(InternedString) + length + 1, alignof(InternedString));
}

}  // namespace

BindingStore::BindingStore() noexcept {
  static_assert(kPageSize / kUnit < kNoSlot, "slot offsets must fit the 16-bit chain");
  std::fill(std::begin(recent_), std::end(recent_), RecentSet{});
  for (SizeClass& size_class : classes_) {
    size_class.available = nullptr;
    size_class.full = nullptr;
    size_class.inline_free = kNoSlot;
    size_class.inline_bump = 0;
  }
}

BindingStore::~BindingStore() {
  ReleaseAllStorage();
}

namespace {

template <class Page>
void PushFront(Page*& list, Page* page) {
  page->prev = nullptr;
  page->next = list;
  if (list != nullptr) list->prev = page;
  list = page;
}

template <class Page>
void Unlink(Page*& list, Page* page) {
  if (page->prev != nullptr) {
    page->prev->next = page->next;
  } else {
    list = page->next;
  }
  if (page->next != nullptr) page->next->prev = page->prev;
}

}  // namespace

void* BindingStore::AllocateFromPage(SizeClass& size_class, size_t units) {
  PageHeader* page = size_class.available;
  if (page == nullptr) {
    page = static_cast<PageHeader*>(PageProvider::Process().AcquirePage());
    const size_t slot_size = units * kUnit;
    const size_t slots = (kPageSize - kFirstSlotOffset) / slot_size;
    page->free = kNoSlot;
    page->used = 0;
    page->bump = static_cast<uint16_t>(kFirstSlotOffset / kUnit);
    page->limit = static_cast<uint16_t>((kFirstSlotOffset + slots * slot_size) / kUnit);
    PushFront(size_class.available, page);
  }
  unsigned char* base = reinterpret_cast<unsigned char*>(page);
  unsigned char* slot;
  if (page->free != kNoSlot) {
    slot = base + page->free * kUnit;
    page->free = LoadLink(slot);
  } else {
    slot = base + page->bump * kUnit;
    page->bump = static_cast<uint16_t>(page->bump + units);
  }
  ++page->used;
  if (page->free == kNoSlot && page->bump == page->limit) {
    Unlink(size_class.available, page);
    PushFront(size_class.full, page);
  }
  return slot;
}

void BindingStore::FreeToPage(SizeClass& size_class, void* block) noexcept {
  const uintptr_t address = reinterpret_cast<uintptr_t>(block);
  auto* page = reinterpret_cast<PageHeader*>(address & ~static_cast<uintptr_t>(kPageSize - 1));
  const bool was_full = page->free == kNoSlot && page->bump == page->limit;
  StoreLink(block, page->free);
  page->free = static_cast<uint16_t>((address - reinterpret_cast<uintptr_t>(page)) / kUnit);
  if (--page->used == 0) {
    Unlink(was_full ? size_class.full : size_class.available, page);
    PageProvider::Process().ReleasePage(page);
  } else if (was_full) {
    Unlink(size_class.full, page);
    PushFront(size_class.available, page);
  }
}

void* BindingStore::AllocateLarge(size_t size) {
  auto* header = static_cast<LargeHeader*>(::operator new(sizeof(LargeHeader) + size));
  header->prev = nullptr;
  header->next = large_;
  if (large_ != nullptr) large_->prev = header;
  large_ = header;
  return header + 1;
}

void BindingStore::FreeLarge(void* block) noexcept {
  LargeHeader* header = static_cast<LargeHeader*>(block) - 1;
  Unlink(large_, header);
  ::operator delete(header);
}

void BindingStore::ReleaseAllStorage() noexcept {
  PageHeader* chain = nullptr;
  for (SizeClass& size_class : classes_) {
    for (PageHeader* list : {size_class.available, size_class.full}) {
      while (list != nullptr) {
        PageHeader* next = list->next;
        list->next = chain;
        chain = list;
        list = next;
      }
    }
  }
  if (chain != nullptr) PageProvider::Process().ReleasePageChain(chain);
  while (large_ != nullptr) {
    LargeHeader* next = large_->next;
    ::operator delete(large_);
    large_ = next;
  }
}

void BindingStore::Reset() noexcept {
  ReleaseAllStorage();
  for (SizeClass& size_class : classes_) {
    size_class.available = nullptr;
    size_class.full = nullptr;
    size_class.inline_free = kNoSlot;
    size_class.inline_bump = 0;
  }
  std::fill(std::begin(recent_), std::end(recent_), RecentSet{});
  buckets_ = nullptr;
  bucket_count_ = 0;
  interned_count_ = 0;
}

size_t BindingStore::PagesHeld() const {
  size_t pages = 0;
  for (const SizeClass& size_class : classes_) {
    for (const PageHeader* list : {size_class.available, size_class.full}) {
      for (; list != nullptr; list = list->next) ++pages;
    }
  }
  return pages;
}

void BindingStore::Remember(const InternedString* entry) noexcept {
  RecentSet& set =
      recent_[RecentSlot(Probe(entry->Text(), entry->length), entry->length, kRecentSets)];
  set.ways[1] = set.ways[0];
  set.ways[0] = entry;
}

const InternedString* BindingStore::Intern(std::string_view text) {
  if (text.empty()) return EmptyString();
  if (const InternedString* recent = FindRecent(text)) {
    AddReference(recent);
    return recent;
  }
  if (const void* nul = std::memchr(text.data(), '\0', text.size())) {
    text = text.substr(0, static_cast<size_t>(static_cast<const char*>(nul) - text.data()));
  }
  const InternedString* entry = Intern(text, binding_internal::HashText(text));
  if (entry != EmptyString()) Remember(entry);
  return entry;
}

const InternedString* BindingStore::Intern(std::string_view text, uint32_t hash) {
  if (text.empty()) return EmptyString();
  const size_t length = text.size();
  if (bucket_count_ != 0) {
    for (InternedString* entry = buckets_[hash & (bucket_count_ - 1)]; entry != nullptr;
         entry = entry->next) {
      if (entry->hash == hash && entry->length == length &&
          std::memcmp(entry->Text(), text.data(), length) == 0) {
        ++entry->references;
        return entry;
      }
    }
  }
  if (length > UINT32_MAX - sizeof(InternedString) - 8) throw std::length_error("string too long");
  if (interned_count_ + 1 > bucket_count_) GrowTable();
  auto* entry = static_cast<InternedString*>(Allocate(InternedBytes(length)));
  entry->hash = hash;
  entry->references = 1;
  entry->length = static_cast<uint32_t>(length);
  char* copy = reinterpret_cast<char*>(entry + 1);
  std::memcpy(copy, text.data(), length);
  copy[length] = '\0';
  InternedString*& bucket = buckets_[hash & (bucket_count_ - 1)];
  entry->next = bucket;
  bucket = entry;
  ++interned_count_;
  return entry;
}

void BindingStore::Release(const InternedString* entry) noexcept {
  if (entry == EmptyString()) return;
  auto* owned = const_cast<InternedString*>(entry);
  if (--owned->references != 0) return;
  RecentSet& set =
      recent_[RecentSlot(Probe(owned->Text(), owned->length), owned->length, kRecentSets)];
  for (const InternedString*& way : set.ways) {
    if (way == owned) way = nullptr;
  }
  InternedString** link = &buckets_[owned->hash & (bucket_count_ - 1)];
  while (*link != owned) link = &(*link)->next;
  *link = owned->next;
  --interned_count_;
  Free(owned, InternedBytes(owned->length));
}

void BindingStore::GrowTable() {
  const size_t new_count = bucket_count_ == 0 ? 8 : bucket_count_ * 2;
  auto** table = static_cast<InternedString**>(Allocate(new_count * sizeof(InternedString*)));
  std::fill(table, table + new_count, nullptr);
  for (size_t i = 0; i < bucket_count_; ++i) {
    InternedString* entry = buckets_[i];
    while (entry != nullptr) {
      InternedString* next = entry->next;
      InternedString*& bucket = table[entry->hash & (new_count - 1)];
      entry->next = bucket;
      bucket = entry;
      entry = next;
    }
  }
  if (buckets_ != nullptr) Free(buckets_, bucket_count_ * sizeof(InternedString*));
  buckets_ = table;
  bucket_count_ = new_count;
}

}  // namespace kav
