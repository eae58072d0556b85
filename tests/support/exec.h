// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the programs that a daemon starts inherit from it.
#ifndef TARN_TESTS_SUPPORT_EXEC_H
#define TARN_TESTS_SUPPORT_EXEC_H

#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace tarn_test {

// Whether a program that is started now, by fork and exec, has the descriptor open.
inline bool is_inherited(int descriptor) {
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  const pid_t child = fork();
  if (child == 0) {
    execl("/bin/sh", "sh", "-c", "test -e \"$1\"", "sh", path.c_str(), nullptr);
    _exit(127);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0;
}

}  // namespace tarn_test

#endif
