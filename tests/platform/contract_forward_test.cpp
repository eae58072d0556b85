// The wrappers that pass a result through: time, files, message queues, threads, work queues, the division.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

#include "support/console.h"
#include "support/libc.h"
#include "support/sandbox.h"
#include "support/virtual_clock.h"
#include "tarn/platform.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_current_time), int64_t (*)()>);
static_assert(std::is_same_v<decltype(&mu_current_tick), uint64_t (*)()>);
static_assert(std::is_same_v<decltype(&mu_udelay), void (*)(uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_mdelay), void (*)(uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_sleep), void (*)(uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_file_open), long (*)(const char *, int, mode_t)>);
static_assert(std::is_same_v<decltype(&mu_file_close), long (*)(int)>);
static_assert(std::is_same_v<decltype(&mu_file_read), long (*)(int, void *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_file_write), long (*)(int, const void *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_file_size), long (*)(FILE *)>);
static_assert(std::is_same_v<decltype(&mu_file_cp), long (*)(const char *, const char *)>);
static_assert(std::is_same_v<decltype(&mu_queue_create), long (*)(long *, const char *, uint32_t, uint32_t, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_queue_delete), long (*)(long)>);
static_assert(std::is_same_v<decltype(&mu_queue_get), long (*)(long, void *, uint32_t, uint32_t *, int)>);
static_assert(std::is_same_v<decltype(&mu_queue_put), long (*)(long, const void *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_thread_create),
                             long (*)(pthread_t *, const char *, mu_thread_entry_t, void *, uint32_t, int, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_workqueue_init), long (*)(void *, void *)>);
static_assert(std::is_same_v<decltype(&mu_work_add), long (*)(void *, void *, void *)>);
static_assert(std::is_same_v<decltype(&mu_workqueue_destroy), void (*)(void *)>);
static_assert(std::is_same_v<decltype(&mu_div), void (*)(uint64_t, uint32_t, uint64_t *, uint32_t *)>);

namespace {

struct Wait {
  time_t seconds;
  suseconds_t microseconds;

  bool operator==(const Wait &) const = default;
};

void PrintTo(const Wait &wait, std::ostream *out) { *out << wait.seconds << " s " << wait.microseconds << " us"; }

// The waits that `delay(amount)` makes.
std::vector<Wait> waits_of(void (*delay)(uint32_t), uint32_t amount) {
  std::vector<Wait> waits;
  Replace select(libc::select, [&](int, fd_set *, fd_set *, fd_set *, timeval *timeout) {
    waits.push_back({timeout->tv_sec, timeout->tv_usec});
    return 0;
  });
  delay(amount);
  return waits;
}

class FileWrapperContract : public testing::Test {
 protected:
  std::string path(const char *name) const { return sandbox_.root() + '/' + name; }
  std::string make(const char *name, const std::string &content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  static std::string content(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static int open_file(const std::string &file, int flags) {
    return static_cast<int>(mu_file_open(file.c_str(), flags, 0600));
  }

  Sandbox sandbox_;
};

class QueueWrapperContract : public testing::Test {
 protected:
  void SetUp() override {
    const mqd_t probe = mq_open(system_name_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0700, nullptr);
    if (probe == -1) GTEST_SKIP() << "no message queues here: " << strerror(errno);
    mq_close(probe);
    mq_unlink(system_name_.c_str());
  }
  void TearDown() override { mq_unlink(system_name_.c_str()); }

  const std::string name_ = "tarn-platform-contract-" + std::to_string(getpid());
  const std::string system_name_ = "/" + name_;
};

}  // namespace

TEST(TimeWrapperContract, ReadsTheClocks) {
  VirtualClock clock(123456);
  clock.set_wall(1185252801, 250000);  // 1.25 s after the private epoch
  EXPECT_EQ(mu_current_tick(), 12345u);
  EXPECT_EQ(mu_current_time(), 125);
  clock.set_wall(1185252799, 0);
  EXPECT_EQ(mu_current_tick(), 12345u);
  EXPECT_EQ(mu_current_time(), -100);
}

TEST(TimeWrapperContract, DelaysInOneWait) {
  const struct {
    const char *reason;
    void (*delay)(uint32_t);
    uint32_t amount;
    std::vector<Wait> waits;
  } kRows[] = {
      {"udelay 0 makes the call", mu_udelay, 0, {{0, 0}}},
      {"udelay 1", mu_udelay, 1, {{0, 1}}},
      {"udelay 1500000", mu_udelay, 1500000, {{1, 500000}}},
      {"udelay 2^32 - 1", mu_udelay, 4294967295, {{4294, 967295}}},
      {"mdelay 0 makes the call", mu_mdelay, 0, {{0, 0}}},
      {"mdelay 1", mu_mdelay, 1, {{0, 1000}}},
      {"mdelay 1500", mu_mdelay, 1500, {{1, 500000}}},
      {"mdelay 4294967 does not wrap", mu_mdelay, 4294967, {{4294, 967000}}},
      {"mdelay 4294968 wraps", mu_mdelay, 4294968, {{0, 704}}},
      {"mdelay 5000000 wraps", mu_mdelay, 5000000, {{705, 32704}}},
      {"sleep 0 does not", mu_sleep, 0, {}},
      {"sleep 1", mu_sleep, 1, {{0, 1000}}},
      {"sleep 1500", mu_sleep, 1500, {{1, 500000}}},
      {"sleep 4294968 wraps", mu_sleep, 4294968, {{0, 704}}},
      {"sleep 5000000 wraps", mu_sleep, 5000000, {{705, 32704}}},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.reason);
    EXPECT_EQ(waits_of(row.delay, row.amount), row.waits);
  }
}

TEST_F(FileWrapperContract, WritesAndReadsBack) {
  const std::string file = path("file");
  const int out = open_file(file, O_WRONLY | O_CREAT | O_EXCL);
  ASSERT_GE(out, 0);
  EXPECT_EQ(mu_file_open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600), -1);
  EXPECT_EQ(mu_file_write(out, "0123456789", 10), 10);
  EXPECT_EQ(mu_file_close(out), 0);
  EXPECT_EQ(mu_file_close(out), -1);
  const int in = open_file(file, O_RDONLY);
  char buffer[16] = {};
  EXPECT_EQ(mu_file_read(in, buffer, 4), 4);
  EXPECT_EQ(mu_file_read(in, buffer + 4, 12), 6);
  EXPECT_EQ(mu_file_read(in, buffer, 16), 0);
  EXPECT_STREQ(buffer, "0123456789");
  EXPECT_EQ(mu_file_close(in), 0);
}

