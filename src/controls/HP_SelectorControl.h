#pragma once

#include "controls/HP_Control.h"

// A control that chooses one of several items, such as a data source.
//
// Purpose: answers which item is current, which there are, and, by an item's ID in the qualifier,
//   its name and, for a clock source, its kind.
// Thread, ownership: as HP_Control. The caller owns the names that it gets.
// Units and range: an item has an ID of the control's choosing and an index from 0.
// Failure: as HP_Control; a qualifier of another size than an ID's is '!siz' too. The list of items
//   fills what room there is.
class HP_SelectorControl : public HP_Control {
 public:
  HP_SelectorControl(AudioObjectID inObjectID, AudioClassID inClassID, HP_HardwarePlugIn* inPlugIn,
                     HP_Device* inOwningDevice);
  ~HP_SelectorControl() override;

  bool HasProperty(const AudioObjectPropertyAddress& inAddress) const override;
  bool IsPropertySettable(const AudioObjectPropertyAddress& inAddress) const override;
  UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& inAddress,
                             UInt32 inQualifierDataSize,
                             const void* inQualifierData) const override;
  void GetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32& ioDataSize,
                       void* outData) const override;
  void SetPropertyData(const AudioObjectPropertyAddress& inAddress, UInt32 inQualifierDataSize,
                       const void* inQualifierData, UInt32 inDataSize, const void* inData,
                       const AudioTimeStamp* inWhen) override;

  AudioClassID GetBaseClassID() const override;

  virtual UInt32 GetNumberItems() const = 0;
  virtual UInt32 GetCurrentItemID() const = 0;
  virtual UInt32 GetCurrentItemIndex() const = 0;
  virtual void SetCurrentItemByID(UInt32 inItemID) = 0;
  virtual void SetCurrentItemByIndex(UInt32 inItemIndex) = 0;
  virtual UInt32 GetItemIDForIndex(UInt32 inItemIndex) const = 0;
  virtual UInt32 GetItemIndexForID(UInt32 inItemID) const = 0;
  virtual CFStringRef CopyItemNameByID(UInt32 inItemID) const = 0;
  virtual CFStringRef CopyItemNameByIndex(UInt32 inItemIndex) const = 0;
  virtual CFStringRef CopyItemNameByIDWithoutLocalizing(UInt32 inItemID) const = 0;
  virtual CFStringRef CopyItemNameByIndexWithoutLocalizing(UInt32 inItemIndex) const = 0;
  virtual UInt32 GetItemKindByID(UInt32 inItemID) const = 0;
  virtual UInt32 GetItemKindByIndex(UInt32 inItemIndex) const = 0;
};
