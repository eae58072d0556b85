// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The start of the log, the settings of modules, and the road of a message.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "modules.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"
#include "support/sandbox.h"
#include "support/virtual_clock.h"
#include "tarn/log.h"
#include "tarn/platform.h"

using namespace tarn_test;

namespace {

void init(int count = 21) { ASSERT_EQ(mup_log_init(0, static_cast<uint16_t>(count), module_table(count).c_str()), 0); }

mup_log_ctrl &control() { return *mup_log_ctrl_get(); }

void set_levels(const char *module, uint8_t print_level, uint8_t record_level) {
  mup_log_level_set(0, module, MUP_LOG_SET_PRINT, print_level);
  mup_log_level_set(0, module, MUP_LOG_SET_RECORD, record_level);
}

struct Change {
  int module, type, value;
  bool operator==(const Change &) const = default;
};
std::vector<Change> g_changes;
void note_change(uint8_t module, uint8_t type, uint8_t value) { g_changes.push_back({module, type, value}); }
using Changes = std::vector<Change>;

}  // namespace

TEST(LogInit, SetsTheDefaults) {
  init(3);
  const mup_log_ctrl &log = control();
  EXPECT_EQ(log.inited, 1);
  EXPECT_EQ(log.module_num, 3);
  EXPECT_EQ(log.dirty, 0);
  EXPECT_EQ(log.remote_mode, 0);
  EXPECT_EQ(log.sys_idx + log.usr_idx, 0u);
  EXPECT_NE(log.mutex, nullptr);
  EXPECT_GE(log.sock, 0);
  EXPECT_EQ(log.server_ip, 0xC0A801FEu);  // 192.168.1.254
  EXPECT_EQ(log.level_hook, nullptr);
  EXPECT_STREQ(log.sys_path, "/overlay/mu_log.txt");
  EXPECT_STREQ(log.usr_path, "/overlay/user_log.txt");
  for (int id = 0; id < 3; id++) {
    EXPECT_EQ(log.modules[id].name, 'm' + std::to_string(id));
    EXPECT_EQ(log.modules[id].record_level, 4);
    EXPECT_EQ(log.modules[id].print_level, 4);
    EXPECT_EQ(log.modules[id].enable, 1);
  }
}

TEST(LogInit, OfNullNamesChangesNothing) {
  init();
  Console console;
  EXPECT_EQ(mup_log_init(0, 3, nullptr), 2);
  const std::string text = console.take();
  int line = 0;
  EXPECT_EQ(sscanf(text.c_str(), "mup_log_init() _%d_: assert fail\n", &line), 1) << text;
  EXPECT_GT(line, 0);
  EXPECT_EQ(text, "mup_log_init() _" + std::to_string(line) + "_: assert fail\n");
  EXPECT_EQ(control().inited, 1);
}

