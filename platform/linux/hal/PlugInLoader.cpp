#include "hal/PlugInLoader.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dirent.h>
#include <dlfcn.h>
#include <stdlib.h>
#include <syslog.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string_view>

namespace tembra::hal {

namespace {

// Releases a CoreFoundation object at the end of its scope.
struct Releaser {
  void operator()(const void* inObject) const { CFRelease(inObject); }
};
template <typename Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Releaser>;

constexpr std::string_view kBundleSuffix = ".plugin";

std::vector<std::string> Split(std::string_view inPaths) {
  std::vector<std::string> paths;
  while (!inPaths.empty()) {
    const size_t colon = inPaths.find(':');
    const std::string_view path = inPaths.substr(0, colon);
    if (path.starts_with('/')) {
      paths.emplace_back(path);
    }
    inPaths.remove_prefix(colon == std::string_view::npos ? inPaths.size() : colon + 1);
  }
  return paths;
}

std::string DirectoryOfThisLibrary() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<const void*>(&PlugInDirectories), &info) || !info.dli_fname) {
    return {};
  }
  const std::unique_ptr<char, decltype(&free)> path(realpath(info.dli_fname, nullptr), free);
  const std::string_view whole = path ? path.get() : "";
  return std::string(whole.substr(0, whole.rfind('/') + 1));
}

std::string TextOf(CFStringRef inString) {
  char text[256];
  return inString && CFStringGetCString(inString, text, sizeof text, kCFStringEncodingUTF8)
             ? std::string(text)
             : std::string();
}

// Asks for the interface, newest version first. The version answered for, 0 if none.
int QueryInterface(IUnknownVTbl** inInstance, AudioHardwarePlugInRef& outInterface) {
  const CFUUIDRef versions[] = {kAudioHardwarePlugInInterface5ID, kAudioHardwarePlugInInterface4ID,
                                kAudioHardwarePlugInInterface3ID, kAudioHardwarePlugInInterface2ID,
                                kAudioHardwarePlugInInterfaceID};
  int version = 5;
  for (const CFUUIDRef uuid : versions) {
    void* interface = nullptr;
    const HRESULT result =
        (*inInstance)->QueryInterface(inInstance, CFUUIDGetUUIDBytes(uuid), &interface);
    if (SUCCEEDED(result) && interface) {
      outInterface = static_cast<AudioHardwarePlugInRef>(interface);
      return version;
    }
    --version;
  }
  return 0;
}

}  // namespace

std::vector<std::string> PlugInDirectories() {
  if (const char* paths = secure_getenv("TEMBRA_HAL_PLUGIN_PATH")) {
    return Split(paths);
  }
  std::vector<std::string> directories;
  if (const std::string own = DirectoryOfThisLibrary(); !own.empty()) {
    directories.push_back(own + "tembra/plug-ins");
  }
  directories.push_back("/usr/local/lib/tembra/plug-ins");
  directories.push_back("/usr/lib/tembra/plug-ins");
  return directories;
}

std::vector<std::string> FindBundles(const std::vector<std::string>& inDirectories) {
  std::vector<std::string> bundles;
  std::set<std::string> seen;
  for (const std::string& path : inDirectories) {
    std::set<std::string> names;
    if (DIR* directory = opendir(path.c_str())) {
      while (const dirent* entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name.size() > kBundleSuffix.size() && name.ends_with(kBundleSuffix)) {
          names.emplace(name);
        }
      }
      closedir(directory);
    }
    for (const std::string& name : names) {
      if (seen.insert(name).second) {
        bundles.push_back(path + "/" + name);
      }
    }
  }
  return bundles;
}

void LoadBundle(const std::string& inPath, const std::function<void(LoadedInstance)>& inTake) {
  const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(inPath.data()),
      static_cast<CFIndex>(inPath.size()), true));
  // The plug-in stays loaded for good, for its code may be on any stack.
  const CFPlugInRef plugIn = url ? CFPlugInCreate(kCFAllocatorDefault, url.get()) : nullptr;
  const Owned<CFArrayRef> factories(
      plugIn ? CFPlugInFindFactoriesForPlugInTypeInPlugIn(kAudioHardwarePlugInTypeID, plugIn)
             : nullptr);
  if (!factories || CFArrayGetCount(factories.get()) == 0) {
    syslog(LOG_WARNING, "tembra hal: %s is no audio plug-in", inPath.c_str());
    return;
  }
  const std::string bundleID = TextOf(CFBundleGetIdentifier(CFPlugInGetBundle(plugIn)));
  for (CFIndex i = 0; i < CFArrayGetCount(factories.get()); ++i) {
    const auto factory = static_cast<CFUUIDRef>(CFArrayGetValueAtIndex(factories.get(), i));
    auto** const instance = static_cast<IUnknownVTbl**>(
        CFPlugInInstanceCreate(kCFAllocatorDefault, factory, kAudioHardwarePlugInTypeID));
    if (!instance) {
      syslog(LOG_WARNING, "tembra hal: %s made no plug-in", inPath.c_str());
      continue;
    }
    AudioHardwarePlugInRef interface = nullptr;
    const int version = QueryInterface(instance, interface);
    // The interface has a reference of its own.
    (*instance)->Release(instance);
    if (version == 0) {
      syslog(LOG_WARNING, "tembra hal: %s has no known interface", inPath.c_str());
      continue;
    }
    inTake({interface, version, bundleID});
  }
}

}  // namespace tembra::hal
