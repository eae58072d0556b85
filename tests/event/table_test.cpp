// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mu_event_dump: the table that it prints.

#include <gtest/gtest.h>

#include <string>

#include "event/fixture.h"
#include "support/console.h"

using namespace event_test;
using namespace tarn_test;

namespace {

const std::string kHead = std::string(63, '=') +
                          "\nType Count      Suprs-en Suprs-s Suprs-cnt Threshold Period(ms)  \n" +
                          std::string(63, '-') + '\n';

std::string dump() {
  Console console;
  mu_event_dump();
  return console.take();
}

}  // namespace

TEST(EventDump, HasNoRowsBeforeInit) { EXPECT_EQ(dump(), kHead + "\n"); }

TEST(EventDump, ShowsARowForEachType) {
  const Registry registry(2);
  EXPECT_EQ(dump(), kHead +
                        "0    0          Disable  -       -         -         -\n"
                        "1    0          Disable  -       -         -         -\n"
                        "\n");
}

TEST(EventDump, ShowsTheSettingsAndTheStateOfSuppression) {
  const Registry registry(4);
  send(0);
  send(0);
  configure(1, 1, 3, 1000);
  for (int i = 0; i < 5; i++) send(1);
  configure(2, 1, 12, 25);
  send(2);
  configure(3, 0, 7, 70);  // off: its settings are not shown
  EXPECT_EQ(dump(), kHead +
                        "0    2          Disable  -       -         -         -\n"
                        "1    3          Enable   Yes     2         3         1000\n"
                        "2    1          Enable   No      0         12        20\n"
                        "3    0          Disable  -       -         -         -\n"
                        "\n");
}

// A number that is wider than its column is printed whole.
TEST(EventDump, PrintsNumbersSignedAndInFull) {
  const Registry registry(3);
  configure(0, 1, 3000000000, UINT32_MAX);  // stored as 429496729; 10 times that is 2^32 - 6
  rec(0).count = UINT32_MAX;
  rec(0).suprs_cnt = 0x80000000;
  rec(1).count = 0x80000000;
  rec(1).suprs_s = 1;
  configure(2, 1, 2147483647, 2147483647);
  rec(2).count = 2147483647;
  EXPECT_EQ(dump(), kHead +
                        "0    -1         Enable   No      -2147483648 -1294967296 -6\n"
                        "1    -2147483648 Disable  -       -         -         -\n"
                        "2    2147483647 Enable   No      0         2147483647 2147483640\n"
                        "\n");
}

TEST(EventDump, NumbersRowsFromZeroInOrder) {
  const Registry registry(10002);
  std::string rows;
  for (int i = 0; i < 10002; i++) {
    std::string number = std::to_string(i);
    number.resize(std::max<size_t>(number.size(), 4), ' ');
    rows += number + " 0          Disable  -       -         -         -\n";
  }
  EXPECT_EQ(dump(), kHead + rows + "\n");
}

TEST(EventDump, ShowsATableThatIsNotMarkedInited) {
  const Registry registry(1);
  glb_evt.inited = 0;
  EXPECT_EQ(dump(), kHead + "0    0          Disable  -       -         -         -\n\n");
}

TEST(EventDump, TakesNoLockAndChangesNothing) {
  const Registry registry(1);
  configure(0, 1, 3, 1000);
  send(0);
  const std::string before = state_bytes();
  mu_mutex_lock(glb_evt.lock);
  EXPECT_EQ(dump(), kHead + "0    1          Enable   No      0         3         1000\n\n");
  mu_mutex_unlock(glb_evt.lock);
  EXPECT_EQ(state_bytes(), before);
}
