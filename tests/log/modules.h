// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Module tables for the tests of the log.
#ifndef TARN_TESTS_LOG_MODULES_H
#define TARN_TESTS_LOG_MODULES_H

#include <string>

#include "tarn/log.h"

namespace tarn_test {

// `count` names "m0", "m1", ... as mup_log_init takes them.
inline std::string module_table(int count) {
  std::string table;
  for (int i = 0; i < count; i++) {
    std::string name = 'm' + std::to_string(i);
    name.resize(MUP_LOG_NAME_SIZE);
    table += name;
  }
  return table;
}

}  // namespace tarn_test

#endif
