#pragma once

#include <CoreFoundation/CFURL.h>

#include <string>

#include "corefoundation/Object.h"

namespace tembra::cf {

// The URL of an absolute path in UTF-8; null if it is not UTF-8.
CFURLRef CreateFileURL(const std::string& inPath, bool inIsDirectory);
// The path of a URL, in UTF-8, without a slash at its end (but for "/").
std::string PathOf(CFURLRef inURL);

}  // namespace tembra::cf
