#pragma once

#include <string>

#include "base/Descriptor.h"

namespace tembra {

// The user's own place for sockets and locks: $XDG_RUNTIME_DIR/tembra, or /tmp/tembra-<uid> where
// that variable is missing or no absolute path.
//
// A directory is made if need be and used only if it is no link, belongs to the effective user and
// nobody else can enter it. There is no looser place: without it there are no ports and no
// notifications. A set-uid process has none.
// Any thread. Nothing is kept between calls.

// The sub-directory of that name, or the place itself for null; empty on failure.
__attribute__((visibility("default"))) Descriptor OpenRuntimeDirectory(const char* inSubdirectory);

// "/proc/self/fd/<directory>/<name>": a path that fits a socket address however long the
// directory's own is.
std::string SocketPath(int inDirectory, const std::string& inName);

}  // namespace tembra
