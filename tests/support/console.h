// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What is printed on standard output.
#ifndef TARN_TESTS_SUPPORT_CONSOLE_H
#define TARN_TESTS_SUPPORT_CONSOLE_H

#include <sys/types.h>

#include <string>

namespace tarn_test {

// Takes standard output over for a scope, at the level of the descriptor. One at a time. What is not taken appears at
// its end, so that nothing is lost when a test fails meanwhile. GoogleTest's own reports of failures go there too: keep
// one for each round of a long loop, or a failure in one round fails all that follow.
class Console {
 public:
  Console();
  ~Console();
  Console(const Console &) = delete;
  Console &operator=(const Console &) = delete;

  // All that was printed since the start or the last call, to the byte.
  std::string take();

 private:
  int file_;
  int stdout_;
  off_t taken_ = 0;  // of the file
};

}  // namespace tarn_test

#endif
