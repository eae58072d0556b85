// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The event thread and its start.

#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "event/kernel_plain.h"
#include "event/subscribers.h"
#include "support/console.h"
#include "support/heap.h"
#include "support/virtual_clock.h"
#include "tarn/event.h"
#include "tarn/timer.h"

using namespace tarn_test;
using namespace event_plain;

namespace {

constexpr const char *kInitLine = "mu-event: init OK (max_event_num 20)\n";

// Standard error, for perror.
class ErrorOutput {
 public:
  ErrorOutput() { testing::internal::CaptureStderr(); }
  static std::string take() { return testing::internal::GetCapturedStderr(); }
};

// A registry whose hook sees every event, and the loop on a thread of the test.
class EventChannel : public testing::Test {
 protected:
  EventChannel() {
    mu_event_init(20, hook, nullptr);
    clock_.settle();  // the timer thread sleeps on the clock, for good
    kernel();
  }

  static void start() {
    std::thread([] { remote_event_process(); }).detach();
    kernel().settle();
  }

  // What the hook heard in one round; `data` left aside.
  static std::vector<Heard> run(const Round &round) {
    kernel().run(round);
    std::vector<Heard> calls;
    g_calls.swap(calls);
    data_ = calls.empty() ? nullptr : calls[0].data;
    for (Heard &call : calls) call.data = nullptr;
    return calls;
  }

  static Heard heard(uint16_t type, uint16_t device_id, uint32_t length) {
    return {'h', device_id, type, nullptr, length};
  }

  VirtualClock clock_;
  static inline const void *data_;
};

}  // namespace

TEST_F(EventChannel, OpensTellsItsPortAndBinds) {
  Console console;
  start();
  EXPECT_EQ(kernel().take_calls(), "socket getppid open ioctl close bind");
  EXPECT_EQ(kernel().socket_arguments, (std::array{AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 19}));
  EXPECT_EQ(evt_dest, kParent);
  EXPECT_EQ(kernel().ioctls[0].request, 0x4302u);
  Bytes expected(24);
  const uint32_t port = kParent;
  memcpy(&expected[20], &port, 4);
  EXPECT_EQ(Bytes(kernel().ioctls[0].argument.begin(), kernel().ioctls[0].argument.begin() + 24), expected);
  EXPECT_EQ(kernel().bind_sock, kSocket);
  EXPECT_EQ(kernel().address_size, 12u);
  EXPECT_EQ(kernel().address.nl_family, AF_NETLINK);
  EXPECT_EQ(kernel().address.nl_pad, 0u);
  EXPECT_EQ(kernel().address.nl_pid, port);
  EXPECT_EQ(kernel().address.nl_groups, 0u);
  EXPECT_EQ(console.take(), "");
}

TEST_F(EventChannel, GoesOnWhenThePortCannotBeTold) {
  Console console;
  kernel().open_errno = ENOENT;
  start();
  EXPECT_EQ(console.take(), "Device open failure /dev/mu_pal_ioctl\n");
  EXPECT_EQ(kernel().take_calls(), "socket getppid open bind");
  EXPECT_EQ(run(Round::of(datagram(1, 2, 3))), std::vector{heard(1, 2, 3)});
}

TEST_F(EventChannel, WithoutASocketEnds) {
  kernel().socket_result = -1;
  const ErrorOutput error;
  EXPECT_EQ(remote_event_process(), nullptr);
  EXPECT_EQ(ErrorOutput::take(), "!Create pkt_evt channel failed::\n: Protocol not supported\n");
  EXPECT_EQ(kernel().take_calls(), "socket");
  EXPECT_EQ(evt_dest, 0);
}

TEST_F(EventChannel, ThatCannotBeBoundClosesAndEnds) {
  Console console;
  std::string before_close;
  Replace close(libc::close, [&](int file) {
    if (file == kSocket) before_close = console.take();
    kernel().closed.push_back(file);
    return 0;
  });
  kernel().bind_errno = EADDRINUSE;
  EXPECT_EQ(remote_event_process(), nullptr);
  EXPECT_EQ(before_close, "bind socket failed(" + std::to_string(EADDRINUSE) + ").\n");
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(kernel().closed, (std::vector{kDevice, kSocket}));
  EXPECT_EQ(evt_dest, kParent);
}

