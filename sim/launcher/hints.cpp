// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "hints.h"

#include <algorithm>

namespace tarn_sim {

namespace {

struct Hint {
  bool (*holds)(const Waits &waits);
  const char *text;
};

constexpr Hint kHints[] = {
    {[](const Waits &waits) { return waits.kernel_lines; },
     "hint: kernel lines wait, but nobody has opened /proc/kmsg: a daemon reads it by log_msg_process in a thread"},
    {[](const Waits &waits) { return waits.awaited == Awaited::kChannel; },
     "hint: the script waits for the daemon's event channel (await channel): a daemon opens it by mup_plat_event_init"},
    {[](const Waits &waits) { return waits.awaited == Awaited::kSettings; },
     "hint: the script waits for the settings of an event (await settings): a daemon makes them by mu_event_set; for "
     "one "
     "that makes none, write a time, as in 'after 500ms say go'"},
};

}  // namespace

std::vector<std::string> Hints::take(std::uint64_t now, const Waits &waits) {
  static_assert(std::size(kHints) == std::tuple_size_v<decltype(states_)>);
  std::vector<std::string> due;
  for (std::size_t i = 0; i < states_.size(); i++) {
    State &state = states_[i];
    if (!kHints[i].holds(waits) || state.is_said) {
      state.since.reset();
      continue;
    }
    if (!state.since) state.since = now;
    if (now - *state.since < kPatience) continue;
    state = {std::nullopt, true};
    due.emplace_back(kHints[i].text);
  }
  return due;
}

std::vector<std::string> Hints::take_last(const Waits &waits) {
  std::vector<std::string> last;
  for (std::size_t i = 0; i < states_.size(); i++) {
    if (kHints[i].holds(waits) && !states_[i].is_said) last.emplace_back(kHints[i].text);
    states_[i].is_said = true;
  }
  return last;
}

std::optional<std::uint64_t> Hints::next() const {
  std::optional<std::uint64_t> first;
  for (const State &state : states_) {
    if (state.since) first = std::min(first.value_or(*state.since + kPatience), *state.since + kPatience);
  }
  return first;
}

}  // namespace tarn_sim
