// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Which of the daemon's next calls fail.
#ifndef TARN_SIM_LAUNCHER_FAILURES_H
#define TARN_SIM_LAUNCHER_FAILURES_H

#include <array>

#include "command.h"
#include "console.h"

namespace tarn_sim {

class Failures {
 public:
  // The next `count` calls fail. This replaces an earlier count.
  void set(Call call, std::uint32_t count) { left_[index(call)] = count; }

  std::uint32_t left(Call call) const { return left_[index(call)]; }

  // Whether this call fails; counts it.
  bool take(Call call) {
    if (left_[index(call)] == 0) return false;
    left_[index(call)]--;
    report_detail(std::string(kCallNames[index(call)]) + ": fails, as was asked for");
    return true;
  }

 private:
  static std::size_t index(Call call) { return static_cast<std::size_t>(call); }

  std::array<std::uint32_t, kCalls> left_ = {};
};

}  // namespace tarn_sim

#endif
