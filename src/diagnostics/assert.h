// Assertion reports and fatal errors.
//
// Assert logs a readable report of a failed check at level " ERROR" in the
// category DBG and returns. FatalError reports a condition under which the
// plugin cannot go on and ends the process at once.
//
// Thread-safe (reports are written under the logger's lock).
#ifndef KAV_DIAGNOSTICS_ASSERT_H_
#define KAV_DIAGNOSTICS_ASSERT_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace kav {

// Any text may be null or empty; line 0 means none.
std::string BuildAssertionReport(const char* expression, const char* file, int32_t line,
                                 const char* function, const char* description);
void Assert(const char* expression, const char* description, const char* file, int32_t line,
            const char* function);

// Logs the code as expression and the message as description, then ends the
// process without running any further code of the module or cleaning up.
[[noreturn]] void FatalError(const char* code, std::string_view message);

}  // namespace kav

#endif  // KAV_DIAGNOSTICS_ASSERT_H_
