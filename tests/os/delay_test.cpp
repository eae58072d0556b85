#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "support/libc.h"
#include "tarn/os.h"

using namespace tarn_test;

namespace {

// The timeouts that select is asked for, none of which is slept.
class Sleeps {
 public:
  std::vector<int64_t> us;
  int result = 0;

 private:
  Replace<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select_{
      libc::select, [this](int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
        EXPECT_EQ(count, 1);
        EXPECT_TRUE(read == nullptr && write == nullptr && except == nullptr);
        EXPECT_LT(timeout->tv_usec, 1000000);
        us.push_back(timeout->tv_sec * 1000000 + timeout->tv_usec);
        errno = EINTR;
        return result;
      }};
};

}  // namespace

TEST(OsDelay, SelectsOnNoDescriptorsOnce) {
  Sleeps sleeps;
  OS_DELAY(0);  // a call too, with a zero timeout
  OS_DELAY(1);
  OS_DELAY(999999);
  OS_DELAY(1000000);
  OS_DELAY(UINT32_MAX);
  EXPECT_EQ(sleeps.us, (std::vector<int64_t>{0, 1, 999999, 1000000, 4294967295}));
}

TEST(OsDelay, IsNotResumedAfterASignal) {
  Sleeps sleeps;
  sleeps.result = -1;
  OS_DELAY(5000);
  OS_SLEEP(5);
  EXPECT_EQ(sleeps.us, (std::vector<int64_t>{5000, 5000}));
}

TEST(OsSleep, OfZeroMakesNoCall) {
  Sleeps sleeps;
  OS_SLEEP(0);
  EXPECT_TRUE(sleeps.us.empty());
}

TEST(OsSleep, WrapsAbove4294967Milliseconds) {
  Sleeps sleeps;
  OS_SLEEP(10);
  OS_SLEEP(4294967);  // the last that does not wrap
  OS_SLEEP(4294968);  // 4294968000 - 2^32
  OS_SLEEP(5000000);  // 5000000000 - 2^32: about 705 s
  EXPECT_EQ(sleeps.us, (std::vector<int64_t>{10000, 4294967000, 704, 705032704}));
}
