// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Message queues: how they are opened, and the messages that they carry.

#include <fcntl.h>
#include <mqueue.h>

#include <type_traits>

#include "os/fixture.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_QUEUE_CREATE), long (*)(long *, const char *, uint32_t, uint32_t)>);
static_assert(std::is_same_v<decltype(&OS_QUEUE_DELETE), long (*)(long)>);
static_assert(std::is_same_v<decltype(&OS_QUEUE_GET), long (*)(long, void *, uint32_t, uint32_t *, int)>);
static_assert(std::is_same_v<decltype(&OS_QUEUE_PUT), long (*)(long, const void *, uint32_t)>);

namespace {

constexpr long kUntouched = 0x1122334455667788;
constexpr uint32_t kMessageSize = 32;

// The library's requests to the system; nothing is opened.
struct Opened {
  std::string name;
  int flags = -1;
  mode_t mode = 0;
  mq_attr attributes = {};
  int calls = 0;
};

class OpenWatch {
 public:
  explicit OpenWatch(mqd_t result)
      : mq_open_(libc::mq_open, [this, result](const char *name, int flags, mode_t mode, mq_attr *attributes) {
          opened_ = {name, flags, mode, attributes == nullptr ? mq_attr{} : *attributes, opened_.calls + 1};
          if (result == -1) errno = EMFILE;
          return result;
        }) {}
  const Opened &opened() const { return opened_; }

 private:
  Opened opened_;
  Replace<mqd_t(const char *, int, mode_t, mq_attr *)> mq_open_;
};

// A real queue with a name of this process, removed at the end of the test.
class OsQueue : public testing::Test {
 protected:
  void SetUp() override {
    mq_attr attributes = {};
    attributes.mq_maxmsg = 2;
    attributes.mq_msgsize = kMessageSize;
    const mqd_t probe = mq_open(system_name_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0700, &attributes);
    if (probe == -1) GTEST_SKIP() << "no message queues here: " << strerror(errno);
    mq_close(probe);
    mq_unlink(system_name_.c_str());
  }
  void TearDown() override { mq_unlink(system_name_.c_str()); }

  long create(uint32_t max_messages = 2, uint32_t message_size = kMessageSize) {
    long queue = kUntouched;
    EXPECT_EQ(OS_QUEUE_CREATE(&queue, name_.c_str(), max_messages, message_size), 0) << strerror(errno);
    return queue;
  }
  static std::string get(long queue, int timeout = 0) {
    char buffer[kMessageSize];
    uint32_t length = 0xFFFFFFFF;
    EXPECT_EQ(OS_QUEUE_GET(queue, buffer, sizeof buffer, &length, timeout), 0);
    return length <= sizeof buffer ? std::string(buffer, length) : "no message";
  }
  static void put(long queue, const std::string &message) {
    EXPECT_EQ(OS_QUEUE_PUT(queue, message.data(), static_cast<uint32_t>(message.size())), 0);
  }
  static mq_attr attributes_of(long queue) {
    mq_attr attributes = {};
    EXPECT_EQ(mq_getattr(static_cast<mqd_t>(queue), &attributes), 0);
    return attributes;
  }
  static void expect_sizes(long queue, long max_messages, long message_size) {
    EXPECT_EQ(attributes_of(queue).mq_maxmsg, max_messages);
    EXPECT_EQ(attributes_of(queue).mq_msgsize, message_size);
  }

  const std::string name_ = "tarn-os-queue-" + std::to_string(getpid());
  const std::string system_name_ = "/" + name_;
};

}  // namespace

// ---- The requests to the system ------------------------------------------------------------------------------------

TEST(OsQueueCreate, OpensOrCreatesForReadingAndWritingWithMode0770) {
  const OpenWatch watch(5);
  long queue = kUntouched;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, "q1", 10, 64), 0);
  EXPECT_EQ(queue, 5);
  EXPECT_EQ(watch.opened().calls, 1);
  EXPECT_EQ(watch.opened().name, "/q1");
  EXPECT_EQ(watch.opened().flags, 0x42);
  EXPECT_EQ(watch.opened().flags, O_RDWR | O_CREAT);
  EXPECT_EQ(watch.opened().mode, 0770u);
  EXPECT_EQ(watch.opened().attributes.mq_flags, 0);
  EXPECT_EQ(watch.opened().attributes.mq_maxmsg, 10);
  EXPECT_EQ(watch.opened().attributes.mq_msgsize, 64);
}

TEST(OsQueueCreate, TakesItsSizesAsUnsigned) {
  const OpenWatch watch(5);
  long queue = kUntouched;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, "q1", 0x80000000, 0xFFFFFFFF), 0);
  EXPECT_EQ(watch.opened().attributes.mq_maxmsg, 0x80000000);
  EXPECT_EQ(watch.opened().attributes.mq_msgsize, 0xFFFFFFFF);
}

