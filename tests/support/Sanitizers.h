#pragma once

// What this build watches. A sanitizer owns the allocator, the locks or the pace, so a test that is
// about one of those leaves itself out, and one that counts to a large number counts less far.

namespace tembra::test {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kAddressSanitizer = true;
#else
inline constexpr bool kAddressSanitizer = false;
#endif
#if __has_feature(thread_sanitizer)
inline constexpr bool kThreadSanitizer = true;
#else
inline constexpr bool kThreadSanitizer = false;
#endif
#endif
inline constexpr bool kSanitized = kAddressSanitizer || kThreadSanitizer;

}  // namespace tembra::test