TEST_F(EventChannel, WaitsForItsSocketAlone) {
  start();
  EXPECT_EQ(kernel().select_count, kSocket + 1);
  EXPECT_TRUE(kernel().select_set_was_exact);
  EXPECT_FALSE(kernel().select_had_other_arguments);
  run({1, false});  // the set is cleared by now
  EXPECT_TRUE(kernel().select_set_was_exact) << "it is filled anew for each wait";
}

TEST_F(EventChannel, HandlesTheLastDescriptorOfAnOrdinarySet) {
  kernel().socket_result = FD_SETSIZE - 1;
  start();
  EXPECT_EQ(kernel().select_count, FD_SETSIZE);
  EXPECT_TRUE(kernel().select_set_was_exact);
  EXPECT_EQ(run(Round::of(datagram(1, 2, 3))), std::vector{heard(1, 2, 3)});
}

TEST_F(EventChannel, HandlesTheFirstDescriptorAboveTheSizeOfASet) {
  kernel().socket_result = FD_SETSIZE;
  start();
  EXPECT_EQ(kernel().select_count, FD_SETSIZE + 1);
  EXPECT_TRUE(kernel().select_set_was_exact);
  EXPECT_EQ(run({1, false}), std::vector<Heard>{});
  EXPECT_EQ(run(Round::of(datagram(1, 2, 3))), std::vector{heard(1, 2, 3)});
}

TEST_F(EventChannel, HandlesAVeryHighDescriptor) {
  kernel().socket_result = 100000;
  start();
  EXPECT_EQ(kernel().select_count, 100001);
  EXPECT_TRUE(kernel().select_set_was_exact);
  EXPECT_EQ(run(Round::of(datagram(1, 2, 3))), std::vector{heard(1, 2, 3)});
}

TEST_F(EventChannel, WithoutMemoryForTheSetOfAHighDescriptorEnds) {
  kernel().socket_result = FD_SETSIZE;
  const ErrorOutput error;
  FailingMalloc no_memory(1);
  EXPECT_EQ(remote_event_process(), nullptr);
  EXPECT_EQ(ErrorOutput::take(), "!Create pkt_evt channel failed::\n: Cannot allocate memory\n");
  EXPECT_EQ(kernel().closed.back(), FD_SETSIZE);
}

TEST_F(EventChannel, GoesBackToWaitingUnlessTheSocketIsReady) {
  start();
  for (const Round &round : {Round{0, true}, Round{-1, true}, Round{0, false}, Round{1, false}, Round{2, false}}) {
    EXPECT_EQ(run(round), std::vector<Heard>{}) << round.ready << round.is_in_set;
  }
  EXPECT_TRUE(kernel().receives.empty());
  EXPECT_EQ(run(Round::of(datagram(1, 2, 3))), std::vector{heard(1, 2, 3)});
  EXPECT_EQ(kernel().receives.size(), 1u);
}

TEST_F(EventChannel, ReceivesIntoABufferOf2048Bytes) {
  start();
  run(Round::of(datagram(1, 2, 3)));
  ASSERT_EQ(kernel().receives.size(), 1u);
  const Kernel::Receive &first = kernel().receives[0];
  EXPECT_EQ(first.sock, kSocket);
  EXPECT_EQ(first.size, 2048u);
  EXPECT_EQ(first.flags, 0);
  EXPECT_TRUE(first.has_sender);
  EXPECT_EQ(first.sender_size, 0u);
  EXPECT_EQ(first.buffer % 8, 0u);
}