TEST(LogInit, FailsWhenMemoryRunsOut) {
  Console console;
  HeapWatch heap;
  {
    FailingMalloc no_memory(1);
    EXPECT_EQ(mup_log_init(0, 3, module_table(3).c_str()), 10);
    EXPECT_EQ(console.take(), "No memory \r\n");
  }
  {
    FailingMalloc no_memory(2);
    EXPECT_EQ(mup_log_init(0, 3, module_table(3).c_str()), -1);
    EXPECT_EQ(console.take(), "create mutex error \r\n");
  }
  EXPECT_EQ(control().modules, nullptr);
  EXPECT_EQ(control().inited, 0);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(LogInit, GoesOnWithoutASocket) {
  Console console;
  Replace refuse(libc::socket, [](int domain, int type, int) {
    EXPECT_EQ(domain, AF_INET);
    EXPECT_EQ(type, SOCK_DGRAM | SOCK_CLOEXEC);
    errno = EMFILE;
    return -1;
  });
  init();
  EXPECT_EQ(console.take(), "Log socket failed\n");
  EXPECT_EQ(control().inited, 1);
  EXPECT_LT(control().sock, 0);
}

TEST(LogInit, CutsANameTo15Characters) {
  const std::string table = "123456789012345Xabc" + std::string(13, '\0');
  ASSERT_EQ(mup_log_init(0, 2, table.c_str()), 0);
  EXPECT_STREQ(control().modules[0].name, "123456789012345");
  EXPECT_STREQ(control().modules[1].name, "abc");
}

TEST(LogInit, KeepsTheUserHeaderTheSecondTime) {
  init();
  // Abandoned by the second start, as the header says; kept within a leak checker's reach.
  static const void *const abandoned[] = {control().modules, control().mutex};
  EXPECT_NE(abandoned[0], nullptr);
  strcpy(control().usr_header.serial_number, "SN1");
  control().remote_mode = 2;
  mup_log_msg(0, 0, 4, 0, "kept until then");
  init(2);
  EXPECT_STREQ(control().usr_header.serial_number, "SN1");
  EXPECT_EQ(control().remote_mode, 0);
  EXPECT_EQ(control().sys_idx, 0u);
  EXPECT_STREQ(control().sys_ring[0].text, "");
}

TEST(LogMsg, IsSilentBeforeInit) {
  Console console;
  mup_log_msg(0, 0, 0, 1, "early");
  mup_log_msg(0, 200, 9, 1, "early");
  EXPECT_EQ(mup_log_show(0, 0), 0);
  EXPECT_EQ(mup_log_set(1), 0);
  EXPECT_EQ(console.take(), "");
}

TEST(LogMsg, RefusesUnknownModulesAndLevels) {
  init();
  Console console;
  mup_log_msg(0, 22, 9, 1, "x");  // the module is looked at first
  EXPECT_EQ(console.take(), "unknow module id:22\r\n");
  mup_log_msg(0, 255, 0, 1, "x");
  EXPECT_EQ(console.take(), "unknow module id:255\r\n");
  mup_log_msg(0, 0, 9, 1, "x");
  EXPECT_EQ(console.take(), "unknow level id:9\r\n");
  mup_log_msg(0, 0, 0, 1, nullptr);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(control().dirty, 0);
}

TEST(LogMsg, AcceptsAndDropsAnIdEqualToTheNumberOfModules) {
  init();
  Console console;
  mup_log_msg(0, 21, 0, 1, "x");
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(control().dirty, 0);
}

TEST(LogMsg, ShowsWithinThePrintLevelAndStoresWithinTheRecordLevel) {
  init();
  Console console;
  set_levels("m1", 2, 6);
  mup_log_msg(0, 1, 5, 77, "stored");
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(control().sys_idx, 1u);
  set_levels("m1", 6, 2);
  mup_log_msg(0, 1, 5, 77, "shown");
  EXPECT_EQ(console.take(), "[m1-Warning: 77]: shown\r\n");
  EXPECT_EQ(control().sys_idx, 1u);
  mup_log_msg(0, 1, 7, 77, "neither");
  EXPECT_EQ(console.take(), "");
  mup_log_msg(0, 1, 2, 77, "both %d", 2);
  EXPECT_EQ(console.take(), "[m1-Alert: 77]: both 2\r\n");
  EXPECT_EQ(control().sys_idx, 2u);
}

TEST(LogMsg, OfLevelOffPassesEveryThreshold) {
  init();
  Console console;
  set_levels("m0", 0, 0);
  mup_log_msg(0, 0, 0, 3, "x");
  EXPECT_EQ(console.take(), "[m0-Off: 3]: x\r\n");
  EXPECT_EQ(control().sys_idx, 1u);
}

TEST(LogMsg, ShowsNoPrefixWithoutALine) {
  init();
  Console console;
  mup_log_msg(0, 0, 4, 0, "bare");
  EXPECT_EQ(console.take(), "bare\r\n");
  mup_log_msg(0, 0, 4, -5, "negative");
  EXPECT_EQ(console.take(), "[m0-Error: -5]: negative\r\n");
}

TEST(LogMsg, WithTheMarkerIsStoredButNotShown) {
  init();
  Console console;
  mup_log_msg(0, 0, 4, 0x4E4F5054, "hidden");
  EXPECT_EQ(console.take(), "");
  EXPECT_STREQ(control().sys_ring[0].text, "hidden");
  EXPECT_EQ(control().sys_ring[0].line, 0u);
}

TEST(LogMsg, StoresAWholeRecord) {
  VirtualClock clock;
  init();
  Console console;
  control().sys_ring[0].text[200] = 'x';  // of an older record
  mup_log_msg(0, 15, 3, 1234, "text");
  const mup_log_rec &record = control().sys_ring[0];
  EXPECT_EQ(record.module, 15);
  EXPECT_EQ(record.level, 3);
  EXPECT_EQ(record.line, 1234u);
  EXPECT_EQ(record.time, VirtualClock::kStart);
  EXPECT_EQ(std::string(record.text, 256), "text" + std::string(252, '\0'));
  EXPECT_EQ(control().dirty, 1);
  mup_log_msg(0, 16, 3, 1234, "user");
  EXPECT_STREQ(control().usr_ring[0].text, "user");
  EXPECT_EQ(control().dirty, 3);
  EXPECT_EQ(control().usr_idx, 1u);
}

TEST(LogMsg, CutsTheTextWhereItsPlacesEnd) {
  init();
  Collector collector;
  control().remote_mode = MUP_LOG_REMOTE_AND_STORE;
  Console console;
  const std::string text(600, 'x');
  mup_log_msg(0, 0, 4, 0, "%s", text.c_str());
  EXPECT_EQ(console.take(), text.substr(0, 511) + "\r\n");
  EXPECT_EQ(collector.next(), text.substr(0, 511));
  EXPECT_EQ(std::string(control().sys_ring[0].text), text.substr(0, 255));
}

TEST(LogMsg, OverwritesTheOldestRecordOfAFullRing) {
  init();
  Console console;
  for (int i = 0; i <= 1024; i++) mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "s%d", i);
  for (int i = 0; i <= 512; i++) mup_log_msg(0, 20, 4, MUP_LOG_NOPRINT, "u%d", i);
  EXPECT_EQ(control().sys_idx, 1u);
  EXPECT_STREQ(control().sys_ring[0].text, "s1024");
  EXPECT_STREQ(control().sys_ring[1].text, "s1");
  EXPECT_EQ(control().usr_idx, 1u);
  EXPECT_STREQ(control().usr_ring[0].text, "u512");
}

