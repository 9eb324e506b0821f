#include <Block.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <thread>

#include "HALTest.h"

namespace {

using tembra::test::WaitUntil;
using testing::ElementsAre;
using testing::IsEmpty;

std::string Text(UInt32 inCode) {
  return {static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
          static_cast<char>(inCode >> 8), static_cast<char>(inCode)};
}

// What a listener heard, and a way to wait for it.
class Heard {
 public:
  void Add(const std::string& inText) {
    const std::lock_guard lock(mMutex);
    mTexts.push_back(inText);
    mChanged.notify_all();
  }
  // Waits for so many at least; what there is after 20 seconds.
  std::vector<std::string> Take(size_t inCount) {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, std::chrono::seconds(20), [&] { return mTexts.size() >= inCount; });
    return std::exchange(mTexts, {});
  }
  size_t Count() {
    const std::lock_guard lock(mMutex);
    return mTexts.size();
  }

 private:
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<std::string> mTexts;
};

OSStatus HearObject(AudioObjectID, UInt32 inCount, const AudioObjectPropertyAddress* inAddresses,
                    void* inHeard) {
  std::string text;
  for (UInt32 i = 0; i < inCount; ++i) {
    text += (i ? "+" : "") + Text(inAddresses[i].mSelector) + "/" + Text(inAddresses[i].mScope) +
            "/" + std::to_string(inAddresses[i].mElement);
  }
  static_cast<Heard*>(inHeard)->Add(text);
  return 0;
}

class Listeners : public HALTest {
 protected:
  Listeners() : mDevice(Device()) { mFake->TakeLog(); }

  OSStatus Add(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress, Heard& inHeard) {
    return AudioObjectAddPropertyListener(inID, &inAddress, HearObject, &inHeard);
  }
  OSStatus Remove(AudioObjectID inID, const AudioObjectPropertyAddress& inAddress, Heard& inHeard) {
    return AudioObjectRemovePropertyListener(inID, &inAddress, HearObject, &inHeard);
  }
  void Post(std::vector<AudioObjectPropertyAddress> inAddresses) {
    EXPECT_EQ(
        AudioObjectPropertiesChanged(mFake->self, mDevice, static_cast<UInt32>(inAddresses.size()),
                                     inAddresses.data()),
        0);
  }
  // Returns when all that was posted before has been delivered on the host's thread, and what the
  // host posted there in consequence.
  void Drain() {
    const AudioObjectPropertyAddress address = Address('last');
    for (int round = 0; round < 2; ++round) {
      Heard last;
      ASSERT_EQ(Add(mDevice, address, last), 0);
      Post({address});
      EXPECT_EQ(last.Take(1).size(), 1U);
      ASSERT_EQ(Remove(mDevice, address, last), 0);
    }
  }

  const AudioObjectID mDevice;
};

TEST_F(Listeners, HearWhatTheyListenForAndNothingElse) {
  Heard heard;
  const auto address = Address('fsiz', 'outp', 2);
  ASSERT_EQ(Add(mDevice, address, heard), 0);
  Post({Address('fsiz', 'outp', 1)});
  Post({Address('fsiz', 'glob', 2)});
  Post({Address('nsrt', 'outp', 2)});
  Post({Address('nsrt'), Address('fsiz', 'outp', 2), Address('goin')});
  EXPECT_THAT(heard.Take(1), ElementsAre("fsiz/outp/2"));
  ASSERT_EQ(Remove(mDevice, address, heard), 0);
}

TEST_F(Listeners, WildcardsMatchOnEitherSide) {
  Heard all, selector, exact;
  ASSERT_EQ(Add(mDevice, Address('****', '****', 0xFFFFFFFF), all), 0);
  ASSERT_EQ(Add(mDevice, Address('fsiz', '****', 0xFFFFFFFF), selector), 0);
  ASSERT_EQ(Add(mDevice, Address('volm', 'outp', 1), exact), 0);
  Post({Address('fsiz', 'inpt', 3), Address('volm', 'outp', 0xFFFFFFFF)});
  EXPECT_THAT(all.Take(1), ElementsAre("fsiz/inpt/3+volm/outp/4294967295"));
  EXPECT_THAT(selector.Take(1), ElementsAre("fsiz/inpt/3"));
  EXPECT_THAT(exact.Take(1), ElementsAre("volm/outp/4294967295"));
  Remove(mDevice, Address('****', '****', 0xFFFFFFFF), all);
  Remove(mDevice, Address('fsiz', '****', 0xFFFFFFFF), selector);
  Remove(mDevice, Address('volm', 'outp', 1), exact);
}

