// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// When hints are due.

#include "sim/launcher/hints.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tarn_sim;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr Waits kNothingWaits;
constexpr Waits kLinesWait = {.kernel_lines = true};
constexpr Waits kChannelWaits = {.awaited = Awaited::kChannel};
constexpr Waits kSettingsWait = {.awaited = Awaited::kSettings};
constexpr std::uint64_t kStart = 1000;
constexpr std::uint64_t kDue = kStart + Hints::kPatience;

}  // namespace

TEST(Hints, AreDueWhenTheirWaitHasLasted) {
  Hints hints;
  EXPECT_EQ(hints.next(), std::nullopt);
  EXPECT_THAT(hints.take(kStart, kLinesWait), IsEmpty());
  EXPECT_EQ(hints.next(), kDue);
  EXPECT_THAT(hints.take(kDue - 1, kLinesWait), IsEmpty());
  EXPECT_THAT(hints.take(kDue, kLinesWait), ElementsAre(HasSubstr("/proc/kmsg")));
}

TEST(Hints, ComeOnce) {
  Hints hints;
  hints.take(kStart, kLinesWait);
  hints.take(kDue, kLinesWait);
  EXPECT_EQ(hints.next(), std::nullopt);
  EXPECT_THAT(hints.take(kDue + Hints::kPatience, kLinesWait), IsEmpty());
  EXPECT_THAT(hints.take_last(kLinesWait), IsEmpty());
}

TEST(Hints, CountAWaitFromItsBeginning) {
  Hints hints;
  hints.take(kStart, kSettingsWait);
  hints.take(kStart + 1, kNothingWaits);
  EXPECT_EQ(hints.next(), std::nullopt);
  hints.take(kStart + 2, kSettingsWait);
  EXPECT_THAT(hints.take(kDue + 1, kSettingsWait), IsEmpty());
  EXPECT_THAT(hints.take(kDue + 2, kSettingsWait), ElementsAre(HasSubstr("await settings")));
}

TEST(Hints, OfDifferentWaitsComeEachAtItsTime) {
  Hints hints;
  hints.take(kStart, kLinesWait);
  hints.take(kStart + 10, {.kernel_lines = true, .awaited = Awaited::kChannel});
  EXPECT_THAT(hints.take(kDue, {.kernel_lines = true, .awaited = Awaited::kChannel}),
              ElementsAre(HasSubstr("/proc/kmsg")));
  EXPECT_EQ(hints.next(), kDue + 10);
  EXPECT_THAT(hints.take(kDue + 10, kChannelWaits), ElementsAre(HasSubstr("await channel")));
}

TEST(Hints, ComeAtTheEndOfTheDaemonWithoutATime) {
  Hints hints;
  hints.take(kStart, kNothingWaits);
  EXPECT_THAT(hints.take_last({.kernel_lines = true, .awaited = Awaited::kSettings}),
              ElementsAre(HasSubstr("/proc/kmsg"), HasSubstr("await settings")));
  EXPECT_THAT(Hints().take_last(kNothingWaits), IsEmpty());
}
