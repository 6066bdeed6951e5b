#include "support/small_stack.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>

namespace kav::testing_support {
namespace {

void* Run(void* work) {
  (*static_cast<const std::function<void()>*>(work))();
  return nullptr;
}

[[noreturn]] void Abort(const char* what) {
  std::fprintf(stderr, "RunOnSmallStack: %s\n", what);
  std::abort();
}

}  // namespace

void RunOnSmallStack(const std::function<void()>& work, size_t stack_bytes) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) Abort("pthread_attr_init failed");
  if (pthread_attr_setstacksize(&attributes, stack_bytes) != 0) Abort("bad stack size");
  pthread_t thread;
  const int created =
      pthread_create(&thread, &attributes, &Run, const_cast<std::function<void()>*>(&work));
  pthread_attr_destroy(&attributes);
  if (created != 0) Abort("pthread_create failed");
  pthread_join(thread, nullptr);
}

}  // namespace kav::testing_support
