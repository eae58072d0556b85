// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Several threads call the service while the timer thread scans and callbacks call it too. The state afterwards is
// checked here; data races are found by the thread sanitizer.

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <string_view>
#include <thread>

#include "support/console.h"
#include "support/random.h"
#include "timer/fixture.h"

using namespace tarn_test;

namespace {

constexpr size_t kWorkers = 4;
constexpr int kRounds = 250;
constexpr uint32_t kCrowd = 200;  // no worker adds above it, so the limit of 256 is never reached
constexpr std::string_view kHeader = kTableHeader;

// Ids that every thread knows and uses; their timers may be gone.
std::array<std::atomic<uint32_t>, 32> g_shared_ids;
std::atomic<uint32_t> g_fired;
std::atomic<uint32_t> g_shown;

uint32_t shared_id(Random &random) { return g_shared_ids[random.below(g_shared_ids.size())]; }

uint32_t add_some(Random &random, mu_timer_cb_t callback) {
  if (mu_timer_count() >= kCrowd) return 0;
  const auto add = random.chance(500) ? mu_timer_add : mu_circle_timer_add;
  return add(static_cast<int>(random.below(80)), callback, nullptr);
}

void call_something(Random &random, bool may_show) {
  const uint32_t id = shared_id(random);
  switch (random.below(8)) {
    case 0:
    case 1:
      mu_timer_del(id);
      break;
    case 2:
      mu_timer_stop(id);
      break;
    case 3:
    case 4:
      mu_timer_start(id);
      break;
    case 5:
      mu_timer_restart(id, static_cast<uint32_t>(random.below(200)));
      break;
    case 6:
      mu_timer_count();
      break;
    default:
      if (!may_show || random.below(4) != 0) break;
      mu_timer_show();
      g_shown++;
  }
}

void fire(void *) {
  static Random random(99);  // used by the timer thread only
  g_fired++;
  if (random.below(3) == 0) call_something(random, false);
}

// Runs `body(number)` in some threads at once, kRounds times in each, and scans until the last of them has ended.
// No thread gets far ahead of the scans.
template <typename Body>
void run_in_threads_while_scanning(VirtualClock &clock, const Body &body) {
  std::atomic<int> scans{0};
  std::atomic<size_t> ended{0};
  std::vector<std::thread> threads;
  for (size_t number = 0; number < kWorkers; number++) {
    threads.emplace_back([&, number] {
      for (int round = 0; round < kRounds; round++) {
        while (scans.load(std::memory_order_relaxed) < round / 8) std::this_thread::yield();
        body(number);
      }
      ended++;
    });
  }
  do {
    clock.scan();
    scans.fetch_add(1, std::memory_order_relaxed);
  } while (ended < kWorkers);
  for (std::thread &thread : threads) thread.join();
}

// Checks every table except its header, the only part that is printed without the mutex: rows numbered from 0, two
// lines of statistics and an empty one, all of them whole, with nothing in between. Returns the number of tables, or
// -1.
int count_whole_tables(std::string text) {
  for (size_t at = text.find(kHeader); at != std::string::npos; at = text.find(kHeader, at)) {
    text.erase(at, kHeader.size());
  }
  int tables = 0;
  int row = 0;
  size_t line_of_statistics = 0;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = text.find("\r\n", begin);
    if (end == std::string::npos) return -1;
    const std::string line = text.substr(begin, end - begin);
    begin = end + 2;
    if (line_of_statistics == 0 && line.starts_with(std::to_string(row) + " ")) {
      row++;
    } else if (line_of_statistics == 0 && line.starts_with("Max timer drain:(ptr=0x")) {
      line_of_statistics = 1;
    } else if (line_of_statistics == 1 && line.starts_with("Expired timer Number: ")) {
      line_of_statistics = 2;
    } else if (line_of_statistics == 2 && line.empty()) {
      tables++;
      row = 0;
      line_of_statistics = 0;
    } else if (row == 0 && line_of_statistics == 0 && line.starts_with("Oops: ")) {
      continue;
    } else {
      return -1;
    }
  }
  return row == 0 && line_of_statistics == 0 ? tables : -1;
}

}  // namespace

