// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The device's description, emptying the user ring, and removing the files.

#include <gmock/gmock.h>

#include <thread>

#include "contract_store.h"

using namespace tarn_test;
using testing::MatchesRegex;

namespace {

constexpr mup_log_usr_header kHeader = {"Maker & Sons", "Gateway;2", "0123456789012345678901234567890",
                                        "192.168.1.1",  "A1",        ""};
constexpr const char *kHeaderText =
    "Manufacturer:Maker & Sons;\nProductClass:Gateway;2;\nSerialNumber:0123456789012345678901234567890;\n"
    "IP:192.168.1.1;\nHWVer:A1;\nSWVer:;\n\n";

// Whether a call waits while the test holds the log mutex.
template <typename Call>
bool waits_for_the_lock(const Store &store, Call call) {
  std::atomic<bool> done = false;
  mu_mutex_lock(store.ctrl->mutex);
  std::thread caller([&] {
    call();
    done = true;
  });
  for (int i = 0; i < 2000; i++) std::this_thread::yield();
  const bool waited = !done;
  mu_mutex_unlock(store.ctrl->mutex);
  caller.join();
  EXPECT_TRUE(done);
  return waited;
}

}  // namespace

TEST(LogStoreHeaderContract, IsSetAndReadAsOneBlock) {
  Store store;
  store.start();
  mup_log_usr_header header;
  memset(&header, 'x', sizeof header);
  EXPECT_EQ(mup_log_usr_header_get(&header), 0);
  const mup_log_usr_header empty = {};
  EXPECT_EQ(memcmp(&header, &empty, sizeof header), 0);  // empty until it is set

  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  EXPECT_EQ(store.ctrl->dirty, 2);
  EXPECT_EQ(memcmp(&store.ctrl->usr_header, &kHeader, sizeof kHeader), 0);
  store.ctrl->dirty = 0;
  EXPECT_EQ(mup_log_usr_header_get(&header), 0);
  EXPECT_EQ(memcmp(&header, &kHeader, sizeof header), 0);
  EXPECT_EQ(store.ctrl->dirty, 0);
}

TEST(LogStoreHeaderContract, All192BytesAreCopiedAndNoMore) {
  Store store;
  store.start();
  std::string bytes;
  for (int i = 0; i < 192; i++) bytes += static_cast<char>(i + 1);
  store.ctrl->dirty = 1;
  EXPECT_EQ(mup_log_usr_header_set(bytes.data()), 0);
  EXPECT_EQ(store.ctrl->dirty, 3);
  std::string copy(200, '#');
  EXPECT_EQ(mup_log_usr_header_get(copy.data()), 0);
  EXPECT_EQ(copy, bytes + "########");
}

TEST(LogStoreHeaderContract, NullIsRefused) {
  Store store;
  store.start();
  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  store.ctrl->dirty = 0;
  Console console;
  EXPECT_EQ(mup_log_usr_header_set(nullptr), 2);
  EXPECT_THAT(console.take(), MatchesRegex("mup_log_usr_header_set\\(\\) _[1-9][0-9]*_: assert fail\n"));
  EXPECT_EQ(mup_log_usr_header_get(nullptr), 2);
  EXPECT_THAT(console.take(), MatchesRegex("mup_log_usr_header_get\\(\\) _[1-9][0-9]*_: assert fail\n"));
  EXPECT_EQ(store.ctrl->dirty, 0);
  EXPECT_EQ(memcmp(&store.ctrl->usr_header, &kHeader, sizeof kHeader), 0);
}

TEST(LogStoreHeaderContract, StandsAtTheHeadOfTheUserFile) {
  Store store;
  store.start();
  log_text(16, 4, "text");
  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  const Record record = {16, 4, VirtualClock::kStart, "text"};
  EXPECT_EQ(Store::bytes_of(store.usr()), kHeaderText + file_line(record, numbered_names()));
  EXPECT_EQ(Store::bytes_of(store.sys()), std::string("SysLog:\n\0", 9));
  store.start();
  store.expect_user({record});  // behind the empty line
}

