// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Files of the log by hand, and what loading them gives.
#ifndef TARN_TESTS_LOG_CONTRACT_LOAD_H
#define TARN_TESTS_LOG_CONTRACT_LOAD_H

#include "contract_store.h"

namespace tarn_test {

inline constexpr time_t kTen = 1767348000;  // 2026-01-02 10:00:00 UTC
inline const std::string kStamp = "2026-01-02 10:00:00";

inline std::string line_of(const std::string &level, const std::string &module, const std::string &text) {
  return kStamp + "[" + level + "]" + module + ":" + text + "\n";
}

inline std::string good(const std::string &text) { return line_of("Error", "m0", text); }
inline Record good_record(const std::string &text) { return {0, 4, kTen, text}; }

// A line of `size` bytes, its line feed included, whose text is longer than a record keeps when `size` is large.
inline std::string line_of_size(size_t size, char fill = 'x') {
  std::string line = good("");
  line.insert(line.size() - 1, size - line.size(), fill);
  return line;
}
inline Record record_of_size(size_t size, char fill = 'x') {
  return good_record(std::string(std::min<size_t>(size - good("").size(), 255), fill));
}

// Loads a system file and holds it against the records.
inline void expect_system_load(Store &store, const std::string &file, const std::vector<Record> &records,
                               const std::string &printed = "") {
  Store::write(store.sys(), file);
  Store::write(store.usr(), "");
  EXPECT_EQ(store.start(), printed + start_line(21));
  store.expect_system(records);
}

inline void expect_user_load(Store &store, const std::string &file, const std::vector<Record> &records,
                             const std::string &printed = "") {
  Store::write(store.sys(), "");
  Store::write(store.usr(), file);
  EXPECT_EQ(store.start(), printed + start_line(21));
  store.expect_user(records);
}

// Loads the file as both logs and holds it against the naive reading.
inline void expect_as_read(Store &store, const std::string &file, const Names &names = numbered_names()) {
  Store::write(store.sys(), file);
  Store::write(store.usr(), file);
  const std::string printed = store.start(names);
  const Loaded system = load_model(file, kSysMarker, names, MUP_LOG_SYS_NUM);
  const Loaded user = load_model(file, kUsrMarker, names, MUP_LOG_USR_NUM);
  store.expect_system(system.records);
  store.expect_user(user.records);
  std::string expected;
  if (system.parse_failed) expected += "Log file:/overlay/mu_log.txt Parse fail\n";
  if (user.parse_failed) expected += "Log file:/overlay/user_log.txt Parse fail\n";
  EXPECT_EQ(printed, expected + start_line(static_cast<unsigned>(names.size())));
}

}  // namespace tarn_test

#endif
