#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "support/heap.h"
#include "support/libc.h"
#include "support/virtual_clock.h"
#include "tarn/os.h"

using namespace tarn_test;

namespace {

// What sem_timedwait is asked for, and how it answers: a row of errors, then success.
class TimedWaits {
 public:
  explicit TimedWaits(std::vector<int> errors = {})
      : errors_(std::move(errors)), wait_(libc::sem_timedwait, [this](sem_t *, const timespec *deadline) {
          deadlines_.push_back(*deadline);
          if (deadlines_.size() > errors_.size()) return 0;
          errno = errors_[deadlines_.size() - 1];
          return -1;
        }) {}

  size_t count() const { return deadlines_.size(); }
  const timespec &deadline(size_t i) const { return deadlines_.at(i); }

 private:
  const std::vector<int> errors_;
  std::vector<timespec> deadlines_;
  Replace<int(sem_t *, const timespec *)> wait_;
};

// How many units the semaphore holds; takes them all.
int drain(mu_sem_t sem) {
  // The handle's block is one sem_t.
  int count = 0;
  while (sem_trywait(reinterpret_cast<sem_t *>(sem)) == 0) count++;
  return count;
}

}  // namespace

TEST(OsSemaphore, HoldsItsInitialCount) {
  mu_sem_t sem = OS_SEM_CREATE(3);
  ASSERT_NE(sem, nullptr);
  EXPECT_EQ(drain(sem), 3);
  EXPECT_EQ(OS_SEM_DESTROY(sem), 0);
}

TEST(OsSemaphore, IsNullWhenMemoryRunsOut) {
  FailingMalloc no_memory(1);
  EXPECT_EQ(OS_SEM_CREATE(0), nullptr);
}

TEST(OsSemaphore, TakesOneBlockAndGivesItBack) {
  HeapWatch heap;
  mu_sem_t sem = OS_SEM_CREATE(0);
  EXPECT_EQ(heap.live(), 1u);
  OS_SEM_DESTROY(sem);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(OsSemaphore, PostAddsOne) {
  mu_sem_t sem = OS_SEM_CREATE(1);
  OS_SEM_POST(sem);
  EXPECT_EQ(drain(sem), 2);
  OS_SEM_DESTROY(sem);
}

TEST(OsSemaphore, NullIsToleratedByWaitAndDestroy) {
  TimedWaits waits;
  OS_SEM_WAIT(nullptr, 0);
  OS_SEM_WAIT(nullptr, -1);
  OS_SEM_WAIT(nullptr, 10);
  EXPECT_EQ(waits.count(), 0u);
  EXPECT_EQ(OS_SEM_DESTROY(nullptr), -1);
}

TEST(OsSemaphore, AWaitOfZeroTriesOnce) {
  mu_sem_t sem = OS_SEM_CREATE(0);
  OS_SEM_WAIT(sem, 0);
  EXPECT_EQ(drain(sem), 0);
  OS_SEM_POST(sem);
  OS_SEM_POST(sem);
  OS_SEM_WAIT(sem, 0);
  EXPECT_EQ(drain(sem), 1);
  OS_SEM_DESTROY(sem);
}

TEST(OsSemaphore, AWaitWithoutLimitTakesOne) {
  mu_sem_t sem = OS_SEM_CREATE(2);
  TimedWaits waits;
  OS_SEM_WAIT(sem, -1);
  EXPECT_EQ(waits.count(), 0u);
  EXPECT_EQ(drain(sem), 1);
  OS_SEM_DESTROY(sem);
}

TEST(OsSemaphore, ATimedWaitEndsAtADeadlineOfTheWallClock) {
  struct Row {
    int timeout_ms;
    int64_t now_us;  // within the second
    time_t seconds;  // the deadline's, from now's
    long nanoseconds;
  };
  constexpr Row kRows[] = {
      {1500, 600000, 2, 100000000},        // 1.5 s from .6: carries into the next second
      {1500, 499999, 1, 999999000},        // the last microsecond without a carry
      {1500, 500000, 2, 0},                // the first with one
      {1, 0, 0, 1000000},                  //
      {999, 999999, 1, 998999000},         //
      {INT32_MAX, 0, 2147483, 647000000},  //
      {-1000, 5000, -1, 5000000},          // negative, other than -1: in the past
      {-1001, 5000, -1, 4000000},          // the remainder keeps the sign
      {-2, 500, 0, -1500000},              // and may leave nanoseconds that sem_timedwait rejects
  };
  VirtualClock clock;
  mu_sem_t sem = OS_SEM_CREATE(1);
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.timeout_ms);
    clock.set_wall(1000000, row.now_us);
    TimedWaits waits;
    OS_SEM_WAIT(sem, row.timeout_ms);
    ASSERT_EQ(waits.count(), 1u);
    EXPECT_EQ(waits.deadline(0).tv_sec, 1000000 + row.seconds);
    EXPECT_EQ(waits.deadline(0).tv_nsec, row.nanoseconds);
  }
  OS_SEM_DESTROY(sem);
}

TEST(OsSemaphore, ATimedWaitGoesOnAfterASignalWithTheSameDeadline) {
  VirtualClock clock;
  clock.set_wall(500, 0);
  mu_sem_t sem = OS_SEM_CREATE(0);
  TimedWaits waits({EINTR, EINTR});
  OS_SEM_WAIT(sem, 250);
  ASSERT_EQ(waits.count(), 3u);
  for (size_t i = 0; i < 3; i++) {
    EXPECT_EQ(waits.deadline(i).tv_sec, 500);
    EXPECT_EQ(waits.deadline(i).tv_nsec, 250000000);
  }
  OS_SEM_DESTROY(sem);
}

TEST(OsSemaphore, ATimedWaitEndsWithAnyOtherError) {
  mu_sem_t sem = OS_SEM_CREATE(0);
  for (int error : {ETIMEDOUT, EINVAL}) {
    TimedWaits waits({error});
    OS_SEM_WAIT(sem, 250);
    EXPECT_EQ(waits.count(), 1u);
  }
  OS_SEM_DESTROY(sem);
}

TEST(OsSemaphore, ATimedWaitTakesOne) {
  mu_sem_t sem = OS_SEM_CREATE(2);
  OS_SEM_WAIT(sem, 60000);
  EXPECT_EQ(drain(sem), 1);
  OS_SEM_DESTROY(sem);
}
