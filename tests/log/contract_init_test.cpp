// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_init: what it sets, what it keeps, and each way in which it fails.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "tarn/log.h"

using namespace tarn_test;
using testing::MatchesRegex;

namespace {

constexpr uint32_t kDefaultServer = 0xC0A801FE;  // 192.168.1.254, first octet on top
constexpr size_t kBeforeHeader = offsetof(mup_log_ctrl, usr_header);

// A registration list: fields of 16 bytes that hold "m0", "m1", ...
std::string module_table(unsigned count) {
  std::string table;
  for (unsigned i = 0; i < count; i++) {
    std::string field = "m" + std::to_string(i);
    field.resize(MUP_LOG_NAME_SIZE);
    table += field;
  }
  return table;
}

mu_status_t init(uint16_t count) { return mup_log_init(0, count, module_table(count).c_str()); }

bool all_bytes_are(const void *memory, size_t size, uint8_t value) {
  const auto *bytes = static_cast<const uint8_t *>(memory);
  for (size_t i = 0; i < size; i++) {
    if (bytes[i] != value) return false;
  }
  return true;
}

// Holds what the next init abandons, so that it is no leak.
void keep_reachable(const mup_log_ctrl &ctrl) {
  [[maybe_unused]] static const void *volatile abandoned[16];
  static size_t count;
  abandoned[count++] = ctrl.modules;
  abandoned[count++] = ctrl.mutex;
}

struct SocketCall {
  int domain;
  int type;
  int protocol;
};

// Memory whose last byte is the last readable one before a guard page.
class GuardedBytes {
 public:
  explicit GuardedBytes(const std::string &bytes) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
    void *block = mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) abort();
    base_ = static_cast<char *>(block);
    if (mprotect(base_ + page_, page_, PROT_NONE) != 0) abort();
    begin_ = base_ + page_ - bytes.size();
    memcpy(begin_, bytes.data(), bytes.size());
  }
  ~GuardedBytes() { munmap(base_, 2 * page_); }
  GuardedBytes(const GuardedBytes &) = delete;
  GuardedBytes &operator=(const GuardedBytes &) = delete;

  const char *data() const { return begin_; }

 private:
  size_t page_;
  char *base_;
  char *begin_;
};

}  // namespace

TEST(LogInitContract, StateIsThereAndAllZeroBeforeTheFirstCall) {
  const mup_log_ctrl *ctrl = mup_log_ctrl_get();
  ASSERT_NE(ctrl, nullptr);
  EXPECT_TRUE(all_bytes_are(ctrl, sizeof *ctrl, 0));
  ASSERT_EQ(init(3), 0);
  EXPECT_EQ(mup_log_ctrl_get(), ctrl);  // one static record
}

TEST(LogInitContract, NullNamesGiveTheAssertionMessageAndChangeNothing) {
  Console console;
  EXPECT_EQ(mup_log_init(0, 3, nullptr), 2);
  EXPECT_THAT(console.take(), MatchesRegex("mup_log_init\\(\\) _[1-9][0-9]*_: assert fail\n"));
  EXPECT_TRUE(all_bytes_are(mup_log_ctrl_get(), sizeof(mup_log_ctrl), 0));

  ASSERT_EQ(init(3), 0);
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "kept");
  const auto before = std::make_unique<mup_log_ctrl>(*mup_log_ctrl_get());
  EXPECT_EQ(mup_log_init(0, 0, nullptr), 2);
  EXPECT_EQ(memcmp(mup_log_ctrl_get(), before.get(), sizeof *before), 0);
}

