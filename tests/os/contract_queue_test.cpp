// Message queues: how they are opened, and what comes through them.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/console.h"
#include "support/libc.h"
#include "tarn/os.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_QUEUE_CREATE), long (*)(long *, const char *, uint32_t, uint32_t)>);
static_assert(std::is_same_v<decltype(&OS_QUEUE_DELETE), long (*)(long)>);
static_assert(std::is_same_v<decltype(&OS_QUEUE_GET), long (*)(long, void *, uint32_t, uint32_t *, int)>);
static_assert(std::is_same_v<decltype(&OS_QUEUE_PUT), long (*)(long, const void *, uint32_t)>);

namespace {

constexpr long kUntouched = 0x1122334455667788;
constexpr uint32_t kMessageSize = 32;

// What the library asks the system for; nothing is opened.
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

// A queue of the system's own, for this process alone.
class SystemQueueContract : public testing::Test {
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
    EXPECT_EQ(OS_QUEUE_CREATE(&queue, name_.c_str(), max_messages, message_size), 0);
    return queue;
  }
  static std::string get(long queue) {
    char buffer[kMessageSize];
    uint32_t length = 0xFFFFFFFF;
    EXPECT_EQ(OS_QUEUE_GET(queue, buffer, sizeof buffer, &length, 0), 0);
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

  const std::string name_ = "tarn-os-contract-" + std::to_string(getpid());
  const std::string system_name_ = "/" + name_;
};

// Whether the thread `tid` comes to sleep in the kernel before `done`.
bool sleeps(const std::atomic<pid_t> &tid, const std::atomic<bool> &done) {
  while (!done) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t name_end = line.rfind(')');
    if (name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0) return true;
    std::this_thread::yield();
  }
  return false;
}

}  // namespace

TEST(QueueCreateContract, OpensOrCreatesForReadingAndWriting) {
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

TEST(QueueCreateContract, TakesItsSizesAsUnsigned) {
  const OpenWatch watch(5);
  long queue = kUntouched;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, "q1", 0x80000000, 0xFFFFFFFF), 0);
  EXPECT_EQ(watch.opened().attributes.mq_maxmsg, 0x80000000);
  EXPECT_EQ(watch.opened().attributes.mq_msgsize, 0xFFFFFFFF);
}

TEST(QueueCreateContract, PutsASlashBeforeTheNameAndCutsItAt127Characters) {
  const std::string a125(125, 'a');
  const struct {
    const char *reason;
    std::string name;
    std::string system_name;
  } kRows[] = {
      {"plain", "alarm", "/alarm"},
      {"empty", "", "/"},
      {"its own slash stays", "/alarm", "//alarm"},
      {"no format", "%s%d%%", "/%s%d%%"},
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

TEST(QueueCreateContract, RefusesNullBeforeAnythingIsOpened) {
  Console console;
  const OpenWatch watch(5);
  long queue = kUntouched;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, nullptr, 10, 64), -1);
  EXPECT_EQ(queue, kUntouched);
  EXPECT_EQ(OS_QUEUE_CREATE(nullptr, "q1", 10, 64), -1);
  EXPECT_EQ(OS_QUEUE_CREATE(nullptr, nullptr, 10, 64), -1);
  EXPECT_EQ(watch.opened().calls, 0);
  EXPECT_EQ(console.take(), "");
}

