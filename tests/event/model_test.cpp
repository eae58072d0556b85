// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The registry against a model of it: the same long random series of operations must leave the same records, results,
// callbacks, messages and tables.

#include "event/model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>

#include "event/fixture.h"
#include "support/console.h"
#include "support/libc.h"

using namespace event_test;
using namespace event_test::model;
using namespace tarn_test;

namespace {

constexpr mu_event_cb_t kCallback[kCallbacks] = {subscriber<0>, subscriber<1>, subscriber<2>, subscriber<3>};

int handle(uint16_t device_id, mu_event_msg_t *msg) {
  std::array<uint32_t, 8> words;
  memcpy(words.data(), static_cast<const void *>(msg), 32);
  g_journal.push_back(handled_line(device_id, words));
  words = answered(words);
  memcpy(static_cast<void *>(msg), words.data(), 32);
  return static_cast<int>(words[0]);
}

// ---- The service ----------------------------------------------------------------------------------------------------

class Service {
 public:
  explicit Service(bool forwards) : registry_(kTypes, hook, forwards ? handle : nullptr), before_(kBefore) {
    for (int type = -kBefore; type < kTypes; type++) list(type) = rec(type).cb_list;
    take_journal();
  }
  ~Service() {
    for (mu_list_t *made : lists_) keep(made);
  }

  Outcome perform(const Step &step) {
    const auto type = static_cast<uint32_t>(step.type);
    const mu_event_cb_t callback = step.callback == kCallbacks ? nullptr : kCallback[step.callback];
    Outcome outcome;
    switch (step.kind) {
      case Kind::kRegister:
        outcome.result = do_register(step, callback);
        break;
      case Kind::kDeregister:
        outcome.result = mu_event_deregister(step.device, type, callback);
        break;
      case Kind::kSend:
        // Only the address of the data matters.
        outcome.result = mu_event_send(step.device, step.type, const_cast<Step *>(&step), step.number);
        break;
      case Kind::kPoll:
        mu_event_poll();
        break;
      case Kind::kAttach:
        outcome.result = mu_event_suprs_attach(step.type, step.has_release ? released : nullptr,
                                               step.has_suppress ? suppressed : nullptr, step.number);
        break;
      case Kind::kCounterGet:
        outcome.count = 0xdeadbeef;
        outcome.result = mu_event_counter_get(step.device, type, &outcome.count, step.number);
        break;
      case Kind::kCounterClear:
        outcome.result = mu_event_counter_clear(step.device, type);
        break;
      case Kind::kCounterClearAll:
        outcome.result = mu_event_counter_clear_all(step.device);
        break;
      case Kind::kSet:
        outcome.cfg = step.cfg;
        outcome.result = mu_event_set(step.device, step.type, &outcome.cfg);
        break;
      case Kind::kGet:
        outcome.cfg = step.cfg;
        outcome.result = mu_event_get(step.device, step.type, &outcome.cfg);
        break;
      case Kind::kDump:
        mu_event_dump();
        break;
      case Kind::kGiveListBack:
        rec(step.type).cb_list = list(step.type);
        break;
    }
    return outcome;
  }

  // A record as the model holds it; without the content of a lost list.
  static Record record(int type) {
    const mu_event_rec &from = rec(type);
    Record record;
    record.registered = from.registered != 0;
    record.on = from.suprs_en != 0;
    record.suppressed = from.suprs_s != 0;
    record.type = from.type;
    record.count = from.count;
    record.dropped = from.suprs_cnt;
    record.threshold = from.threshold;
    record.in_window = from.period_cnt;
    record.period = from.period;
    record.polls = from.tick;
    record.has_list = from.cb_list != nullptr;
    for (const mu_event_cb_t callback : subscribers_of(type)) {
      record.callbacks.push_back(
          static_cast<unsigned>(std::find(kCallback, kCallback + kCallbacks, callback) - kCallback));
    }
    record.has_release = from.release_cb == released;
    record.has_suppress = from.suppress_cb == suppressed;
    record.cookie = from.cookie;
    return record;
  }

  std::string take_output() { return console_.take(); }

 private:
  mu_list_t *&list(int type) { return lists_.at(index_of(type)); }