TEST(LogInitContract, SetsEveryFieldWhateverStoodThere) {
  mup_log_ctrl *ctrl = mup_log_ctrl_get();
  memset(static_cast<void *>(ctrl), 0xA5, kBeforeHeader);
  Console console;
  ASSERT_EQ(init(22), 0);
  EXPECT_EQ(console.take(), "");

  EXPECT_EQ(ctrl->inited, 1);
  EXPECT_EQ(ctrl->module_num, 22);
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_EQ(ctrl->remote_mode, 0);
  EXPECT_EQ(ctrl->sys_idx, 0u);
  EXPECT_EQ(ctrl->usr_idx, 0u);
  EXPECT_NE(ctrl->mutex, nullptr);
  EXPECT_GE(ctrl->sock, 0);
  EXPECT_NE(ctrl->modules, nullptr);
  EXPECT_EQ(ctrl->server_ip, kDefaultServer);
  EXPECT_EQ(ctrl->level_hook, nullptr);
  EXPECT_TRUE(all_bytes_are(ctrl->sys_ring, sizeof ctrl->sys_ring, 0));
  EXPECT_TRUE(all_bytes_are(ctrl->usr_ring, sizeof ctrl->usr_ring, 0));
  EXPECT_STREQ(ctrl->sys_path, "/overlay/mu_log.txt");
  EXPECT_STREQ(ctrl->usr_path, "/overlay/user_log.txt");
}

TEST(LogInitContract, LeavesTheHeaderOfTheUserLogAlone) {
  mup_log_ctrl *ctrl = mup_log_ctrl_get();
  memset(&ctrl->usr_header, 'h', sizeof ctrl->usr_header);
  ASSERT_EQ(init(1), 0);
  EXPECT_TRUE(all_bytes_are(&ctrl->usr_header, sizeof ctrl->usr_header, 'h'));
}

TEST(LogInitContract, EveryModuleStartsEnabledAtLevelError) {
  ASSERT_EQ(init(40), 0);
  const mup_log_ctrl *ctrl = mup_log_ctrl_get();
  for (unsigned i = 0; i < 40; i++) {
    SCOPED_TRACE(i);
    EXPECT_EQ("m" + std::to_string(i), ctrl->modules[i].name);
    EXPECT_EQ(ctrl->modules[i].record_level, 4);
    EXPECT_EQ(ctrl->modules[i].print_level, 4);
    EXPECT_EQ(ctrl->modules[i].enable, 1);
  }
}

TEST(LogInitContract, CopiesNamesAsTextsOfAtMostFifteenCharacters) {
  // 16 bytes each. The fourth name has 16 characters; the fifth has 17, the last of them in the sixth field. The
  // seventh has something behind its NUL, which a copy of a text does not take along. The last fills the list to its
  // end.
  const std::string table = std::string("a\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16) +  //
                            std::string("abcdefghijklmn\0\0", 16) +               //
                            std::string("abcdefghijklmno\0", 16) +                //
                            std::string("ABCDEFGHIJKLMNOP", 16) +                 //
                            std::string("0123456789:;<=>?", 16) +                 //
                            std::string("@\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16) +  //
                            std::string("ab\0behind the nu", 16) +                //
                            std::string(16, '\0') +                               //
                            std::string("the end of list.", 16);
  const char *const expected[] = {
      "a", "abcdefghijklmn", "abcdefghijklmno", "ABCDEFGHIJKLMNO", "0123456789:;<=>", "@", "ab", "", "the end of list",
  };
  const GuardedBytes names(table);
  ASSERT_EQ(mup_log_init(0, 9, names.data()), 0);
  for (unsigned i = 0; i < 9; i++) {
    SCOPED_TRACE(i);
    char field[MUP_LOG_NAME_SIZE] = {};
    memcpy(field, expected[i], strlen(expected[i]));
    const mup_log_module &module = mup_log_ctrl_get()->modules[i];
    EXPECT_EQ(std::string(module.name, sizeof module.name), std::string(field, sizeof field));
    EXPECT_EQ(module.record_level, 4);
    EXPECT_EQ(module.print_level, 4);
    EXPECT_EQ(module.enable, 1);
  }
}

TEST(LogInitContract, OpensOneUnboundUdpSocket) {
  std::vector<SocketCall> seen;
  Replace<int(int, int, int)> socket(libc::socket, [&seen](int domain, int type, int protocol) {
    seen.push_back({domain, type, protocol});
    return libc::socket.real(domain, type, protocol);
  });
  ASSERT_EQ(init(1), 0);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].domain, AF_INET);
  EXPECT_EQ(seen[0].type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK), SOCK_DGRAM);
  EXPECT_THAT(seen[0].protocol, testing::AnyOf(0, IPPROTO_UDP));

  sockaddr_in own = {};
  socklen_t size = sizeof own;
  ASSERT_EQ(getsockname(mup_log_ctrl_get()->sock, reinterpret_cast<sockaddr *>(&own), &size), 0);
  EXPECT_EQ(own.sin_port, 0);
}