TEST(LogStoreHeaderContract, FieldsWithoutANulEndAfter32Bytes) {
  Store store;
  store.start();
  mup_log_usr_header header;
  memset(header.manufacturer, 'a', 32);
  memset(header.product_class, 'b', 32);
  memset(header.serial_number, 'c', 32);
  memset(header.ip, 'd', 32);
  memset(header.hw_ver, 'e', 32);
  memset(header.sw_ver, 'f', 32);
  EXPECT_EQ(mup_log_usr_header_set(&header), 0);
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.usr()),
            "Manufacturer:" + std::string(32, 'a') + ";\nProductClass:" + std::string(32, 'b') +
                ";\nSerialNumber:" + std::string(32, 'c') + ";\nIP:" + std::string(32, 'd') +
                ";\nHWVer:" + std::string(32, 'e') + ";\nSWVer:" + std::string(32, 'f') + ";\n\n");
}

TEST(LogStoreHeaderContract, IsNotReadBackAndSurvivesAStart) {
  Store store;
  Store::write(store.usr(), kHeaderText);
  store.start();
  const mup_log_usr_header empty = {};
  EXPECT_EQ(memcmp(&store.ctrl->usr_header, &empty, sizeof empty), 0);
  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  store.start();
  EXPECT_EQ(memcmp(&store.ctrl->usr_header, &kHeader, sizeof kHeader), 0);
  EXPECT_EQ(store.ctrl->dirty, 0);  // the start clears it: nothing is rewritten
}

TEST(LogStoreHeaderContract, MayBeSetBeforeTheStart) {
  Store store;
  EXPECT_EQ(mup_log_usr_header_set(&kHeader), 0);
  mup_log_usr_header header = {};
  EXPECT_EQ(mup_log_usr_header_get(&header), 0);
  EXPECT_EQ(memcmp(&header, &kHeader, sizeof header), 0);
  store.start();
  log_text(16, 4, "text");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.usr()).substr(0, strlen(kHeaderText)), kHeaderText);
}

TEST(LogStoreHeaderContract, AHeaderWithAnEmptyLineHidesTheRecordsOfTheNextStart) {
  // Records begin behind the first two line feeds, wherever those come from.
  Store store;
  store.start();
  mup_log_usr_header header = kHeader;
  strcpy(header.product_class, "a\n\nb");
  EXPECT_EQ(mup_log_usr_header_set(&header), 0);
  log_text(16, 4, "text");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  store.start();
  store.expect_user({});
}

TEST(LogStoreHeaderContract, TheCallsHoldTheLock) {
  Store store;
  store.start();
  mup_log_usr_header header = {};
  EXPECT_TRUE(waits_for_the_lock(store, [&] { EXPECT_EQ(mup_log_usr_header_set(&header), 0); }));
  EXPECT_TRUE(waits_for_the_lock(store, [&] { EXPECT_EQ(mup_log_usr_header_get(&header), 0); }));
  EXPECT_TRUE(waits_for_the_lock(store, [] { EXPECT_EQ(mup_log_usr_clean(), 0); }));
  EXPECT_TRUE(waits_for_the_lock(store, [] { EXPECT_EQ(mup_log_usr_savefile(), 0); }));
  EXPECT_TRUE(waits_for_the_lock(store, [&] { EXPECT_EQ(mup_log_file_get(store.out().c_str(), 0, nullptr, 0), 0); }));
}

