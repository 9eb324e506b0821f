#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPlugIn.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "corefoundation/Bundle.h"
#include "corefoundation/String.h"

using namespace tembra::cf;

constinit const CFStringRef kCFPlugInDynamicRegistrationKey =
    Constant<"CFPlugInDynamicRegistration">();
constinit const CFStringRef kCFPlugInDynamicRegisterFunctionKey =
    Constant<"CFPlugInDynamicRegisterFunction">();
constinit const CFStringRef kCFPlugInUnloadFunctionKey = Constant<"CFPlugInUnloadFunction">();
constinit const CFStringRef kCFPlugInFactoriesKey = Constant<"CFPlugInFactories">();
constinit const CFStringRef kCFPlugInTypesKey = Constant<"CFPlugInTypes">();

namespace {

using UUID = Owned<CFUUIDRef>;

// A UUID is one object for each value while it lives, so its address serves as a key.
struct Factory {
  UUID mUUID;
  // Weakly held; null for a factory of the host's own.
  CFPlugInRef mPlugIn = nullptr;
  std::string mFunctionName;
  CFPlugInFactoryFunction mFunction = nullptr;
  CFIndex mInstances = 0;
};

struct Registry {
  tembra::Mutex mMutex;
  std::map<CFUUIDRef, Factory> mFactories TEMBRA_GUARDED_BY(mMutex);
  // The factories of each type in the order of registration; the keys are kept alive by mTypeUUIDs.
  std::map<CFUUIDRef, std::vector<CFUUIDRef>> mTypes TEMBRA_GUARDED_BY(mMutex);
  std::vector<UUID> mTypeUUIDs TEMBRA_GUARDED_BY(mMutex);

  bool Register(CFUUIDRef inFactory, CFPlugInRef inPlugIn, std::string inName,
                CFPlugInFactoryFunction inFunction) TEMBRA_REQUIRES(mMutex) {
    if (mFactories.contains(inFactory)) return false;
    Factory& factory = mFactories[inFactory];
    factory.mUUID = UUID::Retained(inFactory);
    factory.mPlugIn = inPlugIn;
    factory.mFunctionName = std::move(inName);
    factory.mFunction = inFunction;
    return true;
  }

  bool RegisterType(CFUUIDRef inFactory, CFUUIDRef inType) TEMBRA_REQUIRES(mMutex) {
    if (!mFactories.contains(inFactory)) return false;
    if (!mTypes.contains(inType)) mTypeUUIDs.push_back(UUID::Retained(inType));
    std::vector<CFUUIDRef>& factories = mTypes[inType];
    if (std::find(factories.begin(), factories.end(), inFactory) == factories.end()) {
      factories.push_back(inFactory);
    }
    return true;
  }

  void Unregister(CFUUIDRef inFactory) TEMBRA_REQUIRES(mMutex) {
    for (auto& [type, factories] : mTypes) std::erase(factories, inFactory);
    mFactories.erase(inFactory);
  }
};

Registry& SharedRegistry() {
  static Registry& sRegistry = *new Registry;
  return sRegistry;
}

CFDictionaryRef InfoDictionary(CFPlugInRef inPlugIn, CFStringRef inKey) {
  const void* value = CFDictionaryGetValue(inPlugIn->mInfo, inKey);
  return IsType(value, kTypeDictionary) ? static_cast<CFDictionaryRef>(value) : nullptr;
}

UUID ToUUID(const void* inText) {
  return UUID(IsType(inText, kTypeString)
                  ? CFUUIDCreateFromString(nullptr, static_cast<CFStringRef>(inText))
                  : nullptr);
}

template <class Function>
void ForEach(CFDictionaryRef inDictionary, Function inFunction) {
  if (!inDictionary) return;
  CFDictionaryApplyFunction(
      inDictionary,
      [](const void* inKey, const void* inValue, void* inContext) {
        (*static_cast<Function*>(inContext))(inKey, inValue);
      },
      &inFunction);
}

bool IsYes(const void* inValue) {
  if (IsType(inValue, kTypeBoolean)) return inValue == kCFBooleanTrue;
  return IsType(inValue, kTypeString) &&
         CFStringCompare(static_cast<CFStringRef>(inValue), Constant<"YES">(),
                         kCFCompareCaseInsensitive) == kCFCompareEqualTo;
}

// The code of a factory, with its plug-in held for as long as it is in use.
struct LoadedFactory {
  CFPlugInFactoryFunction mFunction = nullptr;
  Owned<CFPlugInRef> mPlugIn;
};

LoadedFactory LoadFactory(CFUUIDRef inFactory, CFUUIDRef inType) {
  LoadedFactory loaded;
  std::string name;
  {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    auto found = registry.mFactories.find(inFactory);
    auto type = registry.mTypes.find(inType);
    if (found == registry.mFactories.end() || type == registry.mTypes.end() ||
        std::find(type->second.begin(), type->second.end(), inFactory) == type->second.end()) {
      return loaded;
    }
    const Factory& factory = found->second;
    loaded.mFunction = factory.mFunction;
    name = factory.mFunctionName;
    if (factory.mPlugIn) {
      if (!factory.mPlugIn->TryRetain()) return {};
      loaded.mPlugIn.Reset(factory.mPlugIn);
    }
  }
  if (!loaded.mFunction && loaded.mPlugIn) {
    loaded.mFunction =
        reinterpret_cast<CFPlugInFactoryFunction>(loaded.mPlugIn.Get()->Symbol(name));
  }
  return loaded;
}

}  // namespace

