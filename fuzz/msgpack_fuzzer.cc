// MessagePack reader and LooksLikeMessagePack: any bytes either decode to a
// value or fail with a message, the consumed count never passes the input,
// and what decodes is written as JSON (blobs as Base64, so every tree it
// builds is walked by the writer, whatever its depth).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "finding.h"
#include "serialization/json.h"
#include "serialization/msgpack.h"
#include "small_stack.h"

namespace {

using kav::fuzz::Fail;

constexpr size_t kIndentedUpTo = 256;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kav::fuzz::LimitStackToHostThreadSize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > UINT32_MAX) return 0;
  const bool looks = kav::LooksLikeMessagePack(data, size);
  const bool opens =
      size != 0 && ((data[0] >= 0x80 && data[0] <= 0x9F) || (data[0] >= 0xDC && data[0] <= 0xDF));
  if (looks != opens) Fail("LooksLikeMessagePack disagrees with the first byte", "");
  if (looks != kav::LooksLikeMessagePack(reinterpret_cast<const char*>(data), size)) {
    Fail("LooksLikeMessagePack differs between its overloads", "");
  }

  uint32_t consumed = UINT32_MAX;
  kav::BindingResult read = kav::ReadMessagePack(data, static_cast<uint32_t>(size), consumed);
  if (consumed > size) Fail("consumed more than the input", "");
  if (!read.Ok()) {
    if (!read.Error().starts_with("Invalid MessagePack data") &&
        !read.Error().starts_with("MessagePack data")) {
      Fail("unexpected error form", read.Error());
    }
    return 0;
  }
  (void)kav::SerializeJson(read);
  // Indented text grows with depth times size: a few KiB of nested arrays
  // make megabytes of spaces, which would slow the run to a few hundred
  // inputs a second without reaching anything new. Small inputs cover it.
  if (size <= kIndentedUpTo) (void)kav::SerializeJson(read, nullptr, "\r\n");
  return 0;
}
