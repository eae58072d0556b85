// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Programs that the shim cannot enter, found out before one of them is started: it would run on the machine's own
// files.
#ifndef TARN_SIM_LAUNCHER_EXECUTABLE_H
#define TARN_SIM_LAUNCHER_EXECUTABLE_H

#include <optional>
#include <string>

namespace tarn_sim {

// Why the program, looked for as execvp(3) does, would run without the shim, and what to do about it. Nothing where the
// shim gets in, and where there is nothing to execute.
std::optional<std::string> reason_to_refuse(const std::string &program, const std::string &shim);

}  // namespace tarn_sim

#endif
