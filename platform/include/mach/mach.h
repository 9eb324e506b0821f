#pragma once

// Tasks, threads and virtual memory by their kernel-interface names. On Linux a thread's port is
// its kernel thread ID and the only task is this process.

#ifndef __linux__
#include_next <mach/mach.h>
#else

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef int kern_return_t;
typedef unsigned int natural_t;
typedef int integer_t;
typedef natural_t mach_port_name_t;
typedef mach_port_name_t mach_port_t;
typedef mach_port_t task_t;
typedef mach_port_t vm_map_t;
typedef mach_port_t thread_t;
typedef mach_port_t thread_act_t;
typedef mach_port_t thread_inspect_t;
typedef int boolean_t;
typedef natural_t mach_msg_type_number_t;

#define MACH_PORT_NULL 0
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#define KERN_SUCCESS 0
#define KERN_INVALID_ADDRESS 1
#define KERN_PROTECTION_FAILURE 2
#define KERN_NO_SPACE 3
#define KERN_INVALID_ARGUMENT 4
#define KERN_FAILURE 5
#define KERN_RESOURCE_SHORTAGE 6
#define KERN_NOT_SUPPORTED 46

extern mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_
// The calling thread.
mach_port_t mach_thread_self(void);

// Virtual memory. Sizes are rounded up to whole pages, addresses down.

typedef uintptr_t vm_offset_t;
typedef uintptr_t vm_address_t;
typedef uintptr_t vm_size_t;
typedef uint64_t mach_vm_address_t;
typedef uint64_t mach_vm_size_t;
typedef uint64_t memory_object_offset_t;
typedef int vm_prot_t;
typedef unsigned int vm_inherit_t;
typedef int vm_behavior_t;

#define VM_PROT_NONE ((vm_prot_t)0x00)
#define VM_PROT_READ ((vm_prot_t)0x01)
#define VM_PROT_WRITE ((vm_prot_t)0x02)
#define VM_PROT_EXECUTE ((vm_prot_t)0x04)
#define VM_PROT_COPY ((vm_prot_t)0x10)
#define VM_PROT_DEFAULT (VM_PROT_READ | VM_PROT_WRITE)
#define VM_PROT_ALL (VM_PROT_READ | VM_PROT_WRITE | VM_PROT_EXECUTE)

#define VM_FLAGS_FIXED 0x0000
#define VM_FLAGS_ANYWHERE 0x0001

#define VM_INHERIT_SHARE ((vm_inherit_t)0)
#define VM_INHERIT_COPY ((vm_inherit_t)1)

extern vm_size_t vm_page_size;

// Zero-filled memory, readable and writable. Without VM_FLAGS_ANYWHERE it lies at *address or
// nowhere: KERN_NO_SPACE if anything is mapped there, KERN_INVALID_ADDRESS where nothing may be, as
// in the first 64 KiB.
kern_return_t vm_allocate(vm_map_t target_task, vm_address_t* address, vm_size_t size, int flags);
kern_return_t vm_deallocate(vm_map_t target_task, vm_address_t address, vm_size_t size);

// With VM_PROT_COPY, what is shared becomes this process's own copy before it becomes writable;
// what is private is copied when it is written to in any case. Code that can run is never made
// writable without staying executable, since another thread may be inside it:
// KERN_PROTECTION_FAILURE. There is no maximum protection to set: KERN_NOT_SUPPORTED.
kern_return_t vm_protect(vm_map_t target_task, vm_address_t address, vm_size_t size,
                         boolean_t set_maximum, vm_prot_t new_protection);

typedef int vm_region_flavor_t;
typedef int* vm_region_info_t;
#define VM_REGION_BASIC_INFO_64 9

#pragma pack(push, 4)
struct vm_region_basic_info_64 {
  vm_prot_t protection;
  vm_prot_t max_protection;
  vm_inherit_t inheritance;
  boolean_t shared;
  boolean_t reserved;
  memory_object_offset_t offset;
  vm_behavior_t behavior;
  unsigned short user_wired_count;
};
#pragma pack(pop)
typedef struct vm_region_basic_info_64 vm_region_basic_info_data_64_t;
typedef struct vm_region_basic_info_64* vm_region_basic_info_64_t;
#define VM_REGION_BASIC_INFO_COUNT_64 \
  ((mach_msg_type_number_t)(sizeof(vm_region_basic_info_data_64_t) / sizeof(int)))

// The first mapped region that contains or follows *address. KERN_INVALID_ADDRESS past the last.
kern_return_t vm_region_64(vm_map_t target_task, vm_address_t* address, vm_size_t* size,
                           vm_region_flavor_t flavor, vm_region_info_t info,
                           mach_msg_type_number_t* infoCnt, mach_port_t* object_name);

// Thread policies

typedef natural_t thread_policy_flavor_t;
typedef integer_t* thread_policy_t;

#define THREAD_EXTENDED_POLICY 1
struct thread_extended_policy {
  boolean_t timeshare;
};
typedef struct thread_extended_policy thread_extended_policy_data_t;
typedef struct thread_extended_policy* thread_extended_policy_t;
#define THREAD_EXTENDED_POLICY_COUNT \
  ((mach_msg_type_number_t)(sizeof(thread_extended_policy_data_t) / sizeof(integer_t)))

