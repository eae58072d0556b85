// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A model of the registry, from its description only: records of values, and what each operation does to them.
#ifndef TARN_TESTS_EVENT_MODEL_H
#define TARN_TESTS_EVENT_MODEL_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "event/fixture.h"

namespace event_test::model {

constexpr int kTypes = 5;
constexpr int kBefore = 2;  // records before the table, which negative types reach
// A type's place among all records.
inline size_t index_of(int type) {
  const int index = type + kBefore;
  return static_cast<size_t>(index);
}

constexpr unsigned kCallbacks = 4;

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
  kGiveListBack,  // by the test itself, so that a type does not lose its subscribers for good
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

inline void PrintTo(const Outcome &outcome, std::ostream *out) {
  *out << "{result " << outcome.result << " count " << outcome.count << " cfg " << outcome.cfg.suprs_en << ' '
       << outcome.cfg.threshold << ' ' << outcome.cfg.period << '}';
}

// What the handler writes to the journal.
inline std::string handled_line(uint16_t device, const std::array<uint32_t, 8> &words) {
  std::string text = line("handler: device %u", device);
  for (const uint32_t word : words) text += line(" %x", word);
  return text;
}

// How the handler answers a message: every word changes.
inline std::array<uint32_t, 8> answered(std::array<uint32_t, 8> words) {
  for (size_t i = 0; i < 8; i++) words[i] = words[i] * 3 + static_cast<uint32_t>(i);
  return words;
}

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

inline void PrintTo(const Record &record, std::ostream *out) {
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

}  // namespace event_test::model

#endif