  static int do_register(const Step &step, mu_event_cb_t callback) {
    if (!step.no_memory) return mu_event_register(step.device, static_cast<uint32_t>(step.type), callback);
    const FailingMalloc failing(1);
    return mu_event_register(step.device, static_cast<uint32_t>(step.type), callback);
  }

  Console console_;
  Registry registry_;
  RecordsBeforeTheTable before_;
  std::array<mu_list_t *, kBefore + kTypes> lists_;
};

// ---- The comparison -------------------------------------------------------------------------------------------------

struct Profile {
  const char *name;
  uint64_t seed;
  int steps;
  bool forwards;
  unsigned sends_per_mille;
  unsigned polls_per_mille;
};

void PrintTo(const Profile &profile, std::ostream *out) { *out << profile.name; }

Step some_step(Random &random, const Profile &profile) {
  Step step = {};
  step.kind = static_cast<Kind>(random.below(12));
  if (step.kind == Kind::kAttach && random.chance(800)) step.kind = Kind::kSend;
  if (step.kind == Kind::kSet && random.chance(500)) step.kind = Kind::kPoll;
  if (random.chance(profile.sends_per_mille)) step.kind = Kind::kSend;
  if (random.chance(profile.polls_per_mille)) step.kind = Kind::kPoll;
  const bool by_test = step.kind == Kind::kGiveListBack;
  step.type = static_cast<int>(random.below(kBefore + kTypes + (by_test ? 0 : 1))) - kBefore;
  step.device = static_cast<uint16_t>(random.number());
  step.callback = static_cast<unsigned>(random.below(kCallbacks + 1));
  step.number = random.chance(300) ? 0 : static_cast<uint32_t>(random.number());
  step.cfg.suprs_en = random.chance(200) ? 0 : static_cast<uint32_t>(random.number());
  step.cfg.threshold =
      random.chance(50) ? static_cast<uint32_t>(random.number()) : static_cast<uint32_t>(random.below(6));
  step.cfg.period =
      random.chance(50) ? static_cast<uint32_t>(random.number()) : static_cast<uint32_t>(random.below(90));
  step.no_memory = random.chance(50);
  step.has_release = random.chance(700);
  step.has_suppress = random.chance(100) != step.has_release;
  return step;
}

class EventModel : public testing::TestWithParam<Profile> {
 protected:
  void perform(const Step &step) {
    ASSERT_EQ(service_.perform(step), model_.perform(step));
    ASSERT_EQ(take_journal(), std::exchange(model_.journal, {}));
    ASSERT_EQ(service_.take_output(), std::exchange(model_.printed, {}));
    for (int type = -kBefore; type < kTypes; type++) {
      Record expected = model_.records.at(index_of(type));
      expected.lost.clear();
      ASSERT_EQ(Service::record(type), expected) << "type " << type;
    }
  }

  Service service_{GetParam().forwards};
  Model model_{GetParam().forwards};
};

INSTANTIATE_TEST_SUITE_P(Random, EventModel,
                         testing::Values(Profile{"Mixed", 1, 4000, false, 0, 0},
                                         Profile{"Stormy", 2, 4000, false, 600, 100},
                                         Profile{"Quiet", 3, 4000, false, 200, 600},
                                         Profile{"Forwarding", 4, 3000, true, 0, 0}),
                         [](const auto &profile) { return std::string(profile.param.name); });

}  // namespace

TEST_P(EventModel, AgreesWithTheRegistryAfterEveryStep) {
  Random random(GetParam().seed);
  for (int number = 0; number < GetParam().steps; number++) {
    const Step step = some_step(random, GetParam());
    SCOPED_TRACE(testing::Message() << "step " << number << ", kind " << static_cast<int>(step.kind) << " of type "
                                    << step.type);
    perform(step);
    if (HasFatalFailure()) return;
  }
  // The series reached every transition.
  EXPECT_GT(model_.deliveries, 100u);
  if (!GetParam().forwards) {
    EXPECT_GT(model_.suppressions, 30u);
    EXPECT_GT(model_.releases, 30u);
    EXPECT_GT(model_.windows, 30u);
  }
}
