// What a scan does with a timer that has run out: one-shot and circular ones, and what callbacks may do to the list
// meanwhile.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "support/heap.h"
#include "support/virtual_clock.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

using Ids = std::vector<uint32_t>;
using Body = std::function<void()>;

constexpr int kLong = 1000000000;

void run(void *body) { (*static_cast<Body *>(body))(); }

void ignore(void *) {}

const mu_timer_rec_t *find(uint32_t id) {
  const mu_list_node_t *node = mu_list_query(timer_info.list, &id);
  return node == nullptr ? nullptr : static_cast<const mu_timer_rec_t *>(node->data);
}

uint32_t remain(uint32_t id) { return find(id)->remain; }

// The service runs, and its first scan has passed at tick 101 of the clock: each scan from here on counts one tick.
class TimerExpiryContract : public testing::Test {
 protected:
  TimerExpiryContract() {
    mu_timer_add(0, nullptr, nullptr);
    clock_.scan();
  }

  // A callback that notes its timer's name.
  Body note(uint32_t name) {
    return [this, name] { fired_.push_back(name); };
  }

  VirtualClock clock_{1000};
  Ids fired_;
};

using TimerOneShotContract = TimerExpiryContract;
using TimerCircularContract = TimerExpiryContract;
using TimerListDuringScanContract = TimerExpiryContract;

}  // namespace

// ---- One-shot timers ------------------------------------------------------------------------------------------------

TEST_F(TimerOneShotContract, RunsOnceAfterItsIntervalAndIsGone) {
  Body body = note(1);
  const uint32_t id = mu_timer_add(1000, run, &body);
  clock_.run_ms(990);
  EXPECT_EQ(fired_, Ids{});
  EXPECT_EQ(mu_timer_count(), 1u);
  clock_.run_ms(10);
  EXPECT_EQ(fired_, Ids{1});
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(find(id), nullptr);
  clock_.run_ms(5000);
  EXPECT_EQ(fired_, Ids{1});
}

TEST_F(TimerOneShotContract, IsFreedBehindItsCallback) {
  const HeapWatch heap;
  mu_timer_add(10, ignore, nullptr);
  const void *node = mu_list_first(timer_info.list);
  EXPECT_EQ(heap.live(), 1u);
  clock_.scan();
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(heap.freed(), std::vector<void *>{const_cast<void *>(node)});
}

TEST_F(TimerOneShotContract, StaysWhenItsCallbackRestartsIt) {
  int runs = 0;
  uint32_t id = 0;
  Body again = [&] {
    if (++runs == 1) mu_timer_restart(id, 50);
  };
  id = mu_timer_add(10, run, &again);
  clock_.scan();
  ASSERT_NE(find(id), nullptr);
  EXPECT_EQ(find(id)->type, 0u);
  EXPECT_EQ(remain(id), 5u);
  EXPECT_EQ(find(id)->interval, 5u);
  clock_.scan(4);
  EXPECT_EQ(runs, 1);
  clock_.scan();
  EXPECT_EQ(runs, 2);
  EXPECT_EQ(mu_timer_count(), 0u) << "not armed again by its second run";
}

TEST_F(TimerOneShotContract, StaysWithItsFullIntervalWhenItsCallbackStartsIt) {
  int runs = 0;
  uint32_t id = 0;
  Body again = [&] {
    if (++runs == 1) mu_timer_start(id);
  };
  id = mu_timer_add(30, run, &again);
  clock_.scan(3);
  ASSERT_NE(find(id), nullptr);
  EXPECT_EQ(remain(id), 3u);
  clock_.scan(3);
  EXPECT_EQ(runs, 2);
  EXPECT_EQ(mu_timer_count(), 0u);
}