TEST(QueueCreateContract, AFailureLeavesTheDescriptorAlone) {
  Console console;
  const OpenWatch watch(-1);
  long queue = kUntouched;
  errno = 0;
  EXPECT_EQ(OS_QUEUE_CREATE(&queue, "q1", 10, 64), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(watch.opened().calls, 1);
  EXPECT_EQ(queue, kUntouched);
  EXPECT_EQ(console.take(), "");
}

TEST_F(SystemQueueContract, CarriesMessagesInOrderToTheByte) {
  const long queue = create();
  std::string bytes(kMessageSize, '\0');
  for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<char>(i * 8);
  put(queue, bytes);
  put(queue, "two");
  EXPECT_EQ(get(queue), bytes);
  EXPECT_EQ(get(queue), "two");
  OS_QUEUE_DELETE(queue);
}

TEST_F(SystemQueueContract, AnEmptyMessageIsAMessage) {
  const long queue = create();
  put(queue, "");
  EXPECT_EQ(get(queue), "");
  OS_QUEUE_DELETE(queue);
}

TEST_F(SystemQueueContract, HasTheSizesItWasCreatedWithAndBlocks) {
  const long queue = create(3, 16);
  const mq_attr attributes = attributes_of(queue);
  EXPECT_EQ(attributes.mq_maxmsg, 3);
  EXPECT_EQ(attributes.mq_msgsize, 16);
  EXPECT_EQ(attributes.mq_flags & O_NONBLOCK, 0);
  OS_QUEUE_DELETE(queue);
}

TEST_F(SystemQueueContract, AnExistingQueueKeepsItsSizes) {
  const long first = create(3, 16);
  const long second = create(2, kMessageSize);
  EXPECT_NE(first, second);
  EXPECT_EQ(attributes_of(second).mq_maxmsg, 3);
  EXPECT_EQ(attributes_of(second).mq_msgsize, 16);
  put(first, "shared");
  EXPECT_EQ(get(second), "shared");
  OS_QUEUE_DELETE(second);
  OS_QUEUE_DELETE(first);
}

TEST_F(SystemQueueContract, DeleteClosesTheDescriptor) {
  const long queue = create();
  EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
  mq_attr attributes = {};
  EXPECT_EQ(mq_getattr(static_cast<mqd_t>(queue), &attributes), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(SystemQueueContract, DeleteKeepsTheNameAndItsMessages) {
  const long first = create();
  put(first, "unread");
  EXPECT_EQ(OS_QUEUE_DELETE(first), 0);
  const long second = create();
  EXPECT_EQ(attributes_of(second).mq_curmsgs, 1);
  EXPECT_EQ(get(second), "unread");
  EXPECT_EQ(OS_QUEUE_DELETE(second), 0);
  EXPECT_EQ(mq_unlink(system_name_.c_str()), 0);  // it was still there
}

TEST_F(SystemQueueContract, DeleteAlwaysGivesZero) {
  Console console;
  EXPECT_EQ(OS_QUEUE_DELETE(-1), 0);
  const long queue = create();
  EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
  EXPECT_EQ(OS_QUEUE_DELETE(queue), 0);
  EXPECT_EQ(console.take(), "");
}

TEST_F(SystemQueueContract, GetRefusesNullAndLeavesTheMessage) {
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

// Measured against the queue's message size, not against the message at hand.
TEST_F(SystemQueueContract, GetFailsWithABufferShorterThanTheQueuesMessages) {
  Console console;
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
  EXPECT_EQ(console.take(), "");
}

TEST_F(SystemQueueContract, GetFailsOnABadDescriptor) {
  char buffer[kMessageSize];
  uint32_t length = 0xDEADBEEF;
  errno = 0;
  EXPECT_EQ(OS_QUEUE_GET(-1, buffer, sizeof buffer, &length, 0), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(length, 0xDEADBEEF);
}

TEST_F(SystemQueueContract, GetIgnoresThePriority) {
  const long queue = create();
  EXPECT_EQ(mq_send(static_cast<mqd_t>(queue), "urgent", 6, 9), 0);
  EXPECT_EQ(get(queue), "urgent");
  OS_QUEUE_DELETE(queue);
}

TEST_F(SystemQueueContract, GetWaitsForAMessageWhateverTheTimeout) {
  const long queue = create();
  for (const int timeout : {0, -1, 1}) {
    SCOPED_TRACE(timeout);
    std::atomic<pid_t> tid{0};
    std::atomic<bool> done{false};
    long result = -2;
    char buffer[kMessageSize] = {};
    uint32_t length = 0;
    std::thread receiver([&] {
      tid = gettid();
      result = OS_QUEUE_GET(queue, buffer, sizeof buffer, &length, timeout);
      done = true;
    });
    EXPECT_TRUE(sleeps(tid, done));
    put(queue, "at last");
    receiver.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(std::string(buffer, length), "at last");
  }
  OS_QUEUE_DELETE(queue);
}

TEST_F(SystemQueueContract, PutSendsWithPriorityZero) {
  const long queue = create();
  put(queue, "plain");
  char buffer[kMessageSize];
  unsigned priority = 99;
  EXPECT_EQ(mq_receive(static_cast<mqd_t>(queue), buffer, sizeof buffer, &priority), 5);
  EXPECT_EQ(priority, 0u);
  OS_QUEUE_DELETE(queue);
}

TEST_F(SystemQueueContract, PutFailsAsTheSystemDoes) {
  Console console;
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
  EXPECT_EQ(console.take(), "");
}

TEST_F(SystemQueueContract, PutWaitsWhileTheQueueIsFull) {
  const long queue = create(1);
  put(queue, "first");
  std::atomic<pid_t> tid{0};
  std::atomic<bool> done{false};
  long result = -2;
  std::thread sender([&] {
    tid = gettid();
    result = OS_QUEUE_PUT(queue, "second", 6);
    done = true;
  });
  EXPECT_TRUE(sleeps(tid, done));
  EXPECT_EQ(get(queue), "first");
  sender.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(get(queue), "second");
  OS_QUEUE_DELETE(queue);
}
