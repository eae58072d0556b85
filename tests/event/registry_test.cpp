// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The subscribers of a type: mu_event_register, mu_event_deregister and mu_event_compare.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "event/fixture.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/libc.h"

using namespace event_test;
using namespace tarn_test;

namespace {

class EventRegister : public testing::Test {
 protected:
  Registry registry_{3};
};

using EventDeregister = EventRegister;

}  // namespace

// ---- Register -------------------------------------------------------------------------------------------------------

TEST_F(EventRegister, RefusesANullCallback) {
  const std::string before = state_bytes();
  for (const uint32_t type : {0u, 2u, 3u, UINT32_MAX}) EXPECT_EQ(mu_event_register(0, type, nullptr), -1) << type;
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(subscribers_of(0), Callbacks{});
}

TEST_F(EventRegister, RefusesATypeOutOfRangeUnsigned) {
  const std::string before = state_bytes();
  const HeapWatch heap;
  for (const uint32_t type : {3u, 4u, 0x7fffffffu, 0x80000000u, static_cast<uint32_t>(-1)}) {
    EXPECT_EQ(mu_event_register(0, type, subscriber<1>), -1) << type;
  }
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(state_bytes(), before);
}

TEST_F(EventRegister, AcceptsTheFirstAndTheLastType) {
  EXPECT_EQ(mu_event_register(0, 0, subscriber<1>), 0);
  EXPECT_EQ(mu_event_register(0, 2, subscriber<2>), 0);
  EXPECT_EQ(subscribers_of(0), Callbacks{subscriber<1>});
  EXPECT_EQ(subscribers_of(1), Callbacks{});
  EXPECT_EQ(subscribers_of(2), Callbacks{subscriber<2>});
}

TEST_F(EventRegister, ChangesOnlyTheFlagOfTheRecord) {
  const mu_event_rec before = rec(1);
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_EQ(rec(1).registered, 1);
  rec(1).registered = 0;
  EXPECT_EQ(bytes_of(rec(1)), bytes_of(before));
  EXPECT_EQ(rec(0).registered, 0);
  EXPECT_EQ(rec(2).registered, 0);
}

TEST_F(EventRegister, StoresSixteenBytesOfTypeAndCallback) {
  mu_event_register(7, 2, subscriber<1>);
  mu_event_cb_t cb = subscriber<1>;
  const uint32_t type = 2;
  std::string expected(16, '\0');
  memcpy(&expected[0], &type, sizeof type);
  memcpy(&expected[8], &cb, sizeof cb);
  const mu_list_node_t *node = mu_list_first(rec(2).cb_list);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(std::string(static_cast<const char *>(node->data), 16), expected);
}

TEST_F(EventRegister, KeepsTheOrderOfRegistration) {
  for (const mu_event_cb_t cb : {subscriber<3>, subscriber<1>, subscriber<4>, subscriber<2>}) {
    EXPECT_EQ(mu_event_register(0, 1, cb), 0);
  }
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<3>, subscriber<1>, subscriber<4>, subscriber<2>}));
}

TEST_F(EventRegister, AddsACallbackOnce) {
  mu_event_register(0, 1, subscriber<1>);
  mu_event_register(0, 1, subscriber<2>);
  const HeapWatch heap;
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<2>), 0);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<1>, subscriber<2>}));
}

TEST_F(EventRegister, DoesNotSetTheFlagForACallbackThatIsThere) {
  mu_event_register(0, 1, subscriber<1>);
  rec(1).registered = 0;
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(rec(1).registered, 0);
}

TEST_F(EventRegister, AcceptsOneCallbackForSeveralTypes) {
  for (const uint32_t type : {0u, 1u, 2u}) EXPECT_EQ(mu_event_register(0, type, subscriber<1>), 0);
  for (const int type : {0, 1, 2}) EXPECT_EQ(subscribers_of(type), Callbacks{subscriber<1>}) << type;
}

TEST_F(EventRegister, IgnoresTheDevice) {
  EXPECT_EQ(mu_event_register(1, 0, subscriber<1>), 0);
  EXPECT_EQ(mu_event_register(2, 0, subscriber<1>), 0);
  EXPECT_EQ(subscribers_of(0).size(), 1u);
  EXPECT_EQ(mu_event_deregister(3, 0, subscriber<1>), 0);
  EXPECT_EQ(subscribers_of(0).size(), 0u);
}

TEST_F(EventRegister, SucceedsWithoutAddingWhenMemoryRunsOut) {
  Console console;
  const FailingMalloc failing(1);
  EXPECT_EQ(mu_event_register(0, 1, subscriber<1>), 0);
  EXPECT_EQ(failing.seen(), 1);
  EXPECT_EQ(rec(1).registered, 1);
  EXPECT_EQ(subscribers_of(1), Callbacks{});
  EXPECT_EQ(console.take(), "");
}

