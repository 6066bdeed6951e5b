// YAML reader: any text either reads to a value or fails with a message;
// what it reads is written as JSON (so that every tree it builds is walked
// by the writer, whatever its depth), which reads back to an equal value
// where the JSON reader's nesting limit, lower than YAML's, allows.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "finding.h"
#include "same_value.h"
#include "serialization/json.h"
#include "serialization/yaml.h"
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
  kav::BindingResult read = kav::ReadYaml(text);
  if (!read.Ok()) {
    if (read.Error().empty()) Fail("a failure without a message", text);
    return 0;
  }
  const std::string written = kav::SerializeJson(read);
  if (kav::fuzz::ContainerDepth(read) > kav::kJsonMaxNesting) return 0;
  kav::BindingResult again = kav::DeserializeJson(written);
  if (!again.Ok()) Fail("written text does not read back", again.Error());
  if (!kav::fuzz::SameValue(read, again)) Fail("written text reads back different", written);
  return 0;
}