namespace tembra::cf {

bool RegisterFactoriesOf(CFPlugInRef inPlugIn) {
  CFDictionaryRef factories = InfoDictionary(inPlugIn, kCFPlugInFactoriesKey);
  bool isDynamic = IsYes(CFDictionaryGetValue(inPlugIn->mInfo, kCFPlugInDynamicRegistrationKey));
  if (!factories && !isDynamic) return false;
  if (inPlugIn->mIsPlugIn.exchange(true)) return true;
  std::vector<std::pair<UUID, std::string>> named;
  ForEach(factories, [&](const void* inKey, const void* inValue) {
    UUID factory = ToUUID(inKey);
    if (!factory || !IsType(inValue, kTypeString)) return;
    named.emplace_back(std::move(factory), ToUTF8(static_cast<CFStringRef>(inValue)));
  });
  std::vector<std::pair<UUID, UUID>> served;
  ForEach(InfoDictionary(inPlugIn, kCFPlugInTypesKey), [&](const void* inKey, const void* inValue) {
    if (!IsType(inValue, kTypeArray)) return;
    auto array = static_cast<CFArrayRef>(inValue);
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
      UUID type = ToUUID(inKey), factory = ToUUID(CFArrayGetValueAtIndex(array, i));
      if (type && factory) served.emplace_back(std::move(type), std::move(factory));
    }
  });
  {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    for (auto& [factory, name] : named) registry.Register(factory, inPlugIn, name, nullptr);
    for (const auto& [type, factory] : served) {
      // A bundle speaks for its own factories only.
      auto found = registry.mFactories.find(factory);
      if (found != registry.mFactories.end() && found->second.mPlugIn == inPlugIn) {
        registry.RegisterType(factory, type);
      }
    }
  }
  if (isDynamic) {
    CFStringRef named = inPlugIn->Info(kCFPlugInDynamicRegisterFunctionKey);
    auto function = reinterpret_cast<CFPlugInDynamicRegisterFunction>(
        inPlugIn->Symbol(named ? ToUTF8(named) : "CFPlugInDynamicRegister"));
    if (function) function(inPlugIn);
  }
  return true;
}

void UnregisterFactoriesOf(CFPlugInRef inPlugIn) {
  Registry& registry = SharedRegistry();
  tembra::MutexLock lock(registry.mMutex);
  std::vector<CFUUIDRef> gone;
  for (const auto& [uuid, factory] : registry.mFactories) {
    if (factory.mPlugIn == inPlugIn) gone.push_back(uuid);
  }
  for (CFUUIDRef uuid : gone) registry.Unregister(uuid);
}

}  // namespace tembra::cf

CFTypeID CFPlugInGetTypeID() {
  return kTypeBundle;
}

CFPlugInRef CFPlugInCreate(CFAllocatorRef inAllocator, CFURLRef inURL) {
  Owned<CFBundleRef> bundle(CFBundleCreate(inAllocator, inURL));
  return bundle && CFBundleGetPlugIn(bundle) ? bundle.Detach() : nullptr;
}

