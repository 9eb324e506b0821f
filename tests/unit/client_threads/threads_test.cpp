// The connection under all its threads at once: one sends as the I/O thread does, one has the
// server's events, one the timers. Made for ThreadSanitizer, and for the checks of the fake server:
// nothing is sent on a port that was closed.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>

#include "client/TMBAudioServer.h"
#include "support/CAReaderBracket.h"
#include "support/client/ClientDevice.h"
#include "support/client/FakeHAL.h"
#include "support/client/FakeServer.h"

namespace tembra::test {
namespace {

void PostEvent(TMBACLN_Device& inDevice, int inEvent) {
  const int pid = getpid();
  CFNumberRef event = CFNumberCreate(nullptr, kCFNumberIntType, &inEvent);
  CFNumberRef client = CFNumberCreate(nullptr, kCFNumberIntType, &pid);
  const void* keys[] = {CFSTR("Event"), CFSTR("ClnPID")};
  const void* values[] = {event, client};
  CFDictionaryRef info = CFDictionaryCreate(
      nullptr, keys, values, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  CFStringRef object = CFTmbSndCopyListenerID();
  TMBACLN_Device::__tmbAudioNotificationCallBack(nullptr, &inDevice, kTMBAudioServerNotification,
                                                 object, info);
  CFRelease(object);
  CFRelease(info);
  CFRelease(client);
  CFRelease(event);
}

TEST(ClientThreads, PortsCloseUnderTheSender) {
  FakeServer& server = FakeServer::Get();
  server.Reset();
  FakeHAL::Get().Reset();
  server.mKeepsLog = false;
  server.mHasListener = server.mHasDataPort = true;
  auto device = std::make_unique<ClientDevice>();
  (*device)->StartHardware();

  std::atomic<bool> ends{false};
  std::atomic<unsigned long> sent{0};
  std::atomic<unsigned long> dropped{0};
  std::thread sender([&] {
    float samples[16] = {1, 2, 3, 4};
    AudioBufferList list{.mNumberBuffers = 1, .mBuffers = {{2, sizeof(samples), samples}}};
    while (!ends) {
      if ((*device)->SendAudioDataToPort(AudioTimeStamp{}, list)) {
        ++sent;
      } else {
        ++dropped;
      }
    }
  });
  std::thread timers([&] {
    while (!ends) {
      server.FireNextTimer();
      std::this_thread::yield();
    }
  });
  std::mt19937 random(1);
  const int events[] = {'cadd', 'cadd', 'cdel', 'fnsh', 'strt', 'cchk'};
  for (int step = 0; step < 20000 || sent < 100 || dropped < 100; ++step) {
    PostEvent(**device, events[random() % 6]);
    if (random() % 50 == 0) {
      (*device)->StopHardware();
      (*device)->StartHardware();
    }
    if (step % 16 == 0) std::this_thread::yield();
  }
  ends = true;
  sender.join();
  timers.join();
  (*device)->StopHardware();
  EXPECT_GE(sent, 100u);
  EXPECT_GE(dropped, 100u);
  device.reset();
  server.Reset();
}

TEST(ClientThreads, CallbacksMeetDevicesThatComeAndGo) {
  FakeServer& server = FakeServer::Get();
  server.Reset();
  FakeHAL::Get().Reset();
  server.mKeepsLog = false;
  server.mHasListener = server.mHasDataPort = true;
  std::atomic<TMBACLN_Device*> latest{nullptr};
  std::atomic<bool> ends{false};
  // Callbacks with pointers of devices that may have gone long ago.
  std::thread late([&] {
    const int events[] = {'cadd', 'strt', 'fnsh', 'cchk', 'cdel'};
    unsigned int step = 0;
    while (!ends) {
      if (TMBACLN_Device* device = latest) PostEvent(*device, events[++step % 5]);
      std::this_thread::yield();
    }
  });
  for (int round = 0; round < 200; ++round) {
    ClientDevice device;
    latest = &*device;
    device->StartHardware();
    std::this_thread::yield();
    device->StopHardware();
  }
  ends = true;
  late.join();
  server.Reset();
}

TEST(ReaderBracket, CountsInAndOut) {
  CAReaderBracket bracket;
  EXPECT_FALSE(bracket.HasReader());
  bracket.WaitForReader();
  {
    CAReaderBracket::Reader reader(bracket);
    EXPECT_TRUE(bracket.HasReader());
  }
  EXPECT_FALSE(bracket.HasReader());
}

TEST(ReaderBracket, NothingIsFreedUnderAReader) {
  struct Object {
    std::atomic<bool> mIsAlive{true};
  };
  constexpr int kObjects = 20000;
  CAReaderBracket bracket;
  std::atomic<Object*> shared{new Object};
  std::atomic<bool> ends{false};
  std::atomic<bool> sawDead{false};
  std::thread reader([&] {
    while (!ends) {
      CAReaderBracket::Reader inside(bracket);
      Object* object = shared.load();
      if (object != nullptr && !object->mIsAlive) sawDead = true;
    }
  });
  for (int i = 0; i < kObjects; ++i) {
    Object* old = shared.exchange(new Object);
    bracket.WaitForReader();
    old->mIsAlive = false;
    delete old;
  }
  ends = true;
  reader.join();
  delete shared.load();
  EXPECT_FALSE(sawDead);
}

}  // namespace
}  // namespace tembra::test
