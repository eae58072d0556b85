// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The registry against a model of it: the same long random series of operations must leave the same records, results,
// callbacks, messages and tables.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "event/fixture.h"
#include "support/console.h"
#include "support/libc.h"

using namespace event_test;
using namespace tarn_test;

namespace {

constexpr int kTypes = 5;
constexpr int kBefore = 2;  // records before the table, which negative types reach
// A type's place among all records.
size_t index_of(int type) {
  const int index = type + kBefore;
  return static_cast<size_t>(index);
}

constexpr unsigned kCallbacks = 4;
constexpr mu_event_cb_t kCallback[kCallbacks] = {subscriber<0>, subscriber<1>, subscriber<2>, subscriber<3>};

enum class Kind {
  kRegister,
  kDeregister,
  kSend,
  kPoll,
  kAttach,
  kCounterGet,
  kCounterClear,
  kCounterClearAll,
  kSet,
  kGet,
  kDump,
  kGiveListBack,  // by the test's hand, so that a type is not without subscribers for ever
};

struct Step {
  Kind kind;
  int type;
  uint16_t device;
  unsigned callback;  // kCallbacks for none
  uint32_t number;    // a length, a clear flag, a cookie
  mu_event_cfg_t cfg;
  bool no_memory;
  bool has_release, has_suppress;
};

// What an operation gave.
struct Outcome {
  int result = 0;
  uint32_t count = 0;
  mu_event_cfg_t cfg = {};
  bool operator==(const Outcome &other) const {
    return result == other.result && count == other.count && bytes_of(cfg) == bytes_of(other.cfg);
  }
};

void PrintTo(const Outcome &outcome, std::ostream *out) {
  *out << "{result " << outcome.result << " count " << outcome.count << " cfg " << outcome.cfg.suprs_en << ' '
       << outcome.cfg.threshold << ' ' << outcome.cfg.period << '}';
}

// How the handler answers a message: an arithmetic of what it was sent.
std::string handled_line(uint16_t device, const std::array<uint32_t, 8> &words) {
  std::string text = line("handler: device %u", device);
  for (const uint32_t word : words) text += line(" %x", word);
  return text;
}

std::array<uint32_t, 8> answered(std::array<uint32_t, 8> words) {
  for (size_t i = 0; i < 8; i++) words[i] = words[i] * 3 + static_cast<uint32_t>(i);
  return words;
}

int handle(uint16_t device_id, mu_event_msg_t *msg) {
  std::array<uint32_t, 8> words;
  memcpy(words.data(), static_cast<const void *>(msg), 32);
  g_journal.push_back(handled_line(device_id, words));
  words = answered(words);
  memcpy(static_cast<void *>(msg), words.data(), 32);
  return static_cast<int>(words[0]);
}

// ---- The model ------------------------------------------------------------------------------------------------------

struct Record {
  bool registered = false, on = false, suppressed = false;
  uint32_t type = 0, count = 0, dropped = 0, threshold = 0, in_window = 0, period = 0, polls = 0;
  bool has_list = true;
  std::vector<unsigned> callbacks;
  bool has_release = false, has_suppress = false;
  uint64_t cookie = 0;
  std::vector<unsigned> lost;  // what the list that an attach took away held
  bool operator==(const Record &) const = default;
};

void PrintTo(const Record &record, std::ostream *out) {
  *out << "{registered " << record.registered << " on " << record.on << " suppressed " << record.suppressed << " type "
       << record.type << " count " << record.count << " dropped " << record.dropped << " threshold " << record.threshold
       << " in window " << record.in_window << " period " << record.period << " polls " << record.polls << " list "
       << record.has_list << " of " << record.callbacks.size() << " cookie " << record.cookie << '}';
}

class Model {
 public:
  explicit Model(bool forwards) : forwards_(forwards) {}

  Journal journal;
  std::string printed;
  std::array<Record, kBefore + kTypes> records;
  uint32_t suppressions = 0, releases = 0, windows = 0, deliveries = 0;

