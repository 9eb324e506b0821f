#include "controls/TMBACLN_SelectorControl.h"

#include <iterator>

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"
#include "support/CAException.h"

TMBACLN_SelectorControl::TMBACLN_SelectorControl(AudioObjectID inObjectID, AudioClassID inClassID,
                                                 AudioObjectPropertyScope inScope,
                                                 AudioObjectPropertyElement inElement,
                                                 TMBACLN_PlugIn* inPlugIn,
                                                 TMBACLN_Device* inOwningDevice)
    : HP_SelectorControl(inObjectID, inClassID, inPlugIn, inOwningDevice),
      mPropertyScope(inScope),
      mPropertyElement(inElement),
      mCurrentItemID(0) {}

TMBACLN_SelectorControl::~TMBACLN_SelectorControl() = default;

void TMBACLN_SelectorControl::Initialize() {
  mSelectorMap.clear();
  CacheCurrentItemID();
}

void TMBACLN_SelectorControl::Teardown() {
  mSelectorMap.clear();
}

AudioObjectPropertyScope TMBACLN_SelectorControl::GetPropertyScope() const {
  return mPropertyScope;
}

AudioObjectPropertyElement TMBACLN_SelectorControl::GetPropertyElement() const {
  return mPropertyElement;
}

UInt32 TMBACLN_SelectorControl::GetNumberItems() const {
  return static_cast<UInt32>(mSelectorMap.size());
}

UInt32 TMBACLN_SelectorControl::GetCurrentItemID() const {
  return mCurrentItemID;
}

UInt32 TMBACLN_SelectorControl::GetCurrentItemIndex() const {
  return GetItemIndexForID(GetCurrentItemID());
}

void TMBACLN_SelectorControl::SetCurrentItemByID(UInt32 inItemID) {
  if (inItemID == mCurrentItemID) return;
  mCurrentItemID = inItemID;
  ValueChanged();
}

void TMBACLN_SelectorControl::SetCurrentItemByIndex(UInt32 inItemIndex) {
  SetCurrentItemByID(GetItemIDForIndex(inItemIndex));
}

UInt32 TMBACLN_SelectorControl::GetItemIDForIndex(UInt32 inItemIndex) const {
  if (inItemIndex >= mSelectorMap.size()) throw CAException(kAudioHardwareIllegalOperationError);
  return std::next(mSelectorMap.begin(), inItemIndex)->first;
}

UInt32 TMBACLN_SelectorControl::GetItemIndexForID(UInt32 inItemID) const {
  return static_cast<UInt32>(std::distance(mSelectorMap.begin(), FindItem(inItemID)));
}

CFStringRef TMBACLN_SelectorControl::CopyItemNameByID(UInt32 inItemID) const {
  return FindItem(inItemID)->second.CopyItemName();
}

CFStringRef TMBACLN_SelectorControl::CopyItemNameByIndex(UInt32 inItemIndex) const {
  return CopyItemNameByID(GetItemIDForIndex(inItemIndex));
}

CFStringRef TMBACLN_SelectorControl::CopyItemNameByIDWithoutLocalizing(UInt32 inItemID) const {
  return CopyItemNameByID(inItemID);
}

CFStringRef TMBACLN_SelectorControl::CopyItemNameByIndexWithoutLocalizing(
    UInt32 inItemIndex) const {
  return CopyItemNameByIndex(inItemIndex);
}

UInt32 TMBACLN_SelectorControl::GetItemKindByID(UInt32 inItemID) const {
  return FindItem(inItemID)->second.GetItemKind();
}

UInt32 TMBACLN_SelectorControl::GetItemKindByIndex(UInt32 inItemIndex) const {
  return GetItemKindByID(GetItemIDForIndex(inItemIndex));
}

void TMBACLN_SelectorControl::CacheCurrentItemID() {}

TMBACLN_SelectorControl::SelectorMap::const_iterator TMBACLN_SelectorControl::FindItem(
    UInt32 inItemID) const {
  const auto theItem = mSelectorMap.find(inItemID);
  if (theItem == mSelectorMap.end()) throw CAException(kAudioHardwareIllegalOperationError);
  return theItem;
}
