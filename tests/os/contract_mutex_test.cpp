// Mutexes and spin locks: what a caller is promised.

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/os.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_MUTEX_TRYLOCK), int (*)(mu_mutex_t)>);
static_assert(std::is_same_v<mu_spinlock_t, mu_mutex_t>);

namespace {

// A thread that calls something that may wait.
class Waiter {
 public:
  explicit Waiter(std::function<void()> body)
      : thread_([this, body = std::move(body)] {
          tid_ = gettid();
          body();
          done_ = true;
        }) {}
  ~Waiter() { join(); }

  // Waits until the thread sleeps in the kernel: true. False when its body ends first.
  bool sleeps() const {
    while (!done_) {
      std::ifstream stat("/proc/self/task/" + std::to_string(tid_) + "/stat");
      std::string line;
      std::getline(stat, line);
      const size_t name_end = line.rfind(')');
      if (name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0) return true;
      std::this_thread::yield();
    }
    return false;
  }
  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  std::atomic<pid_t> tid_{0};
  std::atomic<bool> done_{false};
  std::thread thread_;
};

int trylock_from_another_thread(mu_mutex_t mutex) {
  int result = -2;
  std::thread([&] {
    result = OS_MUTEX_TRYLOCK(mutex);
    if (result == 0) OS_MUTEX_UNLOCK(mutex);
  }).join();
  return result;
}

// Gives the library blocks full of old data, as a heap that has been in use does.
void *dirty_block(size_t size) {
  void *block = libc::malloc.real(size);
  if (block != nullptr) memset(block, 0xA5, size);
  return block;
}

}  // namespace

TEST(MutexContract, IsFreeWhenCreatedWhateverTheMemoryHeld) {
  Replace dirty(libc::malloc, dirty_block);
  const mu_mutex_t mutex = OS_MUTEX_CREATE("any");
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), 0);
  OS_MUTEX_UNLOCK(mutex);
  OS_MUTEX_DESTROY(mutex);
}

TEST(MutexContract, TheNameCarriesNoMeaning) {
  const std::string long_name(5000, 'x');
  for (const char *name : {static_cast<const char *>(nullptr), "", "same", "same", long_name.c_str()}) {
    SCOPED_TRACE(name == nullptr ? "null" : name);
    const mu_mutex_t mutex = OS_MUTEX_CREATE(name);
    ASSERT_NE(mutex, nullptr);
    OS_MUTEX_LOCK(mutex);
    EXPECT_EQ(trylock_from_another_thread(mutex), EBUSY);
    OS_MUTEX_UNLOCK(mutex);
    OS_MUTEX_DESTROY(mutex);
  }
}

TEST(MutexContract, OneNameTwiceMakesTwoMutexes) {
  const mu_mutex_t first = OS_MUTEX_CREATE("same");
  const mu_mutex_t second = OS_MUTEX_CREATE("same");
  EXPECT_NE(first, second);
  OS_MUTEX_LOCK(first);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(second), 0);
  OS_MUTEX_UNLOCK(second);
  OS_MUTEX_UNLOCK(first);
  OS_MUTEX_DESTROY(second);
  OS_MUTEX_DESTROY(first);
}

TEST(MutexContract, TrylockOfAMutexHeldByAnotherThreadIsBusy) {
  const mu_mutex_t mutex = OS_MUTEX_CREATE("held");
  OS_MUTEX_LOCK(mutex);
  EXPECT_EQ(trylock_from_another_thread(mutex), EBUSY);
  OS_MUTEX_UNLOCK(mutex);
  EXPECT_EQ(trylock_from_another_thread(mutex), 0);
  OS_MUTEX_DESTROY(mutex);
}

TEST(MutexContract, TrylockTakesTheMutex) {
  const mu_mutex_t mutex = OS_MUTEX_CREATE("held");
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), 0);
  EXPECT_EQ(trylock_from_another_thread(mutex), EBUSY);
  OS_MUTEX_UNLOCK(mutex);
  OS_MUTEX_DESTROY(mutex);
}

TEST(MutexContract, IsNotRecursive) {
  const mu_mutex_t mutex = OS_MUTEX_CREATE("once");
  OS_MUTEX_LOCK(mutex);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(mutex), EBUSY);
  OS_MUTEX_UNLOCK(mutex);
  OS_MUTEX_DESTROY(mutex);
}

// The handle's block holds one system mutex and nothing else, so the handle is its address. A deadline that has passed
// tells the types apart: the default type would wait, an error-checking one tells the deadlock at once, a recursive one
// locks again.
TEST(MutexContract, AHolderThatLocksAgainWouldWaitForItself) {
  size_t asked = 0;
  Replace note_size(libc::malloc, [&](size_t size) { return libc::malloc.real(asked = size); });
  const mu_mutex_t mutex = OS_MUTEX_CREATE("once");
  ASSERT_EQ(asked, sizeof(pthread_mutex_t));
  OS_MUTEX_LOCK(mutex);
  const timespec past = {1, 0};
  EXPECT_EQ(pthread_mutex_timedlock(reinterpret_cast<pthread_mutex_t *>(mutex), &past), ETIMEDOUT);
  OS_MUTEX_UNLOCK(mutex);
  OS_MUTEX_DESTROY(mutex);
}

