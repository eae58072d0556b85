// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A model of the timer service, and the calls that a test makes to both the model and the service.
#ifndef TARN_TESTS_TIMER_MODEL_H
#define TARN_TESTS_TIMER_MODEL_H

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <list>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "support/random.h"
#include "timer/fixture.h"

namespace tarn_test::timer_model {

constexpr int64_t kAge = 1003;  // ms, off the tick's boundary
constexpr uint32_t kLimit = 256;
constexpr size_t kCallbacks = 4;

// ---- Actions and observations ---------------------------------------------------------------------------------------

enum class Kind { kAdd, kAddCircle, kDel, kStop, kStart, kRestart, kCount, kPass, kFire };

struct Action {
  Kind kind;
  size_t serial = 0;  // of the timer's add; a future add means id 0
  int64_t ms = 0;
  bool no_memory = false;
  bool by_another_thread = false;
};

// One line of a world's journal: an action and its result, or a callback and its argument.
struct Entry {
  Kind kind;
  uint64_t subject;
  uint64_t result;
  bool operator==(const Entry &) const = default;
};

inline void PrintTo(const Entry &entry, std::ostream *out) {
  *out << "{" << static_cast<int>(entry.kind) << " of " << entry.subject << ": " << entry.result << "}";
}

struct Row {
  uint32_t interval, remain;
  size_t callback;
  uint64_t arg;
  uint32_t type, id, running, deleted, stopped, drain;
  bool operator==(const Row &) const = default;
};

inline void PrintTo(const Row &row, std::ostream *out) {
  *out << "{id " << row.id << " type " << row.type << " remain " << row.remain << " of " << row.interval << " callback "
       << row.callback << " arg " << row.arg << " running " << row.running << " deleted " << row.deleted << " stopped "
       << row.stopped << " drain " << row.drain << "}";
}

struct Totals {
  uint32_t max_num, last_id, last_drain, max_drain;
  size_t max_drain_cb;  // kCallbacks for none
  uint64_t last_tick;
  uint32_t expired;
  int64_t now_ms;
  bool operator==(const Totals &) const = default;
};

inline void PrintTo(const Totals &totals, std::ostream *out) {
  *out << "{max_num " << totals.max_num << " last_id " << totals.last_id << " last_drain " << totals.last_drain
       << " max_drain " << totals.max_drain << " of " << totals.max_drain_cb << " last_tick " << totals.last_tick
       << " expired " << totals.expired << " now " << totals.now_ms << " ms}";
}

// The common part of both worlds: the journal, and the ids that the adds returned.
struct World {
  virtual ~World() = default;
  virtual uint64_t act(const Action &action, uint32_t id, size_t serial) = 0;

  void perform(const Action &action) {
    const bool adds = action.kind == Kind::kAdd || action.kind == Kind::kAddCircle;
    const size_t serial = adds ? ids.size() : action.serial;
    const uint32_t id = serial < ids.size() ? ids[serial] : 0;
    const uint64_t result = act(action, id, serial);
    if (adds) ids.push_back(static_cast<uint32_t>(result));
    journal.push_back({action.kind, id, result});
  }

  // The body of every callback; its actions depend only on the number of the expiry.
  void fire(uint64_t arg);

  std::vector<Entry> journal;
  std::vector<uint32_t> ids;
  uint64_t fired = 0;
  uint64_t seed = 0;
};

inline int64_t some_interval_ms(Random &random) {
  switch (random.below(8)) {
    case 0:
      return static_cast<int64_t>(random.below(40)) - 10;  // also zero and negative ones
    case 1:
      return static_cast<int64_t>(random.below(10000));
    case 2:
      return random.chance(100) ? INT64_C(0xffffffff) - static_cast<int64_t>(random.below(100)) : 100000;
    default:
      return static_cast<int64_t>(random.below(600));
  }
}

inline int64_t some_pause_ms(Random &random) {
  if (random.chance(4)) return ((INT64_C(1) << 32) + static_cast<int64_t>(random.below(6))) * 10;  // wraps a u32
  if (random.chance(50)) return static_cast<int64_t>(random.below(3000));
  return static_cast<int64_t>(random.below(60));
}

inline Action some_action(Random &random, size_t serials) {
  static constexpr Kind kKinds[] = {Kind::kDel,     Kind::kDel,     Kind::kStop,  Kind::kStart, Kind::kStart,
                                    Kind::kRestart, Kind::kRestart, Kind::kCount, Kind::kPass};
  Action action{kKinds[random.below(std::size(kKinds))]};
  // Mostly one of the latest timers, which may still exist.
  const size_t window = random.chance(800) ? std::min<size_t>(serials, 40) : serials;
  action.serial = serials - (window == 0 ? 0 : 1 + random.below(window));
  if (random.chance(10)) action.serial = serials;
  action.ms = action.kind == Kind::kPass ? some_pause_ms(random) : some_interval_ms(random);
  return action;
}

inline void World::fire(uint64_t arg) {
  journal.push_back({Kind::kFire, arg, 0});
  Random random(seed ^ (++fired * 0x2545f4914f6cdd1d));
  if (random.chance(150)) perform({.kind = Kind::kPass, .ms = some_pause_ms(random)});
  while (random.chance(350)) {
    Action action = some_action(random, ids.size());
    if (random.chance(400)) action.serial = arg;  // the callback's own timer
    // Few enough that one scan ends.
    if (random.chance(150)) action.kind = random.chance(500) ? Kind::kAdd : Kind::kAddCircle;
    action.by_another_thread = action.kind != Kind::kPass && random.chance(300);
    perform(action);
  }
}

// ---- The model ------------------------------------------------------------------------------------------------------

class Model : public World {
 public:
  void scan() {
    now_ms_ = std::max(now_ms_, wake_ms_);
    uint64_t elapsed = last_drain_ + tick() - last_tick_;
    for (auto timer = timers_.begin(); timer != timers_.end();) {
      const auto next = std::next(timer);  // the end, for the last: timers appended meanwhile are not visited
      if (timer->deleted != 0) {
        timers_.erase(timer);
      } else if (timer->stopped != 0) {
      } else if (timer->remain > elapsed) {
        timer->remain -= static_cast<uint32_t>(elapsed);
      } else {
        timer->remain = 0;
        expired_++;
        timer->running = 1;
        const uint64_t before = tick();
        on_timer_thread_ = true;
        fire(timer->arg);
        on_timer_thread_ = false;
        timer->running = 0;
        charge(*timer, static_cast<uint32_t>(tick() - before));
        elapsed += last_drain_;
        if (timer->type != 0) {
          timer->remain = timer->interval;
        } else if (timer->remain == 0) {
          timers_.erase(timer);
        }
      }
      timer = next;
    }
    last_tick_ = tick();
    wake_ms_ = now_ms_ + 10;
  }

