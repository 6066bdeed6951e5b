// Static type identity: one record per native type that takes part in the
// binding type system, created on first use and never destroyed.
//
//   id           32-bit identifier, unique per native type, fixed at build time
//                (FNV-1a of the compiler's spelling of the type).
//   display name "#%08X" of the id; the name kept with registered types.
//   static name  readable name used in messages and wait labels, of the form
//                "const char *__cdecl StaticType::Name<class ns::T>(void)".
//
// Thread-safe: identities are immutable once created; creation is guarded by
// the language's initialisation of function-local statics.
#ifndef KAV_BINDING_STATIC_TYPE_H_
#define KAV_BINDING_STATIC_TYPE_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace kav {

struct StaticTypeIdentity {
  uint32_t id;
  char displayName[10];    // "#XXXXXXXX" and a NUL
  const char* staticName;  // never null; lives as long as the process
};

namespace static_type_detail {

constexpr uint32_t Fnv1a(std::string_view text) {
  uint32_t hash = 0x811C9DC5u;
  for (char c : text) {
    hash ^= static_cast<uint8_t>(c);
    hash *= 0x01000193u;
  }
  return hash;
}

// The spelling of T as the compiler prints it, taken from the signature of
// this function.
template <class T>
constexpr std::string_view Spelling() {
  std::string_view signature = __PRETTY_FUNCTION__;
  constexpr std::string_view marker = "T = ";
  size_t begin = signature.find(marker) + marker.size();
  size_t end = signature.find_first_of(";]", begin);
  return signature.substr(begin, end - begin);
}

// Builds "#%08X" without the formatter so that identities stay usable from
// static initialisation.
void FormatDisplayName(uint32_t id, char (&out)[10]);

// Builds and interns the static name for a spelling; `keyword` is "class ",
// "enum " or "".
const char* MakeStaticName(std::string_view keyword, std::string_view spelling);

}  // namespace static_type_detail

class StaticType {
 public:
  template <class T>
  static constexpr uint32_t Id() {
    return static_type_detail::Fnv1a(static_type_detail::Spelling<std::remove_cv_t<T>>());
  }

  // The identity record of T (cv-qualifiers ignored).
  template <class T>
  static const StaticTypeIdentity& Of() {
    using U = std::remove_cv_t<T>;
    static const StaticTypeIdentity identity = [] {
      StaticTypeIdentity made{};
      made.id = Id<U>();
      static_type_detail::FormatDisplayName(made.id, made.displayName);
      constexpr std::string_view keyword = std::is_enum_v<U>    ? "enum "
                                           : std::is_class_v<U> ? "class "
                                                                : "";
      made.staticName =
          static_type_detail::MakeStaticName(keyword, static_type_detail::Spelling<U>());
      return made;
    }();
    return identity;
  }

  template <class T>
  static const char* Name() {
    return Of<T>().staticName;
  }
};

}  // namespace kav

#endif  // KAV_BINDING_STATIC_TYPE_H_
