// The logger's process-wide lock, for the logging code itself.
//
// Recursive, like a critical section: a target may log or unregister itself
// while the logger writes to it. It outlives the logger (never destroyed), so
// targets may unregister at any time, even during process exit.
#ifndef KAV_DIAGNOSTICS_LOGGER_LOCK_H_
#define KAV_DIAGNOSTICS_LOGGER_LOCK_H_

#include <mutex>

namespace kav {

std::recursive_mutex& LoggerLock();

}  // namespace kav

#endif  // KAV_DIAGNOSTICS_LOGGER_LOCK_H_
