// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_init: the state that it sets and keeps, and each way in which it fails; the calls before it.

#include <fcntl.h>
#include <netinet/in.h>

#include <algorithm>
#include <memory>

#include "log/fixture.h"
#include "support/guarded.h"
#include "support/heap.h"

using namespace tarn_test;

namespace {

using LogInit = Log;
using LogBeforeInit = LogFiles;

constexpr uint32_t kDefaultServer = 0xC0A801FE;  // 192.168.1.254, first octet in the most significant byte
constexpr size_t kBeforeHeader = offsetof(mup_log_ctrl, usr_header);

mu_status_t try_init(unsigned modules) {
  return mup_log_init(0, static_cast<uint16_t>(modules), module_table(numbered_names(modules)).c_str());
}

bool all_bytes_are(const void *memory, size_t size, uint8_t value) {
  const auto *bytes = static_cast<const uint8_t *>(memory);
  return std::all_of(bytes, bytes + size, [value](uint8_t byte) { return byte == value; });
}

// The fields that every start sets.
void expect_fresh_start(const mup_log_ctrl &ctrl, unsigned modules) {
  EXPECT_EQ(ctrl.inited, 1);
  EXPECT_EQ(ctrl.module_num, modules);
  EXPECT_EQ(ctrl.dirty, 0);
  EXPECT_EQ(ctrl.remote_mode, 0);
  EXPECT_EQ(ctrl.sys_idx, 0u);
  EXPECT_EQ(ctrl.usr_idx, 0u);
  EXPECT_EQ(ctrl.server_ip, kDefaultServer);
  EXPECT_EQ(ctrl.level_hook, nullptr);
}

// Holds the memory that the next init abandons, so that it is not a leak.
void keep_reachable(const mup_log_ctrl &ctrl) {
  [[maybe_unused]] static const void *volatile abandoned[16];
  static size_t count;
  abandoned[count++] = ctrl.modules;
  abandoned[count++] = ctrl.mutex;
}

}  // namespace

// ---- Before the first call ------------------------------------------------------------------------------------------

TEST_F(LogBeforeInit, MessagesAndSwitchesAndShowsDoNothing) {
  Console console;
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "a");
  mup_log_msg(0, 255, MUP_LOG_ERROR, 0, "a");
  mup_log_msg(0, 0, 255, 0, "a");
  log_unchecked(0, 0, MUP_LOG_ERROR, 0, nullptr);
  EXPECT_EQ(mup_log_show(0, 0), 0);
  EXPECT_EQ(mup_log_show(0, 1), 0);
  EXPECT_EQ(mup_log_set(1), 0);
  EXPECT_EQ(mup_log_usr_set(0), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(all_bytes_are(ctrl, sizeof *ctrl, 0));
}

TEST_F(LogBeforeInit, TheFilesAreNotTouchedExceptByTheRemoval) {
  write_file(sys(), kSysMarker);
  Console console;
  EXPECT_EQ(mup_log_usr_clean(), 1);
  EXPECT_EQ(mup_log_file_get(out().c_str(), 0, nullptr, 0), 1);
  EXPECT_EQ(mup_log_file_get(out().c_str(), 0, std::string(33, 'm').c_str(), 0), 1);
  save();
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(bytes_of(sys()), kSysMarker);
  EXPECT_FALSE(exists(usr()));
  EXPECT_FALSE(exists(out()));
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_EQ(mup_log_file_get(nullptr, 0, nullptr, 0), 2);  // the null path comes first
  EXPECT_THAT(console.take(), assertion_of("mup_log_file_get"));

  EXPECT_EQ(mup_log_file_remove(), 0);
  EXPECT_FALSE(exists(sys()));
}

TEST_F(LogBeforeInit, ARecordIsShownWithoutAModulesName) {
  const mup_log_rec record = {.module = 0, .level = MUP_LOG_ERROR, .line = 0, .time = 0, .text = "t"};
  char text[64];
  mu_log2str(&record, text, sizeof text);
  EXPECT_STREQ(text, "[01/01-00:00:00]-[Error]: t\r\n");
}

// ---- The call -------------------------------------------------------------------------------------------------------

TEST_F(LogInit, StateIsThereAndAllZeroBeforeTheFirstCall) {
  ASSERT_NE(ctrl, nullptr);
  EXPECT_TRUE(all_bytes_are(ctrl, sizeof *ctrl, 0));
  init(3);
  EXPECT_EQ(mup_log_ctrl_get(), ctrl);  // one static record
}

TEST_F(LogInit, NullNamesGiveTheAssertionMessageAndChangeNothing) {
  Console console;
  EXPECT_EQ(mup_log_init(0, 3, nullptr), 2);
  EXPECT_THAT(console.take(), assertion_of("mup_log_init"));
  EXPECT_TRUE(all_bytes_are(mup_log_ctrl_get(), sizeof(mup_log_ctrl), 0));

  init(3);
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "kept");
  const auto before = std::make_unique<mup_log_ctrl>(*ctrl);
  EXPECT_EQ(mup_log_init(0, 0, nullptr), 2);
  EXPECT_EQ(memcmp(mup_log_ctrl_get(), before.get(), sizeof *before), 0);
}

