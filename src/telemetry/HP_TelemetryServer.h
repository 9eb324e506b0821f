#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include <atomic>

class CACFDictionary;
class CACFLocalMessagePort;

// Purpose: answers the requests of a measuring tool on a message port of its own. What is measured
//   is the subclass's business.
// Thread: Initialize, Teardown and the destructor on the owner's thread, one after the other;
//   handlers on the server's serial queue, and none of them after Teardown has returned. The two
//   queries and SetIsCapturing on any thread, RT safe.
// Ownership: owns its port and queue. The port's name is borrowed and stays with its maker.
// Units and range: message and property IDs are four-character codes.
// Failure: the constructor throws CAException with 'nope' without a queue. A port that cannot be
//   made leaves telemetry out of reach and all else working. No error crosses the port: a request
//   that failed is answered with nothing, or with a dictionary that names the error.
class HP_TelemetryServer {
 public:
  enum : UInt32 {
    kMessageGetTelemetry = 'tele',
    kMessageClearTelemetry = 'clrt',
    kMessageGetTelemetryProperty = 'getp',
    kMessageSetTelemetryProperty = 'setp'
  };
  enum : UInt32 {
    kPropertyIsCapturing = 'capt',
    kPropertyEndianness = 'endi'  // read only
  };

  // Telemetry is allowed in a process with the environment variable
  // "CoreAudio_HAL_Enable_Telemetry", or where the marker file exists.
  HP_TelemetryServer();
  virtual ~HP_TelemetryServer();
  HP_TelemetryServer(const HP_TelemetryServer&) = delete;
  HP_TelemetryServer& operator=(const HP_TelemetryServer&) = delete;

  // Opens the port, if telemetry is allowed. The name must live as long as the server.
  virtual void Initialize(CFStringRef inPortName);
  virtual void Teardown();

  // The reply, which the caller releases; null for none. An unknown message throws 'nope'.
  virtual CFDataRef HandleMessage(UInt32 inMessageID, const CACFDictionary& inMessage);
  virtual CFDataRef GetTelemetryProperty(const CACFDictionary& inMessage);
  virtual CFDataRef SetTelemetryProperty(const CACFDictionary& inMessage);

  virtual CFDataRef GetTelemetry();
  virtual CFDataRef ClearTelemetry();
  virtual void StartCapturing();
  virtual void StopCapturing();

  bool IsEnabled() const { return mIsEnabled; }
  bool IsCapturing() const { return mIsCapturing.load(std::memory_order_relaxed); }
  void SetIsCapturing(bool inIsCapturing) {
    mIsCapturing.store(inIsCapturing, std::memory_order_relaxed);
  }
  CFStringRef GetPortName() const { return mPortName; }
  CACFLocalMessagePort* GetMessagePort() const { return mMessagePort; }

  static CFDataRef MessageHandlerEntry(CFMessagePortRef inPort, SInt32 inMessageID,
                                       CFDataRef inData, void* inServer);

 private:
  CFStringRef mPortName;
  CACFLocalMessagePort* mMessagePort;
  dispatch_queue_t mMessageQueue;
  const bool mIsEnabled;
  std::atomic<bool> mIsCapturing;
};
