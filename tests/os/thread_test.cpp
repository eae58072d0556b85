// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Threads and the thread id.

#include <sys/prctl.h>
#include <sys/syscall.h>

#include <type_traits>
#include <vector>

#include "os/fixture.h"
#include "support/heap.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_CURRENT_THREAD), long (*)()>);
static_assert(std::is_same_v<decltype(&OS_THREAD_CREATE),
                             long (*)(pthread_t *, const char *, mu_thread_entry_t, void *, uint32_t, int, uint32_t)>);

namespace {

constexpr uint32_t kStackSize = 262144;  // one that every processor accepts
constexpr pthread_t kUntouched = 0x1122334455667788;

void *give_back(void *arg) { return arg; }

struct Attributes {
  size_t stack_size;
  int detach_state;
  int inherit;
  int policy;
  int priority;
  int scope;

  explicit Attributes(const pthread_attr_t *attributes) {
    sched_param param = {};
    EXPECT_EQ(pthread_attr_getstacksize(attributes, &stack_size), 0);
    EXPECT_EQ(pthread_attr_getdetachstate(attributes, &detach_state), 0);
    EXPECT_EQ(pthread_attr_getinheritsched(attributes, &inherit), 0);
    EXPECT_EQ(pthread_attr_getschedpolicy(attributes, &policy), 0);
    EXPECT_EQ(pthread_attr_getschedparam(attributes, &param), 0);
    EXPECT_EQ(pthread_attr_getscope(attributes, &scope), 0);
    priority = param.sched_priority;
  }

  static Attributes defaults() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    const Attributes result(&attributes);
    pthread_attr_destroy(&attributes);
    return result;
  }
};

// Refuses every thread, and records the requested attributes. An implementation may write to the handle.
class RefusedThreads {
 public:
  int count() const { return count_; }
  const Attributes &last() const { return last_; }

 private:
  int count_ = 0;
  Attributes last_ = Attributes::defaults();
  Replace<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> create_{
      libc::pthread_create, [this](pthread_t *thread, const pthread_attr_t *attributes, void *(*)(void *), void *) {
        count_++;
        last_ = Attributes(attributes);
        *thread = 0x6666666666666666;
        return EAGAIN;
      }};
};

// The attributes with which the library would create a thread.
Attributes attributes_for(uint32_t stack_size, int priority = 0, uint32_t flags = 0) {
  const RefusedThreads refused;
  pthread_t thread = kUntouched;
  EXPECT_EQ(OS_THREAD_CREATE(&thread, "name", give_back, nullptr, stack_size, priority, flags), -1);
  EXPECT_EQ(refused.count(), 1);
  return refused.last();
}

// A thread that returns its argument, joined.
void expect_a_thread(uint32_t stack_size) {
  int value = 0;
  pthread_t thread = kUntouched;
  ASSERT_EQ(OS_THREAD_CREATE(&thread, "name", give_back, &value, stack_size, 0, 0), 0);
  void *result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, &value);
}

}  // namespace

TEST(OsCurrentThread, IsTheKernelsThreadId) {
  EXPECT_EQ(OS_CURRENT_THREAD(), syscall(SYS_gettid));
  EXPECT_EQ(OS_CURRENT_THREAD(), getpid());  // the first thread of a process
  std::thread([main_thread = OS_CURRENT_THREAD()] {
    EXPECT_EQ(OS_CURRENT_THREAD(), syscall(SYS_gettid));
    EXPECT_NE(OS_CURRENT_THREAD(), main_thread);
  }).join();
}

TEST(OsThread, AsksForAtLeast8192BytesOfStack) {
  const struct {
    uint32_t size;
    size_t asked;
  } kRows[] = {
      {0, 8192},
      {1, 8192},
      {4096, 8192},
      {8191, 8192},
      {8192, 8192},
      {8193, 8193},
      {32768, 32768},
      {1 << 20, 1 << 20},
      {0x80000000, 0x80000000},  // compared as unsigned
      {0xFFFFFFFF, 0xFFFFFFFF},
  };
  const RefusedThreads refused;
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.size);
    std::vector<size_t> asked;
    Replace set_size(libc::pthread_attr_setstacksize, [&](pthread_attr_t *, size_t size) {
      asked.push_back(size);
      return 0;
    });
    pthread_t thread = kUntouched;
    OS_THREAD_CREATE(&thread, "name", give_back, nullptr, row.size, 0, 0);
    EXPECT_EQ(asked, std::vector<size_t>{row.asked});
  }
}

TEST(OsThread, SetsTheStackSizeOnTheThread) { EXPECT_EQ(attributes_for(kStackSize).stack_size, kStackSize); }

// 8192 is below the minimum of every 64-bit processor.
TEST(OsThread, KeepsTheDefaultStackWhereTheSizeIsRejected) {
  for (const uint32_t size : {0u, 4096u, 8192u}) {
    SCOPED_TRACE(size);
    EXPECT_EQ(attributes_for(size).stack_size, Attributes::defaults().stack_size);
  }
  Replace reject(libc::pthread_attr_setstacksize, [](pthread_attr_t *, size_t) { return EINVAL; });
  EXPECT_EQ(attributes_for(kStackSize).stack_size, Attributes::defaults().stack_size);
}

TEST(OsThread, ARejectedStackSizeIsNotAFailure) {
  expect_a_thread(4096);
  Replace reject(libc::pthread_attr_setstacksize, [](pthread_attr_t *, size_t) { return EINVAL; });
  expect_a_thread(kStackSize);
}

