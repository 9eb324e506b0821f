#pragma once

#include <CoreFoundation/CFBase.h>

#include <string>
#include <vector>

namespace tembra::cf {

// The file in which the native system says which version and build it is. No file here says that of
// the system that this host stands for, so its bytes are made up from what Gestalt answers.
// False for any other path. A file that is really there goes before this one.
bool MakeSystemFile(const std::string& inPath, std::vector<UInt8>& outBytes);

}  // namespace tembra::cf
