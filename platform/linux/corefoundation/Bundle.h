#pragma once

#include <CoreFoundation/CFBundle.h>
#include <CoreFoundation/CFPlugIn.h>

#include <map>
#include <string>

#include "base/Mutex.h"
#include "corefoundation/Object.h"

// A bundle, which may be a plug-in too. Registered by its path while it lives.
struct __CFBundle : tembra::cf::Object {
  __CFBundle(std::string inPath, CFDictionaryRef inInfo, bool inIsMain);
  ~__CFBundle() override;
  CFTypeID GetTypeID() const override { return tembra::cf::kTypeBundle; }

  // A text of the information dictionary; borrowed, null if there is none.
  CFStringRef Info(CFStringRef inKey) const;
  std::string ContentsPath() const;
  // The path of the executable; empty if the dictionary names none that could be one.
  std::string ExecutablePath() const;
  // 0 or the loader's message.
  bool Load(std::string& outError);
  void Unload();
  void* Symbol(const std::string& inName);
  // The texts of a table; retained here, null if there is no such table.
  CFDictionaryRef Table(const std::string& inName);

  const std::string mPath;
  const bool mIsMain;
  const tembra::cf::Owned<CFDictionaryRef> mInfo;
  std::atomic<bool> mIsPlugIn{false};

  tembra::Mutex mMutex;
  // While it is set the bundle holds a reference to itself: loaded code needs its bundle.
  void* mHandle TEMBRA_GUARDED_BY(mMutex) = nullptr;
  std::map<std::string, tembra::cf::Owned<CFDictionaryRef>> mTables TEMBRA_GUARDED_BY(mMutex);
};

namespace tembra::cf {

// Forgets the factories of a plug-in that is going away.
void UnregisterFactoriesOf(CFPlugInRef inPlugIn);
// Takes the factories and types that a bundle's dictionary names; false if it is no plug-in.
bool RegisterFactoriesOf(CFPlugInRef inPlugIn);

}  // namespace tembra::cf