TEST(OsThread, IsJoinableWithDefaultSchedulingWhateverItsPriority) {
  const Attributes defaults = Attributes::defaults();
  for (const int priority : {0, 1, 80, 99, -5, 1000}) {
    SCOPED_TRACE(priority);
    const Attributes seen = attributes_for(kStackSize, priority, 7);
    EXPECT_EQ(seen.detach_state, PTHREAD_CREATE_JOINABLE);
    EXPECT_EQ(seen.inherit, defaults.inherit);
    EXPECT_EQ(seen.policy, defaults.policy);
    EXPECT_EQ(seen.policy, SCHED_OTHER);
    EXPECT_EQ(seen.priority, defaults.priority);
    EXPECT_EQ(seen.scope, defaults.scope);
  }
}

TEST(OsThread, RunsItsEntryAndIsTheCallersToJoin) {
  struct Note {
    pthread_t thread;
    long id;
  } note = {};
  pthread_t thread = kUntouched;
  ASSERT_EQ(OS_THREAD_CREATE(
                &thread, "name",
                [](void *arg) -> void * {
                  *static_cast<Note *>(arg) = {pthread_self(), syscall(SYS_gettid)};
                  return static_cast<Note *>(arg) + 1;
                },
                &note, kStackSize, 0, 0),
            0);
  void *result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_TRUE(pthread_equal(note.thread, thread));
  EXPECT_EQ(result, &note + 1);
  EXPECT_NE(note.id, syscall(SYS_gettid));
}

// The thread keeps its creator's name and scheduling.
TEST(OsThread, UsesNeitherNameNorPriorityNorTheLastArgument) {
  struct Note {
    char name[16];
    int policy;
    int priority;
  };
  const auto look = [](void *arg) -> void * {
    Note *note = static_cast<Note *>(arg);
    sched_param param = {};
    prctl(PR_GET_NAME, note->name);
    pthread_getschedparam(pthread_self(), &note->policy, &param);
    note->priority = param.sched_priority;
    return nullptr;
  };
  Note own = {};
  look(&own);
  for (const char *name : {"gateway-worker", static_cast<const char *>(nullptr)}) {
    Note note = {};
    pthread_t thread = kUntouched;
    ASSERT_EQ(OS_THREAD_CREATE(&thread, name, look, &note, kStackSize, 80, 0xFFFFFFFF), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_STREQ(note.name, own.name);
    EXPECT_EQ(note.policy, own.policy);
    EXPECT_EQ(note.priority, own.priority);
  }
}

TEST(OsThread, HandsEntryAndArgumentOnAndStoresTheWholeHandle) {
  int value = 0;
  mu_thread_entry_t entry = nullptr;
  void *argument = nullptr;
  Replace create(libc::pthread_create, [&](pthread_t *thread, const pthread_attr_t *, void *(*run)(void *), void *arg) {
    entry = run;
    argument = arg;
    *thread = 0x123456789ABCDEF0;
    return 0;
  });
  pthread_t thread = kUntouched;
  EXPECT_EQ(OS_THREAD_CREATE(&thread, "name", give_back, &value, kStackSize, 0, 0), 0);
  EXPECT_EQ(thread, 0x123456789ABCDEF0u);
  EXPECT_EQ(entry, give_back);
  EXPECT_EQ(argument, &value);
}

TEST(OsThread, TheHandlesCellIs64ZeroBits) {
  size_t asked = 0;
  pthread_t seen = kUntouched;
  Replace dirty(libc::malloc, [&](size_t size) { return dirty_block(asked = size); });
  Replace create(libc::pthread_create, [&](pthread_t *thread, const pthread_attr_t *, void *(*)(void *), void *) {
    seen = *thread;
    return EAGAIN;
  });
  pthread_t thread = kUntouched;
  OS_THREAD_CREATE(&thread, "name", give_back, nullptr, kStackSize, 0, 0);
  EXPECT_EQ(asked, 8u);
  EXPECT_EQ(seen, 0u);
}

TEST(OsThread, FailsWhenMemoryRunsOutAndCreatesNone) {
  const Quiet quiet;
  FailingMalloc no_memory(1);
  const RefusedThreads refused;
  pthread_t thread = kUntouched;
  EXPECT_EQ(OS_THREAD_CREATE(&thread, "name", give_back, nullptr, kStackSize, 0, 0), -1);
  EXPECT_EQ(no_memory.seen(), 1);
  EXPECT_EQ(refused.count(), 0);
  EXPECT_EQ(thread, kUntouched);
}

TEST(OsThread, ARefusedThreadLeavesTheHandleUntouched) {
  const Quiet quiet;
  const RefusedThreads refused;
  pthread_t thread = kUntouched;
  EXPECT_EQ(OS_THREAD_CREATE(&thread, "name", give_back, nullptr, kStackSize, 0, 0), -1);
  EXPECT_EQ(refused.count(), 1);
  EXPECT_EQ(thread, kUntouched);
}

TEST(OsThread, FreesTheCellInEitherCase) {
  HeapWatch heap;
  for (const int outcome : {0, EAGAIN}) {
    SCOPED_TRACE(outcome);
    Replace create(libc::pthread_create,
                   [&](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return outcome; });
    pthread_t thread = kUntouched;
    OS_THREAD_CREATE(&thread, "name", give_back, nullptr, kStackSize, 0, 0);
    EXPECT_EQ(heap.live(), 0u);
  }
  EXPECT_EQ(heap.freed().size(), 2u);
}
