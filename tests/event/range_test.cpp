// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Which types are in range: none before mu_event_init; a negative one only for functions whose type is signed.

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "event/fixture.h"
#include "support/console.h"

using namespace event_test;
using namespace tarn_test;

namespace {

class EventNegativeType : public testing::Test {
 protected:
  Registry registry_{3, hook};
  RecordsBeforeTheTable records_{4};
};

}  // namespace

// ---- Before mu_event_init -------------------------------------------------------------------------------------------

TEST(EventUninitialised, RefusesEveryTypeAndChangesNothing) {
  Console console;
  uint32_t count = 9;
  mu_event_cfg_t cfg = {1, 2, 3};
  for (const int type : {0, 1, -1, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(type);
    const auto unsigned_type = static_cast<uint32_t>(type);
    EXPECT_EQ(mu_event_register(0, unsigned_type, subscriber<1>), -1);
    EXPECT_EQ(mu_event_deregister(0, unsigned_type, subscriber<1>), -1);
    EXPECT_EQ(mu_event_send(0, type, nullptr, 0), -1);
    EXPECT_EQ(mu_event_suprs_attach(type, released, suppressed, 0), -1);
    EXPECT_EQ(mu_event_suprs_attach(type, nullptr, nullptr, 0), -1);
    count = 9;
    EXPECT_EQ(mu_event_counter_get(0, unsigned_type, &count, 1), -1);
    EXPECT_EQ(count, 0u) << "stored before the type is checked";
    EXPECT_EQ(mu_event_counter_clear(0, unsigned_type), -1);
    EXPECT_EQ(mu_event_set(0, type, &cfg), -1);
    EXPECT_EQ(mu_event_get(0, type, &cfg), -1);
  }
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{1, 2, 3}));
  EXPECT_EQ(bytes_of(glb_evt), all_zero());
  EXPECT_EQ(take_journal(), Journal{});
  EXPECT_EQ(console.take(), "");
}

TEST(EventUninitialised, ClearAllSucceeds) {
  EXPECT_EQ(mu_event_counter_clear_all(3), 0);
  EXPECT_EQ(bytes_of(glb_evt), all_zero());
}

TEST(EventUninitialised, PollDoesNothing) {
  mu_event_poll();
  EXPECT_EQ(bytes_of(glb_evt), all_zero());
}

TEST(EventUninitialised, RefusesTypesOfATableThatIsNotMarkedInited) {
  const Registry registry(2, hook);
  mu_event_register(0, 0, subscriber<1>);
  glb_evt.inited = 0;
  const std::string before = state_bytes();
  uint32_t count = 9;
  mu_event_cfg_t cfg = {1, 2, 3};
  EXPECT_EQ(mu_event_register(0, 0, subscriber<2>), -1);
  EXPECT_EQ(mu_event_deregister(0, 0, subscriber<1>), -1);
  EXPECT_EQ(send(0), -1);
  EXPECT_EQ(mu_event_suprs_attach(0, released, suppressed, 0), -1);
  EXPECT_EQ(mu_event_counter_get(0, 0, &count, 1), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, 0), -1);
  EXPECT_EQ(mu_event_set(0, 0, &cfg), -1);
  EXPECT_EQ(mu_event_get(0, 0, &cfg), -1);
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(subscribers_of(0).size(), 1u);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST(EventUninitialised, ClearAllClearsATableThatIsNotMarkedInited) {
  const Registry registry(2);
  rec(1).count = 5;
  rec(1).suprs_cnt = 6;
  glb_evt.inited = 0;
  EXPECT_EQ(mu_event_counter_clear_all(0), 0);
  EXPECT_EQ(rec(1).count, 0u);
  EXPECT_EQ(rec(1).suprs_cnt, 0u);
}

// ---- Negative types -------------------------------------------------------------------------------------------------

TEST_F(EventNegativeType, SendAddressesTheRecordBeforeTheTable) {
  add_by_hand(-1, subscriber<1>);
  EXPECT_EQ(send(-1), 0);
  EXPECT_EQ(send(-4), 0);
  EXPECT_EQ(take_journal(),
            (Journal{hook_line(0, UINT32_MAX, nullptr, 0), subscriber_line(1, 0, UINT32_MAX, nullptr, 0),
                     hook_line(0, UINT32_MAX - 3, nullptr, 0)}));
  EXPECT_EQ(rec(-1).count, 1u);
  EXPECT_EQ(rec(-2).count, 0u);
  EXPECT_EQ(rec(-4).count, 1u);
}

TEST_F(EventNegativeType, AttachSetAndGetAddressTheRecordBeforeTheTable) {
  EXPECT_EQ(attach(-2, 5), 0);
  EXPECT_EQ(rec(-2).type, static_cast<uint32_t>(-2));
  EXPECT_EQ(rec(-2).cookie, 5u);
  EXPECT_EQ(configure(-2, 1, 3, 250), 0);
  EXPECT_EQ(rec(-2).period, 25u);
  EXPECT_EQ(rec(-2).threshold, 3u);
  EXPECT_EQ(take_journal(), Journal{release_line(5)});
  mu_event_cfg_t cfg = {};
  EXPECT_EQ(mu_event_get(0, -2, &cfg), 0);
  EXPECT_EQ(bytes_of(cfg), bytes_of(mu_event_cfg_t{1, 3, 250}));
}

TEST_F(EventNegativeType, FunctionsWithAnUnsignedTypeRefuseIt) {
  rec(-1).count = 5;
  rec(-1).suprs_cnt = 6;
  const std::string before = bytes_of(rec(-1));
  const auto type = static_cast<uint32_t>(-1);
  uint32_t count = 9;
  EXPECT_EQ(mu_event_register(0, type, subscriber<1>), -1);
  EXPECT_EQ(mu_event_deregister(0, type, subscriber<1>), -1);
  EXPECT_EQ(mu_event_counter_get(0, type, &count, 1), -1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mu_event_counter_clear(0, type), -1);
  EXPECT_EQ(bytes_of(rec(-1)), before);
  EXPECT_EQ(subscribers_of(-1), Callbacks{});
}

TEST_F(EventNegativeType, IsNeitherPolledNorClearedWithAll) {
  configure(-1, 1, 3, 10);
  rec(-1).count = 5;
  mu_event_poll();
  mu_event_counter_clear_all(0);
  EXPECT_EQ(rec(-1).tick, 0u);
  EXPECT_EQ(rec(-1).count, 5u);
}
