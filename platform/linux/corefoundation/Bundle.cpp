#include "corefoundation/Bundle.h"

#include <CoreFoundation/CFPropertyList.h>
#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <vector>

#include "corefoundation/File.h"
#include "corefoundation/String.h"
#include "corefoundation/URL.h"

using namespace tembra::cf;

constinit const CFStringRef kCFBundleInfoDictionaryVersionKey =
    Constant<"CFBundleInfoDictionaryVersion">();
constinit const CFStringRef kCFBundleExecutableKey = Constant<"CFBundleExecutable">();
constinit const CFStringRef kCFBundleIdentifierKey = Constant<"CFBundleIdentifier">();
constinit const CFStringRef kCFBundleVersionKey = Constant<"CFBundleVersion">();
constinit const CFStringRef kCFBundleDevelopmentRegionKey = Constant<"CFBundleDevelopmentRegion">();
constinit const CFStringRef kCFBundleNameKey = Constant<"CFBundleName">();
constinit const CFStringRef kCFBundleLocalizationsKey = Constant<"CFBundleLocalizations">();

namespace {

// The live bundles by path, weakly held.
struct Registry {
  tembra::Mutex mMutex;
  std::map<std::string, __CFBundle*> mBundles TEMBRA_GUARDED_BY(mMutex);
};

Registry& SharedRegistry() {
  static Registry& sRegistry = *new Registry;
  return sRegistry;
}

CFDictionaryRef CreateDictionaryFromFile(const std::string& inPath) {
  std::vector<UInt8> bytes;
  if (ReadWholeFile(inPath, 0, bytes) != 0) return nullptr;
  Owned<CFDataRef> data(CFDataCreateWithBytesNoCopy(
      nullptr, bytes.data(), static_cast<CFIndex>(bytes.size()), kCFAllocatorNull));
  Owned<CFTypeRef> list(CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr));
  if (!IsType(list, kTypeDictionary)) return nullptr;
  return static_cast<CFDictionaryRef>(list.Detach());
}

CFDictionaryRef CreateEmptyDictionary() {
  return CFDictionaryCreate(nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                            &kCFTypeDictionaryValueCallBacks);
}

std::string RealPath(const std::string& inPath) {
  std::unique_ptr<char, decltype(&std::free)> path(realpath(inPath.c_str(), nullptr), std::free);
  return path ? path.get() : std::string();
}

// The one object for a path: an existing one, retained, or a new one.
__CFBundle* FindOrCreate(CFAllocatorRef inAllocator, const std::string& inPath,
                         CFDictionaryRef inInfo, bool inIsMain) {
  Registry& registry = SharedRegistry();
  tembra::MutexLock lock(registry.mMutex);
  auto found = registry.mBundles.find(inPath);
  if (found != registry.mBundles.end() && found->second->TryRetain()) return found->second;
  auto* bundle = Create<__CFBundle>(inAllocator, inPath, inInfo, inIsMain);
  if (bundle) registry.mBundles.insert_or_assign(inPath, bundle);
  return bundle;
}

__CFBundle* CreateMainBundle() {
  char buffer[PATH_MAX];
  ssize_t size = readlink("/proc/self/exe", buffer, sizeof(buffer));
  std::string path(buffer, size > 0 ? static_cast<size_t>(size) : 0);
  std::string directory = path.substr(0, path.rfind('/'));
  Owned<CFDictionaryRef> info(CreateDictionaryFromFile(directory + "/Info.plist"));
  if (!info) info.Reset(CreateEmptyDictionary());
  auto* bundle = FindOrCreate(nullptr, directory.empty() ? "/" : directory, info, true);
  return bundle;
}

CFErrorRef CreateLoadError(const std::string& inText) {
  Owned<CFStringRef> text(CreateString(inText));
  const void* key = kCFErrorDescriptionKey;
  const void* value = text.Get();
  Owned<CFDictionaryRef> info(CFDictionaryCreate(nullptr, &key, &value, text ? 1 : 0,
                                                 &kCFTypeDictionaryKeyCallBacks,
                                                 &kCFTypeDictionaryValueCallBacks));
  constexpr CFIndex kExecutableLoadError = 3587;
  return CFErrorCreate(nullptr, kCFErrorDomainCocoa, kExecutableLoadError, info);
}

}  // namespace

__CFBundle::__CFBundle(std::string inPath, CFDictionaryRef inInfo, bool inIsMain)
    : mPath(std::move(inPath)),
      mIsMain(inIsMain),
      mInfo(static_cast<CFDictionaryRef>(CFRetain(inInfo))) {}