TEST(LogMsg, OfADisabledModuleIsDropped) {
  init();
  Console console;
  for (const uint8_t enable : std::to_array<uint8_t>({0, 2, 255})) {  // only 1 counts as enabled
    control().modules[0].enable = enable;
    mup_log_msg(0, 0, 0, 1, "x");
    EXPECT_EQ(console.take(), "") << int{enable};
  }
  EXPECT_EQ(control().sys_idx, 0u);
}

TEST(LogForward, GoesToTheCollectorAsOneDatagramOfTheBareText) {
  init();
  Console console;
  Collector collector;
  int calls = 0;
  Replace send(libc::sendto,
               [&](int sock, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size) {
                 calls++;
                 EXPECT_EQ(sock, control().sock);
                 EXPECT_EQ(flags, 0);
                 sockaddr_in address;
                 EXPECT_EQ(to_size, sizeof address);
                 memcpy(&address, to, sizeof address);
                 EXPECT_EQ(address.sin_family, AF_INET);
                 EXPECT_EQ(ntohs(address.sin_port), 514);
                 EXPECT_EQ(ntohl(address.sin_addr.s_addr), 0x0A010203u);
                 return libc::sendto.real(sock, data, size, flags, to, to_size);
               });
  control().server_ip = 0x0A010203;
  mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "mode 0");
  EXPECT_EQ(calls, 0);
  control().remote_mode = MUP_LOG_REMOTE_ONLY;
  mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "mode 1");
  EXPECT_EQ(collector.next(), "mode 1");
  EXPECT_EQ(control().sys_idx, 1u);  // not stored
  for (const uint8_t mode : std::to_array<uint8_t>({2, 3, 255})) {
    control().remote_mode = mode;
    mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "mode %d", mode);
    EXPECT_EQ(collector.next(), "mode " + std::to_string(mode));
  }
  EXPECT_EQ(control().sys_idx, 4u);
  EXPECT_EQ(collector.next(), std::nullopt);
  EXPECT_EQ(console.take(), "");
}

TEST(LogForward, ReportsAFailedSend) {
  init();
  Console console;
  Replace fail(libc::sendto, [](int, const void *, size_t, int, const sockaddr *, socklen_t) -> ssize_t {
    errno = ENETUNREACH;
    return -1;
  });
  control().remote_mode = MUP_LOG_REMOTE_AND_STORE;
  mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "x");
  EXPECT_EQ(console.take(), "Error writing buffer");
  EXPECT_EQ(control().sys_idx, 1u);
  control().remote_mode = MUP_LOG_REMOTE_ONLY;
  mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "x");
  EXPECT_EQ(console.take(), "Error writing buffer");
  EXPECT_EQ(control().sys_idx, 1u);
}

