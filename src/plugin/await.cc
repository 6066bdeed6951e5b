#include "plugin/await.h"

#include "diagnostics/assert.h"

namespace kav {
namespace await_detail {
namespace {

struct FutureErrorText {
  std::future_errc code;
  int number;
  const char* text;
};

// The numbers and texts by which the host's log knows the future errors.
constexpr FutureErrorText kFutureErrorTexts[] = {
    {std::future_errc::broken_promise, 1, "broken promise"},
    {std::future_errc::future_already_retrieved, 2, "future already retrieved"},
    {std::future_errc::promise_already_satisfied, 3, "promise already satisfied"},
    {std::future_errc::no_state, 4, "no state"},
};

}  // namespace

void ReportFutureError(const std::future_error& error) {
  int number = error.code().value();
  const char* text = error.what();
  for (const FutureErrorText& known : kFutureErrorTexts) {
    if (error.code() == known.code) {
      number = known.number;
      text = known.text;
      break;
    }
  }
  FatalError(kBrokenFutureErrorCode,
             FormatMessage("Caught std::future_error in AppModule::Await: (%1) %2", number, text));
}

}  // namespace await_detail

void AppModule::Yield() {
  HostBeginWait("Wait: yield");
  HostYield();
  HostEndWait();
}

}  // namespace kav
