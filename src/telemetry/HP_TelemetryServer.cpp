#include "telemetry/HP_TelemetryServer.h"

#include <CoreAudio/AudioHardware.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/CACFDictionary.h"
#include "support/CACFMessagePort.h"
#include "support/CAException.h"

namespace {

constexpr const char* kQueueName = "com.apple.audio.HP_TelemetryServer";
constexpr const char* kVariable = "CoreAudio_HAL_Enable_Telemetry";
constexpr const char* kMarkerFile = "/var/db/.com.apple.audio.telemetryenabled";

CFStringRef PropertyIDKey() {
  return CFSTR("property id");
}
CFStringRef PropertyValueKey() {
  return CFSTR("property value");
}
CFStringRef ReturnErrorKey() {
  return CFSTR("return error");
}

dispatch_queue_t CreateQueue() {
  dispatch_queue_t theQueue = dispatch_queue_create(kQueueName, nullptr);
  if (theQueue == nullptr) throw CAException(kAudioHardwareIllegalOperationError);
  return theQueue;
}

// Who runs a set-user-ID program may not say what it does.
bool IsAllowed() {
  if (issetugid() == 0 && getenv(kVariable) != nullptr) return true;
  struct stat theStatus;
  return stat(kMarkerFile, &theStatus) == 0;
}

// The dictionary of a message; null for anything else.
CFDictionaryRef CreateMessage(CFDataRef inData) {
  if (inData == nullptr) return nullptr;
  CFPropertyListRef theMessage = CFPropertyListCreateFromXMLData(kCFAllocatorDefault, inData,
                                                                 kCFPropertyListImmutable, nullptr);
  if (theMessage == nullptr) return nullptr;
  if (CFGetTypeID(theMessage) == CFDictionaryGetTypeID()) {
    return static_cast<CFDictionaryRef>(theMessage);
  }
  CFRelease(theMessage);
  return nullptr;
}

UInt32 GetPropertyID(const CACFDictionary& inMessage) {
  UInt32 thePropertyID = 0;
  if (!inMessage.GetUInt32(PropertyIDKey(), thePropertyID)) {
    throw CAException(kAudioHardwareIllegalOperationError);
  }
  return thePropertyID;
}

// Every error of the request is answered in its reply.
template <class Request>
CFDataRef AnswerRequest(Request inRequest) {
  CACFDictionary theReply(true);
  OSStatus theError = kAudioHardwareNoError;
  try {
    inRequest(theReply);
  } catch (const CAException& theException) {
    theError = theException.GetError();
  } catch (...) {
    theError = kAudioHardwareUnspecifiedError;
  }
  theReply.AddUInt32(ReturnErrorKey(), static_cast<UInt32>(theError));
  return CFPropertyListCreateXMLData(kCFAllocatorDefault, theReply.GetCFDictionary());
}

}  // namespace

HP_TelemetryServer::HP_TelemetryServer()
    : mPortName(nullptr),
      mMessagePort(nullptr),
      mMessageQueue(CreateQueue()),
      mIsEnabled(IsAllowed()),
      mIsCapturing(false) {}

HP_TelemetryServer::~HP_TelemetryServer() {
  HP_TelemetryServer::Teardown();
  dispatch_release(mMessageQueue);
}

void HP_TelemetryServer::Initialize(CFStringRef inPortName) {
  mPortName = inPortName;
  if (!mIsEnabled) return;
  mMessagePort = new CACFLocalMessagePort(mPortName, MessageHandlerEntry, nullptr, this);
  if (mMessagePort->IsValid()) {
    mMessagePort->SetDispatchQueue(mMessageQueue);
  } else {
    delete mMessagePort;
    mMessagePort = nullptr;
  }
}

void HP_TelemetryServer::Teardown() {
  if (mMessagePort == nullptr) return;
  // No handler begins after this, and the queue's turn comes after the one that may still run.
  mMessagePort->SetDispatchQueue(nullptr);
  dispatch_sync_f(mMessageQueue, nullptr, [](void*) {});
  delete mMessagePort;
  mMessagePort = nullptr;
}

CFDataRef HP_TelemetryServer::MessageHandlerEntry(CFMessagePortRef inPort, SInt32 inMessageID,
                                                  CFDataRef inData, void* inServer) {
  try {
    auto* theServer = static_cast<HP_TelemetryServer*>(inServer);
    if (theServer == nullptr || theServer->mMessagePort == nullptr) return nullptr;
    if (!CFEqual(inPort, theServer->mMessagePort->GetMessagePortRef())) {
      throw CAException(kAudioHardwareIllegalOperationError);
    }
    const CACFDictionary theMessage(CreateMessage(inData), true);
    return theServer->HandleMessage(static_cast<UInt32>(inMessageID), theMessage);
  } catch (...) {
    // The tool sees that there is no answer.
    return nullptr;
  }
}

CFDataRef HP_TelemetryServer::HandleMessage(UInt32 inMessageID, const CACFDictionary& inMessage) {
  switch (inMessageID) {
    case kMessageGetTelemetry:
      return GetTelemetry();
    case kMessageClearTelemetry:
      return ClearTelemetry();
    case kMessageGetTelemetryProperty:
      return GetTelemetryProperty(inMessage);
    case kMessageSetTelemetryProperty:
      return SetTelemetryProperty(inMessage);
    default:
      throw CAException(kAudioHardwareIllegalOperationError);
  }
}

CFDataRef HP_TelemetryServer::GetTelemetryProperty(const CACFDictionary& inMessage) {
  return AnswerRequest([&](CACFDictionary& outReply) {
    switch (GetPropertyID(inMessage)) {
      case kPropertyIsCapturing:
        outReply.AddUInt32(PropertyValueKey(), IsCapturing() ? 1 : 0);
        break;
      case kPropertyEndianness:
        outReply.AddUInt32(PropertyValueKey(), 0);
        break;
      default:
        throw CAException(kAudioHardwareUnknownPropertyError);
    }
  });
}

CFDataRef HP_TelemetryServer::SetTelemetryProperty(const CACFDictionary& inMessage) {
  return AnswerRequest([&](CACFDictionary&) {
    if (GetPropertyID(inMessage) != kPropertyIsCapturing) {
      throw CAException(kAudioHardwareUnknownPropertyError);
    }
    UInt32 theValue = 0;
    if (!inMessage.GetUInt32(PropertyValueKey(), theValue)) return;
    if (theValue != 0 && !IsCapturing() && mIsEnabled) {
      StartCapturing();
      SetIsCapturing(true);
    } else if (theValue == 0 && IsCapturing()) {
      StopCapturing();
      SetIsCapturing(false);
    }
  });
}

CFDataRef HP_TelemetryServer::GetTelemetry() {
  return nullptr;
}

CFDataRef HP_TelemetryServer::ClearTelemetry() {
  return nullptr;
}

void HP_TelemetryServer::StartCapturing() {}

void HP_TelemetryServer::StopCapturing() {}
