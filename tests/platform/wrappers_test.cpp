#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "support/libc.h"
#include "support/sandbox.h"
#include "support/virtual_clock.h"
#include "tarn/os.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

void *return_arg(void *arg) { return arg; }

}  // namespace

TEST(MuTime, IsTheOsLayers) {
  VirtualClock clock(20000);
  clock.set_wall(1185252800 + 5, 30000);
  EXPECT_EQ(mu_current_time(), 503);
  EXPECT_EQ(mu_current_tick(), 2000u);
}

TEST(MuDelay, SelectsAsTheOsLayerDoes) {
  std::vector<int64_t> us;
  Replace select(libc::select, [&](int, fd_set *, fd_set *, fd_set *, timeval *timeout) {
    us.push_back(timeout->tv_sec * 1000000 + timeout->tv_usec);
    return 0;
  });
  mu_udelay(7);
  mu_mdelay(7);
  mu_mdelay(0);        // one call with a zero timeout
  mu_mdelay(5000000);  // the product wraps at 32 bits
  mu_sleep(7);
  mu_sleep(0);  // no call
  mu_sleep(5000000);
  EXPECT_EQ(us, (std::vector<int64_t>{7, 7000, 0, 705032704, 7000, 705032704}));
}

TEST(MuMutex, InitStoresTheHandleAndTells) {
  mu_mutex_t mutex = nullptr;
  EXPECT_EQ(mu_mutex_init(&mutex, "name"), 0);
  EXPECT_NE(mutex, nullptr);
  EXPECT_EQ(mu_mutex_lock(mutex), 0);
  EXPECT_EQ(mu_mutex_trylock(mutex), EBUSY);
  EXPECT_EQ(mu_mutex_unlock(mutex), 0);
  EXPECT_EQ(mu_mutex_trylock(mutex), 0);
  EXPECT_EQ(mu_mutex_unlock(mutex), 0);
  EXPECT_EQ(mu_mutex_destroy(mutex), 0);
}

TEST(MuMutex, InitStoresNullWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  auto mutex = reinterpret_cast<mu_mutex_t>(&no_memory);
  EXPECT_EQ(mu_mutex_init(&mutex, "name"), 1);
  EXPECT_EQ(mutex, nullptr);
}

TEST(MuMutex, NullIsTolerated) {
  EXPECT_EQ(mu_mutex_lock(nullptr), 1);
  EXPECT_EQ(mu_mutex_trylock(nullptr), 1);
  EXPECT_EQ(mu_mutex_unlock(nullptr), 0);
  EXPECT_EQ(mu_mutex_destroy(nullptr), 0);
}

TEST(MuSpinLock, InitStoresTheHandleAndTells) {
  mu_spinlock_t lock = nullptr;
  EXPECT_EQ(mu_spin_lock_init(&lock, 9), 0);
  EXPECT_EQ(mu_spin_lock(lock), 0);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(lock), EBUSY);
  EXPECT_EQ(mu_spin_unlock(lock), 0);
  EXPECT_EQ(OS_MUTEX_TRYLOCK(lock), 0);
  OS_MUTEX_UNLOCK(lock);
  EXPECT_EQ(mu_spin_lock_destroy(lock), 0);
}

TEST(MuSpinLock, InitStoresNullWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  auto lock = reinterpret_cast<mu_spinlock_t>(&no_memory);
  EXPECT_EQ(mu_spin_lock_init(&lock, 0), 1);
  EXPECT_EQ(lock, nullptr);
}

TEST(MuSpinLock, NullIsToleratedAndGivesZero) {
  EXPECT_EQ(mu_spin_lock(nullptr), 0);
  EXPECT_EQ(mu_spin_unlock(nullptr), 0);
  EXPECT_EQ(mu_spin_lock_destroy(nullptr), 0);
}

TEST(MuSem, WaitGivesZeroTakenOrNot) {
  mu_sem_t sem = nullptr;
  EXPECT_EQ(mu_sem_init(&sem, "name", 1), 0);
  EXPECT_EQ(mu_sem_wait(sem, 0), 0);  // taken
  EXPECT_EQ(mu_sem_wait(sem, 0), 0);  // not
  {
    Replace timed_out(libc::sem_timedwait, [](sem_t *, const timespec *) {
      errno = ETIMEDOUT;
      return -1;
    });
    EXPECT_EQ(mu_sem_wait(sem, 10), 0);
  }
  EXPECT_EQ(mu_sem_post(sem), 0);
  EXPECT_EQ(mu_sem_wait(sem, -1), 0);
  EXPECT_EQ(mu_sem_destroy(sem), 0);
}

