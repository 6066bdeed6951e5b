// Readers and conversions that run out of memory report it as their error
// result instead of throwing. Each row reads a document (or converts a
// value) that needs far more memory than its process may still take (its
// address space is capped just above what it uses), in a child process so
// that the cap binds nobody else. POSIX only: the cap is setrlimit's.
#if !defined(_WIN32)
#include <sys/resource.h>
#endif

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "binding/conversion.h"
#include "binding/host_value.h"
#include "binding/type_registry.h"
#include "platform/sanitizers.h"
#include "serialization/json.h"
#include "serialization/msgpack.h"
#include "serialization/yaml.h"

namespace kav {
namespace {

constexpr size_t kHeadroomBytes = 32 << 20;

// Caps the address space at what the process maps now plus the headroom.
bool CapAddressSpace() {
#if defined(_WIN32)
  return false;
#else
  std::ifstream statm("/proc/self/statm");
  size_t pages = 0;
  if (!(statm >> pages)) return false;
  const rlimit limit{pages * 4096 + kHeadroomBytes, pages * 4096 + kHeadroomBytes};
  return setrlimit(RLIMIT_AS, &limit) == 0;
#endif
}

struct Row {
  const char* name;
  // Reads the prepared document; returns the reader's result.
  std::function<BindingResult()> read;
  std::string error_start;
  std::string error_end;
};

TEST(OutOfMemoryDeathTest, ReadersAndConversionsAnswerAnError) {
#if defined(KAV_ADDRESS_SANITIZER)
  GTEST_SKIP() << "AddressSanitizer reserves the address space it shadows; a cap breaks it";
#endif
#if defined(_WIN32)
  GTEST_SKIP() << "the address-space cap is POSIX's setrlimit";
#endif
  // Four million elements of 16 or 24 bytes each: more than the headroom.
  constexpr uint32_t kElements = 4u << 20;
  std::vector<uint8_t> msgpack = {0xdd, 0x00, 0x40, 0x00, 0x00};  // array 32 of kElements
  msgpack.resize(msgpack.size() + kElements, 0xc0);               // nil elements
  std::string yaml = "[";
  yaml.reserve(2 * kElements + 2);
  for (uint32_t i = 0; i < kElements; ++i) yaml += "1,";
  yaml += "]";
  std::string json = "[";
  json.reserve(2 * kElements + 2);
  for (uint32_t i = 0; i < kElements; ++i) json += "0,";
  json.back() = ']';

  // Host records of kElements null values, and a value of as many empty
  // elements, converted to a vector of strings (32 bytes each or 24).
  std::vector<KavHostValue> null_records(kElements, KavHostValue{});
  KavHostValue host_array{};
  host_array.kind = KAV_VALUE_ARRAY;
  host_array.payload.ref.data = null_records.data();
  host_array.payload.ref.size = kElements;
  BindingProperty empties;
  empties.At(kElements - 1);
  TypeRegistry registry;

  const Row rows[] = {
      {"MessagePack",
       [&] {
         uint32_t consumed = 0;
         return ReadMessagePack(msgpack.data(), static_cast<uint32_t>(msgpack.size()), consumed);
       },
       "MessagePack data at position ", " does not fit in memory."},
      {"YAML", [&] { return ReadYaml(yaml); }, "YAML document does not fit in memory. At line: 1",
       ""},
      {"JSON", [&] { return DeserializeJson(json); }, "Error: Out of memory. at offset ", "."},
      {"host value",
       [&] {
         BindingResult status;
         BindingProperty target;
         (void)FromHostValue(status, target, host_array, "arg");
         return status;
       },
       "Couldn't assign value to 'arg' because the input does not fit in memory.", ""},
      {"conversion to a vector",
       [&] {
         BindingResult status;
         std::vector<std::string> native;
         (void)FromBindingProperty(status, empties, "arg", native, registry);
         return status;
       },
       "Couldn't assign value to 'arg' because the input does not fit in memory.", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EXIT(
        {
          if (!CapAddressSpace()) {
            std::fputs("cannot cap the address space", stderr);
            std::exit(2);
          }
          const BindingResult result = row.read();
          const std::string error(result.Error());
          const bool expected =
              !result.Ok() && error.starts_with(row.error_start) && error.ends_with(row.error_end);
          std::fprintf(stderr, "result: %s", result.Ok() ? "ok" : error.c_str());
          std::exit(expected ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "result: " + row.error_start);
  }
}

}  // namespace
}  // namespace kav