TEST_F(EventChannel, SetsTheSendersSizeOnceAlone) {
  start();
  Replace recvfrom(libc::recvfrom, [](int, void *, size_t, int, sockaddr *, socklen_t *size) -> ssize_t {
    kernel().receives.push_back({0, 0, 0, true, *size, 0});
    *size = 12;
    return 0;
  });
  run(Round{});
  run(Round{});
  EXPECT_EQ(kernel().receives[0].sender_size, 0u);
  EXPECT_EQ(kernel().receives[1].sender_size, 12u);
}

TEST_F(EventChannel, SendsTheHeadersFieldsAndTheDataBehindIt) {
  start();
  EXPECT_EQ(run(Round::of(datagram(7, 0xABCD, 16, 40))), std::vector{heard(7, 0xABCD, 16)});
  EXPECT_EQ(reinterpret_cast<uintptr_t>(data_), kernel().receives[0].buffer + 24);
}

TEST_F(EventChannel, ShowsSubscribersTheData) {
  static Bytes seen;
  mu_event_register(0, 7, [](uint16_t, uint32_t, void *data, uint32_t len, uint64_t) {
    seen.assign(static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + len);
    return 0;
  });
  start();
  const Bytes bytes = datagram(7, 1, 2024, 2048);
  run(Round::of(bytes));
  EXPECT_EQ(seen, Bytes(bytes.begin() + 24, bytes.end()));
}

TEST_F(EventChannel, IgnoresADatagramOfLessThan24Bytes) {
  start();
  for (size_t size : {size_t{0}, size_t{1}, size_t{23}}) {
    EXPECT_EQ(run(Round::of(datagram(1, 2, 3, size))), std::vector<Heard>{}) << size;
  }
  EXPECT_EQ(run(Round::of(datagram(1, 2, 3, 24))), std::vector{heard(1, 2, 3)});
}

TEST_F(EventChannel, PassesTheLengthOfTheHeader) {
  start();
  EXPECT_EQ(run(Round::of(datagram(1, 2, 100, 24))), std::vector{heard(1, 2, 100)});
  EXPECT_EQ(run(Round::of(datagram(1, 2, 0, 2048))), std::vector{heard(1, 2, 0)});
  EXPECT_EQ(run(Round::of(datagram(1, 2, 0xFFFF, 30))), std::vector{heard(1, 2, 0xFFFF)});
}

TEST_F(EventChannel, ReadsTheFieldsAsUnsigned) {
  start();
  EXPECT_EQ(run(Round::of(datagram(0xFFFF, 0xFFFF, 1))), std::vector<Heard>{}) << "no negative type: out of range";
  EXPECT_EQ(run(Round::of(datagram(20, 0xFFFF, 1))), std::vector<Heard>{});
  EXPECT_EQ(run(Round::of(datagram(19, 0xFFFF, 1))), std::vector{heard(19, 0xFFFF, 1)});
}

TEST_F(EventChannel, AFailedReceiveSendsWhatTheBufferHolds) {
  start();
  EXPECT_EQ(run(Round{}), std::vector{heard(0, 0, 0)}) << "zeros at first";
  EXPECT_EQ(run(Round::of(datagram(7, 8, 9, 2048))), std::vector{heard(7, 8, 9)});
  EXPECT_EQ(run(Round{}), std::vector{heard(7, 8, 9)});
  EXPECT_EQ(run(Round{}), std::vector{heard(7, 8, 9)});
  EXPECT_EQ(glb_evt.events[7].count, 3u);
}

TEST_F(EventChannel, AShortDatagramStaysInTheBuffer) {
  start();
  run(Round::of(datagram(7, 8, 9)));
  run(Round::of(datagram(5, 6, 4, 8)));  // overwrites the length and the type alone
  EXPECT_EQ(run(Round{}), std::vector{heard(5, 8, 4)});
}

// ---- Through libc's own select and recvfrom -------------------------------------------------------------------------

