// JSON reader, then writer: whatever the reader accepts, the writer writes -
// compact, indented, and indented with "\r\n" - as text that reads back to
// an equal value. A rejected text fails with the reader's message form.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "finding.h"
#include "same_value.h"
#include "serialization/json.h"
#include "small_stack.h"

namespace {

using kav::fuzz::Fail;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kav::fuzz::LimitStackToHostThreadSize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  kav::BindingResult read = kav::DeserializeJson(text);
  if (!read.Ok()) {
    const std::string_view error = read.Error();
    if (!error.starts_with("Error: ") || !error.ends_with("."))
      Fail("unexpected error form", error);
    return 0;
  }
  for (const char* newline : {static_cast<const char*>(nullptr), "\n", "\r\n"}) {
    const std::string written = kav::SerializeJson(read, nullptr, newline);
    kav::BindingResult again = kav::DeserializeJson(written);
    if (!again.Ok()) Fail("written text does not read back", again.Error());
    if (!kav::fuzz::SameValue(read, again)) Fail("written text reads back different", written);
  }
  return 0;
}