  Outcome perform(const Step &step) {
    switch (step.kind) {
      case Kind::kRegister:
        return {do_register(step), 0, {}};
      case Kind::kDeregister:
        return {deregister(step), 0, {}};
      case Kind::kSend:
        return {send(step), 0, {}};
      case Kind::kPoll:
        for (int type = 0; type < kTypes; type++) poll(at(type));
        return {};
      case Kind::kAttach:
        return {attach(step), 0, {}};
      case Kind::kCounterGet:
        return counter_get(step);
      case Kind::kCounterClear:
        return counter_clear(step);
      case Kind::kCounterClearAll:
        if (forwards_) {
          forward(step.device, {2});
          return {};
        }
        for (int type = 0; type < kTypes; type++) at(type).count = at(type).dropped = 0;
        return {};
      case Kind::kSet:
        return set(step);
      case Kind::kGet:
        return get(step);
      case Kind::kDump:
        dump();
        return {};
      case Kind::kGiveListBack:
        give_list_back(at(step.type));
        return {};
    }
    return {};
  }

 private:
  using Words = std::array<uint32_t, 8>;

  Record &at(int type) { return records.at(index_of(type)); }
  static bool in_signed_range(int type) { return type < kTypes; }
  static bool in_unsigned_range(int type) { return type >= 0 && type < kTypes; }

  Words forward(uint16_t device, const Words &words) {
    journal.push_back(handled_line(device, words));
    return answered(words);
  }

  int do_register(const Step &step) {
    if (step.callback == kCallbacks || !in_unsigned_range(step.type)) return -1;
    Record &record = at(step.type);
    if (std::count(record.callbacks.begin(), record.callbacks.end(), step.callback) != 0) return 0;
    if (record.has_list && !step.no_memory) record.callbacks.push_back(step.callback);
    record.registered = true;
    return 0;
  }

  int deregister(const Step &step) {
    if (!in_unsigned_range(step.type)) return -1;
    Record &record = at(step.type);
    std::erase(record.callbacks, step.callback);
    if (record.callbacks.empty()) record.registered = false;
    return 0;
  }

  int send(const Step &step) {
    if (!in_signed_range(step.type)) return -1;
    Record &record = at(step.type);
    const auto type = static_cast<uint32_t>(step.type);
    if (record.on && (record.suppressed || record.in_window >= record.threshold)) {
      if (!record.suppressed) {
        suppressions++;
        if (record.has_suppress) journal.push_back(suppress_line(record.cookie));
      }
      record.suppressed = true;
      record.dropped++;
      return -1;
    }
    deliveries++;
    journal.push_back(hook_line(step.device, type, &step, step.number));
    for (const unsigned callback : record.callbacks) {
      journal.push_back(subscriber_line(static_cast<int>(callback), step.device, type, &step, step.number));
    }
    record.in_window++;
    record.count++;
    return 0;
  }

  void poll(Record &record) {
    if (!record.on) return;
    record.polls++;
    if (record.polls < record.period) return;
    if (record.suppressed) {
      releases++;
      record.suppressed = false;
      if (record.has_release) journal.push_back(release_line(record.cookie));
    } else {
      windows++;
      record.in_window = record.polls = 0;
    }
  }

  int attach(const Step &step) {
    if (!in_signed_range(step.type) || step.has_release != step.has_suppress) return -1;
    Record fresh;
    if (at(step.type).has_list) {
      fresh.lost = at(step.type).callbacks;
    } else {
      fresh.lost = at(step.type).lost;
    }
    fresh.type = static_cast<uint32_t>(step.type);
    fresh.has_list = false;
    fresh.has_release = fresh.has_suppress = step.has_release;
    fresh.cookie = step.number;
    at(step.type) = fresh;
    return 0;
  }

  static void give_list_back(Record &record) {
    if (record.has_list) return;
    record.has_list = true;
    record.callbacks = std::exchange(record.lost, {});
  }

  Outcome counter_get(const Step &step) {
    if (!in_unsigned_range(step.type)) return {-1, 0, {}};
    const auto type = static_cast<uint32_t>(step.type);
    if (forwards_) return {0, forward(step.device, {0, type, 0, 0, 0, 0, 0, step.number})[6], {}};
    Outcome outcome = {-1, at(step.type).count, {}};
    if (step.number != 0) at(step.type).count = 0;
    return outcome;
  }