TEST(LogInitContract, AFailedSocketIsReportedAndIsNoError) {
  Replace<int(int, int, int)> socket(libc::socket, [](int, int, int) {
    errno = EMFILE;
    return -1;
  });
  Console console;
  EXPECT_EQ(init(2), 0);
  EXPECT_EQ(console.take(), "Log socket failed\n");
  const mup_log_ctrl *ctrl = mup_log_ctrl_get();
  EXPECT_LT(ctrl->sock, 0);
  EXPECT_EQ(ctrl->inited, 1);
  EXPECT_EQ(ctrl->module_num, 2);
  EXPECT_EQ(ctrl->server_ip, kDefaultServer);
  mup_log_msg(0, 1, MUP_LOG_ERROR, 0, "logging goes on");
  EXPECT_EQ(console.take(), "logging goes on\r\n");
  EXPECT_STREQ(ctrl->sys_ring[0].text, "logging goes on");
}

TEST(LogInitContract, NoMemoryForTheModulesLeavesAZeroedLog) {
  mup_log_ctrl *ctrl = mup_log_ctrl_get();
  memset(static_cast<void *>(ctrl), 0xA5, kBeforeHeader);
  memset(&ctrl->usr_header, 'h', sizeof ctrl->usr_header);
  int sockets = 0;
  Replace<int(int, int, int)> socket(libc::socket, [&sockets](int, int, int) { return ++sockets; });
  HeapWatch heap;
  Console console;
  {
    FailingMalloc failing(1);
    EXPECT_EQ(init(21), 10);
    EXPECT_EQ(failing.seen(), 1);
  }
  EXPECT_EQ(console.take(), "No memory \r\n");
  EXPECT_TRUE(all_bytes_are(ctrl, kBeforeHeader, 0));  // the paths too: they are filled in later
  EXPECT_TRUE(all_bytes_are(&ctrl->usr_header, sizeof ctrl->usr_header, 'h'));
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(sockets, 0);
}

TEST(LogInitContract, NoMutexFreesTheModulesAgain) {
  mup_log_ctrl *ctrl = mup_log_ctrl_get();
  memset(static_cast<void *>(ctrl), 0xA5, kBeforeHeader);
  int sockets = 0;
  Replace<int(int, int, int)> socket(libc::socket, [&sockets](int, int, int) { return ++sockets; });
  HeapWatch heap;
  Console console;
  {
    FailingMalloc failing(2);
    EXPECT_EQ(init(21), -1);
    EXPECT_EQ(failing.seen(), 2);
  }
  EXPECT_EQ(console.take(), "create mutex error \r\n");
  EXPECT_EQ(ctrl->modules, nullptr);
  EXPECT_EQ(ctrl->mutex, nullptr);
  EXPECT_EQ(ctrl->inited, 0);
  EXPECT_STREQ(ctrl->sys_path, "/overlay/mu_log.txt");  // filled in before the mutex is made
  EXPECT_STREQ(ctrl->usr_path, "/overlay/user_log.txt");
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(heap.freed().size(), 1u);
  EXPECT_EQ(sockets, 0);
}

TEST(LogInitContract, TheModulesAndTheMutexAreAllThatIsAllocated) {
  HeapWatch heap;
  FailingMalloc counting(100);
  ASSERT_EQ(init(21), 0);
  EXPECT_EQ(counting.seen(), 2);
  EXPECT_EQ(heap.live(), 2u);
}

