// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the tests of the log's files share: the two files in a private folder, and the log started on them.
#ifndef TARN_TESTS_LOG_STORE_FILES_H
#define TARN_TESTS_LOG_STORE_FILES_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "modules.h"
#include "support/console.h"
#include "support/sandbox.h"
#include "support/virtual_clock.h"
#include "tarn/log.h"

namespace tarn_test {

inline void set_zone(const char *zone) {
  setenv("TZ", zone, 1);
  tzset();
}

inline std::optional<std::string> read_file(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

inline void write_file(const std::string &path, const std::string &content) {
  std::ofstream(path, std::ios::binary) << content;
}

// The texts of a ring's records, from the first slot on.
inline std::vector<std::string> texts(const mup_log_rec *ring, int size) {
  std::vector<std::string> found;
  for (int i = 0; i < size; i++) {
    if (ring[i].text[0] != '\0') found.emplace_back(ring[i].text);
  }
  return found;
}

class LogStoreTest : public testing::Test {
 private:
  Sandbox sandbox_;

 protected:
  LogStoreTest() { set_zone("UTC0"); }

  // Starts the log with modules "m0" to "m20", everything recorded and nothing shown, and returns what was printed.
  std::string start(int modules = 21) {
    // What an earlier start made is abandoned; kept in reach, it is no leak.
    static auto *const abandoned = new std::vector<const void *>;
    abandoned->insert(abandoned->end(), {control().modules, control().mutex});
    Console console;
    EXPECT_EQ(mup_log_usr_init(static_cast<uint16_t>(modules), module_table(modules).c_str()), 0);
    control().level_hook = nullptr;
    record_all();
    return console.take();
  }

  static void record_all() {
    for (int id = 0; id < control().module_num; id++) {
      control().modules[id].record_level = MUP_LOG_DEBUG;
      control().modules[id].print_level = MUP_LOG_OFF;
    }
  }

  static mup_log_ctrl &control() { return *mup_log_ctrl_get(); }
  static std::vector<std::string> sys_texts() { return texts(control().sys_ring, MUP_LOG_SYS_NUM); }
  static std::vector<std::string> usr_texts() { return texts(control().usr_ring, MUP_LOG_USR_NUM); }

  std::string overlay(const std::string &name) const { return sandbox_.root() + "/overlay/" + name; }
  const std::string sys_file = overlay("mu_log.txt");
  const std::string usr_file = overlay("user_log.txt");

  VirtualClock clock_{};
};

}  // namespace tarn_test

#endif
