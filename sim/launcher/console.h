// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The launcher's own lines, on standard error.
#ifndef TARN_SIM_LAUNCHER_CONSOLE_H
#define TARN_SIM_LAUNCHER_CONSOLE_H

#include <string>
#include <string_view>

namespace tarn_sim {

// Writes "tarn-sim: LINE" in one piece, from any thread.
void report(const std::string &line);

// The same, but only with --verbose.
void report_detail(const std::string &line);
void set_verbose(bool verbose);

// From here on, with --verbose, each line begins with the time since this call. Call it before there is a second
// thread.
void start_clock();

// Bytes made readable on one line: control characters as \xNN, the backslash as \\.
std::string readable(std::string_view bytes);

}  // namespace tarn_sim

#endif
