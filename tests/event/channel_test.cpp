// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The start of the channel: the thread with its attributes, then the registry.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <type_traits>
#include <vector>

#include "event/fixture.h"
#include "event/kernel.h"
#include "support/console.h"
#include "support/libc.h"
#include "tarn/timer.h"

using namespace event_test;
using namespace tarn_test;

namespace {

static_assert(std::is_same_v<decltype(evt_flag), uint32_t> && std::is_same_v<decltype(evt_dest), int32_t>);

const std::string kReady = "mu-event: init OK (max_event_num 20)\n";

struct Created {
  bool real_time = false;
  size_t stack = 0;
  int priority = 0;
  int inherit = -1;
  int detach = -1;
  void *(*entry)(void *) = nullptr;
  void *arg = nullptr;
};

Created created_with(const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) {
  Created created;
  created.entry = entry;
  created.arg = arg;
  if (attributes == nullptr) return created;
  int policy = 0;
  sched_param param = {};
  pthread_attr_getschedpolicy(attributes, &policy);
  pthread_attr_getschedparam(attributes, &param);
  pthread_attr_getstacksize(attributes, &created.stack);
  pthread_attr_getinheritsched(attributes, &created.inherit);
  pthread_attr_getdetachstate(attributes, &created.detach);
  created.real_time = policy == SCHED_RR;
  created.priority = param.sched_priority;
  return created;
}

// Neither the event thread nor the timer thread runs.
class PlatEventInit : public testing::Test {
 protected:
  // The thread of the channel: the first that is created.
  const Created &event_thread() const { return threads_.at(0); }

  Console console_;
  std::vector<Created> threads_;
  std::function<int()> on_create_ = [] { return 0; };
  std::vector<size_t> stack_sizes_;
  Replace<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> pthread_create_{
      libc::pthread_create,
      [this](pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) {
        *thread = pthread_self();
        threads_.push_back(created_with(attributes, entry, arg));
        return threads_.size() == 1 ? on_create_() : 0;
      }};
  Replace<int(pthread_attr_t *, size_t)> setstacksize_{libc::pthread_attr_setstacksize,
                                                       [this](pthread_attr_t *attributes, size_t size) {
                                                         stack_sizes_.push_back(size);
                                                         return libc::pthread_attr_setstacksize.real(attributes, size);
                                                       }};
};

}  // namespace

TEST_F(PlatEventInit, IsNotYetDoneAtFirst) { EXPECT_EQ(evt_flag, 0u); }

TEST_F(PlatEventInit, CreatesAThreadWithItsOwnScheduling) {
  mup_plat_event_init();
  ASSERT_EQ(threads_.size(), 2u) << "the event thread and the timer thread";
  EXPECT_TRUE(event_thread().real_time);
  EXPECT_EQ(event_thread().priority, 80);
  EXPECT_EQ(event_thread().inherit, PTHREAD_EXPLICIT_SCHED);
  EXPECT_EQ(event_thread().detach, PTHREAD_CREATE_JOINABLE);
  EXPECT_EQ(event_thread().arg, nullptr);
  EXPECT_FALSE(threads_[1].real_time);
}

TEST_F(PlatEventInit, AsksForAStackOf32768Bytes) {
  mup_plat_event_init();
  ASSERT_GE(stack_sizes_.size(), 1u);
  EXPECT_EQ(stack_sizes_[0], 32768u);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (pthread_attr_setstacksize(&attributes, 32768) == 0) {
    EXPECT_EQ(event_thread().stack, 32768u);
  } else {
    EXPECT_GE(event_thread().stack, static_cast<size_t>(sysconf(_SC_THREAD_STACK_MIN))) << "the system's default";
  }
  pthread_attr_destroy(&attributes);
}

TEST_F(PlatEventInit, RunsTheBodyOfTheEventThread) {
  mup_plat_event_init();
  EXPECT_EQ(event_thread().entry,
            reinterpret_cast<mu_thread_entry_t>(reinterpret_cast<void (*)()>(remote_event_process)));
  const Kernel kernel;
  kernel.answers().socket_error = EPROTONOSUPPORT;
  testing::internal::CaptureStderr();
  EXPECT_EQ(event_thread().entry(event_thread().arg), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr().substr(0, 34), "!Create pkt_evt channel failed::\n:");
}

TEST_F(PlatEventInit, StartsARegistryOfTwentyTypesThatForwards) {
  EXPECT_EQ(evt_flag, 0u);
  mup_plat_event_init();
  EXPECT_EQ(evt_flag, 1u);
  EXPECT_EQ(glb_evt.inited, 1u);
  EXPECT_EQ(glb_evt.max_event_num, 20);
  EXPECT_EQ(glb_evt.send_hook, nullptr);
  EXPECT_EQ(glb_evt.cfg_handler, mup_event_cfg_forward);
  EXPECT_NE(glb_evt.poll_timer, 0u);
  EXPECT_EQ(console_.take(), kReady);
  EXPECT_EQ(send(19), 0);
  EXPECT_EQ(send(20), -1);
}

