// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The driver's control file accepts valid commands, refuses all others, and survives both.

#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <string>

#include "platform.h"

using namespace driver_test;

namespace {

constexpr size_t kDigits = 2;  // of a byte

}  // namespace

TEST(DriverControl, RefusesWhatItDoesNotUnderstand) {
  const char *const lines[] = {"x",
                               "events 1 2",
                               "event",
                               "event 1",
                               "event 1 ",
                               "event a 1",
                               "event 1 b",
                               "event -1 1",
                               "event 65536 1",
                               "event 1 65536",
                               "event 20 1",
                               "event 1 1 0",
                               "event 1 1 0g",
                               "event 1 1 00 00",
                               "event 1  1",
                               " event 1 1",
                               "storm",
                               "storm 1 1",
                               "storm 1 1 -1",
                               "storm 1 1 x",
                               "storm 1 1 10000001",
                               "storm 1 1 4294967296",
                               "storm 20 1 1",
                               "storm 1 1 1 1",
                               "datagram",
                               "datagram ",
                               "datagram 0",
                               "datagram zz",
                               "datagram 00 00",
                               "kmsg",
                               "kmsg 1",
                               "kmsg x 1 a",
                               "kmsg 100 1 a",
                               "kmsg 1 0 a",
                               "kmsg 1 9 a",
                               "kmsg 1 -1 a",
                               "dump x"};
  for (const char *line : lines) EXPECT_NE(control(line), 0) << line;
  EXPECT_EQ(control(std::string("dump\0", 5)), EINVAL);
  EXPECT_EQ(control("datagram " + std::string(kDigits * 4097, '0')), EINVAL);
  EXPECT_EQ(control("event 1 1 " + std::string(kDigits * 4073, '0')), EINVAL);
  EXPECT_EQ(control(std::string(16385, ' ')), E2BIG);
}

TEST(DriverControl, TakesItsLongestLines) {
  EXPECT_EQ(control("datagram " + std::string(kDigits * 4096, '0')), 0);
  EXPECT_EQ(control("event 1 1 " + std::string(kDigits * 4072, '0')), 0);
  EXPECT_EQ(control("kmsg 99 8 " + std::string(5000, 'k')), 0);
  EXPECT_EQ(control("raw " + std::string(16380, 'r')), 0);
}

TEST(DriverControl, RunsSeveralLinesUpToTheFirstThatFails) {
  const long before = status_number("undirected") + status_number("refused") + status_number("sent");
  EXPECT_EQ(control("event 1 0\n\nevent 1 0\nevent x\nevent 1 0\n"), EINVAL);
  EXPECT_EQ(status_number("undirected") + status_number("refused") + status_number("sent"), before + 2);
}

// Random lines, built from parts of commands.
TEST(DriverControl, SurvivesRandomLines) {
  const char *const parts[] = {"event",
                               "storm",
                               "datagram",
                               "kmsg",
                               "raw",
                               " ",
                               " ",
                               " ",
                               "\n",
                               "0",
                               "1",
                               "7",
                               "19",
                               "20",
                               "-1",
                               "99",
                               "65535",
                               "4294967295",
                               "18446744073709551616",
                               "0a0b",
                               "zz",
                               "%s%n",
                               "<jxlog-",
                               "<jxlog>",
                               "\t",
                               "\r",
                               "\xff"};
  std::mt19937 random(20260102);
  for (int round = 0; round < 3000; round++) {
    std::string line;
    for (auto left = random() % 12; left > 0; left--) line += parts[random() % std::size(parts)];
    (void)control(line);  // refused or not: the driver must survive, see below
  }
  EXPECT_EQ(control("event 1 0"), 0);
  EXPECT_NE(status_number("destination"), -1);
}
