// Whether the build runs under a sanitizer, the same way for every compiler:
// GCC defines __SANITIZE_ADDRESS__, Clang answers __has_feature.
//
//   KAV_ADDRESS_SANITIZER  1 under AddressSanitizer, else undefined.
#ifndef KAV_PLATFORM_SANITIZERS_H_
#define KAV_PLATFORM_SANITIZERS_H_

#if defined(__SANITIZE_ADDRESS__)
#define KAV_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KAV_ADDRESS_SANITIZER 1
#endif
#endif

#endif  // KAV_PLATFORM_SANITIZERS_H_
