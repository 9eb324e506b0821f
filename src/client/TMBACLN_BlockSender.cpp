#include "client/TMBACLN_BlockSender.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "client/Snd.h"
#include "client/TMBAudioServer.h"

namespace {

// More than a data object takes; one that should take more comes from the heap.
constexpr size_t kObjectSize = 512;
// A size that is no whole number of samples makes the last sample reach past its record.
constexpr size_t kSlack = 64;

}  // namespace

struct TMBACLN_BlockSender::Storage {
  explicit Storage(size_t inBlockSize) : mBlockSize(inBlockSize) {}

  // Set while an object stands in mObject, whose bytes are mBlock's.
  std::atomic<bool> mIsInUse{false};
  alignas(std::max_align_t) unsigned char mObject[kObjectSize];
  size_t mBlockSize;
  void* mBlock = nullptr;
};

TMBACLN_BlockSender::~TMBACLN_BlockSender() {
  Drop();
}

void TMBACLN_BlockSender::Drop() {
  // The storage goes with the allocator, when its last object has gone.
  if (mAllocator != nullptr) CFRelease(mAllocator);
  mAllocator = nullptr;
  mStorage = nullptr;
}

void TMBACLN_BlockSender::Reserve(UInt32 inFrameSize, const AudioStreamBasicDescription& inFormat) {
  // Either form of the format has room: all channels of a frame, and a record for each.
  const size_t frameBytes =
      static_cast<size_t>(inFormat.mBytesPerFrame) *
      ((inFormat.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0 ? inFormat.mChannelsPerFrame
                                                                       : 1);
  const size_t size = kSndBlockHeaderSize + inFormat.mChannelsPerFrame * kSndRecordHeaderSize +
                      inFrameSize * frameBytes + kSlack;
  if (mStorage != nullptr && mStorage->mBlockSize >= size && !mStorage->mIsInUse.load()) return;
  Drop();

  Storage* storage = new (std::nothrow) Storage(size);
  if (storage == nullptr) return;
  storage->mBlock = calloc(1, size);
  CFAllocatorContext context{};
  context.info = storage;
  context.release = ReleaseStorage;
  context.allocate = AllocateObject;
  context.deallocate = DeallocateObject;
  if (storage->mBlock != nullptr) mAllocator = CFAllocatorCreate(kCFAllocatorDefault, &context);
  if (mAllocator == nullptr) {
    ReleaseStorage(storage);
    return;
  }
  mStorage = storage;
}

size_t TMBACLN_BlockSender::GetReservedSize() const noexcept {
  return mStorage != nullptr ? mStorage->mBlockSize : 0;
}

void* TMBACLN_BlockSender::AllocateObject(CFIndex inSize, CFOptionFlags /*inHint*/, void* inInfo) {
  Storage* storage = static_cast<Storage*>(inInfo);
  if (inSize >= 0 && static_cast<size_t>(inSize) <= kObjectSize &&
      !storage->mIsInUse.exchange(true)) {
    return storage->mObject;
  }
  return malloc(static_cast<size_t>(inSize));
}

void TMBACLN_BlockSender::DeallocateObject(void* inObject, void* inInfo) {
  Storage* storage = static_cast<Storage*>(inInfo);
  if (inObject == storage->mObject) {
    storage->mIsInUse.store(false);
  } else {
    free(inObject);
  }
}

void TMBACLN_BlockSender::ReleaseStorage(const void* inInfo) {
  const Storage* storage = static_cast<const Storage*>(inInfo);
  free(storage->mBlock);
  delete storage;
}

CFDataRef TMBACLN_BlockSender::CreateData(const AudioTimeStamp& inTime,
                                          const AudioStreamBasicDescription& inFormat,
                                          const AudioBufferList& inList) {
  if (mStorage != nullptr && !mStorage->mIsInUse.load()) {
    const size_t size =
        SndSerializeABL(inTime, inFormat, inList, true, mStorage->mBlock, mStorage->mBlockSize);
    if (size != 0) {
      return CFDataCreateWithBytesNoCopy(mAllocator, static_cast<const UInt8*>(mStorage->mBlock),
                                         static_cast<CFIndex>(size), kCFAllocatorNull);
    }
  }
  return CFDataCreateWithABL(inTime, inFormat, inList, true);
}

bool TMBACLN_BlockSender::Send(CFMessagePortRef inPort, const AudioTimeStamp& inTime,
                               const AudioStreamBasicDescription& inFormat,
                               const AudioBufferList& inList) {
  CFDataRef data = CreateData(inTime, inFormat, inList);
  if (data == nullptr) return false;
  const SInt32 result =
      CFMessagePortSendRequest(inPort, kTMBAudioMessageDataID, data, 0.0, 0.0, nullptr, nullptr);
  CFRelease(data);
  return result == kCFMessagePortSuccess;
}
