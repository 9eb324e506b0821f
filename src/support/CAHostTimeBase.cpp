#include "support/CAHostTimeBase.h"

#include <mach/mach_time.h>

pthread_once_t CAHostTimeBase::sIsInited = PTHREAD_ONCE_INIT;
UInt32 CAHostTimeBase::sToNanosNumerator = 1;
UInt32 CAHostTimeBase::sToNanosDenominator = 1;
Float64 CAHostTimeBase::sFrequency = 1000000000.0;

void CAHostTimeBase::Initialize() {
  pthread_once(&sIsInited, InitializeOnce);
}

void CAHostTimeBase::InitializeOnce() {
  mach_timebase_info_data_t theInfo = {};
  mach_timebase_info(&theInfo);
  if (theInfo.numer == 0 || theInfo.denom == 0) return;
  sToNanosNumerator = theInfo.numer;
  sToNanosDenominator = theInfo.denom;
  sFrequency = 1000000000.0 * theInfo.denom / theInfo.numer;
}

UInt64 CAHostTimeBase::GetTheCurrentTime() {
  return mach_absolute_time();
}

UInt64 CAHostTimeBase::GetCurrentTimeInNanos() {
  return ConvertToNanos(GetTheCurrentTime());
}

UInt64 CAHostTimeBase::ConvertToNanos(UInt64 inHostTime) {
  Initialize();
  return MultiplyByRatio(inHostTime, sToNanosNumerator, sToNanosDenominator);
}

UInt64 CAHostTimeBase::ConvertFromNanos(UInt64 inNanos) {
  Initialize();
  return MultiplyByRatio(inNanos, sToNanosDenominator, sToNanosNumerator);
}

Float64 CAHostTimeBase::GetFrequency() {
  Initialize();
  return sFrequency;
}

UInt64 CAHostTimeBase::MultiplyByRatio(UInt64 inValue, UInt32 inNumerator, UInt32 inDenominator) {
  if (inDenominator == 0) return 0;
  if (inNumerator == inDenominator) return inValue;
  return static_cast<UInt64>(static_cast<unsigned __int128>(inValue) * inNumerator / inDenominator);
}
