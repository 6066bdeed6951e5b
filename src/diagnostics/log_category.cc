// The category table: 256 four-byte tags, eight of them built in.
//
// Lookups read without a lock: a new tag is written before the used count
// that publishes it is raised (release/acquire). New tags are added under a
// small lock so that two threads naming two new tags at once do not take the
// same slot, and one tag named by two threads at once gets one slot.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

#include "diagnostics/logging.h"

namespace kav {
namespace {

constexpr uint32_t kTagSlots = 256;

char g_tags[kTagSlots][4] = {"DBG", "GEN", "XTR", "PRF", "MEM", "DSK", "NET", "TST"};
std::atomic<uint32_t> g_used_tags{8};
std::mutex g_new_tag_lock;

uint64_t BitOf(uint32_t index) {
  return index < 64 ? uint64_t{1} << index : 0;
}

bool TagMatches(const char* stored, const char* tag) {
  return std::strncmp(stored, tag, 3) == 0;
}

}  // namespace

uint64_t CategoryMask(const char* tag) {
  if (!tag) return 0;
  uint32_t used = g_used_tags.load(std::memory_order_acquire);
  for (uint32_t i = 0; i < used; ++i) {
    if (TagMatches(g_tags[i], tag)) return BitOf(i);
  }
  std::lock_guard<std::mutex> lock(g_new_tag_lock);
  const uint32_t now_used = g_used_tags.load(std::memory_order_acquire);
  for (uint32_t i = used; i < now_used; ++i) {
    if (TagMatches(g_tags[i], tag)) return BitOf(i);
  }
  if (now_used >= kTagSlots) return 0;
  char* slot = g_tags[now_used];
  std::memset(slot, 0, sizeof(g_tags[now_used]));
  for (size_t i = 0; i < 3 && tag[i]; ++i) slot[i] = tag[i];
  g_used_tags.store(now_used + 1, std::memory_order_release);
  return BitOf(now_used);
}

size_t CategoryNames(char* buffer, size_t size, uint64_t mask) {
  if (size == 0) return 0;
  size_t length = 0;
  const uint32_t used = std::min<uint32_t>(g_used_tags.load(std::memory_order_acquire), 64);
  auto append = [&](const char* text) {
    for (; *text && length + 1 < size; ++text) buffer[length++] = *text;
  };
  bool first = true;
  for (uint32_t i = 0; i < used; ++i) {
    if ((mask & BitOf(i)) == 0) continue;
    if (!first) append(";");
    append(g_tags[i]);
    first = false;
  }
  buffer[length] = 0;
  return length;
}

}  // namespace kav
