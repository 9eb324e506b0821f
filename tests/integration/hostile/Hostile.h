#pragma once

#include <sys/types.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "base/Descriptor.h"
#include "support/PrivateRuntime.h"
#include "support/Sanitizers.h"

namespace tembra::test {

// What all hostile tests and the roles of their helpers share.

constexpr unsigned kFlood = 100000;  // messages, or datagrams

// A sanitizer keeps freed memory and shadows; its leak check stands in for the one by size.
constexpr bool kMemoryIsMeasured = !kSanitized;
// What a process may have grown by after a flood, beyond what a short flood of the same kind left.
constexpr long kAllowedGrowth = 8 * 1024;  // kilobytes: less than 84 bytes for each message

// The runtime directory of this process; made by main before anything else.
PrivateRuntime& Runtime();

// TEMBRA_SEED, or one by chance; the same for the whole process, printed at its first use.
std::uint64_t Seed();

using Random = std::mt19937_64;
// 0 <= result < inLimit.
std::uint64_t Pick(Random& ioRandom, std::uint64_t inLimit);
std::string RandomBytes(Random& ioRandom, std::size_t inSize);

int CountDescriptors(pid_t inProcess);
long ResidentKilobytes(pid_t inProcess);

// The socket of a port, or the directory's other files, by name.
std::string PortFile(const std::string& inName);
// The receivers of a process in this user's notification directory or in the shared one.
std::string FindReceiver(pid_t inProcess, bool inShared);

// The file itself, without a right to read or write; its path may be closed to whoever uses it.
Descriptor OpenFile(const std::string& inPath);
// Connects through a file from OpenFile; errno tells why not. Sends wait 20 seconds at most.
Descriptor ConnectTo(int inFile, int inKind);
bool SendBytes(const Descriptor& inSocket, const std::string& inBytes);
// The bytes and three descriptors.
bool SendWithDescriptors(const Descriptor& inSocket, const std::string& inBytes);

// Runs this executable in a role of main.cpp; answers what it printed, as JSON, or null.
nlohmann::json RunRole(const std::vector<std::string>& inArguments);

}  // namespace tembra::test
