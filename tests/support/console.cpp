// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/console.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

namespace tarn_test {
namespace {

// Emptying the file at each call would cost more than everything else here.
constexpr off_t kKept = 1 << 20;

}  // namespace

Console::Console() {
  fflush(stdout);
  file_ = memfd_create("console", 0);
  stdout_ = dup(STDOUT_FILENO);
  dup2(file_, STDOUT_FILENO);
}

Console::~Console() {
  const std::string rest = take();
  dup2(stdout_, STDOUT_FILENO);
  close(stdout_);
  close(file_);
  fputs(rest.c_str(), stdout);
}

std::string Console::take() {
  fflush(stdout);
  const off_t end = lseek(file_, 0, SEEK_CUR);  // shared with the descriptor that is written to
  std::string text(static_cast<size_t>(end - taken_), '\0');
  if (text.empty()) return text;
  const ssize_t got = pread(file_, text.data(), text.size(), taken_);
  text.resize(got < 0 ? 0 : static_cast<size_t>(got));
  taken_ = end;
  if (taken_ > kKept && ftruncate(file_, 0) == 0) taken_ = lseek(file_, 0, SEEK_SET);
  return text;
}

}  // namespace tarn_test