namespace {

sem_t g_arrived;
std::vector<Heard> g_arrivals;

int note_arrival(uint16_t device_id, uint32_t type, void *, uint32_t len) {
  g_arrivals.push_back({'h', device_id, type, nullptr, len});
  return sem_post(&g_arrived);
}

// A pair of local sockets in place of the netlink socket; the event thread's end has the number `sock`.
void expect_events_through(int sock) {
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, pair), 0);
  ASSERT_EQ(dup2(pair[0], sock), sock);
  VirtualClock clock;
  Console console;
  sem_init(&g_arrived, 0, 0);
  mu_event_init(20, note_arrival, nullptr);
  clock.settle();
  Replace socket(libc::socket, [sock](int, int, int) { return sock; });
  Replace bind(libc::bind, [](int, const sockaddr *, socklen_t) { return 0; });
  Replace ioctl(libc::ioctl, [](int, unsigned long, void *) { return 0; });
  Replace open(libc::open, [](const char *path, int flags, mode_t mode) {
    return strcmp(path, MU_PAL_DEVICE) == 0 ? dup(STDIN_FILENO) : libc::open.real(path, flags, mode);
  });
  std::thread([] { remote_event_process(); }).detach();
  for (uint16_t type : {uint16_t{3}, uint16_t{4}}) {
    const Bytes bytes = datagram(type, 5, 6, 30);
    ASSERT_EQ(send(pair[1], bytes.data(), bytes.size(), 0), 30);
    while (sem_wait(&g_arrived) != 0) continue;
  }
  EXPECT_EQ(g_arrivals, (std::vector<Heard>{{'h', 5, 3, nullptr, 6}, {'h', 5, 4, nullptr, 6}}));
}

}  // namespace

TEST(EventSocket, IsWaitedForAndReceivedFrom) { expect_events_through(100); }

TEST(EventSocket, MayHaveANumberAboveTheSizeOfASet) {
#if defined(TARN_EMULATED)
  GTEST_SKIP() << "the emulator's own select ends at FD_SETSIZE";
#endif
  constexpr int kHigh = FD_SETSIZE + 77;
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max <= kHigh) GTEST_SKIP() << "the process may not open that many files";
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  expect_events_through(kHigh);
}

// ---- The start of both ---------------------------------------------------------------------------------------------

namespace {

struct Created {
  size_t stack_size_asked = 0;
  int policy = -1;
  int priority = -1;
  int inherit = -1;
  void *arg = nullptr;
  void *(*entry)(void *) = nullptr;
  bool inited = true;  // whether the registry was
  int count = 0;       // threads on that body
};

// Notes how the event thread is created. It gets default attributes, so that no privilege is needed; the timer thread
// goes its way.
class EventPlatform : public testing::Test {
 protected:
  // The timer service is started first: its thread is none of this.
  EventPlatform() {
    mu_timer_add(0, nullptr, nullptr);
    clock_.settle();
    kernel();
    create_.emplace(libc::pthread_create,
                    [this](pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) {
                      created_.count++;
                      created_.inited = glb_evt.inited != 0;
                      created_.entry = entry;
                      created_.arg = arg;
                      sched_param parameters = {};
                      pthread_attr_getschedparam(attributes, &parameters);
                      created_.priority = parameters.sched_priority;
                      pthread_attr_getschedpolicy(attributes, &created_.policy);
                      pthread_attr_getinheritsched(attributes, &created_.inherit);
                      if (error_ != 0) return error_;
                      return libc::pthread_create.real(thread, nullptr, entry, arg);
                    });
    set_stack_size_.emplace(libc::pthread_attr_setstacksize, [this](pthread_attr_t *attributes, size_t size) {
      created_.stack_size_asked = size;
      return libc::pthread_attr_setstacksize.real(attributes, size);
    });
  }

  Created created_;
  int error_ = 0;
  VirtualClock clock_;
  std::optional<Replace<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)>> create_;
  std::optional<Replace<int(pthread_attr_t *, size_t)>> set_stack_size_;
};

}  // namespace

