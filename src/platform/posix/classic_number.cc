#include "platform/classic_number.h"

#include <locale.h>
#include <stdlib.h>

namespace kav {

double ParseClassicDouble(const char* text, char** end) {
  static const locale_t classic = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return strtod_l(text, end, classic);
}

}  // namespace kav
