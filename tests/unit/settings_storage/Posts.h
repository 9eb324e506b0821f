#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <vector>

namespace tembra::test {

// What was posted on the notification center, which delivers nothing here.
struct Post {
  std::string mName;
  const void* mObject;
  CFDictionaryRef mUserInfo;
  CFOptionFlags mOptions;
};
std::vector<Post>& Posts();

}  // namespace tembra::test