TEST_F(Listeners, AreCalledOnTheHostsThreadWithSignalsBlocked) {
  struct Seen {
    std::atomic<bool> isDone{false};
    pthread_t thread;
    char name[16];
    bool isBlocked = true;
  } seen;
  const auto look = [](AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void* inSeen) {
    auto& out = *static_cast<Seen*>(inSeen);
    out.thread = pthread_self();
    pthread_getname_np(out.thread, out.name, sizeof out.name);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1, SIGCHLD, SIGALRM, SIGPIPE}) {
      out.isBlocked &= sigismember(&blocked, signal) == 1;
    }
    out.isDone = true;
    return OSStatus{0};
  };
  const auto address = Address('fsiz');
  ASSERT_EQ(AudioObjectAddPropertyListener(mDevice, &address, look, &seen), 0);
  Post({address});
  ASSERT_TRUE(WaitUntil([&] { return seen.isDone.load(); }));
  EXPECT_FALSE(pthread_equal(seen.thread, pthread_self()));
  EXPECT_STREQ(seen.name, "mbra.hal.notify");
  EXPECT_TRUE(seen.isBlocked);
  AudioObjectRemovePropertyListener(mDevice, &address, look, &seen);
}

TEST_F(Listeners, NoneIsLostAndEachThreadsOrderStays) {
  constexpr int kThreads = 4;
  constexpr UInt32 kPosts = 5000;
  Heard heard;
  const auto any = Address('****', '****', 0xFFFFFFFF);
  ASSERT_EQ(Add(mDevice, any, heard), 0);
  std::vector<std::thread> posters;
  for (int i = 0; i < kThreads; ++i) {
    posters.emplace_back([&, i] {
      for (UInt32 n = 0; n < kPosts; ++n) {
        Post({Address('abc0' + static_cast<UInt32>(i), 'glob', n)});
      }
    });
  }
  for (std::thread& poster : posters) {
    poster.join();
  }
  Drain();
  const std::vector<std::string> texts = heard.Take(kThreads * kPosts);
  std::map<std::string, UInt32> next;
  for (const std::string& text : texts) {
    if (text.substr(0, 4) == "last") {
      continue;
    }
    ASSERT_EQ(text, text.substr(0, 4) + "/glob/" + std::to_string(next[text.substr(0, 4)]++));
  }
  for (const auto& [selector, count] : next) {
    EXPECT_EQ(count, kPosts) << selector;
  }
  EXPECT_EQ(next.size(), static_cast<size_t>(kThreads));
  ASSERT_EQ(Remove(mDevice, any, heard), 0);
}

TEST_F(Listeners, NoneIsCalledAfterItsRemovalReturned) {
  const auto address = Address('fsiz');
  std::atomic<bool> goOn{true};
  std::thread poster([&] {
    while (goOn) {
      Post({address});
    }
  });
  std::atomic<int> late{0};
  for (int i = 0; i < 300; ++i) {
    struct Target {
      std::atomic<bool> isRemoved{false};
      std::atomic<int> calls{0};
      std::atomic<int>* late;
    } target;
    target.late = &late;
    const auto listen = [](AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void* data) {
      auto& seen = *static_cast<Target*>(data);
      ++seen.calls;
      sched_yield();
      *seen.late += seen.isRemoved;
      return OSStatus{0};
    };
    ASSERT_EQ(AudioObjectAddPropertyListener(mDevice, &address, listen, &target), 0);
    ASSERT_TRUE(WaitUntil([&] { return target.calls > 0; }));
    ASSERT_EQ(AudioObjectRemovePropertyListener(mDevice, &address, listen, &target), 0);
    target.isRemoved = true;
  }
  goOn = false;
  poster.join();
  Drain();
  EXPECT_EQ(late, 0);
}

