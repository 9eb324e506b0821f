#include "support/persistence/FakeSettingsFile.h"

#include "persistence/HP_DeviceSettings_File.h"

namespace tembra::test {

FakeSettingsFile& FakeSettingsFile::Get() {
  static FakeSettingsFile& sFile = *new FakeSettingsFile;
  return sFile;
}

}  // namespace tembra::test

using tembra::test::FakeSettingsFile;

CFDataRef HP_DeviceSettings_File::CopyContent(const char* inPath, bool& outExists) {
  FakeSettingsFile& file = FakeSettingsFile::Get();
  ++file.mReads;
  file.mPath = inPath;
  outExists = file.mContent.has_value() && !file.mContent->empty();
  if (!outExists) return nullptr;
  return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(file.mContent->data()),
                      static_cast<CFIndex>(file.mContent->size()));
}

void HP_DeviceSettings_File::Replace(const char* inPath, CFDataRef inContent) {
  FakeSettingsFile& file = FakeSettingsFile::Get();
  if (file.mOnWrite) file.mOnWrite();
  ++file.mWrites;
  file.mPath = inPath;
  file.mContent.emplace(reinterpret_cast<const char*>(CFDataGetBytePtr(inContent)),
                        static_cast<size_t>(CFDataGetLength(inContent)));
}
