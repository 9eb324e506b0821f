#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "corefoundation/Bundle.h"
#include "corefoundation/File.h"
#include "corefoundation/String.h"
#include "corefoundation/StringsFile.h"
#include "corefoundation/URL.h"

using namespace tembra::cf;

namespace {

// A name out of a caller's or a bundle's hands that becomes a part of a path.
bool IsPlainName(const std::string& inName) {
  return !inName.empty() && inName[0] != '.' && inName.find('/') == std::string::npos &&
         inName.find('\0') == std::string::npos;
}

void Add(std::vector<std::string>& ioLanguages, const std::string& inLanguage) {
  if (IsPlainName(inLanguage)) ioLanguages.push_back(inLanguage);
}

// The languages to look for, best first: the user's, the bundle's own, English.
std::vector<std::string> Languages(const __CFBundle& inBundle) {
  std::vector<std::string> languages;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = secure_getenv(name);
    if (!value || !*value) continue;
    std::string locale = value;
    // "de_AT.UTF-8@euro": language and country, then the language alone.
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale != "C" && locale != "POSIX") {
      Add(languages, locale);
      Add(languages, locale.substr(0, locale.find('_')));
    }
    break;
  }
  if (CFStringRef region = inBundle.Info(kCFBundleDevelopmentRegionKey)) {
    Add(languages, ToUTF8(region));
  }
  languages.insert(languages.end(), {"en", "English", "Base"});
  return languages;
}

// The folders to look in for a resource, best first.
std::vector<std::string> Folders(const __CFBundle& inBundle) {
  std::string resources = inBundle.ContentsPath() + "/Resources";
  std::vector<std::string> folders;
  for (const std::string& language : Languages(inBundle)) {
    folders.push_back(resources + "/" + language + ".lproj");
  }
  folders.push_back(resources);
  return folders;
}

CFDictionaryRef CreateTable(const __CFBundle& inBundle, const std::string& inName) {
  for (const std::string& folder : Folders(inBundle)) {
    std::vector<UInt8> bytes;
    if (ReadWholeFile(folder + "/" + inName + ".strings", 0, bytes) != 0) continue;
    if (CFDictionaryRef table = CreateFromStringsFile(bytes.data(), bytes.size())) return table;
  }
  return nullptr;
}

}  // namespace

CFDictionaryRef __CFBundle::Table(const std::string& inName) {
  if (!IsPlainName(inName)) return nullptr;
  {
    tembra::MutexLock lock(mMutex);
    auto found = mTables.find(inName);
    if (found != mTables.end()) return found->second;
  }
  Owned<CFDictionaryRef> table(CreateTable(*this, inName));
  tembra::MutexLock lock(mMutex);
  // A table that is not there is remembered as well; another thread's may stand there by now.
  return mTables.try_emplace(inName, std::move(table)).first->second;
}

CFStringRef CFBundleCopyLocalizedString(CFBundleRef inBundle, CFStringRef inKey,
                                        CFStringRef inValue, CFStringRef inTable) {
  if (!inKey) {
    return static_cast<CFStringRef>(CFRetain(inValue ? inValue : Constant<"">()));
  }
  CFStringRef text = Guarded([&]() -> CFStringRef {
    if (!inBundle) return nullptr;
    bool isNamed = inTable && CFStringGetLength(inTable) > 0;
    CFDictionaryRef table = inBundle->Table(isNamed ? ToUTF8(inTable) : "Localizable");
    return table ? static_cast<CFStringRef>(CFDictionaryGetValue(table, inKey)) : nullptr;
  });
  if (!text) text = inValue && CFStringGetLength(inValue) > 0 ? inValue : inKey;
  return CFStringCreateCopy(nullptr, text);
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef inBundle, CFStringRef inName, CFStringRef inType,
                                 CFStringRef inSubFolder) {
  return Guarded([&]() -> CFURLRef {
    std::string name = inName ? ToUTF8(inName) : "";
    if (inType && CFStringGetLength(inType) > 0) name += "." + ToUTF8(inType);
    if (!IsPlainName(name)) return nullptr;
    std::string subFolder = inSubFolder ? ToUTF8(inSubFolder) : "";
    if (!subFolder.empty() && !IsPlainName(subFolder)) return nullptr;
    for (const std::string& folder : Folders(*inBundle)) {
      std::string path = folder + (subFolder.empty() ? "/" : "/" + subFolder + "/") + name;
      if (access(path.c_str(), F_OK) == 0) return CreateFileURL(path, false);
    }
    return nullptr;
  });
}
