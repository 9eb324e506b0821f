// A device's controls: which control an address of the device means, and which properties of the
// device change with a control.

#include <algorithm>

#include "controls/HP_Control.h"
#include "device/HP_Device.h"
#include "objects/CAPropertyAddress.h"

namespace {

// A property of the device that one of its controls answers.
struct DeviceProperty {
  AudioObjectPropertySelector mSelector;
  AudioClassID mControlClassID;
  AudioObjectPropertySelector mControlSelector;
  // The control stands in the play through, whatever scope the address has.
  bool mIsPlayThrough = false;
};

constexpr DeviceProperty kDeviceProperties[] = {
    {'volm', 'vlme', 'lcsv'},
    {'vold', 'vlme', 'lcdv'},
    {'vdb#', 'vlme', 'lcdr'},
    {'v2db', 'vlme', 'lcsd'},
    {'db2v', 'vlme', 'lcds'},
    {'vctf', 'vlme', 'lctf'},

    {'mvsc', 'vlme', 'lcsv', true},
    {'mvdb', 'vlme', 'lcdv', true},
    {'mvd#', 'vlme', 'lcdr', true},
    {'mv2d', 'vlme', 'lcsd', true},
    {'mv2s', 'vlme', 'lcds', true},
    {'mvtf', 'vlme', 'lctf', true},

    {'svlm', 'subv', 'lcsv'},
    {'svld', 'subv', 'lcdv'},
    {'svd#', 'subv', 'lcdr'},
    {'sv2d', 'subv', 'lcsd'},
    {'sd2v', 'subv', 'lcds'},
    {'svtf', 'subv', 'lctf'},

    {'bbvs', 'pram', 'lcsv'},
    {'bbvd', 'pram', 'lcdv'},
    {'bbd#', 'pram', 'lcdr'},
    {'bv2d', 'pram', 'lcsd'},
    {'bd2v', 'pram', 'lcds'},
    {'bvtf', 'pram', 'lctf'},

    {'mute', 'mute', 'bcvl'},
    {'solo', 'solo', 'bcvl'},
    {'jack', 'jack', 'bcvl'},
    {'smut', 'subm', 'bcvl'},
    {'isub', 'atch', 'bcvl'},
    {'thru', 'mute', 'bcvl', true},
    {'thrs', 'solo', 'bcvl', true},

    {'span', 'span', 'spcv'},
    {'spn#', 'span', 'spcc'},
    {'mspn', 'span', 'spcv', true},
    {'msp#', 'span', 'spcc', true},

    {'ssrc', 'dsrc', 'scci'},
    {'ssc#', 'dsrc', 'scai'},
    {'sscn', 'dsrc', 'scin'},
    {'lscn', 'dsrc', 'scin'},

    {'mdds', 'dest', 'scci', true},
    {'mdd#', 'dest', 'scai', true},
    {'mddn', 'dest', 'scin', true},
    {'mddc', 'dest', 'scin', true},

    // An item's kind has always been asked of a clock source as if it were a switch.
    {'csrc', 'clck', 'scci'},
    {'csc#', 'clck', 'scai'},
    {'cscn', 'clck', 'scin'},
    {'lcsn', 'clck', 'scin'},
    {'csck', 'clck', 'bcvl'},

    {'nlvl', 'nlvl', 'scci'},
    {'nlv#', 'nlvl', 'scai'},
    {'cnlv', 'nlvl', 'scin'},
    {'lcnl', 'nlvl', 'scin'},
};

const DeviceProperty* FindDeviceProperty(AudioObjectPropertySelector inSelector) {
  const auto* theProperty =
      std::find_if(std::begin(kDeviceProperties), std::end(kDeviceProperties),
                   [&](const DeviceProperty& inEach) { return inEach.mSelector == inSelector; });
  return theProperty != std::end(kDeviceProperties) ? theProperty : nullptr;
}

// The selectors of the device's properties that change with a control; 0 where there is none.
struct ControlNotifications {
  AudioClassID mControlClassID;
  AudioObjectPropertySelector mPrimaryValue;
  AudioObjectPropertySelector mSecondaryValue;
  // Whether the secondary value is that of every such control, and in its own scope, or only that
  // of one in the play through.
  bool mSecondaryIsForAll;
  AudioObjectPropertySelector mPrimaryRange;
  // For a control in the play through alone.
  AudioObjectPropertySelector mThirdValue = 0;
  AudioObjectPropertySelector mFourthValue = 0;
  AudioObjectPropertySelector mSecondaryRange = 0;
};

constexpr ControlNotifications kControlNotifications[] = {
    {'vlme', 'volm', 'vold', true, 'vdb#', 'mvsc', 'mvdb', 'mvd#'},
    {'subv', 'svlm', 'svld', true, 'svd#'},
    {'pram', 'bbvs', 'bbvd', true, 'bbd#'},
    {'mute', 'mute', 'thru', false, 0},
    {'solo', 'solo', 'thrs', false, 0},
    {'span', 'span', 'mspn', false, 'spn#', 0, 0, 'msp#'},
    {'clck', 'csrc', 0, false, 'csc#'},
    {'dest', 'mdds', 0, false, 'mdd#'},
    {'dsrc', 'ssrc', 0, false, 'ssc#'},
    {'nlvl', 'nlvl', 0, false, 'nlv#'},
    {'jack', 'jack', 0, false, 0},
    {'atch', 'isub', 0, false, 0},
    {'subm', 'smut', 0, false, 0},
};

// One with nothing in it for a control of another class.
const ControlNotifications& GetNotifications(const HP_Control* inControl) {
  static constexpr ControlNotifications kNone = {0, 0, 0, false, 0};
  const auto* theNotifications =
      std::find_if(std::begin(kControlNotifications), std::end(kControlNotifications),
                   [&](const ControlNotifications& inEach) {
                     return inEach.mControlClassID == inControl->GetClassID();
                   });
  return theNotifications != std::end(kControlNotifications) ? *theNotifications : kNone;
}

bool IsInPlayThrough(const HP_Control* inControl) {
  return inControl->GetPropertyScope() == kAudioObjectPropertyScopePlayThrough;
}

AudioObjectPropertySelector IfPlayThrough(const HP_Control* inControl,
                                          AudioObjectPropertySelector inSelector) {
  return IsInPlayThrough(inControl) ? inSelector : 0;
}

// The device's play through properties stand in its input scope.
AudioObjectPropertyScope GetPlayThroughScope(const HP_Control* inControl,
                                             AudioObjectPropertySelector inSelector) {
  return inSelector != 0 && IsInPlayThrough(inControl) ? kAudioObjectPropertyScopeInput : 0;
}

// The control's own for a control of a class that is known.
AudioObjectPropertyScope GetOwnScope(const HP_Control* inControl) {
  return GetNotifications(inControl).mPrimaryValue != 0 ? inControl->GetPropertyScope() : 0;
}

}  // namespace

