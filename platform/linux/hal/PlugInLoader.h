#pragma once

#include <CoreAudio/AudioHardwarePlugIn.h>

#include <functional>
#include <string>
#include <vector>

namespace tembra::hal {

// Where plug-in bundles are looked for: the absolute ones of TEMBRA_HAL_PLUGIN_PATH (separated by
// colons) if that is set, even to nothing, and the process is not set-uid; else tembra/plug-ins
// beside this library, then below /usr/local/lib and /usr/lib.
std::vector<std::string> PlugInDirectories();

// The bundles (*.plugin) of these directories, by name within each. Of bundles of one name, the one
// in the earlier directory.
std::vector<std::string> FindBundles(const std::vector<std::string>& inDirectories);

struct LoadedInstance {
  AudioHardwarePlugInRef mInterface;  // with one reference, the caller's
  int mVersion;                       // the newest that the instance answers for
  std::string mBundleID;
};

// Makes an instance by each of the bundle's factories for audio hardware and hands it over. A
// bundle that cannot be loaded is told to the system log. Calls the plug-in: with no lock held.
void LoadBundle(const std::string& inPath, const std::function<void(LoadedInstance)>& inTake);

}  // namespace tembra::hal
