#pragma once

#include <CoreFoundation/CFPropertyList.h>
#include <plist/plist.h>

#include <locale.h>

#include <memory>

namespace tembra::cf {

struct NodeDeleter {
  void operator()(void* inNode) const { plist_free(inNode); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

// The parser and the writer of text use the C library's numbers, whatever the host's locale is.
class PlainLocale {
 public:
  PlainLocale() : mFormer(uselocale(Plain())) {}
  ~PlainLocale() { uselocale(mFormer); }
  PlainLocale(const PlainLocale&) = delete;
  PlainLocale& operator=(const PlainLocale&) = delete;

 private:
  static locale_t Plain() {
    static const locale_t sPlain = newlocale(LC_ALL_MASK, "C", nullptr);
    return sPlain;
  }
  locale_t mFormer;
};

// A tree of objects from a tree of nodes and back. Null and a constant text if it cannot be.
CFPropertyListRef CreateFromNode(CFAllocatorRef inAllocator, plist_t inNode,
                                 CFOptionFlags inOptions, const char*& outError);
Node CreateNode(CFPropertyListRef inList, const char*& outError);

}  // namespace tembra::cf
