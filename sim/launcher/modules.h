// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The log modules of the simulated drivers. The log device changes their settings.
#ifndef TARN_SIM_LAUNCHER_MODULES_H
#define TARN_SIM_LAUNCHER_MODULES_H

#include <array>
#include <cstdint>

#include "service.h"

namespace tarn_sim {

struct Module {
  bool is_enabled = true;
  std::uint8_t print = 8;
  std::uint8_t record = 8;
  bool was_set = false;
};

class Modules {
 public:
  // Carries out an ioctl of the log device.
  Response control(const Message &message);

  // Whether a driver's line of this level is written.
  bool passes(std::uint8_t module, std::uint8_t level) const {
    return modules_[module].is_enabled && level <= modules_[module].record;
  }

  const std::array<Module, 256> &all() const { return modules_; }

 private:
  std::array<Module, 256> modules_;
};

}  // namespace tarn_sim

#endif
