// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Message queues under the platform's names.

#include <fcntl.h>
#include <mqueue.h>

#include "platform/fixture.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_queue_create), long (*)(long *, const char *, uint32_t, uint32_t, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_queue_delete), long (*)(long)>);
static_assert(std::is_same_v<decltype(&mu_queue_get), long (*)(long, void *, uint32_t, uint32_t *, int)>);
static_assert(std::is_same_v<decltype(&mu_queue_put), long (*)(long, const void *, uint32_t)>);

namespace {

class MuQueue : public testing::Test {
 protected:
  void SetUp() override {
    const mqd_t probe = mq_open(system_name_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0700, nullptr);
    if (probe == -1) GTEST_SKIP() << "no message queues here: " << strerror(errno);
    mq_close(probe);
    mq_unlink(system_name_.c_str());
  }
  void TearDown() override { mq_unlink(system_name_.c_str()); }

  const std::string name_ = "tarn-mu-queue-" + std::to_string(getpid());
  const std::string system_name_ = "/" + name_;
};

}  // namespace

TEST(MuQueueCreate, DropsItsFifthArgument) {
  for (const uint32_t fifth : {0u, 1u, 99u, 0xFFFFFFFFu}) {
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

// In a daemon that closed its standard input, a queue can have descriptor 0.
TEST(MuQueueCreate, DescriptorZeroIsNotAFailure) {
  Replace open(libc::mq_open, [](const char *, int, mode_t, mq_attr *) { return 0; });
  long queue = -7;
  EXPECT_EQ(mu_queue_create(&queue, "q1", 4, 64, 0), 0);
  EXPECT_EQ(queue, 0);
}

TEST(MuQueueCreate, FailuresPassThrough) {
  const Quiet quiet;
  Replace open(libc::mq_open, [](const char *, int, mode_t, mq_attr *) { return -1; });
  long queue = -7;
  EXPECT_EQ(mu_queue_create(&queue, "q1", 4, 64, 0), -1);
  EXPECT_EQ(mu_queue_create(&queue, nullptr, 4, 64, 0), -1);
  EXPECT_EQ(mu_queue_create(nullptr, "q1", 4, 64, 0), -1);
  EXPECT_EQ(queue, -7);
}

TEST_F(MuQueue, SendsAndReceives) {
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
  EXPECT_EQ(mu_queue_delete(queue), 0);  // already closed, still 0
  EXPECT_EQ(mu_queue_put(queue, "hello", 5), -1);
}

TEST_F(MuQueue, MessagesOutliveTheDescriptor) {
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