CFBundleRef CFPlugInGetBundle(CFPlugInRef inPlugIn) {
  return inPlugIn;
}

void CFPlugInSetLoadOnDemand(CFPlugInRef inPlugIn, Boolean inIsOnDemand) {
  if (!inIsOnDemand) CFBundleLoadExecutable(inPlugIn);
}

Boolean CFPlugInIsLoadOnDemand(CFPlugInRef) {
  return true;
}

CFArrayRef CFPlugInFindFactoriesForPlugInType(CFUUIDRef inType) {
  return CFPlugInFindFactoriesForPlugInTypeInPlugIn(inType, nullptr);
}

CFArrayRef CFPlugInFindFactoriesForPlugInTypeInPlugIn(CFUUIDRef inType, CFPlugInRef inPlugIn) {
  return Guarded([&]() -> CFArrayRef {
    Owned<CFMutableArrayRef> result(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    auto found = registry.mTypes.find(inType);
    if (!result || found == registry.mTypes.end()) return nullptr;
    for (CFUUIDRef uuid : found->second) {
      if (inPlugIn && registry.mFactories[uuid].mPlugIn != inPlugIn) continue;
      CFArrayAppendValue(result, uuid);
    }
    return CFArrayGetCount(result) > 0 ? result.Detach() : nullptr;
  });
}

void* CFPlugInInstanceCreate(CFAllocatorRef inAllocator, CFUUIDRef inFactory, CFUUIDRef inType) {
  LoadedFactory loaded = Guarded([&] { return LoadFactory(inFactory, inType); });
  return loaded.mFunction ? loaded.mFunction(inAllocator, inType) : nullptr;
}

Boolean CFPlugInRegisterFactoryFunction(CFUUIDRef inFactory, CFPlugInFactoryFunction inFunction) {
  if (!inFactory || !inFunction) return false;
  return Guarded([&] {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    return registry.Register(inFactory, nullptr, "", inFunction);
  });
}

Boolean CFPlugInRegisterFactoryFunctionByName(CFUUIDRef inFactory, CFPlugInRef inPlugIn,
                                              CFStringRef inName) {
  if (!inFactory || !inPlugIn || !inName) return false;
  return Guarded([&] {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    return registry.Register(inFactory, inPlugIn, ToUTF8(inName), nullptr);
  });
}

Boolean CFPlugInUnregisterFactory(CFUUIDRef inFactory) {
  Registry& registry = SharedRegistry();
  tembra::MutexLock lock(registry.mMutex);
  if (!registry.mFactories.contains(inFactory)) return false;
  registry.Unregister(inFactory);
  return true;
}

Boolean CFPlugInRegisterPlugInType(CFUUIDRef inFactory, CFUUIDRef inType) {
  return Guarded([&] {
    Registry& registry = SharedRegistry();
    tembra::MutexLock lock(registry.mMutex);
    return registry.RegisterType(inFactory, inType);
  });
}

Boolean CFPlugInUnregisterPlugInType(CFUUIDRef inFactory, CFUUIDRef inType) {
  Registry& registry = SharedRegistry();
  tembra::MutexLock lock(registry.mMutex);
  auto found = registry.mTypes.find(inType);
  return found != registry.mTypes.end() && std::erase(found->second, inFactory) > 0;
}

void CFPlugInAddInstanceForFactory(CFUUIDRef inFactory) {
  Registry& registry = SharedRegistry();
  tembra::MutexLock lock(registry.mMutex);
  auto found = registry.mFactories.find(inFactory);
  if (found == registry.mFactories.end()) return;
  Factory& factory = found->second;
  if (factory.mPlugIn && !factory.mPlugIn->TryRetain()) return;
  ++factory.mInstances;
}

void CFPlugInRemoveInstanceForFactory(CFUUIDRef inFactory) {
  // Released only after the lock, since it may be the last reference.
  Owned<CFPlugInRef> plugIn;
  Registry& registry = SharedRegistry();
  {
    tembra::MutexLock lock(registry.mMutex);
    auto found = registry.mFactories.find(inFactory);
    if (found == registry.mFactories.end() || found->second.mInstances == 0) return;
    --found->second.mInstances;
    plugIn.Reset(found->second.mPlugIn);
  }
}
