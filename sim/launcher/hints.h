// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Hints for the user: what the script or the simulated kernel waits for in vain, and what to do about it.
//
// A hint is due when its wait has lasted for a while; each is printed once. The class reads no clock: callers pass the
// time.
#ifndef TARN_SIM_LAUNCHER_HINTS_H
#define TARN_SIM_LAUNCHER_HINTS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "script.h"

namespace tarn_sim {

// What waits now.
struct Waits {
  bool kernel_lines = false;  // nobody has opened the kernel's message stream yet
  Awaited awaited = Awaited::kNothing;
};

class Hints {
 public:
  static constexpr std::uint64_t kPatience = 500;  // ticks

  // The hints that are due.
  std::vector<std::string> take(std::uint64_t now, const Waits &waits);

  // The hints whose wait has no end any more, because the daemon has ended.
  std::vector<std::string> take_last(const Waits &waits);

  // When the next hint is due if nothing changes; nothing if none is.
  std::optional<std::uint64_t> next() const;

 private:
  struct State {
    std::optional<std::uint64_t> since;
    bool is_said = false;
  };
  std::array<State, 3> states_;
};

}  // namespace tarn_sim

#endif
