// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Captures standard output.
#ifndef TARN_TESTS_SUPPORT_CONSOLE_H
#define TARN_TESTS_SUPPORT_CONSOLE_H

#include <sys/types.h>

#include <string>

namespace tarn_test {

// Captures standard output for a scope, at the level of the descriptor. One at a time. Output that take() did not
// return is printed at the end of the scope, so nothing is lost when a test fails. GoogleTest's failure reports are
// captured too: in a long loop use one for each round, or a failure in one round fails all later ones.
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