  void set_last_id(uint32_t id) { last_id_ = id; }

  std::string take_output() { return std::exchange(output_, ""); }
  std::vector<Row> rows() const { return {timers_.begin(), timers_.end()}; }
  Totals totals() const {
    return {kLimit, last_id_, last_drain_, max_drain_, max_drain_cb_, last_tick_, expired_, now_ms_};
  }

 private:
  uint64_t tick() const { return static_cast<uint64_t>(now_ms_) / 10; }

  void charge(Row &timer, uint32_t run_time) {
    last_drain_ = run_time;
    timer.drain = std::max(timer.drain, run_time);
    if (run_time > max_drain_) {
      max_drain_ = run_time;
      max_drain_cb_ = timer.callback;
    }
  }

  uint64_t act(const Action &action, uint32_t id, size_t serial) override {
    const auto timer = std::find_if(timers_.begin(), timers_.end(), [id](const Row &row) { return row.id == id; });
    const bool found = timer != timers_.end();
    switch (action.kind) {
      case Kind::kAdd:
      case Kind::kAddCircle:
        return add(action, serial);
      case Kind::kDel:
        if (found) timer->deleted = 1;
        if (!found) output_ += kNoDelete;
        return found && timer->running != 0 && !is_timer_thread(action) ? 1 : 0;
      case Kind::kStop:
        if (found) timer->stopped = 1;
        if (!found) output_ += kNoStop;
        return found && timer->running != 0 && !is_timer_thread(action) ? 1 : 0;
      case Kind::kStart:
      case Kind::kRestart:
        if (!found) return 0;
        if (action.kind == Kind::kRestart) {
          const auto ms = static_cast<uint32_t>(action.ms);
          timer->interval = ms <= 10 ? 1 : ms / 10;
        }
        timer->remain = timer->interval;
        timer->stopped = timer->deleted = 0;
        return 0;
      case Kind::kCount:
        return timers_.size();
      case Kind::kPass:
        now_ms_ += action.ms;
        return 0;
      case Kind::kFire:
        break;
    }
    return 0;
  }

  uint64_t add(const Action &action, size_t serial) {
    if (timers_.size() >= kLimit) {
      output_ += kFull;
      return 0;
    }
    const auto in_use = [this](uint32_t id) {
      return std::any_of(timers_.begin(), timers_.end(), [id](const Row &row) { return row.id == id; });
    };
    do {
      last_id_ = last_id_ == UINT32_MAX ? 1 : last_id_ + 1;
    } while (in_use(last_id_));
    const auto ms = static_cast<int32_t>(action.ms);
    const uint32_t ticks = ms <= 10 ? 1 : static_cast<uint32_t>(ms) / 10;
    const uint32_t type = action.kind == Kind::kAddCircle ? 1 : 0;
    if (!action.no_memory) timers_.push_back({ticks, ticks, serial % kCallbacks, serial, type, last_id_, 0, 0, 0, 0});
    return last_id_;
  }

  bool is_timer_thread(const Action &action) const { return on_timer_thread_ && !action.by_another_thread; }

  std::list<Row> timers_;
  int64_t now_ms_ = kAge;
  int64_t wake_ms_ = kAge + 10;
  bool on_timer_thread_ = false;
  uint32_t last_id_ = 0, last_drain_ = 0, max_drain_ = 0, expired_ = 0;
  size_t max_drain_cb_ = kCallbacks;
  uint64_t last_tick_ = 0;
  std::string output_;
};

}  // namespace tarn_test::timer_model

#endif