TEST_F(Listeners, MayRemoveThemselvesFromWithin) {
  struct Target {
    AudioObjectID device;
    std::atomic<int> calls{0};
    std::atomic<OSStatus> status{-1};
  } target{mDevice};
  static const auto sAddress = Address('fsiz');
  struct Self {
    static OSStatus Listen(AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void* data) {
      auto& self = *static_cast<Target*>(data);
      ++self.calls;
      self.status = AudioObjectRemovePropertyListener(self.device, &sAddress, Listen, data);
      return 0;
    }
  };
  ASSERT_EQ(AudioObjectAddPropertyListener(mDevice, &sAddress, Self::Listen, &target), 0);
  for (int i = 0; i < 5; ++i) {
    Post({sAddress});
  }
  Drain();
  EXPECT_EQ(target.calls, 1);
  EXPECT_EQ(target.status, 0);
}

TEST_F(Listeners, MayCallTheHALAndRemoveOthers) {
  Heard other;
  struct Target {
    AudioObjectID device;
    Heard* other;
    std::atomic<UInt32> frames{0};
  } target{mDevice, &other};
  static const auto sAddress = Address('fsiz');
  const auto listen = [](AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void* data) {
    auto& self = *static_cast<Target*>(data);
    AudioObjectRemovePropertyListener(self.device, &sAddress, HearObject, self.other);
    UInt32 frames = 0;
    UInt32 size = sizeof frames;
    AudioObjectGetPropertyData(self.device, &sAddress, 0, nullptr, &size, &frames);
    self.frames = frames;
    return OSStatus{0};
  };
  ASSERT_EQ(AudioObjectAddPropertyListener(mDevice, &sAddress, listen, &target), 0);
  ASSERT_EQ(Add(mDevice, sAddress, other), 0);
  Set(mDevice, 'fsiz', 64);
  ASSERT_TRUE(WaitUntil([&] { return target.frames == 64; }));
  Drain();
  EXPECT_EQ(other.Count(), 0U) << "removed by the one before it, in the same delivery";
  AudioObjectRemovePropertyListener(mDevice, &sAddress, listen, &target);
}

TEST_F(Listeners, ARepeatedOneIsOne) {
  Heard heard;
  const auto address = Address('fsiz');
  EXPECT_EQ(Add(mDevice, address, heard), 0);
  EXPECT_EQ(Add(mDevice, address, heard), 0);
  Post({address});
  Drain();
  EXPECT_EQ(heard.Take(1).size(), 1U);
  EXPECT_EQ(Remove(mDevice, address, heard), 0);
  Post({address});
  Drain();
  EXPECT_EQ(heard.Count(), 0U);
  EXPECT_EQ(Remove(mDevice, address, heard), 0) << "nothing to remove is no error";
}

TEST_F(Listeners, ObjectsMustExist) {
  Heard heard;
  const auto address = Address('fsiz');
  EXPECT_EQ(Add(45454, address, heard), OSStatus{kAudioHardwareBadObjectError});
  EXPECT_EQ(Remove(45454, address, heard), OSStatus{kAudioHardwareBadObjectError});
  const auto device = [](AudioDeviceID, UInt32, Boolean, AudioDevicePropertyID, void*) {
    return OSStatus{0};
  };
  const auto stream = [](AudioStreamID, UInt32, AudioDevicePropertyID, void*) {
    return OSStatus{0};
  };
  EXPECT_EQ(AudioDeviceAddPropertyListener(45454, 0, false, 'fsiz', device, nullptr),
            OSStatus{kAudioHardwareBadDeviceError});
  EXPECT_EQ(AudioStreamAddPropertyListener(45454, 0, 'sfmt', stream, nullptr),
            OSStatus{kAudioHardwareBadStreamError});
}

