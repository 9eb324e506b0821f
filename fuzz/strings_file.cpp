// Any bytes as a file of localized texts: refused, or a dictionary of strings, which is the same
// when it is written in the file's own syntax and read again.

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "corefoundation/StringsFile.h"

namespace {

void Require(bool inHolds) {
  if (!inHolds) std::abort();
}

// In quotes, every unit as its number.
std::string Escaped(const void* inObject) {
  Require(CFGetTypeID(inObject) == CFStringGetTypeID());
  auto text = static_cast<CFStringRef>(inObject);
  std::string escaped = "\"";
  for (CFIndex i = 0; i < CFStringGetLength(text); ++i) {
    char unit[8];
    std::snprintf(unit, sizeof unit, "\\U%04x",
                  static_cast<unsigned>(CFStringGetCharacterAtIndex(text, i)));
    escaped += unit;
  }
  return escaped + "\"";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize) {
  CFDictionaryRef texts = tembra::cf::CreateFromStringsFile(inData, inSize);
  if (texts == nullptr) return 0;

  const auto count = static_cast<size_t>(CFDictionaryGetCount(texts));
  std::vector<const void*> keys(count), values(count);
  CFDictionaryGetKeysAndValues(texts, keys.data(), values.data());
  std::string written;
  for (size_t i = 0; i < count; ++i) {
    Require(CFDictionaryGetValue(texts, keys[i]) == values[i]);
    written += Escaped(keys[i]) + " = " + Escaped(values[i]) + ";\n";
  }
  // An escaped unit is six bytes, so a table can become too large.
  CFDictionaryRef again = tembra::cf::CreateFromStringsFile(
      reinterpret_cast<const UInt8*>(written.data()), written.size());
  Require(again != nullptr || written.size() > (size_t{4} << 20));
  Require(again == nullptr || CFEqual(texts, again));
  if (again != nullptr) CFRelease(again);
  CFRelease(texts);
  return 0;
}
