#pragma once

#include <string>
#include <string_view>

namespace tembra::ports {

// The file name that stands for a port's name: letters, digits, '-', '_' and, not in front, '.'
// stand for themselves, every other byte as "%XX". What would be too long for a file name ends in
// '~' and a hash of the whole. No file name holds '~' otherwise, so suffixes that begin with it are
// free.
__attribute__((visibility("default"))) std::string EncodePortName(std::string_view inName);

}  // namespace tembra::ports
