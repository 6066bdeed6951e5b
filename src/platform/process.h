// Ending the process.
//
// Thread-safe.
#ifndef KAV_PLATFORM_PROCESS_H_
#define KAV_PLATFORM_PROCESS_H_

namespace kav {

// Ends the process at once with `exit_code`: no destructors, no exit
// handlers, no flushing of buffered streams.
[[noreturn]] void ExitProcessNow(int exit_code);

}  // namespace kav

#endif  // KAV_PLATFORM_PROCESS_H_