TEST_F(Listeners, BlocksWithoutAQueueAreCalledOnTheHostsThread) {
  auto heard = std::make_shared<Heard>();
  const auto address = Address('fsiz');
  const pthread_t self = pthread_self();
  const AudioObjectPropertyListenerBlock block =
      ^(UInt32 count, const AudioObjectPropertyAddress* addresses) {
        heard->Add(std::to_string(count) + Text(addresses[0].mSelector) +
                   (pthread_equal(self, pthread_self()) ? " here" : " elsewhere"));
      };
  ASSERT_EQ(AudioObjectAddPropertyListenerBlock(mDevice, &address, nullptr, block), 0);
  Post({address});
  EXPECT_THAT(heard->Take(1), ElementsAre("1fsiz elsewhere"));
  ASSERT_EQ(AudioObjectRemovePropertyListenerBlock(mDevice, &address, nullptr, block), 0);
  Post({address});
  Drain();
  EXPECT_EQ(heard->Count(), 0U);
}

TEST_F(Listeners, BlocksAreCalledOnTheirQueueInOrder) {
  Heard heard;
  Heard* const out = &heard;
  const auto any = Address('fsiz', 'glob', 0xFFFFFFFF);
  const dispatch_queue_t queue = dispatch_queue_create("listening", DISPATCH_QUEUE_SERIAL);
  const AudioObjectPropertyListenerBlock block =
      Block_copy(^(UInt32, const AudioObjectPropertyAddress* addresses) {
        out->Add(std::to_string(addresses[0].mElement) + " " + dispatch_queue_get_label(nullptr));
      });
  ASSERT_EQ(AudioObjectAddPropertyListenerBlock(mDevice, &any, queue, block), 0);
  std::vector<std::string> expected;
  for (UInt32 i = 0; i < 500; ++i) {
    Post({Address('fsiz', 'glob', i)});
    expected.push_back(std::to_string(i) + " listening");
  }
  EXPECT_EQ(heard.Take(500), expected);
  ASSERT_EQ(AudioObjectRemovePropertyListenerBlock(mDevice, &any, queue, block), 0);
  Block_release(block);
  dispatch_release(queue);
}

TEST_F(Listeners, WhatWaitsInAQueueIsNotCalledAfterTheRemoval) {
  Heard heard;
  Heard* const out = &heard;
  const auto address = Address('fsiz');
  const dispatch_queue_t queue = dispatch_queue_create("held up", DISPATCH_QUEUE_SERIAL);
  const AudioObjectPropertyListenerBlock block = ^(UInt32, const AudioObjectPropertyAddress*) {
    out->Add("called");
  };
  std::mutex held;
  held.lock();
  std::mutex* const hold = &held;
  dispatch_async(queue, ^{
    const std::lock_guard lock(*hold);
  });
  ASSERT_EQ(AudioObjectAddPropertyListenerBlock(mDevice, &address, queue, block), 0);
  Post({address});
  Drain();
  ASSERT_EQ(AudioObjectRemovePropertyListenerBlock(mDevice, &address, queue, block), 0);
  held.unlock();
  dispatch_sync(queue, ^{
                });
  EXPECT_EQ(heard.Count(), 0U);
  dispatch_release(queue);
}