TEST(MuSem, InitStoresNullWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  auto sem = reinterpret_cast<mu_sem_t>(&no_memory);
  EXPECT_EQ(mu_sem_init(&sem, nullptr, 0), 1);
  EXPECT_EQ(sem, nullptr);
  EXPECT_EQ(mu_sem_wait(sem, -1), 0);
  EXPECT_EQ(mu_sem_destroy(sem), 0);
}

TEST(MuFile, IsTheOsLayers) {
  Sandbox sandbox;
  const std::string path = sandbox.root() + "/file";
  const std::string copy = sandbox.root() + "/copy";
  const int file = static_cast<int>(mu_file_open(path.c_str(), O_CREAT | O_RDWR, 0600));
  ASSERT_GE(file, 0);
  EXPECT_EQ(mu_file_write(file, "12345", 5), 5);
  EXPECT_EQ(mu_file_write(file, "12345", UINT32_MAX), -1);  // -1 for the OS layer, which the system rejects
  char buffer[8];
  EXPECT_EQ(mu_file_read(file, buffer, 8), 0);
  EXPECT_EQ(mu_file_read(file, buffer, 0x80000000), -1);
  EXPECT_EQ(mu_file_close(file), 0);
  EXPECT_EQ(mu_file_close(file), -1);
  EXPECT_EQ(mu_file_open((path + "/none").c_str(), O_RDONLY, 0), -1);

  EXPECT_EQ(mu_file_cp(copy.c_str(), path.c_str()), 0);
  EXPECT_EQ(mu_file_cp(copy.c_str(), nullptr), -1);
  FILE *stream = fopen(copy.c_str(), "r");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(mu_file_size(stream), 5);
  fclose(stream);
}

TEST(MuQueue, IsTheOsLayers) {
  const std::string name = "tarn-mu-queue-" + std::to_string(getpid());
  long queue = -1;
  if (mu_queue_create(&queue, name.c_str(), 2, 8, 99) != 0) {
    ASSERT_EQ(errno, ENOSYS);
    GTEST_SKIP() << "this system has no POSIX message queues";
  }
  EXPECT_EQ(mu_queue_put(queue, "abc", 3), 0);
  EXPECT_EQ(mu_queue_put(queue, "much too long", 13), -1);
  char buffer[8] = {};
  uint32_t length = 0;
  EXPECT_EQ(mu_queue_get(queue, buffer, sizeof buffer, &length, 0), 0);
  EXPECT_EQ(std::string(buffer, length), "abc");
  EXPECT_EQ(mu_queue_get(queue, nullptr, sizeof buffer, &length, 0), -1);
  EXPECT_EQ(mu_queue_delete(queue), 0);
  EXPECT_EQ(mu_queue_delete(queue), 0);
  EXPECT_EQ(mu_queue_create(&queue, nullptr, 2, 8, 0), -1);
  mq_unlink(('/' + name).c_str());
}

TEST(MuThread, PassesItsArgumentsOn) {
  size_t stack_size = 0;
  Replace set(libc::pthread_attr_setstacksize, [&](pthread_attr_t *, size_t size) {
    stack_size = size;
    return 0;
  });
  pthread_t thread{};
  int value = 0;
  ASSERT_EQ(mu_thread_create(&thread, "name", return_arg, &value, 70000, 5, 6), 0);
  void *result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(result, &value);
  EXPECT_EQ(stack_size, 70000u);
}

TEST(MuThread, FailsAsTheOsLayerDoes) {
  Replace refuse(libc::pthread_create,
                 [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
  pthread_t thread = pthread_self();
  EXPECT_EQ(mu_thread_create(&thread, nullptr, return_arg, nullptr, 0, 0, 0), -1);
  EXPECT_TRUE(pthread_equal(thread, pthread_self()));
}

TEST(MuWorkQueue, AcceptsEverythingAndRunsNothing) {
  int touched = 0;
  EXPECT_EQ(mu_workqueue_init(&touched, &touched), 0);
  EXPECT_EQ(mu_work_add(&touched, &touched, &touched), 0);
  mu_workqueue_destroy(&touched);
  EXPECT_EQ(touched, 0);
}

TEST(MuDiv, IsTheOsLayers) {
  uint64_t quotient = 0;
  uint32_t remainder = 0;
  mu_div(1000000000007, 10, &quotient, &remainder);
  EXPECT_EQ(quotient, 100000000000u);
  EXPECT_EQ(remainder, 7u);
  mu_div(4294967301, 0, &quotient, &remainder);
  EXPECT_EQ(quotient, 0u);
  EXPECT_EQ(remainder, 5u);
}