void HP_Device::AddControl(HP_Control* inControl) {
  mControls.push_back(inControl);
}

void HP_Device::RemoveControl(HP_Control* inControl) {
  mControls.erase(std::remove(mControls.begin(), mControls.end(), inControl), mControls.end());
}

void HP_Device::RemoveAllControls() {
  mControls.clear();
}

HP_Control* HP_Device::GetControlByIndex(UInt32 inIndex) const {
  return inIndex < mControls.size() ? mControls[inIndex] : nullptr;
}

void HP_Device::ClearControlMarks() {
  for (HP_Control* theControl : mControls) theControl->SetMark(false);
}

HP_Control* HP_Device::GetControlByAddress(const AudioObjectPropertyAddress& inAddress) const {
  AudioClassID theClassID = 0;
  AudioObjectPropertyScope theScope = 0;
  AudioObjectPropertyElement theElement = 0;
  ConvertDeviceAddressToControlAddress(inAddress, theClassID, theScope, theElement);
  for (HP_Control* theControl : mControls) {
    if (theControl->GetClassID() == theClassID && theControl->GetPropertyScope() == theScope &&
        theControl->GetPropertyElement() == theElement) {
      return theControl;
    }
  }
  return nullptr;
}

void HP_Device::ConvertDeviceAddressToControlAddress(
    const AudioObjectPropertyAddress& inAddress, AudioClassID& outControlClassID,
    AudioObjectPropertyScope& outControlScope,
    AudioObjectPropertyElement& outControlElement) const {
  outControlScope = inAddress.mScope;
  outControlElement = inAddress.mElement;
  const DeviceProperty* theProperty = FindDeviceProperty(inAddress.mSelector);
  if (theProperty == nullptr) return;
  outControlClassID = theProperty->mControlClassID;
  if (theProperty->mIsPlayThrough) outControlScope = kAudioObjectPropertyScopePlayThrough;
}

