// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Event configuration through the device: valid requests of the library, and invalid ones.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform.h"
#include "support/console.h"
#include "tarn/event.h"

using namespace driver_test;
using tarn_test::Console;

namespace {

// A registry that forwards, without the event thread: mup_plat_event_init without the channel.
struct Forwarding {
  Forwarding() { mu_event_init(MUP_EVENT_NUM, nullptr, mup_event_cfg_forward); }
};

void send(const std::string &type, int count) {
  for (int i = 0; i < count; i++) ASSERT_EQ(control("event " + type + " 0"), 0);
}

struct Argument {
  mu_pal_hdr_t header = {};
  mu_event_msg_t message = {};
};
static_assert(sizeof(Argument) == 56);

// The device's answer to a request: 0 or the error number.
int request(unsigned long code, void *argument, const char *device = MU_PAL_DEVICE) {
  const int file = open(device, O_RDWR | O_CLOEXEC);
  if (file < 0) return errno;
  const int error = ioctl(file, code, argument) == 0 ? 0 : errno;
  close(file);
  return error;
}

}  // namespace

TEST(DriverConfiguration, IsKeptByTheDriverAndReadBack) {
  const Forwarding registry;
  struct Row {
    mu_event_cfg_t set, get;
  };
  const Row rows[] = {{{1, 3, 1000}, {1, 3, 1000}},
                      {{1, 3, 5}, {1, 3, 10}},
                      {{1, 0, 25}, {1, 0, 20}},
                      {{7, 4294967295u, 0}, {1, 4294967295u, 10}},
                      {{1, 1, 4294967295u}, {1, 1, 4294967290u}},
                      {{0, 9, 10}, {0, 9, 10}},
                      {{0, 9, 11}, {0, 9, 10}}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.set.period);
    mu_event_cfg_t got = {99, 99, 99};
    EXPECT_EQ(mu_event_set(0, 19, &row.set), 0);
    EXPECT_EQ(mu_event_get(0, 19, &got), 0);
    EXPECT_EQ(got.suprs_en, row.get.suprs_en);
    EXPECT_EQ(got.threshold, row.get.threshold);
    EXPECT_EQ(got.period, row.get.period);
  }
  EXPECT_EQ(glb_evt.events[19].threshold, 0u);  // the process's own table does not change
}

TEST(DriverConfiguration, OfOneTypeLeavesTheOthersAlone) {
  const Forwarding registry;
  const mu_event_cfg_t set = {1, 3, 1000};
  mu_event_cfg_t got = {};
  ASSERT_EQ(mu_event_set(0, 7, &set), 0);
  for (int type = 0; type < MUP_EVENT_NUM; type++) {
    ASSERT_EQ(mu_event_get(0, type, &got), 0);
    EXPECT_EQ(got.suprs_en, type == 7 ? 1u : 0u) << type;
  }
}

TEST(DriverCounters, CountWhatTheDriverLetThroughAndAreClearedOnRequest) {
  const Forwarding registry;
  uint32_t count = 99;
  send("3", 4);
  send("4", 1);
  EXPECT_EQ(mu_event_counter_get(0, 3, &count, 0), 0);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(mu_event_counter_get(0, 3, &count, 1), 0);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(mu_event_counter_get(0, 3, &count, 0), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_get(0, 4, &count, 0), 0);
  EXPECT_EQ(count, 1u);
}

TEST(DriverCounters, AreClearedForOneTypeOrForAll) {
  const Forwarding registry;
  const mu_event_cfg_t one = {1, 1, 100000};
  ASSERT_EQ(mu_event_set(0, 3, &one), 0);
  send("3", 3);
  send("4", 2);
  EXPECT_EQ(status_line("event 3:"), "event 3: count 1 dropped 2 suppressed 1");
  EXPECT_EQ(mu_event_counter_clear(0, 3), 0);
  EXPECT_EQ(status_line("event 3:"), "event 3: count 0 dropped 0 suppressed 1");
  EXPECT_EQ(status_line("event 4:"), "event 4: count 2 dropped 0 suppressed 0");
  EXPECT_EQ(mu_event_counter_clear_all(0), 0);
  EXPECT_EQ(status_line("event 4:"), "");
}

