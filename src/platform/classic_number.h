// Reading a floating-point number from text the way the C library's strtod
// does in the classic ("C") locale, whatever locale the process has set:
// optional leading white space and sign, then a decimal form with "." as the
// decimal point, a hexadecimal form ("0x1.8p3"), or the words for infinity
// and NaN. One implementation per platform (posix/classic_number.cc,
// windows/classic_number.cc).
//
// Thread-safe; does not allocate.
#ifndef KAV_PLATFORM_CLASSIC_NUMBER_H_
#define KAV_PLATFORM_CLASSIC_NUMBER_H_

namespace kav {

// Like strtod: returns the value and sets *end (when end is not null) to the
// first character not read, or to `text` when no number was read (the value
// is then 0). A value too large for a double gives +-HUGE_VAL and sets errno
// to ERANGE; a value too small may also set ERANGE. errno is otherwise left
// as it was. REQUIRES: `text` is NUL-terminated.
double ParseClassicDouble(const char* text, char** end);

}  // namespace kav

#endif  // KAV_PLATFORM_CLASSIC_NUMBER_H_