TEST(TimerThreads, AgreeOnTimersIdsAndExpiriesWhileAllOfThemCall) {
  VirtualClock clock;
  start_service(clock);
  std::array<std::vector<uint32_t>, kWorkers> added;
  std::array<Random, kWorkers> randoms{Random(1), Random(2), Random(3), Random(4)};
  const uint32_t steady = mu_circle_timer_add(10, fire, nullptr);  // unknown to the threads: fires in every scan
  Console console;
  run_in_threads_while_scanning(clock, [&](size_t number) {
    Random &random = randoms[number];
    if (const uint32_t id = add_some(random, fire); id != 0) {
      added[number].push_back(id);
      g_shared_ids[random.below(g_shared_ids.size())] = id;
    }
    call_something(random, true);
  });
  const std::string text = console.take();
  EXPECT_EQ(count_whole_tables(text), static_cast<int>(g_shown)) << text;

  std::vector<uint32_t> all{steady};
  for (const auto &ids : added) all.insert(all.end(), ids.begin(), ids.end());
  EXPECT_EQ(timer_info.last_id, all.size());
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end()) << "no id was handed out twice";

  EXPECT_EQ(timer_info.expired, g_fired);
  EXPECT_GE(g_fired, static_cast<uint32_t>(kRounds / 8)) << "once a scan at least";
  const std::vector<uint32_t> left = listed_ids();
  EXPECT_EQ(mu_timer_count(), left.size());
  for (const uint32_t id : left) {
    EXPECT_TRUE(std::binary_search(all.begin(), all.end(), id)) << id;
    mu_timer_del(id);
  }
  clock.scan();
  EXPECT_EQ(mu_timer_count(), 0u);
  const uint32_t fired = g_fired;
  clock.scan(20);
  EXPECT_EQ(g_fired, fired);
}

TEST(TimerThreads, AddUpToTheLimitAndNoFurther) {
  VirtualClock clock;
  start_service(clock);
  std::array<uint32_t, kWorkers> accepted{};
  Console console;
  run_in_threads_while_scanning(clock, [&](size_t number) {
    if (mu_timer_add(1000000000, fire, nullptr) != 0) accepted[number]++;
  });
  uint32_t sum = 0;
  for (const uint32_t count : accepted) sum += count;
  EXPECT_EQ(sum, 256u);
  EXPECT_EQ(mu_timer_count(), 256u);
  std::string refusals;
  for (size_t i = 256; i < kWorkers * kRounds; i++) refusals += "Timer number exceed(256)\n";
  EXPECT_EQ(console.take(), refusals);
}

// A thread that gets 0 knows that the callback neither runs nor will run, so its argument may be released.
TEST(TimerThreads, MayReleaseACallbacksArgumentOnceADeleteGaveZero) {
  using Runs = uint32_t;           // plain: only the timer thread uses it while the timer exists
  static std::atomic<Runs> fired;  // relaxed: it must not order the callback before the release
  VirtualClock clock;
  start_service(clock);
  std::array<std::vector<std::unique_ptr<Runs>>, kWorkers> kept;
  std::atomic<uint32_t> released{0};
  run_in_threads_while_scanning(clock, [&](size_t number) {
    auto runs = std::make_unique<Runs>(0);
    const uint32_t id = mu_circle_timer_add(
        10,
        [](void *arg) {
          fired.fetch_add(1, std::memory_order_relaxed);
          ++*static_cast<Runs *>(arg);
        },
        runs.get());
    const Runs before = fired.load(std::memory_order_relaxed);
    for (int i = 0; i < 50 && fired.load(std::memory_order_relaxed) == before; i++) std::this_thread::yield();
    if (id == 0 || mu_timer_del(id) != 0) {
      kept[number].push_back(std::move(runs));  // may still be counted
      return;
    }
    *runs = 0;
    runs.reset();
    released++;
  });
  EXPECT_GT(released, 0u);
  clock.scan(2);
  EXPECT_EQ(mu_timer_count(), 0u);
}
