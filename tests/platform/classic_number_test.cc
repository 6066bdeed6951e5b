#include "platform/classic_number.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstring>
#include <string>

namespace kav {
namespace {

// Switches the process to a locale whose decimal point is "," when the
// system has one, and back to "C" at the end of the scope.
class CommaLocale {
 public:
  CommaLocale() {
    for (const char* name : {"German_Germany.1252", "de_DE.UTF-8", "de_DE", "fr_FR.UTF-8"}) {
      if (std::setlocale(LC_ALL, name) != nullptr &&
          std::strcmp(std::localeconv()->decimal_point, ",") == 0) {
        active_ = name;
        return;
      }
    }
    std::setlocale(LC_ALL, "C");
  }
  ~CommaLocale() { std::setlocale(LC_ALL, "C"); }
  const char* active() const { return active_ ? active_ : "C (no comma locale here)"; }

 private:
  const char* active_ = nullptr;
};

TEST(ClassicNumberTest, ReadsEveryFormInTheClassicLocale) {
  enum Range { kInRange, kOverflow, kUnderflow };
  struct Row {
    const char* text;
    double value;  // NAN: any NaN
    size_t read;   // characters consumed
    Range range;
  };
  const Row rows[] = {
      {"1.5", 1.5, 3, kInRange},
      {"1,5", 1.0, 1, kInRange},
      {"  \t\n-2.25e1x", -22.5, 11, kInRange},
      {"+.5", 0.5, 3, kInRange},
      {"5.", 5.0, 2, kInRange},
      {"1e", 1.0, 1, kInRange},
      {"0x1p-2", 0.25, 6, kInRange},
      {"-0X1.8P1", -3.0, 8, kInRange},
      {"0x.8", 0.5, 4, kInRange},
      {"0x", 0.0, 1, kInRange},
      {"0xg", 0.0, 1, kInRange},
      {"0x-1", 0.0, 1, kInRange},
      {"0x10", 16.0, 4, kInRange},
      {"inf", HUGE_VAL, 3, kInRange},
      {"-Infinity", -HUGE_VAL, 9, kInRange},
      {"infinit", HUGE_VAL, 3, kInRange},
      {"nan", NAN, 3, kInRange},
      {"-NaN(123)", NAN, 9, kInRange},
      {"1e400", HUGE_VAL, 5, kOverflow},
      {"-1e400", -HUGE_VAL, 6, kOverflow},
      {"0x1p99999", HUGE_VAL, 9, kOverflow},
      {"0x0.0001p-99999", 0.0, 15, kUnderflow},
      {"1e-400", 0.0, 6, kUnderflow},
      {"", 0.0, 0, kInRange},
      {"-", 0.0, 0, kInRange},
      {"+-1", 0.0, 0, kInRange},
      {" x", 0.0, 0, kInRange},
  };
  const CommaLocale locale;
  SCOPED_TRACE(locale.active());
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string("\"") + row.text + "\"");
    char* end = nullptr;
    errno = 0;
    const double value = ParseClassicDouble(row.text, &end);
    const int error = errno;
    EXPECT_EQ(static_cast<size_t>(end - row.text), row.read);
    if (std::isnan(row.value)) {
      EXPECT_TRUE(std::isnan(value)) << value;
    } else if (row.range == kUnderflow) {
      EXPECT_LT(std::fabs(value), 1e-300);
      EXPECT_EQ(error, ERANGE);
    } else {
      EXPECT_EQ(value, row.value);
      EXPECT_EQ(error, row.range == kOverflow ? ERANGE : 0);
    }
  }
}

}  // namespace
}  // namespace kav