TEST(DriverSuppression, DropsWhatExceedsTheThreshold) {
  ASSERT_TRUE(start_channel());
  const mu_event_cfg_t three = {1, 3, 100000};  // a window of 5000 s
  ASSERT_EQ(mu_event_set(0, 5, &three), 0);
  const long sent = status_number("sent");
  ASSERT_EQ(control("storm 5 1 1000\nevent 6 2"), 0);
  ASSERT_TRUE(eventually([] { return received().size() >= 4; }));
  EXPECT_EQ(received().size(), 4u);
  EXPECT_EQ(received()[2].data, std::string("\2\0\0\0", 4));
  EXPECT_EQ(received()[3].type, 6u);
  EXPECT_EQ(status_number("sent"), sent + 4);
  EXPECT_NE(status_line("event 5:").find("dropped 997 suppressed 1"), std::string::npos) << status_line("event 5:");
}

TEST(DriverSuppression, EndsWhenTheStormIsOver) {
  const Forwarding registry;
  const mu_event_cfg_t one = {1, 1, 10};  // a window of one poll
  ASSERT_EQ(mu_event_set(0, 5, &one), 0);
  send("5", 10);
  uint32_t before = 0, after = 0;
  mu_event_counter_get(0, 5, &before, 0);
  const long polls = status_number("polls");
  // The first poll without an occurrence ends the suppression, the second one begins a new window.
  ASSERT_TRUE(eventually([&] { return status_number("polls") >= polls + 2; }));
  send("5", 1);
  mu_event_counter_get(0, 5, &after, 0);
  EXPECT_EQ(after, before + 1);
}

TEST(DriverDump, IsInTheKernelsLog) {
  const Forwarding registry;
  const mu_event_cfg_t set = {1, 1, 1000};
  ASSERT_EQ(mu_event_set(0, 1, &set), 0);
  send("0", 12);
  send("1", 3);
  mu_event_dump();
  const std::string log = kernel_log();
  EXPECT_NE(log.rfind("Type Count      Suprs-en Suprs-s Suprs-cnt Threshold Period(ms)"), std::string::npos);
  EXPECT_NE(log.rfind(": 0    12         Disable  -       -         -         -"), std::string::npos) << log;
  EXPECT_NE(log.rfind(": 1    1          Enable   Yes     2         1         1000"), std::string::npos) << log;
}

TEST(DriverDevice, TakesNoLengthButTheMessages) {
  for (const int length : {0, 1, 31, 33, 1000, 65535}) {
    Argument argument;
    argument.header.length = static_cast<uint16_t>(length);
    argument.message.op = MU_EVENT_OP_COUNTER_CLEAR_ALL;
    EXPECT_EQ(request(0x4301, &argument), EINVAL) << length;
  }
  for (const int length : {1, 32, 65535}) {
    Argument argument;
    argument.header.length = static_cast<uint16_t>(length);
    EXPECT_EQ(request(0x4302, &argument), EINVAL) << length;
  }
}

TEST(DriverDevice, RefusesOperationsAndTypesThatDoNotExist) {
  for (uint32_t op = 0; op < 9; op++) {
    for (const uint32_t type : {0u, 19u, 20u, 65536u, 0x80000000u, 0xFFFFFFFFu}) {
      Argument argument;
      argument.header.length = 32;
      argument.message.op = op;
      argument.message.type = type;
      const bool for_all = op == MU_EVENT_OP_COUNTER_CLEAR_ALL || op == MU_EVENT_OP_DUMP;
      const bool good = op <= MU_EVENT_OP_DUMP && (for_all || type < 20);
      EXPECT_EQ(request(0x4301, &argument), good ? 0 : EINVAL) << op << ' ' << type;
    }
  }
  Argument argument;
  argument.header.length = 32;
  argument.message.op = 0xFFFFFFFF;
  EXPECT_EQ(request(0x4301, &argument), EINVAL);
}

