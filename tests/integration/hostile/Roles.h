#pragma once

#include <string>
#include <vector>

namespace tembra::test {

// What this executable does as another process, see main.cpp; each prints one JSON object.
//
// reach FILE: another user tries to come to a socket's file, by its path and by a descriptor.
int Reach(const std::string& inFile);
// connect FIRST SECOND COUNT SEED: another user connects so many times to the first port, while it
// is there, and to the second, and sends four messages each time.
int ConnectAsStranger(const std::string& inFirst, const std::string& inSecond, unsigned inCount,
                      unsigned long long inSeed);
// post FIRST SECOND COUNT SEED USER: so many datagrams to the first receiver and a quarter of them
// also to the second; USER is "own" or "other".
int Post(const std::string& inFirst, const std::string& inSecond, unsigned inCount,
         unsigned long long inSeed, bool inAsOther);

}  // namespace tembra::test
