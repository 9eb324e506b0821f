#pragma once

// Bundles: a directory with Contents/Info.plist, an executable and localized resources.
//
// There is one object for each path while it lives. What a bundle's files hold is untrusted.

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

typedef struct __CFBundle* CFBundleRef;
typedef struct __CFBundle* CFPlugInRef;

CF_EXPORT const CFStringRef kCFBundleInfoDictionaryVersionKey;
CF_EXPORT const CFStringRef kCFBundleExecutableKey;
CF_EXPORT const CFStringRef kCFBundleIdentifierKey;
CF_EXPORT const CFStringRef kCFBundleVersionKey;
CF_EXPORT const CFStringRef kCFBundleDevelopmentRegionKey;
CF_EXPORT const CFStringRef kCFBundleNameKey;
CF_EXPORT const CFStringRef kCFBundleLocalizationsKey;

CF_EXPORT CFTypeID CFBundleGetTypeID(void);
// The program's own: its Info.plist beside it if there is one, otherwise an empty dictionary.
CF_EXPORT CFBundleRef CFBundleGetMainBundle(void);
// Among the bundles of this process that are alive; null if none has that identifier.
CF_EXPORT CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef bundleID);
// Null unless the URL names a directory with a readable Contents/Info.plist.
CF_EXPORT CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);
// Every bundle in the directory with that type (null: any type).
CF_EXPORT CFArrayRef CFBundleCreateBundlesFromDirectory(CFAllocatorRef allocator,
                                                        CFURLRef directoryURL,
                                                        CFStringRef bundleType);
CF_EXPORT CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
CF_EXPORT CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
CF_EXPORT CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);
CF_EXPORT CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);
// "1.2.3" as 0x01238000, with stages d, a, b and final; 0 if there is none.
CF_EXPORT UInt32 CFBundleGetVersionNumber(CFBundleRef bundle);
CF_EXPORT CFStringRef CFBundleGetDevelopmentRegion(CFBundleRef bundle);
CF_EXPORT CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle);
CF_EXPORT CFDictionaryRef CFBundleCopyInfoDictionaryInDirectory(CFURLRef bundleURL);
// The file subDirName/resourceName.resourceType in Resources, the best localization first.
CF_EXPORT CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                           CFStringRef resourceType, CFStringRef subDirName);

// The text for a key in a table (null: "Localizable"); where there is none the value, and where
// that is null or empty the key. The bundle may be null.
CF_EXPORT CFStringRef CFBundleCopyLocalizedString(CFBundleRef bundle, CFStringRef key,
                                                  CFStringRef value, CFStringRef tableName);
#define CFCopyLocalizedString(key, comment) \
  CFBundleCopyLocalizedString(CFBundleGetMainBundle(), (key), (key), NULL)

// The executable: Contents/Linux/<CFBundleExecutable> here.
CF_EXPORT CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);
CF_EXPORT Boolean CFBundleIsExecutableLoaded(CFBundleRef bundle);
CF_EXPORT Boolean CFBundlePreflightExecutable(CFBundleRef bundle, CFErrorRef* error);
CF_EXPORT Boolean CFBundleLoadExecutableAndReturnError(CFBundleRef bundle, CFErrorRef* error);
CF_EXPORT Boolean CFBundleLoadExecutable(CFBundleRef bundle);
CF_EXPORT void CFBundleUnloadExecutable(CFBundleRef bundle);
// Loads the executable if it is not loaded.
CF_EXPORT void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName);
CF_EXPORT void* CFBundleGetDataPointerForName(CFBundleRef bundle, CFStringRef symbolName);
CF_EXPORT CFPlugInRef CFBundleGetPlugIn(CFBundleRef bundle);