TEST(DriverDevice, RefusesRequestsThatItDoesNotKnow) {
  Argument argument;
  argument.header.length = 32;
  for (const unsigned long code : {0x4300ul, 0x4303ul, 0x4304ul, 0ul, 0x43014301ul}) {
    EXPECT_EQ(request(code, &argument), ENOTTY) << code;
  }
  char block[256] = {};
  EXPECT_EQ(request(0x4301, block, "/dev/mulog-ioctl-dev"), ENOTTY);
}

TEST(DriverDevice, SurvivesArgumentsAtBadAddresses) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  char *pages =
      static_cast<char *>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(pages, MAP_FAILED);
  ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);
  for (const unsigned long code : {0x4301ul, 0x4302ul}) {
    EXPECT_EQ(request(code, nullptr), EFAULT);
    EXPECT_EQ(request(code, pages + page), EFAULT);
    EXPECT_EQ(request(code, pages + page - 23), EFAULT);
    EXPECT_EQ(request(code, std::bit_cast<void *>(~uintptr_t{0})), EFAULT);
    EXPECT_EQ(request(code, std::bit_cast<void *>(uintptr_t{0xffff800008000000})), EFAULT);  // a kernel address
  }
  Argument argument;
  argument.header.length = 32;
  argument.message.op = MU_EVENT_OP_GET;
  memcpy(pages + page - 55, &argument, 55);
  EXPECT_EQ(request(0x4301, pages + page - 55), EFAULT);  // the payload's last byte is missing
  memcpy(pages, &argument, sizeof argument);
  ASSERT_EQ(mprotect(pages, page, PROT_READ), 0);
  EXPECT_EQ(request(0x4301, pages), EFAULT);  // the answer cannot be written
  argument = {};
  memcpy(&argument.header.destination, "\1\2\3\0", 4);
  ASSERT_EQ(mprotect(pages, page, PROT_READ | PROT_WRITE), 0);
  memcpy(pages + page - 24, &argument, 24);
  EXPECT_EQ(request(0x4302, pages + page - 24), 0);  // this argument consists of a header only
}

TEST(DriverDevice, GetsPayloadsOf4072BytesAndNotOf4073) {
  std::vector<char> argument(sizeof(mu_pal_hdr_t) + 4073);
  mu_pal_hdr_t header = {};
  header.length = 4072;
  memcpy(argument.data(), &header, sizeof header);
  {
    Console console;
    EXPECT_EQ(mu_pal_ioctl(1, argument.data()), -1);
    EXPECT_EQ(console.take(),
              "Can not run command '1', ret=-1.\n");  // from the driver, whose command numbers are shorter
  }
  header.length = 4073;
  memcpy(argument.data(), &header, sizeof header);
  Console console;
  EXPECT_EQ(mu_pal_ioctl(1, argument.data()), -1);
  EXPECT_EQ(console.take(), "ioctl: input param is too long.\n");
}

TEST(DriverLogDevice, RefusesWhatIsNoSetting) {
  struct Row {
    uint16_t command;
    uint8_t module, setting, value;
    int error;
  };
  const Row rows[] = {{3, 50, 0, 8, 0},      {3, 255, 1, 0, 0},     {3, 50, 2, 255, 0},       {3, 50, 2, 1, 0},
                      {3, 50, 0, 9, EINVAL}, {3, 50, 1, 9, EINVAL}, {3, 50, 3, 1, EINVAL},    {0, 50, 1, 1, EINVAL},
                      {2, 50, 1, 1, EINVAL}, {4, 50, 1, 1, EINVAL}, {0x300, 50, 1, 1, EINVAL}};
  for (const Row &row : rows) {
    char block[256] = {};
    memcpy(block + 10, &row.command, 2);
    block[12] = static_cast<char>(row.module);
    block[13] = static_cast<char>(row.setting);
    block[14] = static_cast<char>(row.value);
    EXPECT_EQ(request(0x4300, block, "/dev/mulog-ioctl-dev"), row.error) << int{row.setting} << ' ' << int{row.value};
  }
  EXPECT_EQ(request(0x4300, nullptr, "/dev/mulog-ioctl-dev"), EFAULT);
  EXPECT_EQ(status_line("log 255:"), "log 255: print 8 record 0 enable 1");
}