TEST_F(FileWrapperContract, FailuresPassThrough) {
  Console console;
  char buffer[4];
  EXPECT_EQ(mu_file_open(path("missing").c_str(), O_RDONLY, 0), -1);
  EXPECT_EQ(mu_file_read(-1, buffer, 4), -1);
  EXPECT_EQ(mu_file_write(-1, "abcd", 4), -1);
  EXPECT_EQ(mu_file_close(-1), -1);
  EXPECT_EQ(mu_file_cp(path("copy").c_str(), path("missing").c_str()), -1);
  EXPECT_FALSE(std::filesystem::exists(path("copy")));
  EXPECT_EQ(console.take(), "");
}

// Passed down as a signed number, such a length is negative: an impossible request.
TEST_F(FileWrapperContract, ALengthAbove31BitsFails) {
  const std::string file = make("ten", "0123456789");
  const int both = open_file(file, O_RDWR);
  for (const uint32_t length : {0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(length);
    char buffer[16] = "untouched";
    EXPECT_EQ(mu_file_read(both, buffer, length), -1);
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(mu_file_write(both, buffer, length), -1);
  }
  mu_file_close(both);
  EXPECT_EQ(content(file), "0123456789");
}

TEST_F(FileWrapperContract, SizeLeavesTheStreamAtItsStart) {
  FILE *stream = fopen(make("ten", "0123456789").c_str(), "r");
  ASSERT_NE(stream, nullptr);
  fseek(stream, 4, SEEK_SET);
  EXPECT_EQ(mu_file_size(stream), 10);
  EXPECT_EQ(ftell(stream), 0);
  fclose(stream);
}

TEST_F(FileWrapperContract, CopyTakesItsDestinationFirst) {
  const std::string source = make("source", "copied");
  EXPECT_EQ(mu_file_cp(path("copy").c_str(), source.c_str()), 0);
  EXPECT_EQ(content(path("copy")), "copied");
  EXPECT_EQ(content(source), "copied");
}

TEST(QueueCreateWrapperContract, DropsItsFifthArgument) {
  for (const uint32_t fifth : {0u, 1u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(fifth);
    std::string name;
    mq_attr seen = {};
    Replace open(libc::mq_open, [&](const char *system_name, int flags, mode_t mode, mq_attr *attributes) {
      name = system_name;
      seen = *attributes;
      EXPECT_EQ(flags, O_RDWR | O_CREAT);
      EXPECT_EQ(mode, 0770u);
      return 5;
    });
    long queue = -7;
    EXPECT_EQ(mu_queue_create(&queue, "q1", 4, 64, fifth), 0);
    EXPECT_EQ(queue, 5);
    EXPECT_EQ(name, "/q1");
    EXPECT_EQ(seen.mq_flags, 0);
    EXPECT_EQ(seen.mq_maxmsg, 4);
    EXPECT_EQ(seen.mq_msgsize, 64);
  }
}

TEST(QueueCreateWrapperContract, FailuresPassThrough) {
  Console console;
  Replace open(libc::mq_open, [](const char *, int, mode_t, mq_attr *) { return -1; });
  long queue = -7;
  EXPECT_EQ(mu_queue_create(&queue, "q1", 4, 64, 0), -1);
  EXPECT_EQ(mu_queue_create(&queue, nullptr, 4, 64, 0), -1);
  EXPECT_EQ(mu_queue_create(nullptr, "q1", 4, 64, 0), -1);
  EXPECT_EQ(queue, -7);
  EXPECT_EQ(console.take(), "");
}

TEST_F(QueueWrapperContract, SendsAndReceives) {
  long queue = -7;
  ASSERT_EQ(mu_queue_create(&queue, name_.c_str(), 2, 16, 0), 0);
  EXPECT_EQ(mu_queue_put(queue, "hello", 5), 0);
  EXPECT_EQ(mu_queue_put(queue, "longer than 16 bytes", 20), -1);
  char buffer[16];
  uint32_t length = 0;
  EXPECT_EQ(mu_queue_get(queue, buffer, 15, &length, 0), -1);
  EXPECT_EQ(mu_queue_get(queue, nullptr, 16, &length, 0), -1);
  EXPECT_EQ(mu_queue_get(queue, buffer, 16, nullptr, 0), -1);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(mu_queue_get(queue, buffer, 16, &length, 0), 0);
  EXPECT_EQ(std::string(buffer, length), "hello");
  EXPECT_EQ(mu_queue_delete(queue), 0);
  EXPECT_EQ(mu_queue_delete(queue), 0);  // closed already: 0 all the same
  EXPECT_EQ(mu_queue_put(queue, "hello", 5), -1);
}

TEST_F(QueueWrapperContract, MessagesOutliveTheDescriptor) {
  long queue = -7;
  ASSERT_EQ(mu_queue_create(&queue, name_.c_str(), 2, 16, 0), 0);
  EXPECT_EQ(mu_queue_put(queue, "unread", 6), 0);
  EXPECT_EQ(mu_queue_delete(queue), 0);
  ASSERT_EQ(mu_queue_create(&queue, name_.c_str(), 2, 16, 0), 0);
  char buffer[16];
  uint32_t length = 0;
  EXPECT_EQ(mu_queue_get(queue, buffer, 16, &length, 0), 0);
  EXPECT_EQ(std::string(buffer, length), "unread");
  EXPECT_EQ(mu_queue_delete(queue), 0);
}

TEST(ThreadWrapperContract, RunsTheEntryWithItsArgument) {
  int value = 0;
  pthread_t thread = {};
  ASSERT_EQ(mu_thread_create(
                &thread, "name", [](void *arg) { return arg; }, &value, 262144, 80, 7),
            0);
  void *result = nullptr;
  EXPECT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, &value);
}

TEST(ThreadWrapperContract, PassesTheStackSizeDown) {
  std::vector<size_t> asked;
  Replace set_size(libc::pthread_attr_setstacksize, [&](pthread_attr_t *, size_t size) {
    asked.push_back(size);
    return 0;
  });
  Replace refuse(libc::pthread_create,
                 [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; });
  pthread_t thread = 0x1122334455667788;
  for (const uint32_t size : {0u, 8191u, 32768u}) {
    EXPECT_EQ(mu_thread_create(
                  &thread, "name", [](void *arg) { return arg; }, nullptr, size, 0, 0),
              -1);
  }
  EXPECT_EQ(asked, (std::vector<size_t>{8192, 8192, 32768}));
  EXPECT_EQ(thread, 0x1122334455667788u);
}

TEST(ThreadWrapperContract, WithoutMemoryGivesMinusOne) {
  Console console;
  FailingMalloc no_memory(1);
  pthread_t thread = 0x1122334455667788;
  EXPECT_EQ(mu_thread_create(
                &thread, "name", [](void *arg) { return arg; }, nullptr, 262144, 0, 0),
            -1);
  EXPECT_EQ(thread, 0x1122334455667788u);
  EXPECT_EQ(console.take(), "");
}

TEST(WorkQueueWrapperContract, SucceedsAndNeverRunsTheWork) {
  static int runs = 0;
  void (*const work)(void *) = [](void *) { runs++; };
  Console console;
  char queue[] = "as it was";
  EXPECT_EQ(mu_workqueue_init(queue, queue), 0);
  EXPECT_EQ(mu_work_add(queue, reinterpret_cast<void *>(work), queue), 0);
  mu_workqueue_destroy(queue);
  EXPECT_EQ(mu_workqueue_init(nullptr, nullptr), 0);
  EXPECT_EQ(mu_work_add(nullptr, nullptr, nullptr), 0);
  mu_workqueue_destroy(nullptr);
  EXPECT_EQ(runs, 0);
  EXPECT_STREQ(queue, "as it was");
  EXPECT_EQ(console.take(), "");
}

TEST(DivWrapperContract, Divides) {
  const struct {
    uint64_t dividend;
    uint32_t divisor;
    uint64_t quotient;
    uint32_t remainder;
  } kRows[] = {
      {1000000000007, 10, 100000000000, 7},
      {UINT64_MAX, 0xFFFFFFFF, 0x100000001, 0},
      {4294967301, 0, 0, 5},  // a zero divisor leaves the low half
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.dividend);
    uint64_t quotient = 1;
    uint32_t remainder[2] = {1, 0x55555555};
    mu_div(row.dividend, row.divisor, &quotient, &remainder[0]);
    EXPECT_EQ(quotient, row.quotient);
    EXPECT_EQ(remainder[0], row.remainder);
    EXPECT_EQ(remainder[1], 0x55555555u);
  }
}
