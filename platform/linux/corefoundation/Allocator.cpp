#include "corefoundation/Allocator.h"

#include <cstdlib>

using namespace tembra::cf;

namespace {

void* MallocAllocate(CFIndex inSize, CFOptionFlags, void*) {
  return std::malloc(static_cast<size_t>(inSize));
}
void* MallocReallocate(void* inPointer, CFIndex inSize, CFOptionFlags, void*) {
  return std::realloc(inPointer, static_cast<size_t>(inSize));
}
void MallocDeallocate(void* inPointer, void*) {
  std::free(inPointer);
}
void* NullAllocate(CFIndex, CFOptionFlags, void*) {
  return nullptr;
}
void* NullReallocate(void*, CFIndex, CFOptionFlags, void*) {
  return nullptr;
}
void NullDeallocate(void*, void*) {}

constexpr CFAllocatorContext kMallocContext = {
    0,      nullptr, nullptr, nullptr, nullptr, MallocAllocate, MallocReallocate, MallocDeallocate,
    nullptr};
constexpr CFAllocatorContext kNullContext = {
    0, nullptr, nullptr, nullptr, nullptr, NullAllocate, NullReallocate, NullDeallocate, nullptr};

constinit Immortal<__CFAllocator> sSystemDefault{kMallocContext, true};
constinit Immortal<__CFAllocator> sMalloc{kMallocContext, true};
constinit Immortal<__CFAllocator> sNull{kNullContext, true};
// Never used as an allocator: its address is the request to use the context's functions.
constinit Immortal<__CFAllocator> sUseContext{kNullContext, true};

const __CFAllocator& Resolve(CFAllocatorRef inAllocator) {
  return inAllocator ? *inAllocator : sSystemDefault.mValue;
}

}  // namespace

constinit const CFAllocatorRef kCFAllocatorDefault = nullptr;
constinit const CFAllocatorRef kCFAllocatorSystemDefault = &sSystemDefault.mValue;
constinit const CFAllocatorRef kCFAllocatorMalloc = &sMalloc.mValue;
constinit const CFAllocatorRef kCFAllocatorMallocZone = &sMalloc.mValue;
constinit const CFAllocatorRef kCFAllocatorNull = &sNull.mValue;
constinit const CFAllocatorRef kCFAllocatorUseContext = &sUseContext.mValue;

CFTypeID CFAllocatorGetTypeID() {
  return kTypeAllocator;
}

CFAllocatorRef CFAllocatorGetDefault() {
  return kCFAllocatorSystemDefault;
}

CFAllocatorRef CFAllocatorCreate(CFAllocatorRef inAllocator, CFAllocatorContext* inContext) {
  if (!inContext || inContext->version != 0) return nullptr;
  CFAllocatorContext context = *inContext;
  if (inAllocator == kCFAllocatorUseContext) {
    // An allocator cannot hold its own memory, so its object lives in the default heap.
    inAllocator = nullptr;
  }
  if (context.retain) context.info = const_cast<void*>(context.retain(context.info));
  __CFAllocator* allocator = Create<__CFAllocator>(inAllocator, context, false);
  if (!allocator && context.release) context.release(context.info);
  return allocator;
}

void* CFAllocatorAllocate(CFAllocatorRef inAllocator, CFIndex inSize, CFOptionFlags inHint) {
  const CFAllocatorContext& context = Resolve(inAllocator).mContext;
  if (inSize <= 0 || !context.allocate) return nullptr;
  return context.allocate(inSize, inHint, context.info);
}

void* CFAllocatorReallocate(CFAllocatorRef inAllocator, void* inPointer, CFIndex inSize,
                            CFOptionFlags inHint) {
  const CFAllocatorContext& context = Resolve(inAllocator).mContext;
  if (!inPointer) return CFAllocatorAllocate(inAllocator, inSize, inHint);
  if (inSize <= 0) {
    CFAllocatorDeallocate(inAllocator, inPointer);
    return nullptr;
  }
  if (!context.reallocate) return nullptr;
  return context.reallocate(inPointer, inSize, inHint, context.info);
}

void CFAllocatorDeallocate(CFAllocatorRef inAllocator, void* inPointer) {
  const CFAllocatorContext& context = Resolve(inAllocator).mContext;
  if (inPointer && context.deallocate) context.deallocate(inPointer, context.info);
}

CFIndex CFAllocatorGetPreferredSizeForSize(CFAllocatorRef inAllocator, CFIndex inSize,
                                           CFOptionFlags inHint) {
  const CFAllocatorContext& context = Resolve(inAllocator).mContext;
  if (inSize <= 0 || !context.preferredSize) return inSize;
  CFIndex preferred = context.preferredSize(inSize, inHint, context.info);
  return preferred > inSize ? preferred : inSize;
}

void CFAllocatorGetContext(CFAllocatorRef inAllocator, CFAllocatorContext* outContext) {
  if (outContext) *outContext = Resolve(inAllocator).mContext;
}
