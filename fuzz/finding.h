// How a fuzz target reports a finding that is not a crash: an answer that
// breaks a rule the target checks (an error of the wrong form, a round trip
// that changes the value).
#ifndef KAV_FUZZ_FINDING_H_
#define KAV_FUZZ_FINDING_H_

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace kav::fuzz {

// Prints "<what>: <detail>" and aborts, which libFuzzer records as a crash
// with the input that caused it.
[[noreturn]] inline void Fail(const char* what, std::string_view detail) {
  std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(detail.size()), detail.data());
  std::abort();
}

}  // namespace kav::fuzz

#endif  // KAV_FUZZ_FINDING_H_
