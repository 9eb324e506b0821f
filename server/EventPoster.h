#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

namespace tembra {

// Posts the server's events to the clients of its user, in order, from a queue of its own: a post
// may wait for a stopped client, and receiving must not.
//
// Thread: any. Ownership: its queue. Failure: an event that finds no receiver is lost.
class EventPoster {
 public:
  EventPoster();
  // Waits for the events posted so far.
  ~EventPoster();
  EventPoster(const EventPoster&) = delete;
  EventPoster& operator=(const EventPoster&) = delete;

  // To every client.
  void Post(int inEvent);
  // About one client.
  void PostAbout(int inEvent, SInt32 inClientPID);
  // Returns when the events posted so far are out.
  void Drain();

 private:
  void PostDictionary(int inEvent, const SInt32* inClientPID);

  CFStringRef mListenerID;
  dispatch_queue_t mQueue;
};

}  // namespace tembra