TEST_F(PlatEventInit, CreatesTheThreadBeforeTheRegistry) {
  bool called = false;
  on_create_ = [&] {
    called = true;
    EXPECT_EQ(evt_flag, 0u);
    EXPECT_EQ(bytes_of(glb_evt), std::string(sizeof glb_evt, '\0'));
    EXPECT_EQ(console_.take(), "");
    EXPECT_EQ(send(0), -1) << "an event that arrives in between is dropped";
    return 0;
  };
  mup_plat_event_init();
  EXPECT_TRUE(called);
  EXPECT_EQ(rec(0).count, 0u);
}

TEST_F(PlatEventInit, GoesOnWithoutTheThread) {
  on_create_ = [] { return EPERM; };
  mup_plat_event_init();
  EXPECT_EQ(evt_flag, 1u);
  EXPECT_EQ(glb_evt.max_event_num, 20);
  EXPECT_EQ(console_.take(), kReady);
  EXPECT_EQ(threads_.size(), 2u) << "no second try";
  EXPECT_EQ(send(19), 0);
}

TEST_F(PlatEventInit, GoesOnWithoutTheRegistry) {
  {
    const FailingMalloc failing(1);
    mup_plat_event_init();
    EXPECT_EQ(failing.seen(), 1);
  }
  EXPECT_EQ(evt_flag, 1u);
  EXPECT_EQ(bytes_of(glb_evt), std::string(sizeof glb_evt, '\0'));
  EXPECT_EQ(console_.take(), kReady);
  EXPECT_EQ(threads_.size(), 1u);
  mup_plat_event_init();
  EXPECT_EQ(glb_evt.inited, 0u) << "nor does a second call make one";
  EXPECT_EQ(console_.take(), "");
}

TEST_F(PlatEventInit, DoesNothingTheSecondTime) {
  mup_plat_event_init();
  console_.take();
  rec(3).count = 9;
  const std::string before = state_bytes();
  mup_plat_event_init();
  mup_plat_event_init();
  EXPECT_EQ(state_bytes(), before);
  EXPECT_EQ(threads_.size(), 2u);
  EXPECT_EQ(mu_timer_count(), 1u);
  EXPECT_EQ(evt_flag, 1u);
  EXPECT_EQ(console_.take(), "");
}

TEST_F(PlatEventInit, DoesNothingWhenTheFlagIsSet) {
  evt_flag = 1;
  mup_plat_event_init();
  EXPECT_EQ(threads_.size(), 0u);
  EXPECT_EQ(bytes_of(glb_evt), std::string(sizeof glb_evt, '\0'));
  EXPECT_EQ(console_.take(), "");
}

TEST_F(PlatEventInit, LooksAtTheFlagNotAtTheRegistry) {
  EXPECT_EQ(mu_event_init(3, hook, nullptr), 0);
  keep(glb_evt.events);
  for (int i = 0; i < 3; i++) keep(rec(i).cb_list);
  keep(glb_evt.lock);
  mup_plat_event_init();
  EXPECT_EQ(glb_evt.max_event_num, 20);
  EXPECT_EQ(console_.take(), kReady);
}

// The path of an event, from the start to a subscriber.
TEST_F(PlatEventInit, LeadsADatagramToASubscriber) {
  const Kernel kernel;
  mup_plat_event_init();
  mu_event_register(0, 4, subscriber<1>);
  kernel.start();
  kernel.feed({arrives(datagram(6, 4, 2, "ab"))});
  EXPECT_EQ(take_journal(), Journal{subscriber_line(1, 6, 4, kernel.buffer() + 24, 2)});
}

TEST_F(PlatEventInit, ForwardsItsConfiguration) {
  const Kernel kernel;
  mup_plat_event_init();
  kernel.answers().argument_size = 56;
  kernel.answers().answer = [](std::string &argument) {
    const uint32_t count = 99;
    memcpy(&argument[24 + 24], &count, sizeof count);
  };
  uint32_t count = 0;
  EXPECT_EQ(mu_event_counter_get(3, 7, &count, 1), 0);
  EXPECT_EQ(count, 99u);
  EXPECT_EQ(kernel.take_calls(), (std::vector<std::string>{"open /dev/mu_pal_ioctl", "ioctl 88 4301", "close 88"}));
  EXPECT_EQ(console_.take(), kReady);
}

// The scheduling that the thread gets. The thread ends where it would open its socket.
TEST(EventThread, RunsAtRealTimePriority) {
  static std::promise<void> started;
  static int policy = -1;
  static sched_param param;
  int created = -1;
  int threads = 0;
  const Replace pthread_create(libc::pthread_create, [&](pthread_t *thread, const pthread_attr_t *attributes,
                                                         void *(*entry)(void *), void *arg) {
    *thread = pthread_self();
    if (threads++ != 0) return 0;  // the timer thread
    created = libc::pthread_create.real(thread, attributes, entry, arg);
    if (created == 0) pthread_detach(*thread);
    return created;
  });
  const Replace socket(libc::socket, [](int, int, int) {
    pthread_getschedparam(pthread_self(), &policy, &param);
    started.set_value();
    errno = EPROTONOSUPPORT;
    return -1;
  });
  mup_plat_event_init();
  if (created == EPERM) GTEST_SKIP() << "needs the right to real-time scheduling";
  ASSERT_EQ(created, 0);
  ASSERT_EQ(started.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
  EXPECT_EQ(policy, SCHED_RR);
  EXPECT_EQ(param.sched_priority, 80);
}
