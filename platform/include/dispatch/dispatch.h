#pragma once

// Serial dispatch queues.
//
// Thread: all operations may be called from any thread. Work of one queue runs one piece at a time
// in the order of submission: asynchronous work on the queue's own thread, synchronous work on the
// calling thread.
// Ownership: dispatch_queue_create hands out a reference; a queue lives until the last reference is
// gone and its work is done.
// Failure: dispatch_queue_create answers null when memory runs out. dispatch_sync from the queue's
// own work would wait for itself and ends the process.

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define DISPATCH_EXPORT extern "C" __attribute__((visibility("default")))
// Only pointers to these exist outside the library.
typedef struct dispatch_object_s {
 protected:
  dispatch_object_s() = default;
  ~dispatch_object_s() = default;
} * dispatch_object_t;
typedef struct dispatch_queue_s : dispatch_object_s{} * dispatch_queue_t;
#else
#define DISPATCH_EXPORT extern __attribute__((visibility("default")))
typedef void* dispatch_object_t;
typedef struct dispatch_queue_s* dispatch_queue_t;
#endif

typedef struct dispatch_queue_attr_s* dispatch_queue_attr_t;
typedef void (*dispatch_function_t)(void*);
#ifdef __BLOCKS__
typedef void (^dispatch_block_t)(void);
#endif

#define DISPATCH_QUEUE_SERIAL ((dispatch_queue_attr_t)0)

// label may be null; it is copied. Every queue is serial.
DISPATCH_EXPORT dispatch_queue_t dispatch_queue_create(const char* label,
                                                       dispatch_queue_attr_t attr);
// "" if there is none; a null queue stands for the one whose work the calling thread runs.
DISPATCH_EXPORT const char* dispatch_queue_get_label(dispatch_queue_t queue);
DISPATCH_EXPORT void dispatch_retain(dispatch_object_t object);
DISPATCH_EXPORT void dispatch_release(dispatch_object_t object);
DISPATCH_EXPORT void dispatch_set_context(dispatch_object_t object, void* context);
DISPATCH_EXPORT void* dispatch_get_context(dispatch_object_t object);
#ifdef __BLOCKS__
DISPATCH_EXPORT void dispatch_sync(dispatch_queue_t queue, void (^block)(void));
DISPATCH_EXPORT void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
#endif
DISPATCH_EXPORT void dispatch_sync_f(dispatch_queue_t queue, void* context,
                                     dispatch_function_t work);
DISPATCH_EXPORT void dispatch_async_f(dispatch_queue_t queue, void* context,
                                      dispatch_function_t work);