TEST_F(EventRegister, AddsUnderTheLock) {
  bool held = false;
  {
    const Replace malloc(libc::malloc, [&](size_t size) {
      held = lock_is_held();
      return libc::malloc.real(size);
    });
    mu_event_register(0, 1, subscriber<1>);
  }
  EXPECT_TRUE(held);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventRegister, ReleasesTheLockOnEveryPath) {
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_FALSE(lock_is_held());
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_FALSE(lock_is_held());
  mu_event_register(0, 9, subscriber<1>);
  EXPECT_FALSE(lock_is_held());
}

// ---- Deregister -----------------------------------------------------------------------------------------------------

TEST_F(EventDeregister, RefusesATypeOutOfRangeUnsigned) {
  for (const uint32_t type : {3u, 0x80000000u, static_cast<uint32_t>(-1)}) {
    EXPECT_EQ(mu_event_deregister(0, type, subscriber<1>), -1) << type;
  }
}

TEST_F(EventDeregister, RemovesOnlyThatCallbackAndOnlyFromThatType) {
  for (const mu_event_cb_t cb : {subscriber<1>, subscriber<2>, subscriber<3>}) {
    mu_event_register(0, 0, cb);
    mu_event_register(0, 1, cb);
  }
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<2>), 0);
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<1>, subscriber<3>}));
  EXPECT_EQ(subscribers_of(0).size(), 3u);
  EXPECT_EQ(rec(1).registered, 1);
  EXPECT_FALSE(lock_is_held());
}

TEST_F(EventDeregister, TheLastOneClearsTheFlag) {
  mu_event_register(0, 1, subscriber<1>);
  mu_event_register(0, 1, subscriber<2>);
  mu_event_deregister(0, 1, subscriber<1>);
  EXPECT_EQ(rec(1).registered, 1);
  mu_event_deregister(0, 1, subscriber<2>);
  EXPECT_EQ(rec(1).registered, 0);
}

TEST_F(EventDeregister, SucceedsForACallbackThatIsNotThere) {
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  mu_event_register(0, 1, subscriber<2>);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(mu_event_deregister(0, 2, subscriber<2>), 0) << "it is a subscriber of another type";
  EXPECT_EQ(subscribers_of(1), Callbacks{subscriber<2>});
  EXPECT_EQ(rec(1).registered, 1);
}

TEST_F(EventDeregister, TreatsANullCallbackLikeAnyOther) {
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_EQ(mu_event_deregister(0, 1, nullptr), 0);
  EXPECT_EQ(subscribers_of(1), Callbacks{subscriber<1>});
  add_by_hand(1, nullptr);
  EXPECT_EQ(mu_event_deregister(0, 1, nullptr), 0);
  EXPECT_EQ(subscribers_of(1), Callbacks{subscriber<1>});
}

TEST_F(EventDeregister, RemovesTheFirstOfTwoEqualOnes) {
  for (const mu_event_cb_t cb : {subscriber<1>, subscriber<2>, subscriber<1>}) add_by_hand(1, cb);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<1>), 0);
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<2>, subscriber<1>}));
}

TEST_F(EventDeregister, ClearsTheFlagOfAnEmptyListWhateverTheCallback) {
  {
    const FailingMalloc failing(1);
    mu_event_register(0, 1, subscriber<1>);
  }
  EXPECT_EQ(rec(1).registered, 1);
  EXPECT_EQ(mu_event_deregister(0, 1, subscriber<2>), 0);
  EXPECT_EQ(rec(1).registered, 0);
}

TEST_F(EventDeregister, ARenewedRegistrationIsLast) {
  mu_event_register(0, 1, subscriber<1>);
  mu_event_register(0, 1, subscriber<2>);
  mu_event_deregister(0, 1, subscriber<1>);
  mu_event_register(0, 1, subscriber<1>);
  EXPECT_EQ(subscribers_of(1), (Callbacks{subscriber<2>, subscriber<1>}));
}

// ---- Compare --------------------------------------------------------------------------------------------------------

TEST(EventCompare, OrdersByTheLeadingTypeUnsigned) {
  struct Row {
    uint32_t a, b;
    int32_t result;
  };
  for (const Row &row : {Row{0, 0, 0}, Row{1, 1, 0}, Row{2, 1, 1}, Row{1, 2, -1}, Row{1, 0, 1}, Row{0, 1, -1},
                         Row{0x80000000, 0x7fffffff, 1}, Row{0x80000000, 1, 1}, Row{1, 0x80000000, -1},
                         Row{UINT32_MAX, 0, 1}, Row{0, UINT32_MAX, -1}, Row{UINT32_MAX, UINT32_MAX, 0},
                         Row{0x100, 0x200, -1}, Row{0x0001ff00, 0x00020000, -1}}) {
    SCOPED_TRACE(testing::Message() << row.a << " and " << row.b);
    mu_event_subscriber_t a = {};
    mu_event_subscriber_t b = {};
    a.type = row.a;
    a.cb = subscriber<1>;
    b.type = row.b;
    EXPECT_EQ(mu_event_compare(&a, &b), row.result);
    EXPECT_EQ(mu_event_compare(&row.a, &row.b), row.result) << "no byte after the type is read";
  }
}
