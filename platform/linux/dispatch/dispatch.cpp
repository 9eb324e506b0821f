#include <Block.h>
#include <dispatch/dispatch.h>
#include <stdlib.h>

#include <exception>
#include <new>

#include "dispatch/Queue.h"

using tembra::Queue;

namespace {

Queue* AsQueue(dispatch_object_t inObject) {
  return static_cast<Queue*>(static_cast<dispatch_queue_t>(inObject));
}

void RunBlock(void* inBlock) {
  reinterpret_cast<dispatch_block_t>(inBlock)();
}

void RunAndReleaseBlock(void* inBlock) {
  RunBlock(inBlock);
  Block_release(reinterpret_cast<dispatch_block_t>(inBlock));
}

}  // namespace

dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t) {
  try {
    return new Queue(label);
  } catch (const std::exception&) {
    return nullptr;
  }
}

const char* dispatch_queue_get_label(dispatch_queue_t queue) {
  Queue* found = queue ? AsQueue(queue) : Queue::Current();
  return found ? found->Label() : "";
}

void dispatch_retain(dispatch_object_t object) {
  AsQueue(object)->Retain();
}

void dispatch_release(dispatch_object_t object) {
  AsQueue(object)->Release();
}

void dispatch_set_context(dispatch_object_t object, void* context) {
  AsQueue(object)->mContext.store(context, std::memory_order_release);
}

void* dispatch_get_context(dispatch_object_t object) {
  return AsQueue(object)->mContext.load(std::memory_order_acquire);
}

void dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
  AsQueue(queue)->Sync(work, context);
}

void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
  AsQueue(queue)->Async(work, context);
}

void dispatch_sync(dispatch_queue_t queue, void (^block)(void)) {
  dispatch_sync_f(queue, reinterpret_cast<void*>(block), RunBlock);
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
  dispatch_async_f(queue, reinterpret_cast<void*>(Block_copy(block)), RunAndReleaseBlock);
}
