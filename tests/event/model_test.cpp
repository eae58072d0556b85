// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The registry against a model: both take the same long random walk, and agree at each step.
//
// The model is written from the contract alone: its types are values, its windows are told in what was let through and
// how many polls it is old, and its outcomes are words. Nothing of it is shared with the library.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "event/subscribers.h"
#include "support/virtual_clock.h"
#include "tarn/event.h"

using namespace tarn_test;
using namespace event_plain;

namespace {

constexpr int kTypes = 7;
constexpr int kSteps = 60000;
constexpr const char *kLetters = "abcdef";
constexpr mu_event_cb_t kSubscribers[] = {subscriber<'a'>, subscriber<'b'>, subscriber<'c'>,
                                          subscriber<'d'>, subscriber<'e'>, subscriber<'f'>};

class Model {
 public:
  struct Type {
    bool has_list = true;
    bool tells = false;  // has suppression callbacks
    bool flag = false;
    std::string subscribers;
    bool on = false;
    bool quiet = false;  // suppressed
    uint64_t delivered = 0;
    uint64_t dropped = 0;
    uint64_t limit = 0;
    uint64_t window_delivered = 0;
    uint64_t window_age = 0;
    uint64_t window_length = 0;
  };

  explicit Model(int types) : types_(static_cast<size_t>(types)) {}

  const Type &at(int type) const { return types_[static_cast<size_t>(type)]; }

  // Each returns the result; `called` is who is called meanwhile.
  int send(int number, std::string &called) {
    Type *type = find(number);
    if (type == nullptr) return -1;
    if (type->on && !type->quiet && type->window_delivered >= type->limit) {
      if (type->tells) called += '-';
      type->quiet = true;
    }
    if (type->on && type->quiet) {
      type->dropped++;
      return -1;
    }
    called += 'h' + type->subscribers;
    type->delivered++;
    type->window_delivered++;
    return 0;
  }

  void poll(std::string &called) {
    for (Type &type : types_) {
      if (!type.on || ++type.window_age < type.window_length) continue;
      if (type.quiet) {
        type.quiet = false;
        if (type.tells) called += '+';
      } else {
        type.window_age = type.window_delivered = 0;
      }
    }
  }

  int set(int number, const mu_event_cfg_t &cfg, std::string &called) {
    Type *type = find(number);
    if (type == nullptr) return -1;
    type->on = cfg.suprs_en > 0;
    type->limit = cfg.threshold;
    type->window_length = std::max<uint64_t>(cfg.period / 10, 1);
    type->dropped = 0;
    if (type->tells) called += '+';
    return 0;
  }

  std::optional<std::vector<uint64_t>> get(int number) {
    const Type *type = find(number);
    if (type == nullptr) return std::nullopt;
    return std::vector<uint64_t>{type->on ? 1u : 0u, type->limit, type->window_length * 10};
  }

  uint64_t counter_get(int number, bool clear) {
    Type *type = find(number);
    if (type == nullptr) return 0;
    const uint64_t count = type->delivered;
    if (clear) type->delivered = 0;
    return count;
  }

  int counter_clear(int number) {
    Type *type = find(number);
    if (type == nullptr) return -1;
    type->delivered = type->dropped = 0;
    return 0;
  }

  void counter_clear_all() {
    for (Type &type : types_) type.delivered = type.dropped = 0;
  }

  int add(int number, char who) {
    Type *type = find(number);
    if (type == nullptr) return -1;
    if (type->subscribers.find(who) != std::string::npos) return 0;
    if (type->has_list) type->subscribers += who;
    type->flag = true;
    return 0;
  }

  int remove(int number, char who) {
    Type *type = find(number);
    if (type == nullptr) return -1;
    std::erase(type->subscribers, who);
    if (type->subscribers.empty()) type->flag = false;
    return 0;
  }

  int attach(int number, bool tells) {
    Type *type = find(number);
    if (type == nullptr) return -1;
    *type = Type{};
    type->has_list = false;
    type->tells = tells;
    return 0;
  }

 private:
  Type *find(int number) {
    return number >= 0 && static_cast<size_t>(number) < types_.size() ? &types_[static_cast<size_t>(number)] : nullptr;
  }

