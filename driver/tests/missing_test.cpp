// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Missing device nodes, and a driver that is unloaded.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "platform.h"
#include "support/console.h"
#include "tarn/event.h"
#include "tarn/log.h"

using namespace driver_test;
using tarn_test::Console;

namespace {

constexpr char kLogDevice[] = "/dev/mulog-ioctl-dev";
constexpr char kPalMissing[] = "Device open failure /dev/mu_pal_ioctl\n";
constexpr char kLogMissing[] = "Device open failure /dev/mulog-ioctl-dev\n";
constexpr char kModules[2][MUP_LOG_NAME_SIZE] = {"main", "switch"};

// Moves a device node away for a scope.
class Without {
 public:
  explicit Without(const char *path) : path_(path) { rename(path_, "/dev/elsewhere"); }
  ~Without() { rename("/dev/elsewhere", path_); }

 private:
  const char *path_;
};

// The threads of this process.
long threads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

// Loads the driver again after each test.
struct Reloaded {
  ~Reloaded() { load_driver(); }
};

}  // namespace

TEST(DriverMissing, DeviceNodeFailsEachConfigurationCallInWordsAlone) {
  mu_event_init(MUP_EVENT_NUM, nullptr, mup_event_cfg_forward);
  const Without device(MU_PAL_DEVICE);
  mu_event_cfg_t configuration = {1, 2, 3};
  uint32_t count = 9;
  Console console;
  EXPECT_EQ(mu_event_set(0, 1, &configuration), 0);
  EXPECT_EQ(mu_event_get(0, 1, &configuration), 0);
  EXPECT_EQ(mu_event_counter_get(0, 1, &count, 0), 0);
  EXPECT_EQ(mu_event_counter_clear(0, 1), 0);
  EXPECT_EQ(mu_event_counter_clear_all(0), 0);
  mu_event_dump();
  mu_event_dest_set(1);
  std::string expected;
  for (int i = 0; i < 7; i++) expected += kPalMissing;
  EXPECT_EQ(console.take(), expected);
  EXPECT_EQ(configuration.threshold, 2u);
  EXPECT_EQ(count, 0u);
}

TEST(DriverMissing, DeviceNodeLeavesTheChannelDeafUntilItIsThere) {
  mu_event_dest_set(4000000);
  {
    const Without device(MU_PAL_DEVICE);
    ASSERT_TRUE(start_channel());  // the socket needs no node, but the driver does not know the port
    EXPECT_EQ(status_number("destination"), 4000000);
  }
  mu_event_dest_set(static_cast<uint32_t>(evt_dest));
  ASSERT_EQ(control("event 1 0"), 0);
  EXPECT_TRUE(eventually([] { return received().size() == 1; }));
}

TEST(DriverMissing, LogDeviceFailsALevelInWordsAlone) {
  mup_log_usr_init(2, kModules[0]);
  const Without device(kLogDevice);
  Console console;
  EXPECT_EQ(mup_log_level_set(0, "switch", MUP_LOG_SET_RECORD, 7), 0);
  EXPECT_EQ(console.take(), kLogMissing);
  EXPECT_EQ(mup_log_ctrl_get()->modules[1].record_level, 7);
}

TEST(DriverUnload, IsRefusedWhileADaemonListens) {
  const Reloaded afterwards;
  Child daemon([] {
    printf("%s\n", start_channel() ? "up" : "no channel");
    print_occurrences();
  });
  ASSERT_TRUE(daemon.says("up"));
  EXPECT_EQ(unload_driver(), EAGAIN);
  ASSERT_EQ(control("event 1 7"), 0);
  EXPECT_TRUE(daemon.says("got 1 7 0"));
  daemon.end();
  EXPECT_EQ(unload_driver(), 0);
}

TEST(DriverUnload, LeavesTheDaemonsCallsToFailAndReloadingServesThem) {
  const Reloaded afterwards;
  mu_event_init(MUP_EVENT_NUM, nullptr, mup_event_cfg_forward);
  mup_log_usr_init(2, kModules[0]);
  const mu_event_cfg_t set = {1, 2, 30};
  mu_event_cfg_t got = {};
  ASSERT_EQ(mu_event_set(0, 1, &set), 0);
  ASSERT_EQ(unload_driver(), 0);
  {
    Console console;
    EXPECT_EQ(mu_event_set(0, 1, &set), 0);
    EXPECT_EQ(mup_log_level_set(0, "switch", MUP_LOG_SET_RECORD, 7), 0);
    EXPECT_EQ(console.take(), std::string(kPalMissing) + kLogMissing);
  }
  load_driver();
  ASSERT_TRUE(eventually([] { return access(MU_PAL_DEVICE, F_OK) == 0 && access(kLogDevice, F_OK) == 0; }));
  EXPECT_EQ(mu_event_get(0, 1, &got), 0);
  EXPECT_EQ(got.suprs_en, 0u);  // the driver has lost it: a daemon must configure it again
  EXPECT_EQ(mu_event_set(0, 1, &set), 0);
  EXPECT_EQ(mu_event_get(0, 1, &got), 0);
  EXPECT_EQ(got.threshold, 2u);
}

TEST(DriverUnload, LeavesANewDaemonWithoutAChannelAndItLives) {
  const Reloaded afterwards;
  ASSERT_EQ(unload_driver(), 0);
  Child daemon([] {
    mup_plat_event_init();
    const bool is_alone = eventually([] { return threads() == 2; });  // this one and the timer's
    if (is_alone) printf("alone, flag %u\n", evt_flag);
    pause();
  });
  EXPECT_TRUE(daemon.says("!Create pkt_evt channel failed::"));
  EXPECT_TRUE(daemon.says("alone, flag 1"));
}
