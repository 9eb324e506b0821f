#include "Posts.h"

namespace tembra::test {

std::vector<Post>& Posts() {
  static std::vector<Post>& sPosts = *new std::vector<Post>;
  return sPosts;
}

}  // namespace tembra::test

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
  static int sCenter = 0;
  return reinterpret_cast<CFNotificationCenterRef>(&sCenter);
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef,
                                                     CFNotificationName inName,
                                                     const void* inObject,
                                                     CFDictionaryRef inUserInfo,
                                                     CFOptionFlags inOptions) {
  char name[256] = "";
  CFStringGetCString(inName, name, sizeof(name), kCFStringEncodingUTF8);
  tembra::test::Posts().push_back({name, inObject, inUserInfo, inOptions});
}
