#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "support/libc.h"
#include "tarn/os.h"

using namespace tarn_test;

namespace {

// A queue name of this process's own, gone with the test.
class OsQueue : public testing::Test {
 protected:
  void SetUp() override {
    long probe = -1;
    if (OS_QUEUE_CREATE(&probe, name_.c_str(), 1, 1) != 0 && errno == ENOSYS) {
      GTEST_SKIP() << "this system has no POSIX message queues";
    }
    OS_QUEUE_DELETE(probe);
    mq_unlink(system_name().c_str());
  }
  void TearDown() override { mq_unlink(system_name().c_str()); }

  std::string system_name() const { return '/' + name_; }

  long open(uint32_t max_messages = 4, uint32_t message_size = 16) {
    long queue = -1;
    EXPECT_EQ(OS_QUEUE_CREATE(&queue, name_.c_str(), max_messages, message_size), 0) << strerror(errno);
    return queue;
  }

  const std::string name_ = "tarn-os-queue-" + std::to_string(getpid());
};

std::string receive(long queue) {
  char buffer[16];
  uint32_t length = 0;
  return OS_QUEUE_GET(queue, buffer, sizeof buffer, &length, -1) == 0 ? std::string(buffer, length) : "(failed)";
}

}  // namespace

TEST_F(OsQueue, CarriesMessagesInOrder) {
  const long queue = open();
  EXPECT_EQ(OS_QUEUE_PUT(queue, "first", 5), 0);
  EXPECT_EQ(OS_QUEUE_PUT(queue, "", 0), 0);
  EXPECT_EQ(OS_QUEUE_PUT(queue, "third", 5), 0);
  EXPECT_EQ(receive(queue), "first");
  EXPECT_EQ(receive(queue), "");
  EXPECT_EQ(receive(queue), "third");
  EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
}

TEST_F(OsQueue, IsTheSystemsQueueOfThatName) {
  const long queue = open(3, 24);
  const mqd_t own = mq_open(system_name().c_str(), O_RDWR);
  ASSERT_GE(own, 0);
  mq_attr attributes{};
  ASSERT_EQ(mq_getattr(own, &attributes), 0);
  EXPECT_EQ(attributes.mq_flags, 0);
  EXPECT_EQ(attributes.mq_maxmsg, 3);
  EXPECT_EQ(attributes.mq_msgsize, 24);
  mq_close(own);
  OS_QUEUE_DELETE(queue);
}

TEST(OsQueueCreate, OpensReadWriteWithMode0770) {
  Replace open(libc::mq_open, [](const char *name, int flags, mode_t mode, mq_attr *attributes) -> mqd_t {
    EXPECT_STREQ(name, "/q1");
    EXPECT_EQ(flags, O_RDWR | O_CREAT);
    EXPECT_EQ(mode, 0770u);
    EXPECT_EQ(attributes->mq_flags, 0);
    EXPECT_EQ(attributes->mq_maxmsg, 10);
    EXPECT_EQ(attributes->mq_msgsize, 0xFFFFFFFF);
    return 77;
  });
  long queue = -1;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, "q1", 10, UINT32_MAX), 0);
  EXPECT_EQ(queue, 77);
}

TEST(OsQueueCreate, CutsTheSystemsNameTo127Characters) {
  std::string seen;
  Replace open(libc::mq_open, [&](const char *name, int, mode_t, mq_attr *) -> mqd_t {
    seen = name;
    return 5;
  });
  long queue = -1;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, std::string(126, 'x').c_str(), 1, 1), 0);
  EXPECT_EQ(seen, '/' + std::string(126, 'x'));
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, std::string(200, 'y').c_str(), 1, 1), 0);
  EXPECT_EQ(seen, '/' + std::string(126, 'y'));
}

TEST(OsQueueCreate, FailsForNullArgumentsWithoutACall) {
  bool called = false;
  Replace open(libc::mq_open, [&](const char *, int, mode_t, mq_attr *) -> mqd_t {
    called = true;
    return 5;
  });
  long queue = 42;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, nullptr, 1, 1), -1);
  EXPECT_EQ(queue, 42);
  EXPECT_EQ(OS_QUEUE_CREATE(nullptr, "q1", 1, 1), -1);
  EXPECT_FALSE(called);
}

TEST(OsQueueCreate, LeavesTheDescriptorAloneWhenTheSystemRefuses) {
  Replace open(libc::mq_open, [](const char *, int, mode_t, mq_attr *) -> mqd_t {
    errno = EACCES;
    return -1;
  });
  long queue = 42;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, "q1", 1, 1), -1);
  EXPECT_EQ(queue, 42);
  EXPECT_EQ(errno, EACCES);
}

TEST_F(OsQueue, OutlivesItsDescriptor) {
  long queue = open(4, 16);
  EXPECT_EQ(OS_QUEUE_PUT(queue, "kept", 4), 0);
  EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
  queue = open(2, 8);  // opened as it is: its sizes are unchanged
  mq_attr attributes{};
  ASSERT_EQ(mq_getattr(static_cast<mqd_t>(queue), &attributes), 0);
  EXPECT_EQ(attributes.mq_maxmsg, 4);
  EXPECT_EQ(attributes.mq_msgsize, 16);
  EXPECT_EQ(receive(queue), "kept");
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, DeleteReportsSuccessWhateverItCloses) { EXPECT_EQ(OS_QUEUE_DELETE(-1), 0); }

TEST_F(OsQueue, GetFailsForNullArguments) {
  const long queue = open();
  char buffer[16];
  uint32_t length = 42;
  EXPECT_EQ(OS_QUEUE_GET(queue, nullptr, sizeof buffer, &length, 0), -1);
  EXPECT_EQ(OS_QUEUE_GET(queue, buffer, sizeof buffer, nullptr, 0), -1);
  EXPECT_EQ(length, 42u);
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, GetFailsForABufferBelowTheMessageSize) {
  const long queue = open(4, 16);
  OS_QUEUE_PUT(queue, "x", 1);
  char buffer[16];
  uint32_t length = 42;
  EXPECT_EQ(OS_QUEUE_GET(queue, buffer, 15, &length, 0), -1);
  EXPECT_EQ(length, 42u);
  EXPECT_EQ(receive(queue), "x");
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, GetWaitsWhateverTheTimeout) {
  const long queue = open();
  for (int timeout : {0, -1, 1}) {
    SCOPED_TRACE(timeout);
    std::thread sender([&] { OS_QUEUE_PUT(queue, "late", 4); });  // before or after the receive begins: both must do
    char buffer[16];
    uint32_t length = 0;
    EXPECT_EQ(OS_QUEUE_GET(queue, buffer, sizeof buffer, &length, timeout), 0);
    EXPECT_EQ(std::string(buffer, length), "late");
    sender.join();
  }
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, PutFailsForAMessageThatIsTooLong) {
  const long queue = open(4, 4);
  EXPECT_EQ(OS_QUEUE_PUT(queue, "12345", 5), -1);
  EXPECT_EQ(errno, EMSGSIZE);
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, PutSendsWithPriorityZero) {
  const long queue = open();
  OS_QUEUE_PUT(queue, "x", 1);
  char buffer[16];
  unsigned priority = 9;
  EXPECT_EQ(mq_receive(static_cast<mqd_t>(queue), buffer, sizeof buffer, &priority), 1);
  EXPECT_EQ(priority, 0u);
  OS_QUEUE_DELETE(queue);
}