TEST(OsQueueCreate, PutsASlashBeforeTheNameAndCutsItAt127Characters) {
  const std::string a125(125, 'a');
  const struct {
    const char *reason;
    std::string name;
    std::string system_name;
  } kRows[] = {
      {"plain", "alarm", "/alarm"},
      {"empty", "", "/"},
      {"its own slash stays", "/alarm", "//alarm"},
      {"not a format", "%s%d%%", "/%s%d%%"},
      {"126 characters fit", a125 + "Z", "/" + a125 + "Z"},
      {"127 do not", a125 + "ZY", "/" + a125 + "Z"},
      {"1000 do not", a125 + "Z" + std::string(874, 'b'), "/" + a125 + "Z"},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.reason);
    const OpenWatch watch(5);
    long queue = kUntouched;
    EXPECT_EQ(OS_QUEUE_CREATE(&queue, row.name.c_str(), 1, 1), 0);
    EXPECT_EQ(watch.opened().name, row.system_name);
  }
}

TEST(OsQueueCreate, RefusesNullBeforeAnythingIsOpened) {
  const Quiet quiet;
  const OpenWatch watch(5);
  long queue = kUntouched;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, nullptr, 10, 64), -1);
  EXPECT_EQ(queue, kUntouched);
  EXPECT_EQ(OS_QUEUE_CREATE(nullptr, "q1", 10, 64), -1);
  EXPECT_EQ(OS_QUEUE_CREATE(nullptr, nullptr, 10, 64), -1);
  EXPECT_EQ(watch.opened().calls, 0);
}

TEST(OsQueueCreate, AFailureLeavesTheDescriptorUntouched) {
  const Quiet quiet;
  const OpenWatch watch(-1);
  long queue = kUntouched;
  errno = 0;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, "q1", 10, 64), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(watch.opened().calls, 1);
  EXPECT_EQ(queue, kUntouched);
}

// In a daemon that closed its standard input, a queue can have descriptor 0.
TEST(OsQueueCreate, DescriptorZeroIsNotAFailure) {
  const OpenWatch watch(0);
  long queue = kUntouched;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, "q1", 10, 64), 0);
  EXPECT_EQ(queue, 0);
}

// ---- The system's queues --------------------------------------------------------------------------------------------

TEST_F(OsQueue, WorksAsDescriptorZero) {
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  const long queue = create();
  EXPECT_EQ(queue, 0);
  if (queue == 0) {
    put(queue, "heard");
    EXPECT_EQ(get(queue), "heard");
    EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
  }
  if (input >= 0) {
    dup2(input, STDIN_FILENO);
    close(input);
  }
}

TEST_F(OsQueue, CarriesMessagesInOrderToTheByte) {
  const long queue = create(3);
  std::string bytes(kMessageSize, '\0');
  for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<char>(i * 8);
  put(queue, bytes);
  put(queue, "");  // an empty message is a message
  put(queue, "three");
  EXPECT_EQ(get(queue), bytes);
  EXPECT_EQ(get(queue), "");
  EXPECT_EQ(get(queue, -1), "three");
  EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
}

TEST_F(OsQueue, IsTheSystemsQueueOfThatNameAndBlocks) {
  const long queue = create(3, 16);
  const mqd_t own = mq_open(system_name_.c_str(), O_RDWR);
  ASSERT_GE(own, 0);
  expect_sizes(own, 3, 16);
  mq_close(own);
  expect_sizes(queue, 3, 16);
  EXPECT_EQ(attributes_of(queue).mq_flags, 0);  // which include O_NONBLOCK
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, AnExistingQueueKeepsItsSizes) {
  const long first = create(3, 16);
  const long second = create(2, kMessageSize);
  EXPECT_NE(first, second);
  expect_sizes(second, 3, 16);
  put(first, "shared");
  EXPECT_EQ(get(second), "shared");
  OS_QUEUE_DELETE(second);
  OS_QUEUE_DELETE(first);
}

