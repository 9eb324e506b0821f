#include "hal/Listener.h"

#include <Block.h>

#include <algorithm>
#include <vector>

namespace tembra::hal {

namespace {

bool Matches(UInt32 inA, UInt32 inB, UInt32 inWildcard) {
  return inA == inB || inA == inWildcard || inB == inWildcard;
}

}  // namespace

bool IsCongruent(const AudioObjectPropertyAddress& inA, const AudioObjectPropertyAddress& inB) {
  return Matches(inA.mSelector, inB.mSelector, kAudioObjectPropertySelectorWildcard) &&
         Matches(inA.mScope, inB.mScope, kAudioObjectPropertyScopeWildcard) &&
         Matches(inA.mElement, inB.mElement, kAudioObjectPropertyElementWildcard);
}

bool IsSame(const AudioObjectPropertyAddress& inA, const AudioObjectPropertyAddress& inB) {
  return inA.mSelector == inB.mSelector && inA.mScope == inB.mScope && inA.mElement == inB.mElement;
}

std::shared_ptr<Listener> Listener::Make(AudioObjectID inObjectID,
                                         const AudioObjectPropertyAddress& inAddress,
                                         const ListenerTarget& inTarget) {
  std::shared_ptr<Listener> listener(new Listener(inObjectID, inAddress, inTarget));
  if (inTarget.mKind == ListenerKind::kObjectBlock) {
    listener->mBlock =
        Block_copy(reinterpret_cast<AudioObjectPropertyListenerBlock>(inTarget.mFunction));
    if (!listener->mBlock) {
      return nullptr;
    }
    if (inTarget.mQueue) {
      dispatch_retain(inTarget.mQueue);
    }
  }
  return listener;
}

Listener::~Listener() {
  if (mBlock) {
    Block_release(mBlock);
    if (mTarget.mQueue) {
      dispatch_release(mTarget.mQueue);
    }
  }
}

bool Listener::Is(AudioObjectID inObjectID, const AudioObjectPropertyAddress& inAddress,
                  const ListenerTarget& inTarget, bool inAnyClientData) const {
  // A client may keep the block that it gave, or, having copied it, the copy.
  const bool sameFunction = mTarget.mFunction == inTarget.mFunction ||
                            (mBlock && reinterpret_cast<void*>(mBlock) == inTarget.mFunction);
  return mObjectID == inObjectID && IsSame(mAddress, inAddress) &&
         mTarget.mKind == inTarget.mKind && sameFunction && mTarget.mQueue == inTarget.mQueue &&
         (inAnyClientData || mTarget.mClientData == inTarget.mClientData);
}

void Listener::Deliver(std::span<const AudioObjectPropertyAddress> inChanged) {
  std::vector<AudioObjectPropertyAddress> matching;
  std::copy_if(inChanged.begin(), inChanged.end(), std::back_inserter(matching),
               [&](const auto& address) { return IsCongruent(mAddress, address); });
  if (matching.empty()) {
    return;
  }
  if (!mTarget.mQueue) {
    CallUnlessRemoved(matching);
    return;
  }
  const std::shared_ptr<Listener> self = shared_from_this();
  dispatch_async(mTarget.mQueue, ^{
    self->CallUnlessRemoved(matching);
  });
}

void Listener::CallUnlessRemoved(std::span<const AudioObjectPropertyAddress> inChanged) {
  const bool isOlderForm = mTarget.mKind != ListenerKind::kObjectProc && !mBlock;
  // The older forms hear of one property at a time, and may remove themselves at any of them.
  const size_t step = isOlderForm ? 1 : inChanged.size();
  for (size_t i = 0; i < inChanged.size() && mGuard.Begin(); i += step) {
    Call(inChanged.subspan(i, step));
    mGuard.End();
  }
}

void Listener::Call(std::span<const AudioObjectPropertyAddress> inChanged) const {
  const AudioObjectPropertyAddress& first = inChanged.front();
  switch (mTarget.mKind) {
    case ListenerKind::kObjectProc:
      reinterpret_cast<AudioObjectPropertyListenerProc>(mTarget.mFunction)(
          mObjectID, static_cast<UInt32>(inChanged.size()), inChanged.data(), mTarget.mClientData);
      break;
    case ListenerKind::kObjectBlock:
      mBlock(static_cast<UInt32>(inChanged.size()), inChanged.data());
      break;
    case ListenerKind::kHardwareProc:
      reinterpret_cast<AudioHardwarePropertyListenerProc>(mTarget.mFunction)(first.mSelector,
                                                                             mTarget.mClientData);
      break;
    case ListenerKind::kDeviceProc:
      reinterpret_cast<AudioDevicePropertyListenerProc>(mTarget.mFunction)(
          mObjectID, first.mElement, first.mScope == kAudioObjectPropertyScopeInput,
          first.mSelector, mTarget.mClientData);
      break;
    case ListenerKind::kStreamProc:
      reinterpret_cast<AudioStreamPropertyListenerProc>(mTarget.mFunction)(
          mObjectID, first.mElement, first.mSelector, mTarget.mClientData);
      break;
  }
}

}  // namespace tembra::hal