TEST_F(LogInit, SetsEveryFieldAndKeepsTheUserHeader) {
  memset(static_cast<void *>(ctrl), 0xA5, kBeforeHeader);
  Console console;
  memset(&ctrl->usr_header, 'h', sizeof ctrl->usr_header);
  ASSERT_EQ(try_init(22), 0);
  EXPECT_EQ(console.take(), "");

  expect_fresh_start(*ctrl, 22);
  EXPECT_NE(ctrl->mutex, nullptr);
  EXPECT_GE(ctrl->sock, 0);
  EXPECT_NE(ctrl->modules, nullptr);
  EXPECT_TRUE(all_bytes_are(ctrl->sys_ring, sizeof ctrl->sys_ring, 0));
  EXPECT_TRUE(all_bytes_are(ctrl->usr_ring, sizeof ctrl->usr_ring, 0));
  EXPECT_STREQ(ctrl->sys_path, "/overlay/mu_log.txt");
  EXPECT_STREQ(ctrl->usr_path, "/overlay/user_log.txt");
  EXPECT_TRUE(all_bytes_are(&ctrl->usr_header, sizeof ctrl->usr_header, 'h'));
}

TEST_F(LogInit, EveryModuleStartsEnabledAtLevelError) {
  init(40);
  for (unsigned i = 0; i < 40; i++) {
    SCOPED_TRACE(i);
    EXPECT_EQ("m" + std::to_string(i), ctrl->modules[i].name);
    EXPECT_EQ(ctrl->modules[i].record_level, 4);
    EXPECT_EQ(ctrl->modules[i].print_level, 4);
    EXPECT_EQ(ctrl->modules[i].enable, 1);
  }
}

TEST_F(LogInit, CopiesNamesAsTextsOfAtMostFifteenCharacters) {
  // 16 bytes each. The fourth name has 16 characters; the fifth has 17, the last of them in the sixth field. The
  // seventh has bytes after its NUL, which a copy of a text does not include. The last one ends with the list.
  const std::string table = std::string("a\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16) +  //
                            std::string("abcdefghijklmn\0\0", 16) +               //
                            std::string("abcdefghijklmno\0", 16) +                //
                            std::string("ABCDEFGHIJKLMNOP", 16) +                 //
                            std::string("0123456789:;<=>?", 16) +                 //
                            std::string("@\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16) +  //
                            std::string("ab\0after the NUL", 16) +                //
                            std::string(16, '\0') +                               //
                            std::string("the end of list.", 16);
  const char *const expected[] = {
      "a", "abcdefghijklmn", "abcdefghijklmno", "ABCDEFGHIJKLMNO", "0123456789:;<=>", "@", "ab", "", "the end of list",
  };
  const Guarded names(std::vector<uint8_t>(table.begin(), table.end()));
  ASSERT_EQ(mup_log_init(0, 9, reinterpret_cast<const char *>(names.bytes())), 0);
  for (unsigned i = 0; i < 9; i++) {
    SCOPED_TRACE(i);
    char field[MUP_LOG_NAME_SIZE] = {};
    memcpy(field, expected[i], strlen(expected[i]));
    const mup_log_module &module = ctrl->modules[i];
    EXPECT_EQ(std::string(module.name, sizeof module.name), std::string(field, sizeof field));
    EXPECT_EQ(module.record_level, 4);
    EXPECT_EQ(module.print_level, 4);
    EXPECT_EQ(module.enable, 1);
  }
}

TEST_F(LogInit, OpensOneUnboundUdpSocket) {
  struct Call {
    int domain;
    int type;
    int protocol;
  };
  std::vector<Call> seen;
  Replace<int(int, int, int)> socket(libc::socket, [&seen](int domain, int type, int protocol) {
    seen.push_back({domain, type, protocol});
    return libc::socket.real(domain, type, protocol);
  });
  init(1);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].domain, AF_INET);
  EXPECT_EQ(seen[0].type, SOCK_DGRAM | SOCK_CLOEXEC);
  EXPECT_THAT(seen[0].protocol, testing::AnyOf(0, IPPROTO_UDP));

  sockaddr_in own = {};
  socklen_t size = sizeof own;
  ASSERT_EQ(getsockname(ctrl->sock, reinterpret_cast<sockaddr *>(&own), &size), 0);
  EXPECT_EQ(own.sin_port, 0);
}

TEST_F(LogInit, AFailedSocketIsReportedAndIsNotAnError) {
  Replace<int(int, int, int)> socket(libc::socket, [](int, int, int) {
    errno = EMFILE;
    return -1;
  });
  Console console;
  EXPECT_EQ(try_init(2), 0);
  EXPECT_EQ(console.take(), "Log socket failed\n");
  EXPECT_LT(ctrl->sock, 0);
  EXPECT_EQ(ctrl->inited, 1);
  EXPECT_EQ(ctrl->module_num, 2);
  EXPECT_EQ(ctrl->server_ip, kDefaultServer);
  mup_log_msg(0, 1, MUP_LOG_ERROR, 0, "logging goes on");
  EXPECT_EQ(console.take(), "logging goes on\r\n");
  EXPECT_STREQ(ctrl->sys_ring[0].text, "logging goes on");
}

