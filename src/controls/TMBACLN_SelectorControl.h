#pragma once

#include <map>

#include "controls/HP_SelectorControl.h"

class TMBACLN_Device;
class TMBACLN_PlugIn;

// A choice of the device, such as its data source. It has no items; the current one can be set
// nonetheless.
//
// Purpose: keeps the current item and tells of its changes.
// Thread: as HP_SelectorControl.
// Ownership: owned by its device; owns its items.
// Units and range: indices follow the order of item IDs. The current ID need not be an item's.
// Failure: CAException with 'nope' for an item that is not there.
class TMBACLN_SelectorControl : public HP_SelectorControl {
 public:
  TMBACLN_SelectorControl(AudioObjectID inObjectID, AudioClassID inClassID,
                          AudioObjectPropertyScope inScope, AudioObjectPropertyElement inElement,
                          TMBACLN_PlugIn* inPlugIn, TMBACLN_Device* inOwningDevice);
  ~TMBACLN_SelectorControl() override;

  void Initialize() override;
  void Teardown() override;

  AudioObjectPropertyScope GetPropertyScope() const override;
  AudioObjectPropertyElement GetPropertyElement() const override;

  UInt32 GetNumberItems() const override;
  UInt32 GetCurrentItemID() const override;
  UInt32 GetCurrentItemIndex() const override;
  void SetCurrentItemByID(UInt32 inItemID) override;
  void SetCurrentItemByIndex(UInt32 inItemIndex) override;
  UInt32 GetItemIDForIndex(UInt32 inItemIndex) const override;
  UInt32 GetItemIndexForID(UInt32 inItemID) const override;
  CFStringRef CopyItemNameByID(UInt32 inItemID) const override;
  CFStringRef CopyItemNameByIndex(UInt32 inItemIndex) const override;
  CFStringRef CopyItemNameByIDWithoutLocalizing(UInt32 inItemID) const override;
  CFStringRef CopyItemNameByIndexWithoutLocalizing(UInt32 inItemIndex) const override;
  UInt32 GetItemKindByID(UInt32 inItemID) const override;
  UInt32 GetItemKindByIndex(UInt32 inItemIndex) const override;

  // There is no hardware whose value could be fetched.
  virtual void CacheCurrentItemID();

 protected:
  // Owns its name.
  class SelectorItem {
   public:
    // Takes over the caller's reference, which may be null.
    SelectorItem(CFStringRef inItemName, UInt32 inItemKind) noexcept
        : mItemName(inItemName), mItemKind(inItemKind) {}
    ~SelectorItem() {
      if (mItemName != nullptr) CFRelease(mItemName);
    }
    SelectorItem(const SelectorItem&) = delete;
    SelectorItem& operator=(const SelectorItem&) = delete;

    CFStringRef CopyItemName() const {
      return mItemName != nullptr ? static_cast<CFStringRef>(CFRetain(mItemName)) : nullptr;
    }
    UInt32 GetItemKind() const noexcept { return mItemKind; }

   private:
    CFStringRef mItemName;
    UInt32 mItemKind;
  };
  using SelectorMap = std::map<UInt32, SelectorItem>;

  SelectorMap mSelectorMap;

 private:
  SelectorMap::const_iterator FindItem(UInt32 inItemID) const;

  AudioObjectPropertyScope mPropertyScope;
  AudioObjectPropertyElement mPropertyElement;
  UInt32 mCurrentItemID;
};