TEST(LogStoreCleanContract, EmptiesTheUserRingAlone) {
  Store store;
  store.start();
  for (int i = 0; i < 600; i++) log_text(16, 4, "user");
  for (int i = 0; i < 5; i++) log_text(0, 4, "system");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  const std::string system = Store::bytes_of(store.sys());
  ASSERT_EQ(store.ctrl->usr_idx, 88u);
  EXPECT_EQ(mup_log_usr_clean(), 0);
  EXPECT_EQ(store.ctrl->dirty, 2);
  EXPECT_EQ(store.ctrl->usr_idx, 0u);
  store.expect_user({});
  for (const mup_log_rec &record : store.ctrl->usr_ring) {
    ASSERT_EQ(std::string(record.text, sizeof record.text), std::string(MUP_LOG_TEXT_SIZE, '\0'));
  }
  EXPECT_EQ(store.ctrl->sys_idx, 5u);
  EXPECT_EQ(text_of(store.ctrl->sys_ring[4]), "system");

  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.usr()), kEmptyHeader);
  EXPECT_EQ(Store::bytes_of(store.sys()), system);
}

TEST(LogStoreCleanContract, AddsItsDirtyBitToTheOther) {
  Store store;
  store.start();
  log_text(0, 4, "system");
  EXPECT_EQ(mup_log_usr_clean(), 0);
  EXPECT_EQ(store.ctrl->dirty, 3);
}

TEST(LogStoreCleanContract, BeforeTheStartIsRefused) {
  Store store;
  Console console;
  EXPECT_EQ(mup_log_usr_clean(), 1);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(store.ctrl->dirty, 0);
}

TEST(LogStoreRemoveContract, DeletesBothFilesAndNothingElse) {
  Store store;
  store.start();
  log_text(0, 4, "system");
  log_text(16, 4, "user");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  Store::write(store.path("other.txt"), "stays");
  Console console;
  EXPECT_EQ(mup_log_file_remove(), 0);
  EXPECT_EQ(console.take(), "remove the log file \n");
  EXPECT_FALSE(Store::exists(store.sys()));
  EXPECT_FALSE(Store::exists(store.usr()));
  EXPECT_TRUE(Store::exists(store.path("other.txt")));
  EXPECT_EQ(store.ctrl->sys_idx, 1u);
  EXPECT_EQ(text_of(store.ctrl->usr_ring[0]), "user");
  EXPECT_EQ(store.ctrl->dirty, 0);

  EXPECT_EQ(mup_log_file_remove(), 0);  // with nothing to delete
  EXPECT_EQ(console.take(), "remove the log file \n");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_FALSE(Store::exists(store.sys()));  // no ring has changed

  log_text(0, 4, "more");
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(Store::bytes_of(store.sys()),
            kSysMarker + file_lines({{0, 4, VirtualClock::kStart, "system"}, {0, 4, VirtualClock::kStart, "more"}},
                                    numbered_names()));
  EXPECT_FALSE(Store::exists(store.usr()));
}

TEST(LogStoreRemoveContract, KeepsADirtyRingDirty) {
  Store store;
  store.start();
  log_text(16, 4, "user");
  Console console;
  EXPECT_EQ(mup_log_file_remove(), 0);
  console.take();
  EXPECT_EQ(store.ctrl->dirty, 2);
}

TEST(LogStoreRemoveContract, TakesNoLockAndNeedsNoStart) {
  Store store;
  Store::write(store.sys(), "x");
  Console console;
  EXPECT_EQ(mup_log_file_remove(), 0);
  EXPECT_FALSE(Store::exists(store.sys()));
  console.take();
  store.start();
  mu_mutex_lock(store.ctrl->mutex);
  EXPECT_EQ(mup_log_file_remove(), 0);  // would wait for ever
  mu_mutex_unlock(store.ctrl->mutex);
  console.take();
}

TEST(LogStoreRemoveContract, RemovesFromTheFixedPathsWhateverTheStateSays) {
  Store store;
  store.start();
  strcpy(store.ctrl->sys_path, "/overlay/elsewhere.txt");
  Store::write(store.path("elsewhere.txt"), "stays");
  Console console;
  EXPECT_EQ(mup_log_file_remove(), 0);
  console.take();
  EXPECT_FALSE(Store::exists(store.sys()));
  EXPECT_TRUE(Store::exists(store.path("elsewhere.txt")));
}
