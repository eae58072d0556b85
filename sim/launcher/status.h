// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The state of a simulation as one line of JSON.
#ifndef TARN_SIM_LAUNCHER_STATUS_H
#define TARN_SIM_LAUNCHER_STATUS_H

#include <string>

#include "simulation.h"

namespace tarn_sim {

std::string status(const State &state);

}  // namespace tarn_sim

#endif
