#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/PrivateRuntime.h"
#include "support/Program.h"

namespace tembra::test {

// What this executable does when a test starts it as another process.
int RunRole(const std::vector<std::string>& inArguments);

// Another process that owns the port of that name and answers each request with its data; message
// 9 ends it at once, message 8 is answered never.
std::unique_ptr<Program> StartServer(const PrivateRuntime& inRuntime, const std::string& inName);

// Runs a role to its end and gives its exit code.
int RunProcess(const PrivateRuntime& inRuntime, const std::vector<std::string>& inArguments);

}  // namespace tembra::test