TEST(MutexContract, LockWaitsForTheHolder) {
  const mu_mutex_t mutex = OS_MUTEX_CREATE("held");
  OS_MUTEX_LOCK(mutex);
  std::atomic<bool> released{false};
  bool released_when_taken = false;
  Waiter waiter([&] {
    OS_MUTEX_LOCK(mutex);
    released_when_taken = released;
    OS_MUTEX_UNLOCK(mutex);
  });
  EXPECT_TRUE(waiter.sleeps());
  released = true;
  OS_MUTEX_UNLOCK(mutex);
  waiter.join();
  EXPECT_TRUE(released_when_taken);
  OS_MUTEX_DESTROY(mutex);
}

TEST(MutexContract, NullIsIgnoredOrRefused) {
  Console console;
  OS_MUTEX_LOCK(nullptr);
  OS_MUTEX_UNLOCK(nullptr);
  OS_MUTEX_DESTROY(nullptr);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(nullptr), -1);
  EXPECT_EQ(console.take(), "");
}

TEST(MutexContract, WithoutMemoryCreateGivesNullAndPrintsNothing) {
  Console console;
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_MUTEX_CREATE("none"), nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
  EXPECT_EQ(console.take(), "");
}

TEST(MutexContract, DestroyFreesTheBlock) {
  HeapWatch heap;
  const mu_mutex_t mutex = OS_MUTEX_CREATE("short-lived");
  EXPECT_EQ(heap.live(), 1u);
  OS_MUTEX_DESTROY(mutex);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(heap.freed(), std::vector<void *>{mutex});
}

TEST(SpinLockContract, IsAMutex) {
  const mu_spinlock_t lock = OS_SPINLOCK_CREATE(0);
  ASSERT_NE(lock, nullptr);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(lock), 0);
  EXPECT_EQ(trylock_from_another_thread(lock), EBUSY);
  OS_SPINLOCK_UNLOCK(lock);
  OS_SPINLOCK_LOCK(lock);
  EXPECT_EQ(trylock_from_another_thread(lock), EBUSY);
  OS_MUTEX_UNLOCK(lock);
  EXPECT_EQ(trylock_from_another_thread(lock), 0);
  OS_SPINLOCK_DESTROY(lock);
}

TEST(SpinLockContract, TheArgumentCarriesNoMeaning) {
  for (const uint32_t argument : {0u, 1u, 0x80000000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(argument);
    const mu_spinlock_t lock = OS_SPINLOCK_CREATE(argument);
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(trylock_from_another_thread(lock), 0);
    OS_SPINLOCK_LOCK(lock);
    EXPECT_EQ(trylock_from_another_thread(lock), EBUSY);
    OS_SPINLOCK_UNLOCK(lock);
    OS_SPINLOCK_DESTROY(lock);
  }
}

TEST(SpinLockContract, AWaiterSleeps) {
  const mu_spinlock_t lock = OS_SPINLOCK_CREATE(0);
  OS_SPINLOCK_LOCK(lock);
  std::atomic<bool> released{false};
  bool released_when_taken = false;
  Waiter waiter([&] {
    OS_SPINLOCK_LOCK(lock);
    released_when_taken = released;
    OS_SPINLOCK_UNLOCK(lock);
  });
  EXPECT_TRUE(waiter.sleeps());  // one that spins never does, and runs into the hang limit
  released = true;
  OS_SPINLOCK_UNLOCK(lock);
  waiter.join();
  EXPECT_TRUE(released_when_taken);
  OS_SPINLOCK_DESTROY(lock);
}

TEST(SpinLockContract, NullIsIgnored) {
  Console console;
  OS_SPINLOCK_LOCK(nullptr);
  OS_SPINLOCK_UNLOCK(nullptr);
  OS_SPINLOCK_DESTROY(nullptr);
  EXPECT_EQ(console.take(), "");
}

TEST(SpinLockContract, WithoutMemoryCreateGivesNullAndPrintsNothing) {
  Console console;
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_SPINLOCK_CREATE(0), nullptr);
  EXPECT_EQ(no_memory.seen(), 1);
  EXPECT_EQ(console.take(), "");
}

TEST(SpinLockContract, DestroyFreesTheBlock) {
  HeapWatch heap;
  const mu_spinlock_t lock = OS_SPINLOCK_CREATE(7);
  EXPECT_EQ(heap.live(), 1u);
  OS_SPINLOCK_DESTROY(lock);
  EXPECT_EQ(heap.live(), 0u);
}
