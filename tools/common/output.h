// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Output of the tools to standard output.
#ifndef TARN_TOOLS_COMMON_OUTPUT_H
#define TARN_TOOLS_COMMON_OUTPUT_H

#include <string>

namespace tarn_tools {

// A failure shows when the output is flushed.
void print(const std::string &text);
void print_line(const std::string &line);

// Writes the buffered text. Throws a Failure if that fails: standard output may be a file on a full disk.
void flush_output();

}  // namespace tarn_tools

#endif