TEST_F(OsQueue, DeleteClosesTheDescriptorAndAlwaysGivesZero) {
  const Quiet quiet;
  const long queue = create();
  EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
  mq_attr attributes = {};
  EXPECT_EQ(mq_getattr(static_cast<mqd_t>(queue), &attributes), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
  EXPECT_EQ(OS_QUEUE_DELETE(-1), 0);
}

TEST_F(OsQueue, OutlivesItsDescriptorWithItsSizesAndMessages) {
  const long first = create(4, 16);
  put(first, "unread");
  EXPECT_EQ(OS_QUEUE_DELETE(first), 0);
  const long second = create();
  expect_sizes(second, 4, 16);
  EXPECT_EQ(attributes_of(second).mq_curmsgs, 1);
  EXPECT_EQ(get(second), "unread");
  EXPECT_EQ(OS_QUEUE_DELETE(second), 0);
  EXPECT_EQ(mq_unlink(system_name_.c_str()), 0);  // it was still there
}

TEST_F(OsQueue, GetRefusesNullAndLeavesTheMessage) {
  const long queue = create();
  put(queue, "kept");
  char buffer[kMessageSize];
  uint32_t length = 0xDEADBEEF;
  EXPECT_EQ(OS_QUEUE_GET(queue, nullptr, sizeof buffer, &length, 0), -1);
  EXPECT_EQ(OS_QUEUE_GET(queue, buffer, sizeof buffer, nullptr, 0), -1);
  EXPECT_EQ(length, 0xDEADBEEF);
  EXPECT_EQ(get(queue), "kept");
  OS_QUEUE_DELETE(queue);
}

// Compared with the queue's message size, not with the size of the message.
TEST_F(OsQueue, GetFailsWithABufferShorterThanTheQueuesMessages) {
  const Quiet quiet;
  const long queue = create();
  put(queue, "x");
  char buffer[kMessageSize];
  uint32_t length = 0xDEADBEEF;
  errno = 0;
  EXPECT_EQ(OS_QUEUE_GET(queue, buffer, kMessageSize - 1, &length, 0), -1);
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_EQ(length, 0xDEADBEEF);
  EXPECT_EQ(get(queue), "x");
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, GetFailsOnABadDescriptor) {
  char buffer[kMessageSize];
  uint32_t length = 0xDEADBEEF;
  errno = 0;
  EXPECT_EQ(OS_QUEUE_GET(-1, buffer, sizeof buffer, &length, 0), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(length, 0xDEADBEEF);
}

TEST_F(OsQueue, GetIgnoresThePriority) {
  const long queue = create();
  EXPECT_EQ(mq_send(static_cast<mqd_t>(queue), "urgent", 6, 9), 0);
  EXPECT_EQ(get(queue), "urgent");
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, GetWaitsWhateverTheTimeout) {
  const long queue = create();
  for (const int timeout : {0, -1, 1}) {
    SCOPED_TRACE(timeout);
    std::string message;
    Waiter receiver([&] { message = get(queue, timeout); });
    EXPECT_TRUE(receiver.sleeps());
    put(queue, "at last");
    receiver.join();
    EXPECT_EQ(message, "at last");
  }
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, PutSendsWithPriorityZero) {
  const long queue = create();
  put(queue, "plain");
  char buffer[kMessageSize];
  unsigned priority = 99;
  EXPECT_EQ(mq_receive(static_cast<mqd_t>(queue), buffer, sizeof buffer, &priority), 5);
  EXPECT_EQ(priority, 0u);
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, PutFailsAsTheSystemDoes) {
  const Quiet quiet;
  const long queue = create();
  const char message[kMessageSize + 1] = "too long";
  errno = 0;
  EXPECT_EQ(OS_QUEUE_PUT(queue, message, kMessageSize + 1), -1);
  EXPECT_EQ(errno, EMSGSIZE);
  errno = 0;
  EXPECT_EQ(OS_QUEUE_PUT(-1, message, 1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(attributes_of(queue).mq_curmsgs, 0);
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, PutWaitsWhileTheQueueIsFull) {
  const long queue = create(1);
  put(queue, "first");
  Waiter sender([&] { put(queue, "second"); });
  EXPECT_TRUE(sender.sleeps());
  EXPECT_EQ(get(queue), "first");
  sender.join();
  EXPECT_EQ(get(queue), "second");
  OS_QUEUE_DELETE(queue);
}

TEST_F(OsQueue, ASignalEndsAWaitAsAFailure) {
  const long queue = create(1);
  long result = 0;
  int error = 0;
  uint32_t length = 0xDEADBEEF;
  Waiter receiver([&] {
    char buffer[kMessageSize];
    result = OS_QUEUE_GET(queue, buffer, sizeof buffer, &length, -1);
    error = errno;
  });
  const bool ended = receiver.ends_by_a_signal();
  EXPECT_TRUE(ended);
  if (!ended) put(queue, "enough");
  receiver.join();
  EXPECT_EQ(result, -1);
  EXPECT_EQ(error, EINTR);
  EXPECT_EQ(length, 0xDEADBEEF);

  put(queue, "full");
  Waiter sender([&] {
    result = OS_QUEUE_PUT(queue, "x", 1);
    error = errno;
  });
  EXPECT_TRUE(sender.ends_by_a_signal());
  if (!HasFailure()) {
    sender.join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EINTR);
  }
  EXPECT_EQ(get(queue), "full");
  sender.join();
  OS_QUEUE_DELETE(queue);
}