TEST(LogInitContract, NothingIsAllocatedOnceInitialised) {
  ASSERT_EQ(init(21), 0);
  FailingMalloc failing(1, 1000000);
  Console console;
  mup_log_ctrl_get()->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  for (int i = 0; i < 1100; i++) {
    mup_log_msg(0, static_cast<uint8_t>(i % 21), MUP_LOG_ERROR, i, "%0300d", i);
  }
  EXPECT_EQ(mup_log_show(0, 0), 0);
  EXPECT_EQ(mup_log_show(0, 1), 0);
  EXPECT_EQ(mup_log_set(0), 0);
  EXPECT_EQ(mup_log_usr_set(1), 0);
  uint8_t value = 0;
  EXPECT_EQ(mup_log_level_get(0, "m1", MUP_LOG_SET_PRINT, &value), 0);
  console.take();
  EXPECT_EQ(failing.seen(), 0);
}

TEST(LogInitContract, AFailedSecondInitTurnsTheLogOff) {
  for (const int nth : {1, 2}) {
    SCOPED_TRACE(nth);
    ASSERT_EQ(init(3), 0);
    keep_reachable(*mup_log_ctrl_get());
    mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "gone");
    Console console;
    {
      FailingMalloc failing(nth);
      EXPECT_NE(init(3), 0);
    }
    console.take();
    EXPECT_STREQ(mup_log_ctrl_get()->sys_ring[0].text, "");
    mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "dropped");
    EXPECT_EQ(mup_log_show(0, 0), 0);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(mup_log_level_set(0, "m0", MUP_LOG_SET_PRINT, 1), 19);
    EXPECT_EQ(console.take(), "log system was not init \n");
  }
}

TEST(LogInitContract, ASecondCallStartsAfreshAndFreesNothing) {
  ASSERT_EQ(init(21), 0);
  mup_log_ctrl *ctrl = mup_log_ctrl_get();
  keep_reachable(*ctrl);
  const mup_log_module *first_modules = ctrl->modules;
  const int first_sock = ctrl->sock;
  memset(&ctrl->usr_header, 'h', sizeof ctrl->usr_header);
  ASSERT_EQ(mup_log_level_set(0, "m0", MUP_LOG_SET_RECORD, 8), 0);
  mup_log_msg(0, 0, MUP_LOG_DEBUG, MUP_LOG_NOPRINT, "system");
  mup_log_msg(0, 16, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "user");
  ctrl->remote_mode = MUP_LOG_REMOTE_ONLY;
  ctrl->server_ip = 0x0A000001;
  ctrl->level_hook = [](uint8_t, uint8_t, uint8_t) {};

  HeapWatch heap;
  std::string table = module_table(30);
  table[1] = 'x';  // the first name is "mx" now
  ASSERT_EQ(mup_log_init(0, 30, table.c_str()), 0);
  EXPECT_EQ(heap.live(), 2u);
  EXPECT_TRUE(heap.freed().empty());
  EXPECT_NE(ctrl->modules, first_modules);
  EXPECT_EQ(first_modules[0].record_level, 8);
  EXPECT_NE(fcntl(first_sock, F_GETFD), -1);
  EXPECT_NE(ctrl->sock, first_sock);

  EXPECT_EQ(ctrl->inited, 1);
  EXPECT_EQ(ctrl->module_num, 30);
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_EQ(ctrl->remote_mode, 0);
  EXPECT_EQ(ctrl->sys_idx, 0u);
  EXPECT_EQ(ctrl->usr_idx, 0u);
  EXPECT_EQ(ctrl->server_ip, kDefaultServer);
  EXPECT_EQ(ctrl->level_hook, nullptr);
  EXPECT_STREQ(ctrl->modules[0].name, "mx");
  EXPECT_EQ(ctrl->modules[0].record_level, 4);
  EXPECT_TRUE(all_bytes_are(ctrl->sys_ring, sizeof ctrl->sys_ring, 0));
  EXPECT_TRUE(all_bytes_are(ctrl->usr_ring, sizeof ctrl->usr_ring, 0));
  EXPECT_TRUE(all_bytes_are(&ctrl->usr_header, sizeof ctrl->usr_header, 'h'));
}

TEST(LogInitContract, IgnoresTheReservedArgument) {
  EXPECT_EQ(mup_log_init(UINT64_MAX, 1, module_table(1).c_str()), 0);
  EXPECT_STREQ(mup_log_ctrl_get()->modules[0].name, "m0");
}
