#include "platform/process.h"

#include <unistd.h>

namespace kav {

void ExitProcessNow(int exit_code) {
  _exit(exit_code);
}

}  // namespace kav
