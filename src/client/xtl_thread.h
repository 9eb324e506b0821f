#pragma once

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace xtl {

inline void sleep(unsigned int inMillis) {
  usleep(inMillis * 1000);
}

// A lock, and its scope guard, which accepts a null lock.
class base_mutex_iface {
 public:
  virtual ~base_mutex_iface() = default;
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

template <typename T>
class mutex_impl : public base_mutex_iface {
 public:
  mutex_impl() { pthread_mutex_init(&_mutex, nullptr); }
  ~mutex_impl() override { pthread_mutex_destroy(&_mutex); }
  mutex_impl(const mutex_impl&) = delete;
  mutex_impl& operator=(const mutex_impl&) = delete;

  void lock() override { pthread_mutex_lock(&_mutex); }
  void unlock() override { pthread_mutex_unlock(&_mutex); }

 private:
  pthread_mutex_t _mutex;
};

template <typename T>
class locker_impl {
 public:
  explicit locker_impl(base_mutex_iface* inMutex) : _mutex(inMutex) {
    if (_mutex != nullptr) _mutex->lock();
  }
  ~locker_impl() {
    if (_mutex != nullptr) _mutex->unlock();
  }
  locker_impl(const locker_impl&) = delete;
  locker_impl& operator=(const locker_impl&) = delete;

 private:
  base_mutex_iface* _mutex;
};

// A detached thread that runs main().
//
// Purpose: the handle, the request to terminate, and the wait for the end.
// Thread: create() and destroy() are called by the owner; main() runs on the new thread. Its last
//   act is kill_handle(), destroy() or free_thread(), so that a waiting owner sees the end.
// Ownership: the owner's, until main() ends with free_thread().
// Units: milliseconds.
// Failure: create() answers false if no thread could be made.
template <typename T>
class thread_impl {
 public:
  static constexpr int kWaitDone = 258;
  static constexpr int kWaitRefused = -1;
  static constexpr size_t kStackSize = 0x100000;

  thread_impl() = default;
  virtual ~thread_impl() = default;
  thread_impl(const thread_impl&) = delete;
  thread_impl& operator=(const thread_impl&) = delete;

  bool create() {
    locker_impl<T> locker(&_section);
    if (_handle != pthread_t()) return true;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStackSize);
    // The process's signals are not this thread's business.
    sigset_t all;
    sigset_t former;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    pthread_t handle = pthread_t();
    const bool created = pthread_create(&handle, &attributes, thread_main_func, this) == 0;
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    pthread_attr_destroy(&attributes);
    if (created) _handle = handle;
    return created;
  }

  bool is_created() {
    locker_impl<T> locker(&_section);
    return _handle != pthread_t();
  }

  void kill_handle() {
    locker_impl<T> locker(&_section);
    _handle = pthread_t();
  }

  bool is_terminate_requested() const { return _terminate.load(); }

  // The result does not tell whether the thread ended or the time ran out.
  int wait_for(int inMillis) {
    if (_waiting.exchange(true)) return kWaitRefused;
    for (int left = inMillis; left > 0 && is_created(); left -= kPollMillis) sleep(kPollMillis);
    _waiting.store(false);
    return kWaitDone;
  }

  int terminate_and_wait(int inMillis) {
    _terminate.store(true);
    return wait_for(inMillis);
  }

  bool destroy() {
    if (_destroy_waits.load() && is_created() && !_waiting.load()) {
      terminate_and_wait(kDestroyMillis);
    }
    kill_handle();
    return true;
  }

 protected:
  virtual void main() = 0;
  // For a thread that owns itself: the last thing that its main() does.
  virtual void free_thread() { delete this; }

  void set_destroy_waits(bool inWaits) { _destroy_waits.store(inWaits); }

 private:
  static constexpr int kPollMillis = 25;
  static constexpr int kDestroyMillis = 60000;

  static void* thread_main_func(void* inThread) {
    thread_impl* thread = static_cast<thread_impl*>(inThread);
    {
      // Not before create() is done with the object, which main() may free.
      locker_impl<T> locker(&thread->_section);
    }
    thread->main();
    return nullptr;
  }

  mutex_impl<T> _section;
  pthread_t _handle = pthread_t();
  std::atomic<bool> _terminate{false};
  std::atomic<bool> _waiting{false};
  std::atomic<bool> _destroy_waits{true};
};

}  // namespace xtl
