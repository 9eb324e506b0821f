#include "support/persistence/FakeSettingsStorage.h"

#include <utility>

#include "persistence/CASettingsStorage.h"

namespace tembra::test {

FakeSettingsStorage& FakeSettingsStorage::Get() {
  static FakeSettingsStorage& sStorage = *new FakeSettingsStorage;
  return sStorage;
}

void FakeSettingsStorage::Reset() {
  mFile.clear();
  mInHand.clear();
  mCalls.clear();
  mMustRefresh = true;
}

void FakeSettingsStorage::PutElsewhere(const std::string& inKey, SInt32 inValue, bool inTimeMoves) {
  mFile[inKey] = inValue;
  if (inTimeMoves) mMustRefresh = true;
}

std::vector<std::string> FakeSettingsStorage::TakeCalls() {
  return std::exchange(mCalls, {});
}

namespace {

std::string SettingsKeyText(CFStringRef inKey) {
  char text[256] = "";
  CFStringGetCString(inKey, text, sizeof(text), kCFStringEncodingUTF8);
  return text;
}

// Notes the call and takes over the file as an access does.
FakeSettingsStorage& AccessSettings(const std::string& inCall) {
  FakeSettingsStorage& fake = FakeSettingsStorage::Get();
  fake.mCalls.push_back(inCall);
  if (std::exchange(fake.mMustRefresh, false)) fake.mInHand = fake.mFile;
  return fake;
}

}  // namespace
}  // namespace tembra::test

using tembra::test::AccessSettings;
using tembra::test::FakeSettingsStorage;
using tembra::test::SettingsKeyText;

CASettingsStorage::CASettingsStorage(const char* inSettingsFilePath, UInt16 inSettingsFileMode,
                                     CFPropertyListFormat inSettingsFileFormat,
                                     bool inIsSingleProcessOnly, bool inIsReadOnly) {
  FakeSettingsStorage& fake = FakeSettingsStorage::Get();
  fake.mPath = inSettingsFilePath;
  fake.mMode = inSettingsFileMode;
  fake.mFormat = inSettingsFileFormat;
  fake.mIsSingleProcess = inIsSingleProcessOnly;
  fake.mIsReadOnly = inIsReadOnly;
}

CASettingsStorage::~CASettingsStorage() = default;

void CASettingsStorage::CopySInt32Value(CFStringRef inKey, SInt32& outValue,
                                        SInt32 inDefaultValue) {
  std::lock_guard<std::mutex> locker(FakeSettingsStorage::Get().mMutex);
  const std::string key = SettingsKeyText(inKey);
  const FakeSettingsStorage& fake = AccessSettings("read " + key);
  const auto found = fake.mInHand.find(key);
  outValue = found != fake.mInHand.end() ? found->second : inDefaultValue;
}

void CASettingsStorage::SetSInt32Value(CFStringRef inKey, SInt32 inValue) {
  std::lock_guard<std::mutex> locker(FakeSettingsStorage::Get().mMutex);
  const std::string key = SettingsKeyText(inKey);
  FakeSettingsStorage& fake = AccessSettings("write " + key + " " + std::to_string(inValue));
  fake.mInHand[key] = inValue;
  fake.mFile = fake.mInHand;
}

void CASettingsStorage::RemoveValue(CFStringRef inKey) {
  std::lock_guard<std::mutex> locker(FakeSettingsStorage::Get().mMutex);
  const std::string key = SettingsKeyText(inKey);
  FakeSettingsStorage& fake = AccessSettings("remove " + key);
  fake.mInHand.erase(key);
  fake.mFile = fake.mInHand;
}

void CASettingsStorage::ForceRefresh() {
  std::lock_guard<std::mutex> locker(FakeSettingsStorage::Get().mMutex);
  FakeSettingsStorage::Get().mCalls.emplace_back("force");
  FakeSettingsStorage::Get().mMustRefresh = true;
}
