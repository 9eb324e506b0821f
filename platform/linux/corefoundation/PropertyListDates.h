#pragma once

#include "corefoundation/PropertyListNodes.h"

namespace tembra::cf {

// Dates of property lists, in seconds from 2001 on. The library's own calls carry 32 bits of
// seconds, its files more.

// False if the node's date is none that a list may hold.
bool ReadDate(plist_t inNode, double& outTime);
// Null if it is none, or memory ran out.
Node CreateDateNode(double inTime);

}  // namespace tembra::cf
