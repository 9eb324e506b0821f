#include <CoreFoundation/CFStream.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "corefoundation/File.h"
#include "corefoundation/URL.h"

using namespace tembra::cf;

namespace {

// What reading and writing streams share: a file, open or not, and what happened to it.
struct FileStream : Object {
  explicit FileStream(std::string inPath) : mPath(std::move(inPath)) {}

  bool Open(int inFlags) {
    if (mStatus != kCFStreamStatusNotOpen) return false;
    mFile = FileDescriptor(open(mPath.c_str(), inFlags | O_CLOEXEC | O_NOCTTY, 0666));
    if (!mFile.IsOpen()) {
      Fail(errno);
      return false;
    }
    mStatus = kCFStreamStatusOpen;
    return true;
  }
  void Close() {
    if (mStatus == kCFStreamStatusNotOpen) return;
    mFile.Close();
    mStatus = kCFStreamStatusClosed;
  }
  void Fail(int inError) {
    mError = inError;
    mStatus = kCFStreamStatusError;
  }
  CFErrorRef CopyError() const {
    return mError ? CFErrorCreate(nullptr, kCFErrorDomainPOSIX, mError, nullptr) : nullptr;
  }
  CFStreamError GetError() const { return {mError ? kCFStreamErrorDomainPOSIX : 0, mError}; }

  const std::string mPath;
  FileDescriptor mFile;
  CFStreamStatus mStatus = kCFStreamStatusNotOpen;
  int mError = 0;
};

}  // namespace

struct __CFReadStream : FileStream {
  using FileStream::FileStream;
  CFTypeID GetTypeID() const override { return kTypeReadStream; }
};

struct __CFWriteStream : FileStream {
  using FileStream::FileStream;
  CFTypeID GetTypeID() const override { return kTypeWriteStream; }
};

CFTypeID CFReadStreamGetTypeID() {
  return kTypeReadStream;
}
CFTypeID CFWriteStreamGetTypeID() {
  return kTypeWriteStream;
}

CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef inAllocator, CFURLRef inURL) {
  if (!inURL) return nullptr;
  return Guarded([&] { return Create<__CFReadStream>(inAllocator, PathOf(inURL)); });
}

CFWriteStreamRef CFWriteStreamCreateWithFile(CFAllocatorRef inAllocator, CFURLRef inURL) {
  if (!inURL) return nullptr;
  return Guarded([&] { return Create<__CFWriteStream>(inAllocator, PathOf(inURL)); });
}

CFStreamStatus CFReadStreamGetStatus(CFReadStreamRef inStream) {
  return inStream->mStatus;
}
CFStreamStatus CFWriteStreamGetStatus(CFWriteStreamRef inStream) {
  return inStream->mStatus;
}
CFErrorRef CFReadStreamCopyError(CFReadStreamRef inStream) {
  return inStream->CopyError();
}
CFErrorRef CFWriteStreamCopyError(CFWriteStreamRef inStream) {
  return inStream->CopyError();
}
CFStreamError CFReadStreamGetError(CFReadStreamRef inStream) {
  return inStream->GetError();
}
CFStreamError CFWriteStreamGetError(CFWriteStreamRef inStream) {
  return inStream->GetError();
}

Boolean CFReadStreamOpen(CFReadStreamRef inStream) {
  return inStream->Open(O_RDONLY);
}

Boolean CFWriteStreamOpen(CFWriteStreamRef inStream) {
  return inStream->Open(O_WRONLY | O_CREAT | O_TRUNC);
}

void CFReadStreamClose(CFReadStreamRef inStream) {
  inStream->Close();
}
void CFWriteStreamClose(CFWriteStreamRef inStream) {
  inStream->Close();
}

Boolean CFReadStreamHasBytesAvailable(CFReadStreamRef inStream) {
  return inStream->mStatus == kCFStreamStatusOpen;
}

CFIndex CFReadStreamRead(CFReadStreamRef inStream, UInt8* outBytes, CFIndex inSize) {
  if (inStream->mStatus == kCFStreamStatusAtEnd) return 0;
  if (inStream->mStatus != kCFStreamStatusOpen || inSize < 0) return -1;
  if (inSize == 0) return 0;
  ssize_t count;
  do {
    count = read(inStream->mFile.Get(), outBytes, static_cast<size_t>(inSize));
  } while (count < 0 && errno == EINTR);
  if (count < 0) inStream->Fail(errno);
  if (count == 0) inStream->mStatus = kCFStreamStatusAtEnd;
  return count;
}

Boolean CFWriteStreamCanAcceptBytes(CFWriteStreamRef inStream) {
  return inStream->mStatus == kCFStreamStatusOpen;
}

CFIndex CFWriteStreamWrite(CFWriteStreamRef inStream, const UInt8* inBytes, CFIndex inSize) {
  if (inStream->mStatus != kCFStreamStatusOpen || inSize < 0) return -1;
  if (int error = WriteAll(inStream->mFile.Get(), inBytes, static_cast<size_t>(inSize))) {
    inStream->Fail(error);
    return -1;
  }
  return inSize;
}

CFTypeRef CFReadStreamCopyProperty(CFReadStreamRef, CFStreamPropertyKey) {
  return nullptr;
}
CFTypeRef CFWriteStreamCopyProperty(CFWriteStreamRef, CFStreamPropertyKey) {
  return nullptr;
}
Boolean CFReadStreamSetProperty(CFReadStreamRef, CFStreamPropertyKey, CFTypeRef) {
  return false;
}
Boolean CFWriteStreamSetProperty(CFWriteStreamRef, CFStreamPropertyKey, CFTypeRef) {
  return false;
}
