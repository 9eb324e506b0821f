// The installation where the platform hands its calls over itself.

#include <CoreAudio/AudioHardwareInterposition.h>

#include "runtime/TMBACLNO.h"

OSStatus tmbclno_override_aogpd() {
  if (tmbclno_aogpd_entry != nullptr) return 0;
  const OSStatus error =
      AudioObjectInterposeGetPropertyData(&tmbclno_aogpd_proxy, &tmbclno_aogpd_entry);
  if (error != 0) tmbclno_aogpd_entry = nullptr;
  return error;
}

OSStatus tmbclno_override_aospd() {
  if (tmbclno_aospd_entry != nullptr) return 0;
  const OSStatus error =
      AudioObjectInterposeSetPropertyData(&tmbclno_aospd_proxy, &tmbclno_aospd_entry);
  if (error != 0) tmbclno_aospd_entry = nullptr;
  return error;
}
