#pragma once

namespace tembra::test {

// What the platform still has memory for.
extern bool gMakesDictionaries;
// -1 for any number of them.
extern int gNumbersToMake;

}  // namespace tembra::test