AudioObjectPropertySelector HP_Device::ConvertDeviceSelectorToControlSelector(
    AudioObjectPropertySelector inSelector) const {
  const DeviceProperty* theProperty = FindDeviceProperty(inSelector);
  return theProperty != nullptr ? theProperty->mControlSelector : 0;
}

// What changes with a control's value.

AudioObjectPropertySelector HP_Device::GetPrimaryValueChangedPropertySelectorForControl(
    const HP_Control* inControl) const {
  return GetNotifications(inControl).mPrimaryValue;
}

AudioObjectPropertyScope HP_Device::GetPrimaryValueChangedPropertyScopeForControl(
    const HP_Control* inControl) const {
  return GetOwnScope(inControl);
}

AudioObjectPropertySelector HP_Device::GetSecondaryValueChangedPropertySelectorForControl(
    const HP_Control* inControl) const {
  const ControlNotifications& theNotifications = GetNotifications(inControl);
  return theNotifications.mSecondaryIsForAll
             ? theNotifications.mSecondaryValue
             : IfPlayThrough(inControl, theNotifications.mSecondaryValue);
}

AudioObjectPropertyScope HP_Device::GetSecondaryValueChangedPropertyScopeForControl(
    const HP_Control* inControl) const {
  const ControlNotifications& theNotifications = GetNotifications(inControl);
  return theNotifications.mSecondaryIsForAll
             ? inControl->GetPropertyScope()
             : GetPlayThroughScope(inControl, theNotifications.mSecondaryValue);
}

AudioObjectPropertySelector HP_Device::GetThirdValueChangedPropertySelectorForControl(
    const HP_Control* inControl) const {
  return IfPlayThrough(inControl, GetNotifications(inControl).mThirdValue);
}

AudioObjectPropertyScope HP_Device::GetThirdValueChangedPropertyScopeForControl(
    const HP_Control* inControl) const {
  return GetPlayThroughScope(inControl, GetNotifications(inControl).mThirdValue);
}

AudioObjectPropertySelector HP_Device::GetFourthValueChangedPropertySelectorForControl(
    const HP_Control* inControl) const {
  return IfPlayThrough(inControl, GetNotifications(inControl).mFourthValue);
}

AudioObjectPropertyScope HP_Device::GetFourthValueChangedPropertyScopeForControl(
    const HP_Control* inControl) const {
  return GetPlayThroughScope(inControl, GetNotifications(inControl).mFourthValue);
}

// What changes with a control's range.

AudioObjectPropertySelector HP_Device::GetPrimaryRangeChangedPropertySelectorForControl(
    const HP_Control* inControl) const {
  return GetNotifications(inControl).mPrimaryRange;
}

AudioObjectPropertyScope HP_Device::GetPrimaryRangeChangedPropertyScopeForControl(
    const HP_Control* inControl) const {
  return GetOwnScope(inControl);
}

AudioObjectPropertySelector HP_Device::GetSecondaryRangeChangedPropertySelectorForControl(
    const HP_Control* inControl) const {
  return IfPlayThrough(inControl, GetNotifications(inControl).mSecondaryRange);
}

AudioObjectPropertyScope HP_Device::GetSecondaryRangeChangedPropertyScopeForControl(
    const HP_Control* inControl) const {
  return GetPlayThroughScope(inControl, GetNotifications(inControl).mSecondaryRange);
}
