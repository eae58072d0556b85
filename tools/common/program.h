// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The frame of every tool.
#ifndef TARN_TOOLS_COMMON_PROGRAM_H
#define TARN_TOOLS_COMMON_PROGRAM_H

namespace tarn_tools {

// Runs `body`, which returns the exit status, and flushes its output. Reports every exception; the status is then
// kWrong.
int run_program(const char *name, int argc, char **argv, int (*body)(int argc, char **argv));

}  // namespace tarn_tools

#endif
