// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The device's description, emptying the user ring, and removing the files.

#include "log/file_model.h"

using namespace tarn_test;

namespace {

using LogStoreHeader = StartedLogFiles;
using LogStoreClean = StartedLogFiles;
using LogStoreRemove = StartedLogFiles;

constexpr mup_log_usr_header kHeader = {"Maker & Sons", "Gateway;2", "0123456789012345678901234567890",
                                        "192.168.1.1",  "A1",        ""};
constexpr const char *kHeaderText =
    "Manufacturer:Maker & Sons;\nProductClass:Gateway;2;\nSerialNumber:0123456789012345678901234567890;\n"
    "IP:192.168.1.1;\nHWVer:A1;\nSWVer:;\n\n";

}  // namespace

TEST_F(LogStoreHeader, IsSetAndReadAsOneBlock) {
  mup_log_usr_header header;
  memset(&header, 'x', sizeof header);
  EXPECT_EQ(mup_log_usr_header_get(&header), 0);
  const mup_log_usr_header empty = {};
  EXPECT_EQ(memcmp(&header, &empty, sizeof header), 0);  // empty until it is set

  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  EXPECT_EQ(ctrl->dirty, 2);
  EXPECT_EQ(memcmp(&ctrl->usr_header, &kHeader, sizeof kHeader), 0);
  ctrl->dirty = 0;
  EXPECT_EQ(mup_log_usr_header_get(&header), 0);
  EXPECT_EQ(memcmp(&header, &kHeader, sizeof header), 0);
  EXPECT_EQ(ctrl->dirty, 0);
}

TEST_F(LogStoreHeader, All192BytesAreCopiedAndNoMore) {
  std::string bytes;
  for (int i = 0; i < 192; i++) bytes += static_cast<char>(i + 1);
  ctrl->dirty = 1;
  EXPECT_EQ(mup_log_usr_header_set(bytes.data()), 0);
  EXPECT_EQ(ctrl->dirty, 3);
  std::string copy(200, '#');
  EXPECT_EQ(mup_log_usr_header_get(copy.data()), 0);
  EXPECT_EQ(copy, bytes + "########");
}

TEST_F(LogStoreHeader, NullIsRefused) {
  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  ctrl->dirty = 0;
  Console console;
  EXPECT_EQ(mup_log_usr_header_set(nullptr), 2);
  EXPECT_THAT(console.take(), assertion_of("mup_log_usr_header_set"));
  EXPECT_EQ(mup_log_usr_header_get(nullptr), 2);
  EXPECT_THAT(console.take(), assertion_of("mup_log_usr_header_get"));
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_EQ(memcmp(&ctrl->usr_header, &kHeader, sizeof kHeader), 0);
}

TEST_F(LogStoreHeader, IsWrittenBeforeTheRecordsOfTheUserFile) {
  log_text(16, 4, "text");
  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  save();
  const Record record = {16, 4, VirtualClock::kStart, "text"};
  EXPECT_EQ(bytes_of(usr()), kHeaderText + file_line(record, numbered_names()));
  EXPECT_EQ(bytes_of(sys()), kFreshSysFile);
  start();
  expect_user({record});  // after the empty line
}

TEST_F(LogStoreHeader, FieldsWithoutANulEndAfter32Bytes) {
  mup_log_usr_header header;
  memset(header.manufacturer, 'a', 32);
  memset(header.product_class, 'b', 32);
  memset(header.serial_number, 'c', 32);
  memset(header.ip, 'd', 32);
  memset(header.hw_ver, 'e', 32);
  memset(header.sw_ver, 'f', 32);
  EXPECT_EQ(mup_log_usr_header_set(&header), 0);
  save();
  EXPECT_EQ(bytes_of(usr()), "Manufacturer:" + std::string(32, 'a') + ";\nProductClass:" + std::string(32, 'b') +
                                 ";\nSerialNumber:" + std::string(32, 'c') + ";\nIP:" + std::string(32, 'd') +
                                 ";\nHWVer:" + std::string(32, 'e') + ";\nSWVer:" + std::string(32, 'f') + ";\n\n");
}

TEST_F(LogStoreHeader, IsNotReadBackAndSurvivesAStart) {
  write_file(usr(), kHeaderText);
  start();
  const mup_log_usr_header empty = {};
  EXPECT_EQ(memcmp(&ctrl->usr_header, &empty, sizeof empty), 0);
  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  start();
  EXPECT_EQ(memcmp(&ctrl->usr_header, &kHeader, sizeof kHeader), 0);
  EXPECT_EQ(ctrl->dirty, 0);  // the start clears it: nothing is rewritten
}

