#include <CoreAudio/HostTime.h>
#include <mach/mach_time.h>

namespace {

mach_timebase_info_data_t Timebase() {
  mach_timebase_info_data_t timebase{};
  mach_timebase_info(&timebase);
  return timebase;
}

UInt64 MultiplyByRatio(UInt64 inValue, UInt32 inNumerator, UInt32 inDenominator) {
  return inNumerator == inDenominator
             ? inValue
             : static_cast<UInt64>(static_cast<unsigned __int128>(inValue) * inNumerator /
                                   inDenominator);
}

}  // namespace

UInt64 AudioGetCurrentHostTime(void) {
  return mach_absolute_time();
}

Float64 AudioGetHostClockFrequency(void) {
  const mach_timebase_info_data_t timebase = Timebase();
  return 1000000000.0 * timebase.denom / timebase.numer;
}

UInt32 AudioGetHostClockMinimumTimeDelta(void) {
  return 1;
}

UInt64 AudioConvertHostTimeToNanos(UInt64 inHostTime) {
  const mach_timebase_info_data_t timebase = Timebase();
  return MultiplyByRatio(inHostTime, timebase.numer, timebase.denom);
}

UInt64 AudioConvertNanosToHostTime(UInt64 inNanos) {
  const mach_timebase_info_data_t timebase = Timebase();
  return MultiplyByRatio(inNanos, timebase.denom, timebase.numer);
}