  Outcome counter_clear(const Step &step) {
    if (!in_unsigned_range(step.type)) return {-1, 0, {}};
    if (forwards_) {
      forward(step.device, {1, static_cast<uint32_t>(step.type)});
    } else {
      at(step.type).count = at(step.type).dropped = 0;
    }
    return {};
  }

  Outcome set(const Step &step) {
    if (!in_signed_range(step.type)) return {-1, 0, step.cfg};
    if (forwards_) {
      forward(step.device,
              {3, static_cast<uint32_t>(step.type), 0, step.cfg.suprs_en, step.cfg.threshold, step.cfg.period});
      return {0, 0, step.cfg};
    }
    Record &record = at(step.type);
    record.dropped = 0;
    record.period = std::max(step.cfg.period / 10, 1u);
    record.threshold = step.cfg.threshold;
    record.on = step.cfg.suprs_en != 0;
    if (record.has_release) journal.push_back(release_line(record.cookie));
    return {0, 0, step.cfg};
  }

  Outcome get(const Step &step) {
    if (!in_signed_range(step.type)) return {-1, 0, step.cfg};
    if (forwards_) {
      const Words words = forward(step.device, {4, static_cast<uint32_t>(step.type), 0, step.cfg.suprs_en,
                                                step.cfg.threshold, step.cfg.period});
      return {0, 0, {words[3], words[4], words[5]}};
    }
    const Record &record = at(step.type);
    return {0, 0, {record.on ? 1u : 0u, record.threshold, record.period * 10}};
  }

  static std::string column(const std::string &text, size_t width) {
    return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
  }
  static std::string column(uint32_t number, size_t width) {
    return column(std::to_string(static_cast<int32_t>(number)), width);
  }

  void dump() {
    if (forwards_) {
      forward(0, {5});
      return;
    }
    printed += std::string(63, '=') + "\nType Count      Suprs-en Suprs-s Suprs-cnt Threshold Period(ms)  \n" +
               std::string(63, '-') + '\n';
    for (int type = 0; type < kTypes; type++) {
      const Record &record = at(type);
      printed += column(static_cast<uint32_t>(type), 5) + column(record.count, 10) + ' ';
      if (record.on) {
        printed += "Enable   " + column(record.suppressed ? "Yes" : "No", 8) + column(record.dropped, 9) + ' ' +
                   column(record.threshold, 9) + ' ' + column(record.period * 10, 0) + '\n';
      } else {
        printed += "Disable  -       -         -         -\n";
      }
    }
    printed += '\n';
  }

  const bool forwards_;
};

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
        // The data's address is all that counts.
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

  // A record as the model holds it; what a lost list holds is not looked at.
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
  const bool hand = step.kind == Kind::kGiveListBack;
  step.type = static_cast<int>(random.below(kBefore + kTypes + (hand ? 0 : 1))) - kBefore;
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

class EventModelContract : public testing::TestWithParam<Profile> {
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

INSTANTIATE_TEST_SUITE_P(Random, EventModelContract,
                         testing::Values(Profile{"Mixed", 1, 4000, false, 0, 0},
                                         Profile{"Stormy", 2, 4000, false, 600, 100},
                                         Profile{"Quiet", 3, 4000, false, 200, 600},
                                         Profile{"Forwarding", 4, 3000, true, 0, 0}),
                         [](const auto &profile) { return std::string(profile.param.name); });

}  // namespace

TEST_P(EventModelContract, AgreesWithTheRegistryAfterEveryStep) {
  Random random(GetParam().seed);
  for (int number = 0; number < GetParam().steps; number++) {
    const Step step = some_step(random, GetParam());
    SCOPED_TRACE(testing::Message() << "step " << number << ", kind " << static_cast<int>(step.kind) << " of type "
                                    << step.type);
    perform(step);
    if (HasFatalFailure()) return;
  }
  // The series was worth its while.
  EXPECT_GT(model_.deliveries, 100u);
  if (!GetParam().forwards) {
    EXPECT_GT(model_.suppressions, 30u);
    EXPECT_GT(model_.releases, 30u);
    EXPECT_GT(model_.windows, 30u);
  }
}