TEST_F(Listeners, OlderFormsHearOneChangeAtATime) {
  Heard heard;
  const auto hardware = [](AudioHardwarePropertyID inID, void* inHeard) {
    static_cast<Heard*>(inHeard)->Add("system " + Text(inID));
    return OSStatus{0};
  };
  const auto device = [](AudioDeviceID, UInt32 inChannel, Boolean inIsInput,
                         AudioDevicePropertyID inID, void* inHeard) {
    static_cast<Heard*>(inHeard)->Add("device " + std::to_string(inChannel) +
                                      (inIsInput ? " in " : " out ") + Text(inID));
    return OSStatus{0};
  };
  const auto stream = [](AudioStreamID, UInt32 inChannel, AudioDevicePropertyID inID,
                         void* inHeard) {
    static_cast<Heard*>(inHeard)->Add("stream " + std::to_string(inChannel) + " " + Text(inID));
    return OSStatus{0};
  };
  ASSERT_EQ(AudioHardwareAddPropertyListener('stmo', hardware, &heard), 0);
  ASSERT_EQ(AudioDeviceAddPropertyListener(mDevice, 2, true, 'volm', device, &heard), 0);
  ASSERT_EQ(AudioDeviceAddPropertyListener(mDevice, 0, false, 'fsiz', device, &heard), 0);
  ASSERT_EQ(AudioStreamAddPropertyListener(mDevice, 0, 'sfmt', stream, &heard), 0);
  Post({Address('volm', 'inpt', 2), Address('volm', 'inpt', 2), Address('volm', 'outp', 2)});
  Post({Address('fsiz', 'outp', 0)});
  Post({Address('sfmt')});
  EXPECT_THAT(heard.Take(4), ElementsAre("device 2 in volm", "device 2 in volm",
                                         "device 0 out fsiz", "stream 0 sfmt"));
  Set(kSystem, 'stmo', 1);
  EXPECT_THAT(heard.Take(1), ElementsAre("system stmo"));
  EXPECT_EQ(AudioHardwareRemovePropertyListener('stmo', hardware), 0);
  EXPECT_EQ(AudioDeviceRemovePropertyListener(mDevice, 2, true, 'volm', device), 0);
  EXPECT_EQ(AudioDeviceRemovePropertyListener(mDevice, 0, false, 'fsiz', device), 0);
  EXPECT_EQ(AudioStreamRemovePropertyListener(mDevice, 0, 'sfmt', stream), 0);
  Set(kSystem, 'stmo', 0);
  Post({Address('volm', 'inpt', 2), Address('fsiz', 'outp'), Address('sfmt')});
  Drain();
  EXPECT_EQ(heard.Count(), 0U);
}

TEST_F(Listeners, ThePlugInIsToldOfTheFirstAndTheLastForAnAddress) {
  Heard one, two;
  const auto address = Address('fsiz', 'outp', 1);
  ASSERT_EQ(Add(mDevice, address, one), 0);
  EXPECT_THAT(mFake->TakeLog(), ElementsAre("lisa fsiz outp 1"));
  ASSERT_EQ(Add(mDevice, address, two), 0);
  EXPECT_THAT(mFake->TakeLog(), IsEmpty());
  ASSERT_EQ(Add(mDevice, Address('nsrt'), one), 0);
  EXPECT_THAT(mFake->TakeLog(), ElementsAre("lisa nsrt glob 0"));
  ASSERT_EQ(Remove(mDevice, address, one), 0);
  EXPECT_THAT(mFake->TakeLog(), IsEmpty());
  ASSERT_EQ(Remove(mDevice, address, two), 0);
  EXPECT_THAT(mFake->TakeLog(), ElementsAre("lisr fsiz outp 1"));
  ASSERT_EQ(Remove(mDevice, Address('nsrt'), one), 0);
  EXPECT_THAT(mFake->TakeLog(), ElementsAre("lisr nsrt glob 0"));
  ASSERT_EQ(Add(kSystem, Address('dev#'), one), 0);
  ASSERT_EQ(Remove(kSystem, Address('dev#'), one), 0);
  EXPECT_THAT(mFake->TakeLog(), IsEmpty()) << "the system object is none of the plug-in's";
}

