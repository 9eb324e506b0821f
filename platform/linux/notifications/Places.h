#pragma once

#include <sys/types.h>

#include <string>

#include "base/Descriptor.h"

namespace tembra::notifications {

// Where receivers are found. Each observing process has one datagram socket in its user's own
// directory, for its user's posts, and one of the same name in the directory that all users share,
// for posts to all users. Nobody but root and the user himself can send to the first.
enum class Scope { kUser, kAllUsers };

// The directory of a scope, made if need be; empty if there is none that can be trusted. The shared
// one, /tmp/tembra-notifications, may belong to anybody but must be sticky: its owner could hide
// receivers, not forge a sender.
Descriptor OpenPlace(Scope inScope);

// A name for a receiver of this process that no other one ever has.
std::string NewReceiverName();

// Whether a directory entry can be a receiver at all; all else is left alone.
bool IsReceiverName(const char* inName);

// A datagram socket bound to the name and open to those who may send to it.
Descriptor BindReceiver(int inDirectory, const std::string& inName, Scope inScope);

enum class Connection { kConnected, kDead, kFailed };

// Connects to the receiver without following links. outOwner is its socket's owner, told also when
// it is dead.
Connection ConnectReceiver(int inDirectory, const char* inName, Descriptor& outSocket,
                           uid_t& outOwner);

}  // namespace tembra::notifications