#define THREAD_TIME_CONSTRAINT_POLICY 2
// In ticks of mach_absolute_time.
struct thread_time_constraint_policy {
  uint32_t period;
  uint32_t computation;
  uint32_t constraint;
  boolean_t preemptible;
};
typedef struct thread_time_constraint_policy thread_time_constraint_policy_data_t;
typedef struct thread_time_constraint_policy* thread_time_constraint_policy_t;
#define THREAD_TIME_CONSTRAINT_POLICY_COUNT \
  ((mach_msg_type_number_t)(sizeof(thread_time_constraint_policy_data_t) / sizeof(integer_t)))

#define THREAD_PRECEDENCE_POLICY 3
struct thread_precedence_policy {
  integer_t importance;
};
typedef struct thread_precedence_policy thread_precedence_policy_data_t;
typedef struct thread_precedence_policy* thread_precedence_policy_t;
#define THREAD_PRECEDENCE_POLICY_COUNT \
  ((mach_msg_type_number_t)(sizeof(thread_precedence_policy_data_t) / sizeof(integer_t)))

// A time constraint becomes SCHED_DEADLINE; where that is refused, SCHED_FIFO; where that is
// refused too, the thread stays as it is: that is no failure (mach/thread_policy_priv.h tells what
// came of it). The other two policies return the thread to normal scheduling, importance becoming
// niceness. A thread that asks for itself what it last got makes no system call.
kern_return_t thread_policy_set(thread_t thread, thread_policy_flavor_t flavor,
                                thread_policy_t policy_info, mach_msg_type_number_t policy_infoCnt);

// Thread information

typedef natural_t thread_flavor_t;
typedef integer_t* thread_info_t;
typedef integer_t policy_t;

#define POLICY_NULL 0
#define POLICY_TIMESHARE 1
#define POLICY_RR 2
#define POLICY_FIFO 4

struct time_value {
  integer_t seconds;
  integer_t microseconds;
};
typedef struct time_value time_value_t;

#define THREAD_BASIC_INFO 3
struct thread_basic_info {
  time_value_t user_time;
  time_value_t system_time;
  integer_t cpu_usage;
  policy_t policy;
  integer_t run_state;
  integer_t flags;
  integer_t suspend_count;
  integer_t sleep_time;
};
typedef struct thread_basic_info thread_basic_info_data_t;
typedef struct thread_basic_info* thread_basic_info_t;
#define THREAD_BASIC_INFO_COUNT \
  ((mach_msg_type_number_t)(sizeof(thread_basic_info_data_t) / sizeof(natural_t)))

#define TH_STATE_RUNNING 1
#define TH_STATE_STOPPED 2
#define TH_STATE_WAITING 3
#define TH_STATE_UNINTERRUPTIBLE 4

#define THREAD_SCHED_TIMESHARE_INFO 10
struct policy_timeshare_info {
  integer_t max_priority;
  integer_t base_priority;
  integer_t cur_priority;
  boolean_t depressed;
  integer_t depress_priority;
};
typedef struct policy_timeshare_info policy_timeshare_info_data_t;
typedef struct policy_timeshare_info* policy_timeshare_info_t;
#define POLICY_TIMESHARE_INFO_COUNT \
  ((mach_msg_type_number_t)(sizeof(policy_timeshare_info_data_t) / sizeof(integer_t)))

#define THREAD_SCHED_RR_INFO 11
struct policy_rr_info {
  integer_t max_priority;
  integer_t base_priority;
  integer_t quantum;
  boolean_t depressed;
  integer_t depress_priority;
};
typedef struct policy_rr_info policy_rr_info_data_t;
typedef struct policy_rr_info* policy_rr_info_t;
#define POLICY_RR_INFO_COUNT \
  ((mach_msg_type_number_t)(sizeof(policy_rr_info_data_t) / sizeof(integer_t)))

#define THREAD_SCHED_FIFO_INFO 12
struct policy_fifo_info {
  integer_t max_priority;
  integer_t base_priority;
  boolean_t depressed;
  integer_t depress_priority;
};
typedef struct policy_fifo_info policy_fifo_info_data_t;
typedef struct policy_fifo_info* policy_fifo_info_t;
#define POLICY_FIFO_INFO_COUNT \
  ((mach_msg_type_number_t)(sizeof(policy_fifo_info_data_t) / sizeof(integer_t)))

// Basic information, and the priorities under the policy that it names; asking for those of
// another policy is KERN_INVALID_ARGUMENT. Priorities: 31 at niceness 0, one more for each step of
// niceness less; 97 under a real-time policy. Times, usage and counts are 0: nobody asks.
kern_return_t thread_info(thread_inspect_t target_act, thread_flavor_t flavor,
                          thread_info_t thread_info_out,
                          mach_msg_type_number_t* thread_info_outCnt);

#pragma GCC visibility pop
#ifdef __cplusplus
}

static_assert(VM_REGION_BASIC_INFO_COUNT_64 == 9);
static_assert(THREAD_TIME_CONSTRAINT_POLICY_COUNT == 4);
static_assert(THREAD_BASIC_INFO_COUNT == 10);
#endif

#endif  // __linux__
