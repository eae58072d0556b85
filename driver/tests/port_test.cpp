// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The port of a daemon's events, which is the id of its parent process.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "platform.h"
#include "tarn/event.h"

using namespace driver_test;

namespace {

// The daemon of a test: a channel whose occurrences are printed.
void serve() {
  printf("%s\n", start_channel() ? "up" : "no channel");
  print_occurrences();
}

}  // namespace

TEST(DriverPort, IsTheParentsIdForTheKernelToo) {
  ASSERT_TRUE(start_channel());
  EXPECT_EQ(evt_dest, getppid());
  EXPECT_EQ(status_number("destination"), getppid());
  EXPECT_TRUE(is_bound(static_cast<uint32_t>(getppid())));
}

TEST(DriverPort, IsFreshForADaemonOfAFreshParent) {
  Child first(serve);
  ASSERT_TRUE(first.says("up"));
  EXPECT_EQ(status_number("destination"), getpid());
  Child second([] {  // it has another parent
    printf("parent %d\n", getpid());
    if (fork() == 0) serve();
    wait(nullptr);
  });
  ASSERT_TRUE(second.says("up"));
  EXPECT_EQ(status_number("destination"), second.id());
  ASSERT_EQ(control("event 2 77"), 0);
  EXPECT_TRUE(second.says("got 2 77 0"));  // the last one that sets its port receives the events
}

TEST(DriverPort, IsRefusedToASecondDaemonOfTheSameParentAndTheFirstGoesOn) {
  Child first(serve);
  ASSERT_TRUE(first.says("up"));
  Child second([] {
    mup_plat_event_init();
    pause();
  });
  ASSERT_TRUE(second.says("bind socket failed(98)."));
  EXPECT_EQ(status_number("destination"), getpid());  // the second one has set the same port
  ASSERT_EQ(control("event 2 78"), 0);
  EXPECT_TRUE(first.says("got 2 78 0"));
}

TEST(DriverPort, IsFreeAgainWhenItsDaemonHasEnded) {
  Child first(serve);
  ASSERT_TRUE(first.says("up"));
  first.end();
  EXPECT_FALSE(is_bound(static_cast<uint32_t>(getpid())));
  Child second(serve);
  ASSERT_TRUE(second.says("up"));
  ASSERT_EQ(control("event 2 79"), 0);
  EXPECT_TRUE(second.says("got 2 79 0"));
}

TEST(DriverPort, OfAParentOutsideOfTheNamespaceIsNoneSoNoEventArrives) {
  mu_event_dest_set(4000000);
  Child outside([] {
    if (unshare(CLONE_NEWPID) != 0) perror("unshare");
    if (fork() == 0) {
      mup_plat_event_init();
      // Here the kernel chooses the port, so nothing shows when the socket is bound; the driver's port was set before.
      printf("parent %d\n", getppid());
      pause();
    }
    wait(nullptr);
  });
  ASSERT_TRUE(outside.says("parent 0"));
  ASSERT_TRUE(eventually([] { return status_number("destination") == 0; }));
  const long before = status_number("undirected");
  ASSERT_EQ(control("event 2 80"), 0);
  EXPECT_EQ(status_number("undirected"), before + 1);
}
