// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Minutes of storms, configuration and kernel messages. TARN_SOAK_SECONDS sets how long; 60 unless set.

#include <gtest/gtest.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "platform.h"
#include "tarn/event.h"
#include "tarn/log.h"
#include "tarn/platform.h"

using namespace driver_test;

namespace {

constexpr char kModules[2][MUP_LOG_NAME_SIZE] = {"main", "switch"};

// What the subscriber has seen, without datagrams that a failed receive repeats directly after the original.
struct Seen {
  std::atomic<long> occurrences{0}, twice{0};
  uint64_t last = UINT64_MAX;
} seen;

int count(uint16_t device, uint32_t type, void *data, uint32_t length, uint64_t) {
  uint32_t number = 0;
  if (length >= 4) memcpy(&number, data, 4);
  const uint64_t which = uint64_t{type} << 48 | uint64_t{device} << 32 | number;
  if (which == seen.last) {
    seen.twice++;
  } else {
    seen.occurrences++;
  }
  seen.last = which;
  return 0;
}

long resident_kib() {
  std::istringstream lines(file_text("/proc/self/status"));
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 6, "VmRSS:") == 0) return atol(line.c_str() + 6);
  }
  return -1;
}

long open_files() {
  const std::filesystem::directory_iterator files("/proc/self/fd");
  return std::distance(begin(files), end(files));
}

void start_services() {
  mup_plat_event_init();
  mu_event_register(0, 1, count);
  mu_event_register(0, 2, count);
  ASSERT_TRUE(eventually([] { return evt_dest != 0 && is_bound(static_cast<uint32_t>(evt_dest)); }));
  mup_log_usr_init(2, kModules[0]);
  mup_log_level_set(0, "switch", MUP_LOG_SET_RECORD, MUP_LOG_DEBUG);
  sem_t started;
  pthread_t bridge;
  sem_init(&started, 0, 0);
  ASSERT_EQ(mu_thread_create(&bridge, "klog", log_msg_process, &started, 0, 0, 0), 0);
  while (sem_wait(&started) != 0) continue;
}

// Requests a storm through the registry, datagrams without it, a message and configuration. Returns the number of
// events.
long one_round(uint32_t round) {
  constexpr long kStorm = 2000, kDatagrams = 50;
  const std::string device = std::to_string(round % 65536);
  EXPECT_EQ(control("storm 1 " + device + ' ' + std::to_string(kStorm)), 0);
  std::string datagrams;
  for (uint32_t i = 0; i < kDatagrams; i++) {
    const std::string number(reinterpret_cast<const char *>(&i), 4);
    datagrams += "datagram " + hex(datagram(2, static_cast<uint16_t>(round), 4, number)) + '\n';
  }
  EXPECT_EQ(control(datagrams), 0);
  EXPECT_EQ(control("kmsg 1 6 round " + std::to_string(round)), 0);
  const mu_event_cfg_t set = {1, round, 1000};
  mu_event_cfg_t got = {};
  EXPECT_EQ(mu_event_set(0, 19, &set), 0);
  EXPECT_EQ(mu_event_get(0, 19, &got), 0);
  EXPECT_EQ(got.threshold, round);
  return kStorm + kDatagrams;
}

}  // namespace

TEST(DriverSoak, LosesNothingThatItDoesNotCount) {
  const char *seconds = getenv("TARN_SOAK_SECONDS");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds == nullptr ? 60 : atol(seconds));
  start_services();
  const long sent = status_number("sent");
  const long overruns = status_number("overruns");
  long ordered = 0, resident = 0, files = 0;
  uint32_t round = 0;
  for (; std::chrono::steady_clock::now() < end || round < 20; round++) {
    if (round == 10) resident = resident_kib(), files = open_files();  // all caches are filled
    ordered += one_round(round);
  }
  const long queued = status_number("sent") - sent;
  const long lost = status_number("overruns") - overruns;
  EXPECT_EQ(queued + lost, ordered);
  EXPECT_TRUE(eventually([queued] { return seen.occurrences >= queued; }));
  EXPECT_EQ(seen.occurrences, queued);
  EXPECT_LE(seen.twice, lost);
  EXPECT_EQ(status_number("refused") + status_number("failed"), 0);
  EXPECT_EQ(open_files(), files);
  EXPECT_LT(resident_kib(), resident + 1024);
  FILE *summary = fopen("/tmp/soak", "w");
  ASSERT_NE(summary, nullptr);
  fprintf(summary, "%u rounds: %ld ordered, %ld received, %ld overruns, %ld repeated, %ld KiB resident\n", round,
          ordered, seen.occurrences.load(), lost, seen.twice.load(), resident_kib());
  fclose(summary);
}
