// Waiting without blocking the host: AppModule::Await and AppModule::Yield.
//
// A handler runs inside a call from the host, and the answer it waits for
// arrives as a further host callback. So it never blocks: Await hands control
// back to the host (HostYield) until the future is ready, bracketed by one
// HostBeginWait labelled "Wait: future<static name of T>" and one
// HostEndWait. A future that is ready at once causes no host call.
//
// A future that cannot deliver its value (no state, or a promise destroyed
// without a value, as when Shutdown drops a pending service-proxy call) ends
// the process with the fatal error kBrokenFutureErrorCode.
//
// Thread-safety: Await runs in the host call that started the handler; the
// promise may be fulfilled by any callback the host runs meanwhile. The
// future's shared state is the only synchronisation between the two.
#ifndef KAV_PLUGIN_AWAIT_H_
#define KAV_PLUGIN_AWAIT_H_

#include <chrono>
#include <future>
#include <string>

#include "binding/static_type.h"
#include "diagnostics/format.h"
#include "plugin/app_module.h"

namespace kav {

// The fatal error raised when Await cannot take its future's value.
inline constexpr char kBrokenFutureErrorCode[] = "ALE-6D828C10";

namespace await_detail {

// Ends the process with kBrokenFutureErrorCode and the message
// "Caught std::future_error in AppModule::Await: (<number>) <text>".
[[noreturn]] void ReportFutureError(const std::future_error& error);

}  // namespace await_detail

template <class T>
T AppModule::Await(std::future<T> future) {
  try {
    if (future.valid()) {
      bool waiting = false;
      while (future.wait_for(std::chrono::seconds(0)) == std::future_status::timeout) {
        if (!waiting) {
          const std::string label = FormatMessage("Wait: future<%1>", StaticType::Name<T>());
          HostBeginWait(label.c_str());
          waiting = true;
        }
        HostYield();
      }
      if (waiting) HostEndWait();
    }
    return future.get();
  } catch (const std::future_error& error) {
    await_detail::ReportFutureError(error);
  }
}

}  // namespace kav

#endif  // KAV_PLUGIN_AWAIT_H_