  std::vector<Type> types_;
};

// What can be seen of a type, of the model and of the registry.
using Seen = std::map<std::string, uint64_t>;

Seen seen(const Model::Type &type) {
  return {{"registered", type.flag},
          {"suprs_en", type.on},
          {"suprs_s", type.quiet},
          {"count", type.delivered},
          {"suprs_cnt", type.dropped},
          {"threshold", type.limit},
          {"period_cnt", type.window_delivered},
          {"period", type.window_length},
          {"tick", type.window_age},
          {"subscribers", type.subscribers.size()}};
}

Seen seen(const mu_event_rec &event) {
  return {{"registered", event.registered},
          {"suprs_en", event.suprs_en},
          {"suprs_s", event.suprs_s},
          {"count", event.count},
          {"suprs_cnt", event.suprs_cnt},
          {"threshold", event.threshold},
          {"period_cnt", event.period_cnt},
          {"period", event.period},
          {"tick", event.tick},
          {"subscribers", mu_list_count(event.cb_list)}};
}

class Walk {
 public:
  // One random step of both. Returns what it was, for a message.
  std::string step() {
    const int type = number(kTypes + 1);  // one of them is out of range
    std::string name;
    std::string called;
    const int kind = number(1000);
    if (kind < 500) {
      name = "send";
      expect_equal(mu_event_send(0, type, nullptr, 0), model_.send(type, called));
    } else if (kind < 750) {
      name = "poll";
      model_.poll(called);
      mu_event_poll();
    } else if (kind < 800) {
      name = "set";
      const auto on = static_cast<uint32_t>(number(4));  // 0 is off, any other value on
      const mu_event_cfg_t cfg = {on, static_cast<uint32_t>(number(6)), static_cast<uint32_t>(number(60))};
      expect_equal(mu_event_set(0, type, &cfg), model_.set(type, cfg, called));
    } else if (kind < 840) {
      name = "get";
      get(type);
    } else if (kind < 880) {
      name = "counter_get";
      const bool clear = number(2) == 0;
      uint32_t count = 77;
      expect_equal(mu_event_counter_get(0, static_cast<uint32_t>(type), &count, clear), -1);
      expect_equal(count, model_.counter_get(type, clear));
    } else if (kind < 890) {
      name = "counter_clear";
      expect_equal(mu_event_counter_clear(0, static_cast<uint32_t>(type)), model_.counter_clear(type));
    } else if (kind < 893) {
      name = "counter_clear_all";
      expect_equal(mu_event_counter_clear_all(0), 0);
      model_.counter_clear_all();
    } else if (kind < 950) {
      name = "register";
      const auto who = static_cast<size_t>(number(6));
      expect_equal(mu_event_register(0, static_cast<uint32_t>(type), kSubscribers[who]),
                   model_.add(type, kLetters[who]));
    } else if (kind < 999) {
      name = "deregister";
      const auto who = static_cast<size_t>(number(6));
      expect_equal(mu_event_deregister(0, static_cast<uint32_t>(type), kSubscribers[who]),
                   model_.remove(type, kLetters[who]));
    } else {
      name = "attach";  // to the last two alone: the others keep their subscribers
      const bool tells = number(4) != 0;
      const int last = kTypes - 1 - number(2);
      expect_equal(attach(last, tells ? released : nullptr, tells ? suppressed : nullptr), model_.attach(last, tells));
    }
    if (take_calls() != called) agree_ = false;
    compare();
    return name + " of " + std::to_string(type);
  }

  bool agree() const { return agree_; }

  const Model &model() const { return model_; }

 private:
  int number(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }

  template <typename A, typename B>
  void expect_equal(A registry, B model) {
    if (static_cast<uint64_t>(registry) != static_cast<uint64_t>(model)) agree_ = false;
  }

  void get(int type) {
    mu_event_cfg_t cfg = {};
    const auto model = model_.get(type);
    expect_equal(mu_event_get(0, type, &cfg), model ? 0 : -1);
    if (model && *model != std::vector<uint64_t>{cfg.suprs_en, cfg.threshold, cfg.period}) agree_ = false;
  }

  // Field by field, without building what is shown on failure.
  void compare() {
    for (int i = 0; i < kTypes; i++) {
      const Model::Type &model = model_.at(i);
      const mu_event_rec &event = glb_evt.events[i];
      agree_ = agree_ && model.flag == (event.registered == 1) && model.on == (event.suprs_en == 1) &&
               model.quiet == (event.suprs_s == 1) && model.delivered == event.count &&
               model.dropped == event.suprs_cnt && model.limit == event.threshold &&
               model.window_delivered == event.period_cnt && model.window_length == event.period &&
               model.window_age == event.tick && model.subscribers.size() == mu_list_count(event.cb_list);
    }
  }

  std::mt19937 random_{20070724};
  Model model_{kTypes};
  bool agree_ = true;
};

}  // namespace

TEST(EventModel, AgreesAtEachStepOfARandomWalk) {
  VirtualClock clock;
  mu_event_init(kTypes, hook, nullptr);
  clock.scan();
  Walk walk;
  uint64_t suppressed_steps = 0;
  for (int step = 1; step <= kSteps; step++) {
    const std::string name = walk.step();
    if (!walk.agree()) {
      ADD_FAILURE() << "step " << step << ", " << name;
      for (int i = 0; i < kTypes; i++) EXPECT_EQ(seen(glb_evt.events[i]), seen(walk.model().at(i))) << "type " << i;
      break;
    }
    for (int i = 0; i < kTypes; i++) suppressed_steps += walk.model().at(i).quiet;
  }
  EXPECT_GT(suppressed_steps, uint64_t{kSteps} / 4) << "the walk meets suppression often";
  RecordProperty("steps", kSteps);
}
