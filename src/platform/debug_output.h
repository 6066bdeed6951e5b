// Text for an attached debugger's output window.
//
// Thread-safe.
#ifndef KAV_PLATFORM_DEBUG_OUTPUT_H_
#define KAV_PLATFORM_DEBUG_OUTPUT_H_

namespace kav {

// True when a debugger is attached to the process.
bool IsDebuggerAttached();

// Hands a NUL-terminated text to the debugger. Windows: OutputDebugStringA.
// POSIX has no debugger output channel: the text goes to standard error while
// a debugger (a tracer) is attached, and nowhere otherwise. Null: nothing.
void WriteDebuggerOutput(const char* text);

}  // namespace kav

#endif  // KAV_PLATFORM_DEBUG_OUTPUT_H_
