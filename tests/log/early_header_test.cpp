// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The device's description, set before the log is started.

#include <cstring>

#include "store_files.h"

using namespace tarn_test;

namespace {

using LogStoreHeader = LogStoreTest;

}  // namespace

TEST_F(LogStoreHeader, SetBeforeTheStartIsWrittenWithTheNextChangeOfTheUserRing) {
  mup_log_usr_header header = {};
  strcpy(header.manufacturer, "tarn");
  ASSERT_EQ(mup_log_usr_header_set(&header), 0);
  start();
  EXPECT_STREQ(control().usr_header.manufacturer, "tarn");
  mup_log_usr_savefile();
  EXPECT_EQ(read_file(usr_file), "");  // as the start made it
  mup_log_msg(0, MUP_LOG_USR_FIRST, MUP_LOG_ERROR, 0, "change");
  mup_log_usr_savefile();
  EXPECT_TRUE(read_file(usr_file)->starts_with("Manufacturer:tarn;\n"));
}

TEST_F(LogStoreHeader, SetAfterTheStartIsWrittenByTheNextSave) {
  start();
  mup_log_usr_header header = {};
  strcpy(header.manufacturer, "tarn");
  ASSERT_EQ(mup_log_usr_header_set(&header), 0);
  mup_log_usr_savefile();
  EXPECT_TRUE(read_file(usr_file)->starts_with("Manufacturer:tarn;\n"));
}
