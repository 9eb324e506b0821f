#pragma once

#include <string>

#include "ports/LocalPort.h"

namespace tembra::ports {

// Takes a name: its lock for life, then a listening socket under it. False, with nothing kept, if
// the name is taken or there is no place for names.
bool ClaimName(const std::string& inName, LocalPort::Place& outPlace);

// Gives up a claimed name; the holder of the lock only.
void RemoveClaimedName(int inDirectory, const std::string& inFile);

}  // namespace tembra::ports