TEST_F(LogInit, DescriptorZeroIsASocket) {
  Replace<int(int, int, int)> socket(libc::socket, [](int, int, int) { return 0; });
  Console console;
  init(1);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(ctrl->sock, 0);
}

TEST_F(LogInit, NoMemoryForTheModulesLeavesAZeroedLog) {
  memset(static_cast<void *>(ctrl), 0xA5, kBeforeHeader);
  memset(&ctrl->usr_header, 'h', sizeof ctrl->usr_header);
  int sockets = 0;
  Replace<int(int, int, int)> socket(libc::socket, [&sockets](int, int, int) { return ++sockets; });
  HeapWatch heap;
  Console console;
  {
    FailingMalloc failing(1);
    EXPECT_EQ(try_init(21), 10);
    EXPECT_EQ(failing.seen(), 1);
  }
  EXPECT_EQ(console.take(), "No memory \r\n");
  EXPECT_TRUE(all_bytes_are(ctrl, kBeforeHeader, 0));  // the paths too: they are filled in later
  EXPECT_TRUE(all_bytes_are(&ctrl->usr_header, sizeof ctrl->usr_header, 'h'));
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(sockets, 0);
}

TEST_F(LogInit, NoMutexFreesTheModulesAgain) {
  memset(static_cast<void *>(ctrl), 0xA5, kBeforeHeader);
  int sockets = 0;
  Replace<int(int, int, int)> socket(libc::socket, [&sockets](int, int, int) { return ++sockets; });
  HeapWatch heap;
  Console console;
  {
    FailingMalloc failing(2);
    EXPECT_EQ(try_init(21), -1);
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

TEST_F(LogInit, TheModulesAndTheMutexAreAllThatIsAllocated) {
  HeapWatch heap;
  FailingMalloc counting(100);
  init(21);
  EXPECT_EQ(counting.seen(), 2);
  EXPECT_EQ(heap.live(), 2u);
}

TEST_F(LogInit, NothingIsAllocatedOnceInitialised) {
  init(21);
  FailingMalloc failing(1, 1000000);
  Console console;
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
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

TEST_F(LogInit, AFailedSecondInitTurnsTheLogOff) {
  for (const int nth : {1, 2}) {
    SCOPED_TRACE(nth);
    init(3);
    keep_reachable(*ctrl);
    mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "gone");
    Console console;
    {
      FailingMalloc failing(nth);
      EXPECT_NE(try_init(3), 0);
    }
    console.take();
    EXPECT_STREQ(ctrl->sys_ring[0].text, "");
    mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "dropped");
    EXPECT_EQ(mup_log_show(0, 0), 0);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(mup_log_level_set(0, "m0", MUP_LOG_SET_PRINT, 1), 19);
    EXPECT_EQ(console.take(), kNotInitedLine);
  }
}

TEST_F(LogInit, ASecondCallStartsAfreshAndFreesNothing) {
  init(21);
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
  std::string table = module_table(numbered_names(30));
  table[1] = 'x';  // the first name is "mx" now
  ASSERT_EQ(mup_log_init(0, 30, table.c_str()), 0);
  EXPECT_EQ(heap.live(), 2u);
  EXPECT_TRUE(heap.freed().empty());
  EXPECT_NE(ctrl->modules, first_modules);
  EXPECT_EQ(first_modules[0].record_level, 8);
  EXPECT_NE(fcntl(first_sock, F_GETFD), -1);
  EXPECT_NE(ctrl->sock, first_sock);

  expect_fresh_start(*ctrl, 30);
  EXPECT_STREQ(ctrl->modules[0].name, "mx");
  EXPECT_EQ(ctrl->modules[0].record_level, 4);
  EXPECT_TRUE(all_bytes_are(ctrl->sys_ring, sizeof ctrl->sys_ring, 0));
  EXPECT_TRUE(all_bytes_are(ctrl->usr_ring, sizeof ctrl->usr_ring, 0));
  EXPECT_TRUE(all_bytes_are(&ctrl->usr_header, sizeof ctrl->usr_header, 'h'));
}

TEST_F(LogInit, TheReservedArgumentIsIgnoredByEveryFunction) {
  ASSERT_EQ(mup_log_init(UINT64_MAX, 1, module_table().c_str()), 0);
  EXPECT_STREQ(ctrl->modules[0].name, "m0");
  uint8_t value = 77;
  EXPECT_EQ(mup_log_level_set(UINT64_MAX, "m0", MUP_LOG_SET_RECORD, 6), 0);
  EXPECT_EQ(mup_log_level_get(UINT64_MAX, "m0", MUP_LOG_SET_RECORD, &value), 0);
  EXPECT_EQ(value, 6);
  Console console;
  mup_log_msg(UINT64_MAX, 0, MUP_LOG_ERROR, 0, "text");
  EXPECT_EQ(console.take(), "text\r\n");
  EXPECT_EQ(mup_log_show(UINT64_MAX, 1), 0);
  EXPECT_STREQ(ctrl->sys_ring[0].text, "");
}