TEST(LogForward, WithoutASocketLosesWhatIsOnlyForwarded) {
  Replace refuse(libc::socket, [](int, int, int) { return -1; });
  Console console;
  init();
  console.take();
  control().remote_mode = MUP_LOG_REMOTE_ONLY;
  mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "x");
  EXPECT_EQ(control().sys_idx, 0u);
  control().remote_mode = MUP_LOG_REMOTE_AND_STORE;
  mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "x");
  EXPECT_EQ(control().sys_idx, 1u);
  EXPECT_EQ(console.take(), "");
}

TEST(LogLevelSet, ChangesOneSettingAndTellsTheHook) {
  init();
  control().level_hook = note_change;
  EXPECT_EQ(mup_log_level_set(0, "m2", 0, 8), 0);
  EXPECT_EQ(mup_log_level_set(0, "m2", 1, 7), 0);
  EXPECT_EQ(mup_log_level_set(0, "m2", 2, 0), 0);
  EXPECT_EQ(control().modules[2].print_level, 8);
  EXPECT_EQ(control().modules[2].record_level, 7);
  EXPECT_EQ(control().modules[2].enable, 0);
  EXPECT_EQ(g_changes, (Changes{{2, 0, 8}, {2, 1, 7}, {2, 2, 0}}));
}

TEST(LogLevelSet, RefusesWhatIsOutOfRange) {
  init();
  control().level_hook = note_change;
  EXPECT_EQ(mup_log_level_set(0, "m2", 0, 9), 2);
  EXPECT_EQ(mup_log_level_set(0, "m2", 1, 9), 2);
  EXPECT_EQ(mup_log_level_set(0, "m2", 2, 2), 2);
  EXPECT_EQ(mup_log_level_set(0, "m21", 0, 1), 2);
  EXPECT_EQ(mup_log_level_set(0, "", 0, 1), 2);  // no module has an empty name
  EXPECT_EQ(mup_log_level_set(0, "m21", 5, 1), 2);
  EXPECT_EQ(g_changes, Changes{});
}

TEST(LogLevelSet, CallsTheHookForAnUnknownType) {
  init();
  control().level_hook = note_change;
  const mup_log_module before = control().modules[2];
  EXPECT_EQ(mup_log_level_set(0, "m2", 5, 200), 0);
  EXPECT_EQ(memcmp(&before, &control().modules[2], sizeof before), 0);
  EXPECT_EQ(g_changes, (Changes{{2, 5, 200}}));
}

TEST(LogLevelSet, NeedsANameAndAStartedLog) {
  Console console;
  uint8_t value = 9;
  EXPECT_EQ(mup_log_level_set(0, "m0", 0, 1), 19);
  EXPECT_EQ(console.take(), "log system was not init \n");
  EXPECT_EQ(mup_log_level_get(0, "m0", 0, &value), 19);
  EXPECT_EQ(console.take(), "log system was not init \n");
  int line = 0;
  EXPECT_EQ(mup_log_level_set(0, nullptr, 0, 1), 2);
  EXPECT_EQ(sscanf(console.take().c_str(), "mup_log_level_set() _%d_: assert fail\n", &line), 1);
  EXPECT_EQ(mup_log_level_get(0, nullptr, 0, &value), 2);
  EXPECT_EQ(sscanf(console.take().c_str(), "mup_log_level_get() _%d_: assert fail\n", &line), 1);
  EXPECT_EQ(value, 9);
}

TEST(LogLevelGet, ReadsEachSetting) {
  init();
  set_levels("m3", 1, 2);
  uint8_t value = 9;
  EXPECT_EQ(mup_log_level_get(0, "m3", 0, &value), 0);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(mup_log_level_get(0, "m3", 1, &value), 0);
  EXPECT_EQ(value, 2);
  EXPECT_EQ(mup_log_level_get(0, "m3", 2, &value), 0);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(mup_log_level_get(0, "m3", 3, &value), 2);
  EXPECT_EQ(mup_log_level_get(0, "m3", 0, nullptr), 2);
  EXPECT_EQ(mup_log_level_get(0, "none", 0, &value), 2);
  EXPECT_EQ(value, 1);
}

