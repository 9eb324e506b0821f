#include <dispatch/dispatch.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

TEST(DispatchQueue, KeepsACopyOfItsLabel) {
  char label[] = "com.example.queue";
  dispatch_queue_t queue = dispatch_queue_create(label, DISPATCH_QUEUE_SERIAL);
  label[0] = 'X';
  EXPECT_STREQ(dispatch_queue_get_label(queue), "com.example.queue");
  dispatch_release(queue);
}

TEST(DispatchQueue, WithoutALabelHasAnEmptyOne) {
  dispatch_queue_t queue = dispatch_queue_create(nullptr, nullptr);
  EXPECT_STREQ(dispatch_queue_get_label(queue), "");
  dispatch_release(queue);
}

TEST(DispatchQueue, TheCurrentLabelIsThatOfTheRunningWork) {
  dispatch_queue_t outer = dispatch_queue_create("outer", nullptr);
  dispatch_queue_t inner = dispatch_queue_create("inner", nullptr);
  std::vector<std::string> labels;
  auto* out = &labels;
  dispatch_sync(outer, ^{
    out->push_back(dispatch_queue_get_label(nullptr));
    dispatch_sync(inner, ^{
      out->push_back(dispatch_queue_get_label(nullptr));
    });
    out->push_back(dispatch_queue_get_label(nullptr));
  });
  labels.push_back(dispatch_queue_get_label(nullptr));
  EXPECT_EQ(labels, (std::vector<std::string>{"outer", "inner", "outer", ""}));
  dispatch_release(outer);
  dispatch_release(inner);
}

TEST(DispatchQueue, SyncRunsOnTheCallingThreadAndIsDoneWhenItReturns) {
  dispatch_queue_t queue = dispatch_queue_create("sync", nullptr);
  __block pthread_t ran{};
  dispatch_sync(queue, ^{
    ran = pthread_self();
  });
  EXPECT_TRUE(pthread_equal(ran, pthread_self()));
  dispatch_release(queue);
}

TEST(DispatchQueue, AsyncWorkRunsInOrderOnOneThreadThatTakesNoSignals) {
  dispatch_queue_t queue = dispatch_queue_create("order", nullptr);
  struct State {
    std::vector<int> order;
    std::vector<pthread_t> threads;
    char name[16] = {};
    sigset_t blocked;
  } state;
  State* out = &state;
  for (int i = 0; i < 1000; ++i) {
    dispatch_async(queue, ^{
      out->order.push_back(i);
      out->threads.push_back(pthread_self());
      prctl(PR_GET_NAME, out->name);
      pthread_sigmask(SIG_SETMASK, nullptr, &out->blocked);
    });
  }
  // Synchronous work waits for what was submitted before it.
  __block size_t seen = 0;
  dispatch_sync(queue, ^{
    seen = out->order.size();
  });
  ASSERT_EQ(seen, 1000u);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(state.order[static_cast<size_t>(i)], i);
  for (pthread_t thread : state.threads) ASSERT_TRUE(pthread_equal(thread, state.threads[0]));
  EXPECT_FALSE(pthread_equal(state.threads[0], pthread_self()));
  EXPECT_STREQ(state.name, "tembra.queue");
  EXPECT_EQ(sigismember(&state.blocked, SIGTERM), 1);
  EXPECT_EQ(sigismember(&state.blocked, SIGUSR1), 1);
  dispatch_release(queue);
}

TEST(DispatchQueue, NeverRunsTwoPiecesAtOnce) {
  dispatch_queue_t queue = dispatch_queue_create("exclusive", nullptr);
  struct State {
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    int plain = 0;  // a data race if two pieces overlap
  } state;
  auto work = [](void* inState) {
    auto* s = static_cast<State*>(inState);
    if (s->inside.fetch_add(1) != 0) ++s->overlaps;
    ++s->plain;
    s->inside.fetch_sub(1);
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        if (i % 3) {
          dispatch_sync_f(queue, &state, work);
        } else {
          dispatch_async_f(queue, &state, work);
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  dispatch_sync_f(queue, nullptr, [](void*) {});
  EXPECT_EQ(state.overlaps, 0);
  EXPECT_EQ(state.plain, 8000);
  dispatch_release(queue);
}

TEST(DispatchQueue, LivesUntilItsWorkIsDone) {
  std::atomic<int> ran{0};
  auto* out = &ran;
  for (int round = 0; round < 50; ++round) {
    dispatch_queue_t queue = dispatch_queue_create("short", nullptr);
    for (int i = 0; i < 10; ++i) {
      dispatch_async(queue, ^{
        if (out->fetch_add(1) + 1 == 500) out->notify_all();
      });
    }
    dispatch_release(queue);
  }
  for (int now = ran; now != 500; now = ran) ran.wait(now);
  EXPECT_EQ(ran, 500);
}

TEST(DispatchQueue, MayBeReleasedByItsOwnWork) {
  dispatch_queue_t queue = dispatch_queue_create("self", nullptr);
  __block bool ran = false;
  dispatch_sync(queue, ^{
    dispatch_release(queue);
    ran = true;
  });
  EXPECT_TRUE(ran);

  queue = dispatch_queue_create("self", nullptr);
  std::atomic<int> done{0};
  auto* out = &done;
  dispatch_async(queue, ^{
    dispatch_release(queue);
    out->store(1);
    out->notify_all();
  });
  done.wait(0);
}

TEST(DispatchQueue, RetainKeepsIt) {
  dispatch_queue_t queue = dispatch_queue_create("kept", nullptr);
  dispatch_retain(queue);
  dispatch_release(queue);
  EXPECT_STREQ(dispatch_queue_get_label(queue), "kept");
  dispatch_release(queue);
}

TEST(DispatchQueue, AsyncCopiesItsBlock) {
  dispatch_queue_t queue = dispatch_queue_create("copy", nullptr);
  std::string text = "kept";
  __block std::string seen;
  {
    std::string local = text;
    dispatch_async(queue, ^{
      seen = local;
    });
    local = "changed";
  }
  dispatch_sync(queue, ^{
                });
  EXPECT_EQ(seen, "kept");
  dispatch_release(queue);
}

TEST(DispatchQueue, HoldsAContext) {
  dispatch_queue_t queue = dispatch_queue_create("context", nullptr);
  int value = 0;
  EXPECT_EQ(dispatch_get_context(queue), nullptr);
  dispatch_set_context(queue, &value);
  EXPECT_EQ(dispatch_get_context(queue), &value);
  dispatch_release(queue);
}

TEST(DispatchQueueDeathTest, SyncFromItsOwnWorkEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        dispatch_queue_t queue = dispatch_queue_create("loop", nullptr);
        dispatch_sync(queue, ^{
          dispatch_sync(queue, ^{
                        });
        });
      },
      "already owned by this thread");
}

// A child that goes on without exec has no worker thread of its parent.
TEST(DispatchQueue, WorksInAForkedChild) {
  dispatch_queue_t queue = dispatch_queue_create("forked", nullptr);
  dispatch_async(queue, ^{
                 });
  dispatch_sync(queue, ^{
                });
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    __block int ran = 0;
    dispatch_sync(queue, ^{
      ran = 1;
    });
    _exit(ran == 1 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  dispatch_release(queue);
}

}  // namespace
