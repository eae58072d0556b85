// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Log files written by a test, and the rings that loading them gives.
#ifndef TARN_TESTS_LOG_LOAD_H
#define TARN_TESTS_LOG_LOAD_H

#include "log/file_model.h"

namespace tarn_test {

// The record of line_of_size; a record keeps at most 255 characters.
inline Record record_of_size(size_t size, char fill = 'x') {
  return good_record(std::string(std::min<size_t>(size - good("").size(), 255), fill));
}

class LoadedFiles : public LogFiles {
 protected:
  // Loads a system file and compares the ring with the records.
  void expect_system_load(const std::string &file, const Records &records, const std::string &printed = "") {
    write_file(sys(), file);
    write_file(usr(), "");
    EXPECT_EQ(start(), printed + start_line(21));
    expect_system(records);
  }

  void expect_user_load(const std::string &file, const Records &records, const std::string &printed = "") {
    write_file(sys(), "");
    write_file(usr(), file);
    EXPECT_EQ(start(), printed + start_line(21));
    expect_user(records);
  }

  // Loads the file as both logs and compares the rings with the model.
  void expect_as_read(const std::string &file, const Names &names = numbered_names()) {
    write_file(sys(), file);
    write_file(usr(), file);
    const std::string printed = start(names);
    const Loaded system = load_model(file, kSysMarker, names, MUP_LOG_SYS_NUM);
    const Loaded user = load_model(file, kUsrMarker, names, MUP_LOG_USR_NUM);
    expect_system(system.records);
    expect_user(user.records);
    std::string expected;
    if (system.parse_failed) expected += "Log file:/overlay/mu_log.txt Parse fail\n";
    if (user.parse_failed) expected += "Log file:/overlay/user_log.txt Parse fail\n";
    EXPECT_EQ(printed, expected + start_line(static_cast<unsigned>(names.size())));
  }
};

}  // namespace tarn_test

#endif