TEST(LogSet, SwitchesTheFirst21ModulesThroughTheHook) {
  init(25);
  control().level_hook = [](uint8_t module, uint8_t type, uint8_t value) {
    EXPECT_NE(mu_mutex_trylock(control().mutex), 0);  // runs under the log mutex
    note_change(module, type, value);
  };
  EXPECT_EQ(mup_log_set(0), 0);
  ASSERT_EQ(g_changes.size(), 21u);
  EXPECT_EQ(g_changes.back(), (Change{20, 2, 0}));
  EXPECT_EQ(control().modules[21].enable, 1);
  g_changes.clear();
  EXPECT_EQ(mup_log_usr_set(-7), 0);
  EXPECT_EQ(g_changes, (Changes{{16, 2, 1}, {17, 2, 1}, {18, 2, 1}, {19, 2, 1}}));
}

TEST(LogSet, PassesOverIdsThatAreNotRegistered) {
  init(18);
  Console console;
  control().level_hook = note_change;
  EXPECT_EQ(mup_log_set(0), 0);
  EXPECT_EQ(g_changes.size(), 18u);
  EXPECT_EQ(mup_log_usr_set(0), 0);
  EXPECT_EQ(g_changes.size(), 20u);
  EXPECT_EQ(console.take(), "");
}

TEST(LogLevelStr, NamesTheLevels) {
  const char *const names[] = {"Off", "Emergency", "Alert", "Critical", "Error", "Warning", "Notice", "Info", "Debug"};
  for (uint8_t level = 0; level < 9; level++) EXPECT_STREQ(mup_log_level_str_get(level), names[level]);
  EXPECT_STREQ(mup_log_level_str_get(9), "");
  EXPECT_STREQ(mup_log_level_str_get(255), "");
}

TEST(LogToStr, FormatsInUtc) {
  setenv("TZ", "UTC-5", 1);
  tzset();
  init();
  mup_log_rec record = {2, 5, 42, 1709210096, "text"};  // 2024-02-29 12:34:56
  char text[512];
  mu_log2str(&record, text, sizeof text);
  EXPECT_STREQ(text, "[02/29-12:34:56]-[Warning 42]m2: text\r\n");
  record.line = 0;
  mu_log2str(&record, text, sizeof text);
  EXPECT_STREQ(text, "[02/29-12:34:56]-[Warning]m2: text\r\n");
  record.level = 9;
  record.module = 21;
  mu_log2str(&record, text, sizeof text);
  EXPECT_STREQ(text, "[02/29-12:34:56]-[]: text\r\n");
  mu_log2str(&record, text, 10);
  EXPECT_STREQ(text, "[02/29-12");
  record.line = 0x80000000;
  mu_log2str(&record, text, sizeof text);
  EXPECT_STREQ(text, "[02/29-12:34:56]-[ -2147483648]: text\r\n");
}

TEST(LogToStr, ReportsNullArguments) {
  Console console;
  mup_log_rec record = {};
  char text[16] = "before";
  int line = 0;
  mu_log2str(nullptr, text, sizeof text);
  EXPECT_EQ(sscanf(console.take().c_str(), "mu_log2str() _%d_: assert fail\n", &line), 1);
  EXPECT_STREQ(text, "before");
  mu_log2str(&record, nullptr, 16);
  EXPECT_EQ(sscanf(console.take().c_str(), "mu_log2str() _%d_: assert fail\n", &line), 1);
}

TEST(LogShow, PrintsTheSystemRingOldestFirst) {
  VirtualClock clock;
  init();
  for (int i = 0; i < 1026; i++) {
    mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "%s", i == 500 ? "" : std::to_string(i).c_str());
  }
  mup_log_msg(0, 16, 4, MUP_LOG_NOPRINT, "user");
  Console console;
  EXPECT_EQ(mup_log_show(0, 0), 0);
  std::string expected;
  for (int i = 2; i < 1026; i++) {
    if (i != 500)
      expected += "[01/02-03:04:05]-[Error]m0: " + std::to_string(i) + "\r\n";  // an empty text is an empty slot
  }
  EXPECT_EQ(console.take(), expected);
}

TEST(LogShow, ClearsTheSystemRing) {
  init();
  for (int i = 0; i < 5; i++) mup_log_msg(0, 0, 4, MUP_LOG_NOPRINT, "x");
  mup_log_msg(0, 16, 4, MUP_LOG_NOPRINT, "user");
  control().dirty = 0;
  Console console;
  EXPECT_EQ(mup_log_show(0, 1), 0);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(control().sys_idx, 0u);
  EXPECT_EQ(control().dirty, 1);
  for (const mup_log_rec &record : control().sys_ring) EXPECT_STREQ(record.text, "");
  EXPECT_STREQ(control().usr_ring[0].text, "user");
}