__CFBundle::~__CFBundle() {
  Registry& registry = SharedRegistry();
  {
    tembra::MutexLock lock(registry.mMutex);
    auto found = registry.mBundles.find(mPath);
    if (found != registry.mBundles.end() && found->second == this) registry.mBundles.erase(found);
  }
  if (mIsPlugIn) UnregisterFactoriesOf(this);
}

CFStringRef __CFBundle::Info(CFStringRef inKey) const {
  const void* value = CFDictionaryGetValue(mInfo, inKey);
  return IsType(value, kTypeString) ? static_cast<CFStringRef>(value) : nullptr;
}

std::string __CFBundle::ContentsPath() const {
  return mIsMain ? mPath : mPath + "/Contents";
}

std::string __CFBundle::ExecutablePath() const {
  if (mIsMain) return RealPath("/proc/self/exe");
  std::string name;
  if (CFStringRef named = Info(kCFBundleExecutableKey)) {
    name = ToUTF8(named);
  } else {
    name = mPath.substr(mPath.rfind('/') + 1);
    name = name.substr(0, name.rfind('.'));
  }
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos) {
    return {};
  }
  return ContentsPath() + "/Linux/" + name;
}

bool __CFBundle::Load(std::string& outError) {
  if (mIsMain) return true;
  {
    tembra::MutexLock lock(mMutex);
    if (mHandle) return true;
  }
  std::string path = ExecutablePath();
  if (path.empty()) {
    outError = "the bundle names no executable";
    return false;
  }
  // Without the lock: the executable's constructors may ask for this very bundle.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* text = dlerror();
    outError = text ? text : "the executable cannot be loaded";
    return false;
  }
  tembra::MutexLock lock(mMutex);
  if (mHandle) {
    dlclose(handle);
  } else {
    mHandle = handle;
    CFRetain(this);
  }
  return true;
}

void __CFBundle::Unload() {
  void* handle;
  {
    tembra::MutexLock lock(mMutex);
    handle = std::exchange(mHandle, nullptr);
  }
  if (!handle) return;
  dlclose(handle);
  CFRelease(this);
}

void* __CFBundle::Symbol(const std::string& inName) {
  std::string error;
  if (!Load(error)) return nullptr;
  void* handle;
  {
    tembra::MutexLock lock(mMutex);
    handle = mHandle;
  }
  return dlsym(mIsMain ? RTLD_DEFAULT : handle, inName.c_str());
}

CFTypeID CFBundleGetTypeID() {
  return kTypeBundle;
}

CFBundleRef CFBundleGetMainBundle() {
  return Guarded([] {
    static const CFBundleRef sMainBundle = CreateMainBundle();
    return sMainBundle;
  });
}

CFBundleRef CFBundleCreate(CFAllocatorRef inAllocator, CFURLRef inURL) {
  if (!inURL) return nullptr;
  return Guarded([&]() -> CFBundleRef {
    std::string path = RealPath(PathOf(inURL));
    if (path.empty()) return nullptr;
    Owned<CFDictionaryRef> info(CreateDictionaryFromFile(path + "/Contents/Info.plist"));
    return info ? FindOrCreate(inAllocator, path, info, false) : nullptr;
  });
}

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef inIdentifier) {
  if (!inIdentifier) return nullptr;
  CFBundleGetMainBundle();
  Registry& registry = SharedRegistry();
  tembra::MutexLock lock(registry.mMutex);
  for (const auto& [path, bundle] : registry.mBundles) {
    CFStringRef identifier = bundle->Info(kCFBundleIdentifierKey);
    if (identifier && CFEqual(identifier, inIdentifier) && bundle->RetainCount() > 0) {
      return bundle;
    }
  }
  return nullptr;
}

CFArrayRef CFBundleCreateBundlesFromDirectory(CFAllocatorRef inAllocator, CFURLRef inURL,
                                              CFStringRef inType) {
  return Guarded([&]() -> CFArrayRef {
    std::string path = PathOf(inURL);
    std::unique_ptr<DIR, decltype(&closedir)> directory(opendir(path.c_str()), closedir);
    Owned<CFMutableArrayRef> bundles(CFArrayCreateMutable(inAllocator, 0, &kCFTypeArrayCallBacks));
    if (!directory || !bundles) return bundles.Detach();
    std::string ending = inType ? "." + ToUTF8(inType) : "";
    while (dirent* entry = readdir(directory.get())) {
      std::string name = entry->d_name;
      if (name == "." || name == ".." || !name.ends_with(ending)) continue;
      Owned<CFURLRef> url(CreateFileURL(path + "/" + name, true));
      Owned<CFBundleRef> bundle(CFBundleCreate(inAllocator, url));
      if (bundle) CFArrayAppendValue(bundles, bundle);
    }
    return bundles.Detach();
  });
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef inBundle) {
  return Guarded([&] { return CreateFileURL(inBundle->mPath, true); });
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef inBundle, CFStringRef inKey) {
  return inBundle && inKey ? CFDictionaryGetValue(inBundle->mInfo, inKey) : nullptr;
}

CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef inBundle) {
  return inBundle ? inBundle->mInfo.Get() : nullptr;
}

CFStringRef CFBundleGetIdentifier(CFBundleRef inBundle) {
  return inBundle ? inBundle->Info(kCFBundleIdentifierKey) : nullptr;
}

CFStringRef CFBundleGetDevelopmentRegion(CFBundleRef inBundle) {
  return inBundle->Info(kCFBundleDevelopmentRegionKey);
}

CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef inBundle) {
  return Guarded([&] { return CreateFileURL(inBundle->ContentsPath() + "/Resources", true); });
}

CFDictionaryRef CFBundleCopyInfoDictionaryInDirectory(CFURLRef inURL) {
  return Guarded([&] { return CreateDictionaryFromFile(PathOf(inURL) + "/Contents/Info.plist"); });
}

UInt32 CFBundleGetVersionNumber(CFBundleRef inBundle) {
  CFStringRef text = inBundle ? inBundle->Info(kCFBundleVersionKey) : nullptr;
  if (!text) return 0;
  return Guarded([&]() -> UInt32 {
    std::string version = ToUTF8(text);
    size_t at = 0;
    auto take = [&](UInt32 inMax) {
      UInt32 number = 0;
      for (; at < version.size() && version[at] >= '0' && version[at] <= '9'; ++at) {
        number = std::min(number * 10 + static_cast<UInt32>(version[at] - '0'), inMax);
      }
      return number;
    };
    auto takeDot = [&] { return at < version.size() && version[at] == '.' && ++at; };
    if (version.empty() || version[0] < '0' || version[0] > '9') return 0;
    UInt32 major = take(99);
    UInt32 minor = takeDot() ? take(9) : 0;
    UInt32 patch = takeDot() ? take(9) : 0;
    UInt32 stage = 0x80;
    if (at < version.size()) {
      char letter = version[at++];
      stage = letter == 'd' ? 0x20 : letter == 'a' ? 0x40 : letter == 'b' ? 0x60 : 0x80;
    }
    UInt32 build = stage == 0x80 ? 0 : take(255);
    return (major / 10 << 28) | (major % 10 << 24) | minor << 20 | patch << 16 | stage << 8 | build;
  });
}

CFURLRef CFBundleCopyExecutableURL(CFBundleRef inBundle) {
  return Guarded([&]() -> CFURLRef {
    std::string path = inBundle->ExecutablePath();
    return path.empty() || access(path.c_str(), F_OK) != 0 ? nullptr : CreateFileURL(path, false);
  });
}

Boolean CFBundleIsExecutableLoaded(CFBundleRef inBundle) {
  tembra::MutexLock lock(inBundle->mMutex);
  return inBundle->mIsMain || inBundle->mHandle;
}

Boolean CFBundlePreflightExecutable(CFBundleRef inBundle, CFErrorRef* outError) {
  Owned<CFURLRef> url(CFBundleCopyExecutableURL(inBundle));
  if (!url && outError) *outError = CreateLoadError("the bundle has no executable");
  return url.Get() != nullptr;
}

Boolean CFBundleLoadExecutableAndReturnError(CFBundleRef inBundle, CFErrorRef* outError) {
  return Guarded([&] {
    std::string error;
    bool isLoaded = inBundle->Load(error);
    if (!isLoaded && outError) *outError = CreateLoadError(error);
    return isLoaded;
  });
}

Boolean CFBundleLoadExecutable(CFBundleRef inBundle) {
  return CFBundleLoadExecutableAndReturnError(inBundle, nullptr);
}

void CFBundleUnloadExecutable(CFBundleRef inBundle) {
  inBundle->Unload();
}

void* CFBundleGetFunctionPointerForName(CFBundleRef inBundle, CFStringRef inName) {
  return Guarded([&] { return inBundle->Symbol(ToUTF8(inName)); });
}

void* CFBundleGetDataPointerForName(CFBundleRef inBundle, CFStringRef inName) {
  return CFBundleGetFunctionPointerForName(inBundle, inName);
}

CFPlugInRef CFBundleGetPlugIn(CFBundleRef inBundle) {
  return Guarded([&]() -> CFPlugInRef {
    if (!inBundle->mIsPlugIn && !RegisterFactoriesOf(inBundle)) return nullptr;
    return inBundle;
  });
}