// The outcome for the timer's node when its own callback does these things; 0 remaining removes it, whatever its flags.
TEST_F(TimerOneShotContract, IsKeptByWhatItsCallbackLeavesInRemainAlone) {
  const struct {
    const char *name;
    void (*act)(uint32_t id);
    bool kept;
    uint32_t deleted;
    uint32_t stopped;
  } rows[] = {
      {"nothing", [](uint32_t) {}, false, 0, 0},
      {"stop", [](uint32_t id) { mu_timer_stop(id); }, false, 0, 0},
      {"delete", [](uint32_t id) { mu_timer_del(id); }, false, 0, 0},
      {"restart, stop", [](uint32_t id) { mu_timer_restart(id, 50), mu_timer_stop(id); }, true, 0, 1},
      {"stop, start", [](uint32_t id) { mu_timer_stop(id), mu_timer_start(id); }, true, 0, 0},
      {"restart, delete", [](uint32_t id) { mu_timer_restart(id, 50), mu_timer_del(id); }, true, 1, 0},
      {"delete, restart", [](uint32_t id) { mu_timer_del(id), mu_timer_restart(id, 50); }, true, 0, 0},
      {"delete, start", [](uint32_t id) { mu_timer_del(id), mu_timer_start(id); }, true, 0, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    uint32_t id = 0;
    Body body = [&] { row.act(id); };
    id = mu_timer_add(10, run, &body);
    clock_.scan();
    const mu_timer_rec_t *timer = find(id);
    ASSERT_EQ(timer != nullptr, row.kept);
    if (timer == nullptr) continue;
    EXPECT_EQ(timer->deleted, row.deleted);
    EXPECT_EQ(timer->stopped, row.stopped);
    EXPECT_EQ(timer->running, 0u);
    mu_timer_del(id);
    clock_.scan();
  }
}

// ---- Circular timers ------------------------------------------------------------------------------------------------

TEST_F(TimerCircularContract, RunsOnceAnInterval) {
  int runs = 0;
  Body count = [&] { runs++; };
  const uint32_t id = mu_circle_timer_add(30, run, &count);
  clock_.scan(2);
  EXPECT_EQ(runs, 0);
  clock_.scan();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(remain(id), 3u);
  clock_.scan(3 * 9);
  EXPECT_EQ(runs, 10);
  EXPECT_EQ(mu_timer_count(), 1u);
}

TEST_F(TimerCircularContract, DropsTheTicksByWhichItOvershot) {
  int runs = 0;
  Body count = [&] { runs++; };
  const uint32_t id = mu_circle_timer_add(50, run, &count);
  clock_.pass_ms(580);
  clock_.scan();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(remain(id), 5u);
  clock_.scan(4);
  EXPECT_EQ(runs, 1);
  clock_.scan();
  EXPECT_EQ(runs, 2);
}

TEST_F(TimerCircularContract, ReloadsTheIntervalThatItsCallbackGaveIt) {
  uint32_t id = 0;
  Body body = [&] { mu_timer_restart(id, 80); };
  id = mu_circle_timer_add(10, run, &body);
  clock_.scan();
  EXPECT_EQ(find(id)->interval, 8u);
  EXPECT_EQ(remain(id), 8u);
}

TEST_F(TimerCircularContract, ReloadsBehindItsOwnStopAndThenRests) {
  int runs = 0;
  uint32_t id = 0;
  Body body = [&] {
    runs++;
    mu_timer_stop(id);
  };
  id = mu_circle_timer_add(30, run, &body);
  clock_.scan(3);
  EXPECT_EQ(remain(id), 3u);
  clock_.scan(10);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(remain(id), 3u);
}

TEST_F(TimerCircularContract, IsRemovedByTheScanAfterItsOwnDelete) {
  int runs = 0;
  uint32_t id = 0;
  uint32_t result = 9;
  Body body = [&] {
    runs++;
    result = mu_timer_del(id);
  };
  id = mu_circle_timer_add(10, run, &body);
  clock_.scan();
  EXPECT_EQ(result, 0u) << "on the timer thread itself";
  EXPECT_EQ(mu_timer_count(), 1u);
  clock_.scan();
  EXPECT_EQ(mu_timer_count(), 0u);
  EXPECT_EQ(runs, 1);
}

TEST_F(TimerCircularContract, IsEveryTimerWhoseTypeIsNotZero) {
  const uint32_t id = mu_timer_add(20, ignore, nullptr);
  static_cast<mu_timer_rec_t *>(mu_list_first(timer_info.list)->data)->type = 2;
  clock_.scan(2);
  ASSERT_NE(find(id), nullptr);
  EXPECT_EQ(remain(id), 2u);
}

// ---- The list while callbacks run -----------------------------------------------------------------------------------

TEST_F(TimerListDuringScanContract, ReachesATimerAddedBeforeTheLastNodeWasRead) {
  Body added = note(3);
  Body adding = [&] {
    note(1)();
    mu_timer_add(10, run, &added);
  };
  mu_timer_add(10, run, &adding);
  mu_timer_add(kLong, ignore, nullptr);  // read before the callback; the new timer stands behind it
  clock_.scan();
  EXPECT_EQ(fired_, (Ids{1, 3}));
}

TEST_F(TimerListDuringScanContract, LeavesATimerAddedByTheLastNodeToTheNextScan) {
  Body added = note(2);
  Body adding = [&] {
    note(1)();
    mu_timer_add(10, run, &added);
  };
  mu_timer_add(10, run, &adding);
  clock_.scan();
  EXPECT_EQ(fired_, Ids{1});
  EXPECT_EQ(remain(2), 1u);
  clock_.scan();
  EXPECT_EQ(fired_, (Ids{1, 2}));
}

TEST_F(TimerListDuringScanContract, RemovesADueTimerThatACallbackBeforeItDeleted) {
  Body victim = note(2);
  Body deleting = [&] {
    note(1)();
    mu_timer_del(2);
  };
  Body last = note(3);
  mu_timer_add(10, run, &deleting);
  mu_timer_add(10, run, &victim);
  mu_timer_add(10, run, &last);
  clock_.scan();
  EXPECT_EQ(fired_, (Ids{1, 3}));
  EXPECT_EQ(mu_timer_count(), 0u);
}

TEST_F(TimerListDuringScanContract, KeepsATimerThatWasPassedWhenACallbackDeletesIt) {
  Body deleting = [&] { mu_timer_del(1); };
  mu_timer_add(kLong, ignore, nullptr);
  mu_timer_add(10, run, &deleting);
  clock_.scan();
  EXPECT_NE(find(1), nullptr) << "its turn is in the next scan";
  clock_.scan();
  EXPECT_EQ(find(1), nullptr);
}

TEST_F(TimerListDuringScanContract, SkipsADueTimerThatACallbackBeforeItStopped) {
  Body victim = note(2);
  Body stopping = [&] { mu_timer_stop(2); };
  mu_timer_add(10, run, &stopping);
  mu_timer_add(10, run, &victim);
  clock_.scan(5);
  EXPECT_EQ(fired_, Ids{});
  EXPECT_EQ(remain(2), 1u);
}

TEST_F(TimerListDuringScanContract, FreesAdjacentDeletedTimersInOneScan) {
  for (int i = 0; i < 6; i++) mu_timer_add(kLong, ignore, nullptr);
  for (const uint32_t id : {1u, 2u, 3u, 6u}) mu_timer_del(id);
  const HeapWatch heap;
  clock_.scan();
  EXPECT_EQ(mu_timer_count(), 2u);
  EXPECT_NE(find(4), nullptr);
  EXPECT_NE(find(5), nullptr);
}