TEST_F(LogStoreHeader, AHeaderWithAnEmptyLineHidesTheRecordsOfTheNextStart) {
  // Records begin after the first two successive line feeds, whatever wrote those.
  mup_log_usr_header header = kHeader;
  strcpy(header.product_class, "a\n\nb");
  EXPECT_EQ(mup_log_usr_header_set(&header), 0);
  log_text(16, 4, "text");
  save();
  start();
  expect_user({});
}

TEST_F(LogStoreHeader, EveryCallHoldsTheLock) {
  mup_log_usr_header header = {};
  EXPECT_TRUE(waits_for_the_lock([&] { EXPECT_EQ(mup_log_usr_header_set(&header), 0); }));
  EXPECT_TRUE(waits_for_the_lock([&] { EXPECT_EQ(mup_log_usr_header_get(&header), 0); }));
  EXPECT_TRUE(waits_for_the_lock([] { EXPECT_EQ(mup_log_usr_clean(), 0); }));
  EXPECT_TRUE(waits_for_the_lock([] { save(); }));
  EXPECT_TRUE(waits_for_the_lock([&] { EXPECT_EQ(mup_log_file_get(out().c_str(), 0, nullptr, 0), 0); }));
}

TEST_F(LogStoreClean, EmptiesOnlyTheUserRing) {
  for (int i = 0; i < 600; i++) log_text(16, 4, "user");
  for (int i = 0; i < 5; i++) log_text(0, 4, "system");
  save();
  const std::string system = bytes_of(sys());
  ASSERT_EQ(ctrl->usr_idx, 88u);
  EXPECT_EQ(mup_log_usr_clean(), 0);
  EXPECT_EQ(ctrl->dirty, 2);
  EXPECT_EQ(ctrl->usr_idx, 0u);
  expect_user({});
  for (const mup_log_rec &record : ctrl->usr_ring) {
    ASSERT_EQ(std::string(record.text, sizeof record.text), std::string(MUP_LOG_TEXT_SIZE, '\0'));
  }
  EXPECT_EQ(ctrl->sys_idx, 5u);
  EXPECT_EQ(text_of(ctrl->sys_ring[4]), "system");

  save();
  EXPECT_EQ(bytes_of(usr()), kEmptyHeader);
  EXPECT_EQ(bytes_of(sys()), system);
}

TEST_F(LogStoreClean, AddsItsDirtyBitToTheOther) {
  log_text(0, 4, "system");
  EXPECT_EQ(mup_log_usr_clean(), 0);
  EXPECT_EQ(ctrl->dirty, 3);
}

TEST_F(LogStoreRemove, DeletesBothFilesAndNothingElse) {
  log_text(0, 4, "system");
  log_text(16, 4, "user");
  save();
  write_file(path("other.txt"), "stays");
  Console console;
  EXPECT_EQ(mup_log_file_remove(), 0);
  EXPECT_EQ(console.take(), "remove the log file \n");
  EXPECT_FALSE(exists(sys()));
  EXPECT_FALSE(exists(usr()));
  EXPECT_TRUE(exists(path("other.txt")));
  EXPECT_EQ(ctrl->sys_idx, 1u);
  EXPECT_EQ(text_of(ctrl->usr_ring[0]), "user");
  EXPECT_EQ(ctrl->dirty, 0);

  EXPECT_EQ(mup_log_file_remove(), 0);  // with nothing to delete
  EXPECT_EQ(console.take(), "remove the log file \n");
  save();
  EXPECT_FALSE(exists(sys()));  // no ring has changed

  log_text(0, 4, "more");
  save();
  EXPECT_EQ(bytes_of(sys()),
            kSysMarker + file_lines({{0, 4, VirtualClock::kStart, "system"}, {0, 4, VirtualClock::kStart, "more"}},
                                    numbered_names()));
  EXPECT_FALSE(exists(usr()));
}

TEST_F(LogStoreRemove, KeepsADirtyRingDirty) {
  log_text(16, 4, "user");
  Console console;
  EXPECT_EQ(mup_log_file_remove(), 0);
  console.take();
  EXPECT_EQ(ctrl->dirty, 2);
}

TEST_F(LogStoreRemove, TakesNoLock) {
  Console console;
  EXPECT_TRUE(ends_under_the_lock([] { EXPECT_EQ(mup_log_file_remove(), 0); }));
  EXPECT_EQ(console.take(), "remove the log file \n");
}

TEST_F(LogStoreRemove, RemovesFromTheFixedPathsWhateverTheStateSays) {
  strcpy(ctrl->sys_path, "/overlay/elsewhere.txt");
  write_file(path("elsewhere.txt"), "stays");
  Console console;
  EXPECT_EQ(mup_log_file_remove(), 0);
  console.take();
  EXPECT_FALSE(exists(sys()));
  EXPECT_TRUE(exists(path("elsewhere.txt")));
}
