// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <cerrno>
#include <cstdio>

#include "report.h"

namespace tarn_tools {

void print(const std::string &text) { (void)fwrite(text.data(), 1, text.size(), stdout); }

void print_line(const std::string &line) { print(line + '\n'); }

void flush_output() {
  errno = 0;
  if (fflush(stdout) == 0 && ferror(stdout) == 0) return;
  if (errno == 0) errno = EIO;  // an earlier write failed; its reason is lost
  fail_with_errno("standard output");
}

}  // namespace tarn_tools
