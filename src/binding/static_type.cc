#include "binding/static_type.h"

#include <mutex>
#include <set>
#include <string>

namespace kav::static_type_detail {

void FormatDisplayName(uint32_t id, char (&out)[10]) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  out[0] = '#';
  for (int i = 0; i < 8; ++i) out[1 + i] = kDigits[(id >> (28 - 4 * i)) & 0xF];
  out[9] = '\0';
}

const char* MakeStaticName(std::string_view keyword, std::string_view spelling) {
  std::string name = "const char *__cdecl StaticType::Name<";
  name += keyword;
  name += spelling;
  name += ">(void)";
  // Never freed: static names are handed out as plain pointers that must
  // outlive every user, static destructors included.
  static std::mutex* const mutex = new std::mutex;
  static std::set<std::string, std::less<>>* const names = new std::set<std::string, std::less<>>;
  std::lock_guard lock(*mutex);
  return names->insert(std::move(name)).first->c_str();
}

}  // namespace kav::static_type_detail