TEST_F(Listeners, ManyThreadsLeaveThePlugInRightlyTold) {
  const auto address = Address('fsiz');
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      Heard heard;
      for (int n = 0; n < 200; ++n) {
        Add(mDevice, address, heard);
        Remove(mDevice, address, heard);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::vector<std::string> log = mFake->TakeLog();
  ASSERT_FALSE(log.empty());
  for (size_t i = 0; i < log.size(); ++i) {
    ASSERT_EQ(log[i], i % 2 == 0 ? "lisa fsiz glob 0" : "lisr fsiz glob 0");
  }
  EXPECT_EQ(log.size() % 2, 0U) << "the last word is that nobody listens";
}

TEST_F(Listeners, HearOfADeathBeforeTheyGo) {
  Drain();
  Heard heard;
  const auto address = Address('livn');
  ASSERT_EQ(Add(mDevice, address, heard), 0);
  Heard system;
  ASSERT_EQ(Add(kSystem, Address('dev#'), system), 0);
  Post({address});
  ASSERT_EQ(AudioObjectsPublishedAndDied(mFake->self, kSystem, 0, nullptr, 1, &mDevice), 0);
  mFake->SetDevices({});
  EXPECT_THAT(heard.Take(1), ElementsAre("livn/glob/0"));
  EXPECT_THAT(system.Take(1), ElementsAre("dev#/glob/0"));
  EXPECT_TRUE(WaitUntil([&] {
    return Remove(mDevice, address, heard) == OSStatus{kAudioHardwareBadObjectError};
  })) << "the registration goes with its object";
  Remove(kSystem, Address('dev#'), system);
}

TEST_F(Listeners, OfADeviceHearOfItsControls) {
  Drain();
  Heard heard;
  const auto any = Address('****', '****', 0xFFFFFFFF);
  ASSERT_EQ(Add(mDevice, any, heard), 0);
  AudioObjectID stream = 0;
  ASSERT_EQ(AudioObjectCreate(mFake->self, mDevice, 'astr', &stream), 0);
  ASSERT_EQ(AudioObjectsPublishedAndDied(mFake->self, mDevice, 1, &stream, 0, nullptr), 0);
  EXPECT_THAT(heard.Take(1), ElementsAre("ownd/glob/0"));
  AudioObjectID mute = 0;
  ASSERT_EQ(AudioObjectCreate(mFake->self, mDevice, 'mute', &mute), 0);
  ASSERT_EQ(AudioObjectsPublishedAndDied(mFake->self, mDevice, 1, &mute, 0, nullptr), 0);
  EXPECT_THAT(heard.Take(2), ElementsAre("ownd/glob/0", "ctrl/glob/0"));
  ASSERT_EQ(AudioObjectsPublishedAndDied(mFake->self, mDevice, 0, nullptr, 1, &mute), 0);
  EXPECT_THAT(heard.Take(2), ElementsAre("ownd/glob/0", "ctrl/glob/0"));
  ASSERT_EQ(Remove(mDevice, any, heard), 0);
}

TEST_F(Listeners, OfTheSystemObjectHearOfDevicesAndDefaults) {
  Heard heard;
  const auto any = Address('****', '****', 0xFFFFFFFF);
  ASSERT_EQ(Add(kSystem, any, heard), 0);
  Drain();
  heard.Take(0);
  AudioObjectID next = 0;
  ASSERT_EQ(AudioObjectCreate(mFake->self, kSystem, 'adev', &next), 0);
  mFake->SetDevices({mDevice, next});
  ASSERT_EQ(AudioObjectsPublishedAndDied(mFake->self, kSystem, 1, &next, 0, nullptr), 0);
  EXPECT_THAT(heard.Take(2), ElementsAre("ownd/glob/0", "dev#/glob/0"));
  Set(kSystem, 'dOut', next);
  EXPECT_THAT(heard.Take(1), ElementsAre("dOut/glob/0"));
  Set(kSystem, 'dOut', next);
  Set(kSystem, 'pmut', 1);
  Drain();
  EXPECT_EQ(heard.Count(), 0U) << "what does not change is not told";
  ASSERT_EQ(Remove(kSystem, any, heard), 0);
}

TEST_F(Listeners, OfTheSystemObjectOutliveAnUnload) {
  Heard heard;
  Drain();
  ASSERT_EQ(Add(kSystem, Address('dOut'), heard), 0);
  Drain();
  heard.Take(0);
  EXPECT_EQ(AudioHardwareUnload(), 0);
  EXPECT_EQ(heard.Take(1).size(), 1U) << "gone";
  EXPECT_EQ(Devices().size(), 1U);
  EXPECT_EQ(heard.Take(1).size(), 1U) << "and there again";
  ASSERT_EQ(Remove(kSystem, Address('dOut'), heard), 0);
}

}  // namespace