TEST_F(EventPlatform, StartsTheThreadThenTheRegistry) {
  Console console;
  mup_plat_event_init();
  kernel().settle();
  EXPECT_EQ(created_.count, 1);
  EXPECT_EQ(created_.entry, reinterpret_cast<mu_thread_entry_t>(reinterpret_cast<void (*)()>(remote_event_process)));
  EXPECT_EQ(created_.arg, nullptr);
  EXPECT_FALSE(created_.inited);
  EXPECT_EQ(glb_evt.inited, 1u);
  EXPECT_EQ(glb_evt.max_event_num, 20);
  EXPECT_EQ(glb_evt.send_hook, nullptr);
  EXPECT_EQ(glb_evt.cfg_handler, mup_event_cfg_forward);
  EXPECT_EQ(evt_flag, 1u);
  EXPECT_EQ(console.take(), kInitLine);
}

TEST_F(EventPlatform, AsksForARealTimeThreadWithASmallStack) {
  Console console;
  mup_plat_event_init();
  kernel().settle();
  EXPECT_EQ(created_.stack_size_asked, 32768u);  // where the system's minimum is larger, its default stands
  EXPECT_EQ(created_.policy, SCHED_RR);
  EXPECT_EQ(created_.priority, 80);
  EXPECT_EQ(created_.inherit, PTHREAD_EXPLICIT_SCHED);
  console.take();
}

TEST_F(EventPlatform, ASecondCallDoesNothing) {
  Console console;
  mup_plat_event_init();
  kernel().settle();
  EXPECT_EQ(console.take(), kInitLine);
  const mu_event_state_t before = glb_evt;
  mup_plat_event_init();
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(created_.count, 1);
  EXPECT_EQ(memcmp(&glb_evt, &before, sizeof before), 0);
  EXPECT_EQ(mu_timer_count(), 1u);
}

TEST_F(EventPlatform, GoesOnWithoutTheThread) {
  Console console;
  error_ = EPERM;
  mup_plat_event_init();
  EXPECT_EQ(console.take(), kInitLine);
  EXPECT_EQ(created_.count, 1);
  EXPECT_EQ(evt_flag, 1u);
  EXPECT_EQ(mu_event_send(0, 19, nullptr, 0), 0);
  EXPECT_EQ(kernel().take_calls(), "");
}

TEST_F(EventPlatform, GoesOnWithoutARegistry) {
  Console console;
  error_ = EPERM;
  FailingMalloc no_memory(1);
  mup_plat_event_init();
  EXPECT_EQ(console.take(), kInitLine);
  EXPECT_EQ(evt_flag, 1u);
  EXPECT_EQ(glb_evt.inited, 0u);
}

TEST_F(EventPlatform, DropsWhatArrivesBeforeTheRegistryIsReady) {
  std::thread([] { remote_event_process(); }).detach();
  kernel().run(Round::of(datagram(7, 1, 0)));
  Console console;
  error_ = EPERM;
  mup_plat_event_init();
  EXPECT_EQ(glb_evt.events[7].count, 0u);
  kernel().run(Round::of(datagram(7, 1, 0)));
  EXPECT_EQ(glb_evt.events[7].count, 1u);
  console.take();
}

TEST_F(EventPlatform, CarriesAnEventFromTheKernelToASubscriber) {
  Console console;
  mup_plat_event_init();
  mu_event_register(0, 7, subscriber<'a'>);
  kernel().run(Round::of(datagram(7, 0x1234, 5, 29)));
  ASSERT_EQ(g_calls.size(), 1u);
  EXPECT_EQ(g_calls[0], (Heard{'a', 0x1234, 7, g_calls[0].data, 5, 0}));
  console.take();
}

TEST_F(EventPlatform, ForwardsItsConfiguration) {
  Console console;
  mup_plat_event_init();
  kernel().settle();
  kernel().answer = [](void *argument) {
    const uint32_t count = 99;
    memcpy(static_cast<uint8_t *>(argument) + 24 + 24, &count, sizeof count);
  };
  uint32_t count = 0;
  EXPECT_EQ(mu_event_counter_get(3, 7, &count, 1), 0);
  EXPECT_EQ(count, 99u);
  EXPECT_EQ(kernel().ioctls.back().request, 0x4301u);
  EXPECT_EQ(console.take(), kInitLine);
}
