#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "support/heap.h"
#include "support/libc.h"
#include "tarn/os.h"

using namespace tarn_test;

namespace {

void *return_arg(void *arg) { return arg; }

}  // namespace

TEST(OsCurrentThread, IsTheKernelsThreadId) {
  EXPECT_EQ(OS_CURRENT_THREAD(), getpid());  // the main thread's is the process id
  long other = 0;
  long expected = 0;
  std::thread([&] {
    other = OS_CURRENT_THREAD();
    expected = syscall(SYS_gettid);
  }).join();
  EXPECT_EQ(other, expected);
  EXPECT_NE(other, OS_CURRENT_THREAD());
}

TEST(OsThread, RunsItsEntryAndCanBeJoined) {
  pthread_t thread{};
  int value = 0;
  ASSERT_EQ(OS_THREAD_CREATE(&thread, "name", return_arg, &value, 65536, 3, 0), 0);
  void *result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, &value);
}

TEST(OsThread, AsksForAtLeast8192BytesOfStack) {
  const std::pair<uint32_t, size_t> rows[] = {{0, 8192},    {4096, 8192},   {8191, 8192},      {8192, 8192},
                                              {8193, 8193}, {32768, 32768}, {1 << 20, 1 << 20}};
  for (const auto &[asked, expected] : rows) {
    SCOPED_TRACE(asked);
    std::vector<size_t> sizes;
    Replace set(libc::pthread_attr_setstacksize, [&](pthread_attr_t *attributes, size_t size) {
      sizes.push_back(size);
      return libc::pthread_attr_setstacksize.real(attributes, size);
    });
    pthread_t thread{};
    ASSERT_EQ(OS_THREAD_CREATE(&thread, nullptr, return_arg, nullptr, asked, 0, 0), 0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(sizes, std::vector<size_t>{expected});
  }
}

TEST(OsThread, KeepsTheDefaultStackWhereTheSizeIsRejected) {
  pthread_attr_t fresh;
  pthread_attr_init(&fresh);
  size_t by_default = 0;
  pthread_attr_getstacksize(&fresh, &by_default);
  pthread_attr_destroy(&fresh);

  Replace reject(libc::pthread_attr_setstacksize, [](pthread_attr_t *, size_t) { return EINVAL; });
  size_t size = 0;
  Replace create(libc::pthread_create,
                 [&](pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) {
                   pthread_attr_getstacksize(attributes, &size);
                   return libc::pthread_create.real(thread, attributes, entry, arg);
                 });
  pthread_t thread{};
  ASSERT_EQ(OS_THREAD_CREATE(&thread, nullptr, return_arg, nullptr, 8192, 0, 0), 0);
  pthread_join(thread, nullptr);
  EXPECT_EQ(size, by_default);
}

TEST(OsThread, InheritsDefaultSchedulingWhateverItsPriority) {
  Replace create(libc::pthread_create,
                 [](pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) {
                   int policy = -1;
                   int state = -1;
                   sched_param parameters{-1};
                   pthread_attr_getschedpolicy(attributes, &policy);
                   pthread_attr_getschedparam(attributes, &parameters);
                   pthread_attr_getdetachstate(attributes, &state);
                   EXPECT_EQ(policy, SCHED_OTHER);
                   EXPECT_EQ(parameters.sched_priority, 0);
                   EXPECT_EQ(state, PTHREAD_CREATE_JOINABLE);
                   return libc::pthread_create.real(thread, attributes, entry, arg);
                 });
  pthread_t thread{};
  ASSERT_EQ(OS_THREAD_CREATE(&thread, "name", return_arg, nullptr, 0, 99, 7), 0);
  pthread_join(thread, nullptr);
}

TEST(OsThread, LeavesTheHandleAloneWhenCreationFails) {
  HeapWatch heap;
  Replace refuse(libc::pthread_create, [](pthread_t *thread, const pthread_attr_t *, void *(*)(void *), void *) {
    *thread = 0;  // an implementation may write to it
    return EAGAIN;
  });
  pthread_t thread = pthread_self();
  EXPECT_EQ(OS_THREAD_CREATE(&thread, nullptr, return_arg, nullptr, 0, 0, 0), -1);
  EXPECT_TRUE(pthread_equal(thread, pthread_self()));
  EXPECT_EQ(heap.live(), 0u);
}

TEST(OsThread, FailsWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  bool tried = false;
  Replace create(libc::pthread_create, [&](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
    tried = true;
    return EAGAIN;
  });
  pthread_t thread = pthread_self();
  EXPECT_EQ(OS_THREAD_CREATE(&thread, nullptr, return_arg, nullptr, 0, 0, 0), -1);
  EXPECT_FALSE(tried);
  EXPECT_TRUE(pthread_equal(thread, pthread_self()));
}
