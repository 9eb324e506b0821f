// The device's controls: a volume, a mute and a data source for the whole of each direction and for
// each of its channels. They are values that clients share; none of them acts on the audio.

#include <iterator>
#include <memory>
#include <vector>

#include "client/TMBACLN_Device.h"
#include "client/TMBACLN_PlugIn.h"
#include "controls/TMBACLN_BooleanControl.h"
#include "controls/TMBACLN_LevelControl.h"
#include "controls/TMBACLN_SelectorControl.h"
#include "objects/HP_SelectorIndex.h"
#include "support/CAException.h"

namespace {

constexpr AudioObjectPropertySelector kControlRelatedSelectors[] = {
    'bbd#', 'bbvd', 'bbvs', 'bd2v', 'bv2d', 'cnlv', 'csc#', 'csck', 'cscn', 'csrc',
    'db2v', 'isub', 'jack', 'lcnl', 'lcsn', 'lscn', 'mdd#', 'mddc', 'mddn', 'mdds',
    'msp#', 'mspn', 'mute', 'mv2d', 'mv2s', 'mvd#', 'mvdb', 'mvsc', 'nlv#', 'nlvl',
    'ownd', 'sd2v', 'smut', 'solo', 'span', 'spn#', 'ssc#', 'sscn', 'ssrc', 'sv2d',
    'svd#', 'svld', 'svlm', 'thrs', 'thru', 'v2db', 'vdb#', 'vold', 'volm',
};
static_assert(std::size(kControlRelatedSelectors) == 49);
constexpr HP_SelectorIndex kControlRelatedIndex(kControlRelatedSelectors,
                                                [](AudioObjectPropertySelector inSelector) {
                                                  return inSelector;
                                                });

}  // namespace

bool TMBACLN_Device::IsControlRelatedProperty(unsigned int inSelector) {
  return kControlRelatedIndex.Find(inSelector) != HP_SelectorIndex::kNone;
}

// Not made again after a failure: what there is then is all there is.
void TMBACLN_Device::CreateControls() {
  if (mControlsCreated) return;
  mControlsCreated = true;

  std::vector<AudioObjectID> ids;
  for (const bool isInput : {true, false}) {
    const AudioObjectPropertyScope scope =
        isInput ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput;
    const UInt32 numberChannels = GetTotalNumberChannels(isInput);
    for (UInt32 element = 0; element <= numberChannels; ++element) {
      CreateControl<TMBACLN_LevelControl>(kAudioVolumeControlClassID, scope, element, ids);
      CreateControl<TMBACLN_BooleanControl>(kAudioMuteControlClassID, scope, element, ids);
      CreateControl<TMBACLN_SelectorControl>(kAudioDataSourceControlClassID, scope, element, ids);
    }
  }
  PublishObjects(ids);
}

template <class Control>
void TMBACLN_Device::CreateControl(AudioClassID inClassID, AudioObjectPropertyScope inScope,
                                   AudioObjectPropertyElement inElement,
                                   std::vector<AudioObjectID>& ioIDs) {
  AudioObjectID id = kAudioObjectUnknown;
  if (AudioObjectCreate(mPlugIn->GetInterface(), GetObjectID(), inClassID, &id) != 0) return;
  auto control = std::make_unique<Control>(id, inClassID, inScope, inElement, mPlugIn, this);
  control->Initialize();
  AddControl(control.get());
  static_cast<void>(control.release());
  ioIDs.push_back(id);
}

void TMBACLN_Device::ReleaseControls() {
  if (!mControlsCreated) return;
  mControlsCreated = false;
  for (UInt32 index = 0; index < GetNumberControls(); ++index) {
    HP_Control* control = GetControlByIndex(index);
    HP_Object::SetObjectStateMutexForID(control->GetObjectID(), nullptr);
    control->Teardown();
    delete control;
  }
  RemoveAllControls();
}

void TMBACLN_Device::CreateControlsFor(AudioObjectPropertySelector inSelector) const {
  // A question makes them, whatever it is asked of.
  if (IsControlRelatedProperty(inSelector)) const_cast<TMBACLN_Device*>(this)->CreateControls();
}

void TMBACLN_Device::PropertyListenerAdded(const AudioObjectPropertyAddress& inAddress) {
  HP_Device::PropertyListenerAdded(inAddress);
  if (inAddress.mSelector == kAudioObjectPropertySelectorWildcard) CreateControls();
  CreateControlsFor(inAddress.mSelector);
}
