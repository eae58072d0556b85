// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Finds programs that cannot load the shim before they are started: they would use the machine's own files.
#ifndef TARN_SIM_LAUNCHER_EXECUTABLE_H
#define TARN_SIM_LAUNCHER_EXECUTABLE_H

#include <optional>
#include <string>

namespace tarn_sim {

// Why the program, which is searched for as in execvp(3), would run without the shim, and what to do about it. Nothing
// if it loads the shim, or if there is nothing to execute.
std::optional<std::string> reason_to_refuse(const std::string &program, const std::string &shim);

}  // namespace tarn_sim

#endif
