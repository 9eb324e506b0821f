#pragma once

#include <CoreAudio/AudioHardware.h>
#include <CoreAudio/AudioHardwarePlugIn.h>
#include <CoreAudio/CoreAudioTypes.h>
#include <CoreAudio/HostTime.h>
