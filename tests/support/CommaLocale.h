#pragma once

#include <locale.h>
#include <stdlib.h>

#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#endif

namespace tembra::test {

// For its life the calling thread's numbers are written with a decimal comma. The locale was made
// with the build, so that none need be installed; it is missing where localedef or its sources are.
class CommaLocale {
 public:
  CommaLocale() {
#if __has_feature(address_sanitizer)
    const __lsan::ScopedDisabler theLibraryKeepsItsListOfFolders;
#endif
    setenv("LOCPATH", TEMBRA_BINARY_DIR "/locales", 1);
    mLocale = newlocale(LC_ALL_MASK, "de_DE.UTF-8", nullptr);
    unsetenv("LOCPATH");
    if (IsThere()) mFormer = uselocale(mLocale);
  }
  ~CommaLocale() {
    if (!IsThere()) return;
    uselocale(mFormer);
    freelocale(mLocale);
  }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

  bool IsThere() const {
    return mLocale != nullptr;
  }

 private:
  locale_t mLocale = nullptr;
  locale_t mFormer = nullptr;
};

}  // namespace tembra::test
