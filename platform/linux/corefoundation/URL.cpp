#include "corefoundation/URL.h"

#include <unistd.h>

#include <cstring>
#include <memory>

#include "corefoundation/String.h"

using namespace tembra::cf;

// The URL of a file, by its absolute path.
struct __CFURL : Object {
  __CFURL(std::string inPath, bool inIsDirectory)
      : mPath(std::move(inPath)), mIsDirectory(inIsDirectory), mString(CreateString(Text())) {}
  CFTypeID GetTypeID() const override { return kTypeURL; }
  bool IsEqual(const Object& inOther) const override {
    const auto& other = static_cast<const __CFURL&>(inOther);
    return mPath == other.mPath && mIsDirectory == other.mIsDirectory;
  }
  CFHashCode Hash() const override { return std::hash<std::string>()(mPath); }
  CFStringRef CopyDescription() const override {
    return static_cast<CFStringRef>(CFRetain(mString));
  }

  std::string Text() const {
    std::string text = "file://";
    for (char character : mPath) {
      auto byte = static_cast<unsigned char>(character);
      if (std::isalnum(byte) || std::strchr("-._~/!$&'()*+,=:@", byte)) {
        text += character;
      } else {
        text += '%';
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 15];
      }
    }
    if (mIsDirectory && mPath != "/") text += '/';
    return text;
  }

  const std::string mPath;
  const bool mIsDirectory;
  const Owned<CFStringRef> mString;
};

namespace {

// What stands behind the last slash.
std::string LastComponent(const std::string& inPath) {
  return inPath == "/" ? inPath : inPath.substr(inPath.rfind('/') + 1);
}

// Where the extension's dot stands; npos if there is none.
size_t ExtensionDot(const std::string& inPath) {
  size_t dot = inPath.rfind('.');
  size_t start = inPath.rfind('/') + 1;
  return dot == std::string::npos || dot <= start || dot + 1 == inPath.size() ? std::string::npos
                                                                              : dot;
}

CFURLRef CreateURL(CFAllocatorRef inAllocator, std::string inPath, bool inIsDirectory) {
  if (inPath.empty() || inPath.find('\0') != std::string::npos) return nullptr;
  if (inPath[0] != '/') {
    std::unique_ptr<char, decltype(&std::free)> here(getcwd(nullptr, 0), std::free);
    if (!here) return nullptr;
    std::string base = here.get();
    inPath = (base == "/" ? base : base + "/") + inPath;
  }
  while (inPath.size() > 1 && inPath.back() == '/') inPath.pop_back();
  // A path that is not UTF-8 has no text.
  Owned<CFStringRef> text(CreateString(inPath));
  if (!text) return nullptr;
  return Create<__CFURL>(inAllocator, std::move(inPath), inIsDirectory);
}

}  // namespace

namespace tembra::cf {

CFURLRef CreateFileURL(const std::string& inPath, bool inIsDirectory) {
  return CreateURL(nullptr, inPath, inIsDirectory);
}

std::string PathOf(CFURLRef inURL) {
  return inURL->mPath;
}

}  // namespace tembra::cf

CFTypeID CFURLGetTypeID() {
  return kTypeURL;
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef inAllocator, CFStringRef inPath,
                                       CFURLPathStyle inStyle, Boolean inIsDirectory) {
  return Guarded([&]() -> CFURLRef {
    if (!inPath || inStyle != kCFURLPOSIXPathStyle) return nullptr;
    return CreateURL(inAllocator, ToUTF8(inPath), inIsDirectory);
  });
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef inAllocator, const UInt8* inPath,
                                                 CFIndex inSize, Boolean inIsDirectory) {
  return Guarded([&]() -> CFURLRef {
    if (!inPath || inSize <= 0) return nullptr;
    return CreateURL(
        inAllocator,
        std::string(reinterpret_cast<const char*>(inPath), static_cast<size_t>(inSize)),
        inIsDirectory);
  });
}

CFURLRef CFURLCreateWithFileSystemPathRelativeToBase(CFAllocatorRef inAllocator, CFStringRef inPath,
                                                     CFURLPathStyle inStyle, Boolean inIsDirectory,
                                                     CFURLRef inBase) {
  return Guarded([&]() -> CFURLRef {
    if (!inPath || inStyle != kCFURLPOSIXPathStyle) return nullptr;
    std::string path = ToUTF8(inPath);
    if (inBase && !path.empty() && path[0] != '/') {
      const std::string& base = inBase->mPath;
      // As with any URL, a base that is no directory stands for the one that holds it.
      std::string directory = inBase->mIsDirectory ? base : base.substr(0, base.rfind('/'));
      path = (directory == "/" ? "" : directory) + "/" + path;
    }
    return CreateURL(inAllocator, std::move(path), inIsDirectory);
  });
}

CFURLRef CFURLCopyAbsoluteURL(CFURLRef inURL) {
  return static_cast<CFURLRef>(CFRetain(inURL));
}

CFStringRef CFURLGetString(CFURLRef inURL) {
  return inURL->mString;
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef inURL, CFURLPathStyle inStyle) {
  if (inStyle != kCFURLPOSIXPathStyle) return nullptr;
  return CreateString(inURL->mPath);
}

CFStringRef CFURLCopyPath(CFURLRef inURL) {
  CFIndex scheme = static_cast<CFIndex>(std::strlen("file://"));
  return CFStringCreateWithSubstring(
      nullptr, inURL->mString, CFRangeMake(scheme, CFStringGetLength(inURL->mString) - scheme));
}

CFStringRef CFURLCopyScheme(CFURLRef) {
  return Constant<"file">();
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef inURL) {
  return Guarded([&] { return CreateString(LastComponent(inURL->mPath)); });
}

CFStringRef CFURLCopyPathExtension(CFURLRef inURL) {
  return Guarded([&]() -> CFStringRef {
    size_t dot = ExtensionDot(inURL->mPath);
    return dot == std::string::npos ? nullptr : CreateString(inURL->mPath.substr(dot + 1));
  });
}

Boolean CFURLHasDirectoryPath(CFURLRef inURL) {
  return inURL->mIsDirectory;
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef inURL, Boolean, UInt8* outPath, CFIndex inSize) {
  const std::string& path = inURL->mPath;
  if (!outPath || inSize < 0 || static_cast<size_t>(inSize) <= path.size()) return false;
  std::memcpy(outPath, path.c_str(), path.size() + 1);
  return true;
}

CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef inAllocator, CFURLRef inURL,
                                               CFStringRef inComponent, Boolean inIsDirectory) {
  return Guarded([&] {
    std::string path = inURL->mPath == "/" ? "" : inURL->mPath;
    return CreateURL(inAllocator, path + "/" + ToUTF8(inComponent), inIsDirectory);
  });
}

CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef inAllocator, CFURLRef inURL) {
  return Guarded([&] {
    std::string path = inURL->mPath.substr(0, inURL->mPath.rfind('/'));
    return CreateURL(inAllocator, path.empty() ? "/" : path, true);
  });
}

CFURLRef CFURLCreateCopyAppendingPathExtension(CFAllocatorRef inAllocator, CFURLRef inURL,
                                               CFStringRef inExtension) {
  return Guarded([&] {
    return CreateURL(inAllocator, inURL->mPath + "." + ToUTF8(inExtension), inURL->mIsDirectory);
  });
}

CFURLRef CFURLCreateCopyDeletingPathExtension(CFAllocatorRef inAllocator, CFURLRef inURL) {
  return Guarded([&] {
    return CreateURL(inAllocator, inURL->mPath.substr(0, ExtensionDot(inURL->mPath)),
                     inURL->mIsDirectory);
  });
}
