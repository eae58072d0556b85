// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mu_event_suprs_attach: the callbacks that it stores, and the state that it resets.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "event/fixture.h"
#include "support/console.h"

using namespace event_test;
using namespace tarn_test;

namespace {

constexpr uint64_t kCookie = 0xfedcba9876543210;

// The send hook still sees the occurrences of a type that has lost its subscribers.
class EventAttach : public testing::Test {
 protected:
  static std::string delivered(uint32_t type) { return hook_line(0, type, nullptr, 0); }

  Registry registry_{4, hook};
};

}  // namespace

TEST_F(EventAttach, RefusesATypeBeyondTheTable) {
  const std::string before = state_bytes();
  for (const int type : {4, 5, INT32_MAX}) EXPECT_EQ(mu_event_suprs_attach(type, released, suppressed, 1), -1) << type;
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventAttach, RefusesOneCallbackWithoutTheOther) {
  mu_event_register(0, 1, subscriber<1>);
  rec(1).count = 5;
  const std::string before = state_bytes();
  EXPECT_EQ(mu_event_suprs_attach(1, released, nullptr, 7), -1);
  EXPECT_EQ(mu_event_suprs_attach(1, nullptr, suppressed, 7), -1);
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventAttach, ResetsOnlyItsRecordAndStoresTheArguments) {
  keep(rec(2).cb_list);
  rec(2) = {1, 1, 1, 0xa5, 0xa5, 0xa5, 0xa5, 0xa5, 0xa5, 0xa5, rec(2).cb_list, nullptr, nullptr, 0xa5, 0xa5};
  const std::string others = bytes_of(rec(1)) + bytes_of(rec(3));
  EXPECT_EQ(attach(2, kCookie), 0);
  mu_event_rec expected = {};
  expected.type = 2;
  expected.release_cb = released;
  expected.suppress_cb = suppressed;
  expected.cookie = kCookie;
  expected.reserved = 0xa5;
  EXPECT_EQ(bytes_of(rec(2)), bytes_of(expected));
  EXPECT_EQ(bytes_of(rec(1)) + bytes_of(rec(3)), others);
  EXPECT_EQ(take_journal(), Journal{}) << "no callback is called";
}

TEST_F(EventAttach, AcceptsTwoNullCallbacks) {
  attach(1, kCookie);
  EXPECT_EQ(attach(1, 9, nullptr, nullptr), 0);
  EXPECT_EQ(rec(1).release_cb, nullptr);
  EXPECT_EQ(rec(1).suppress_cb, nullptr);
  EXPECT_EQ(rec(1).cookie, 9u);
  configure(1, 1, 0, 10);
  EXPECT_EQ(send(1), -1);
  mu_event_poll();
  EXPECT_EQ(rec(1).suprs_s, 0);
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventAttach, IsTheOnlyFunctionThatWritesTheTypesNumber) {
  mu_event_register(0, 3, subscriber<1>);
  configure(3, 1, 1, 10);
  send(3);
  mu_event_poll();
  EXPECT_EQ(rec(3).type, 0u);
  attach(3, 0);
  EXPECT_EQ(rec(3).type, 3u);
  take_journal();
}

TEST_F(EventAttach, LosesTheListOfSubscribers) {
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_EQ(attach(1, 0), 0);
  EXPECT_EQ(rec(1).registered, 0);
  EXPECT_EQ(rec(1).cb_list, nullptr);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{delivered(1)});
  EXPECT_EQ(rec(1).count, 1u);
}

TEST_F(EventAttach, TheTypeAcceptsNoSubscribersAnyMore) {
  attach(1, 0);
  Console console;
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(rec(1).registered, 1);
  EXPECT_EQ(rec(1).cb_list, nullptr);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{delivered(1)});
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(rec(1).registered, 0);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(console.take(), "");
}

TEST_F(EventAttach, EndsASuppressionWithoutACallback) {
  attach(1, kCookie);
  configure(1, 1, 0, 1000);
  EXPECT_EQ(send(1), -1);
  take_journal();
  attach(1, kCookie);
  EXPECT_EQ(send(1), 0);
  EXPECT_EQ(take_journal(), Journal{delivered(1)});
}

TEST_F(EventAttach, TakesNoLock) {
  mu_mutex_lock(glb_evt.lock);
  EXPECT_EQ(attach(1, 0), 0);
  mu_mutex_unlock(glb_evt.lock);
}
