// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The loop of the event thread: the wait for a datagram, and its way to the registry.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "event/fixture.h"
#include "event/kernel.h"
#include "support/console.h"
#include "support/libc.h"
#include "support/sandbox.h"

using namespace event_test;
using namespace tarn_test;

namespace {

// A registry of 20 types and the event thread, which waits.
class EventReceive : public testing::Test {
 protected:
  explicit EventReceive(int sock = 77) : kernel_(sock) {
    EXPECT_EQ(mu_event_init(20, hook, nullptr), 0);
    kernel_.start();
    take_journal();
  }

  // The line of an occurrence whose data is in the receive buffer.
  std::string seen(uint16_t device_id, uint32_t type, uint32_t length) const {
    return hook_line(device_id, type, kernel_.buffer() + 24, length);
  }
  std::string buffered(size_t offset, size_t size) const { return {kernel_.buffer() + offset, size}; }

  Kernel kernel_;
};

class EventReceiveDescriptor : public EventReceive, public testing::WithParamInterface<int> {
 protected:
  EventReceiveDescriptor() : EventReceive(GetParam()) {}
};

// Those around the size of a word, and around the size of an fd_set, 1024.
INSTANTIATE_TEST_SUITE_P(Descriptors, EventReceiveDescriptor,
                         testing::Values(0, 1, 63, 64, 1000, 1023, 1024, 1500, 65535, 100000));

}  // namespace

// ---- The wait -------------------------------------------------------------------------------------------------------

TEST_F(EventReceive, WaitsForTheSocketOnlyAndWithoutATimeout) {
  EXPECT_EQ(kernel_.selected(), (std::vector<Selected>{{78, {77}, false}}));
  EXPECT_EQ(kernel_.received().size(), 0u);
}

TEST_F(EventReceive, WaitsAgainWhenSelectGivesNothing) {
  kernel_.feed({{0, false, "", false}, {-1, true, "", false}, {0, true, "", false}, {-1, false, "", false}});
  EXPECT_EQ(kernel_.received().size(), 0u);
  EXPECT_EQ(kernel_.selected(), std::vector<Selected>(5, {78, {77}, false})) << "the set is made anew each time";
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventReceive, WaitsAgainWhenTheSocketIsNotInTheSet) {
  kernel_.feed({{1, false, datagram(1, 2, 3), false}, {2, false, datagram(1, 2, 3), false}});
  EXPECT_EQ(kernel_.received().size(), 0u);
  EXPECT_EQ(kernel_.selected(), std::vector<Selected>(3, {78, {77}, false}));
}

TEST_F(EventReceive, ReceivesWhicheverPositiveNumberSelectGives) {
  kernel_.feed({{5, true, datagram(1, 2, 3), false}});
  EXPECT_EQ(take_journal(), Journal{seen(1, 2, 3)});
}

TEST_P(EventReceiveDescriptor, WaitsAndReceives) {
  kernel_.feed({arrives(datagram(1, 2, 3)), {0, false, "", false}, arrives(datagram(4, 5, 6))});
  EXPECT_EQ(kernel_.selected(), std::vector<Selected>(4, {GetParam() + 1, {GetParam()}, false}));
  EXPECT_EQ(take_journal(), (Journal{seen(1, 2, 3), seen(4, 5, 6)}));
}

// ---- The receive ----------------------------------------------------------------------------------------------------

// The length variable is set once: from the second receive on it holds what the first left there.
TEST_F(EventReceive, Receives2048BytesAndSetsTheAddressLengthOnce) {
  kernel_.feed({arrives(datagram(0, 1, 0)), receive_fails(), arrives("")});
  EXPECT_EQ(kernel_.received(),
            (std::vector<Received>{{77, 2048, 0, true, 0}, {77, 2048, 0, true, 12}, {77, 2048, 0, true, 12}}));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(kernel_.buffer()) % 8, 0u);
}

TEST_F(EventReceive, SendsADatagramToTheRegistry) {
  mu_event_register(0, 7, subscriber<1>);
  kernel_.feed({arrives(datagram(0x1234, 7, 5, "hello"))});
  EXPECT_EQ(take_journal(), (Journal{seen(0x1234, 7, 5), subscriber_line(1, 0x1234, 7, kernel_.buffer() + 24, 5)}));
  EXPECT_EQ(buffered(24, 5), "hello");
  EXPECT_EQ(rec(7).count, 1u);
}

TEST_F(EventReceive, ReadsNoReservedByte) {
  std::string bytes = datagram(3, 4, 0);
  for (const unsigned at : {0u, 1u, 4u, 5u, 8u, 9u}) bytes[at] = '\xff';
  bytes.replace(12, 12, 12, '\xff');
  kernel_.feed({arrives(bytes)});
  EXPECT_EQ(take_journal(), Journal{seen(3, 4, 0)});
}

TEST_F(EventReceive, IgnoresADatagramOfLessThanAHeader) {
  const std::string whole = datagram(1, 2, 3);
  kernel_.feed({arrives(""), arrives(whole.substr(0, 1)), arrives(whole.substr(0, 12)), arrives(whole.substr(0, 23))});
  EXPECT_EQ(take_journal(), Journal{});
  EXPECT_EQ(kernel_.received().size(), 4u);
  kernel_.feed({arrives(whole)});
  EXPECT_EQ(take_journal(), Journal{seen(1, 2, 3)});
}

TEST_F(EventReceive, PassesTheLengthFieldAsItIs) {
  kernel_.feed({arrives(datagram(0, 1, 100)), arrives(datagram(0, 1, 0, "data")), arrives(datagram(0, 1, 65535)),
                arrives(datagram(0, 1, 2, "data")), arrives(datagram(0, 1, 0, std::string(2024, 'x')))});
  EXPECT_EQ(take_journal(), (Journal{seen(0, 1, 100), seen(0, 1, 0), seen(0, 1, 65535), seen(0, 1, 2), seen(0, 1, 0)}));
}

TEST_F(EventReceive, TakesADatagramThatFillsTheBuffer) {
  static std::string shown;
  mu_event_register(0, 19, [](uint16_t, uint32_t, void *bytes, uint32_t, uint64_t) {
    shown.assign(static_cast<char *>(bytes), 2024);
    return 0;
  });
  std::string data;
  for (int i = 0; i < 2024; i++) data += static_cast<char>(i * 7);
  kernel_.feed({arrives(datagram(9, 19, 2024, data))});
  EXPECT_EQ(take_journal(), Journal{seen(9, 19, 2024)});
  EXPECT_EQ(shown, data);
  kernel_.feed({arrives(datagram(9, 19, 3000, data + "what does not fit"))});
  EXPECT_EQ(take_journal(), Journal{seen(9, 19, 3000)});
}

TEST_F(EventReceive, ReadsTheFieldsUnsigned) {
  kernel_.feed({arrives(datagram(0xffff, 19, 0x8000))});
  EXPECT_EQ(take_journal(), Journal{seen(0xffff, 19, 0x8000)});
  const RecordsBeforeTheTable records(4);  // where a type of -1 would be counted
  kernel_.feed({arrives(datagram(0, 0xffff, 0)), arrives(datagram(0, 0x8000, 0)), arrives(datagram(0, 20, 0))});
  EXPECT_EQ(take_journal(), Journal{}) << "beyond the table";
  EXPECT_EQ(rec(-1).count, 0u);
}

TEST_F(EventReceive, GoesOnAfterAnUnknownType) {
  kernel_.feed({arrives(datagram(1, 20, 0)), arrives(datagram(1, 19, 0))});
  EXPECT_EQ(take_journal(), Journal{seen(1, 19, 0)});
}

TEST_F(EventReceive, SendsAZeroHeaderWhenTheVeryFirstReceiveFails) {
  kernel_.feed({receive_fails()});
  EXPECT_EQ(take_journal(), Journal{seen(0, 0, 0)});
  EXPECT_EQ(buffered(0, 2048), std::string(2048, '\0'));
}

TEST_F(EventReceive, SendsWhatTheBufferHoldsWhenAReceiveFails) {
  kernel_.feed({arrives(datagram(1, 2, 5, "hello")), receive_fails(), receive_fails()});
  EXPECT_EQ(take_journal(), (Journal{seen(1, 2, 5), seen(1, 2, 5), seen(1, 2, 5)}));
  EXPECT_EQ(buffered(24, 6), std::string("hello\0", 6));
  EXPECT_EQ(rec(2).count, 3u);
}

// An ignored datagram stays in the buffer: its 8 bytes changed the type that a failed receive then sends.
TEST_F(EventReceive, KeepsWhatAShortDatagramLeftInTheBuffer) {
  kernel_.feed({arrives(datagram(1, 2, 5, "hello")), arrives(datagram(9, 3, 4).substr(0, 8)), receive_fails()});
  EXPECT_EQ(take_journal(), (Journal{seen(1, 2, 5), seen(1, 3, 4)}));
  EXPECT_EQ(buffered(24, 5), "hello");
}

TEST_F(EventReceive, ClearsNothingBetweenDatagrams) {
  kernel_.feed({arrives(datagram(1, 2, 5, "hello")), arrives(datagram(1, 2, 5, "J"))});
  EXPECT_EQ(buffered(24, 5), "Jello");
  take_journal();
}

TEST_F(EventReceive, IsSubjectToSuppression) {
  configure(2, 1, 1, 1000);
  kernel_.feed({arrives(datagram(1, 2, 0)), arrives(datagram(1, 2, 0)), arrives(datagram(1, 2, 0))});
  EXPECT_EQ(take_journal(), Journal{seen(1, 2, 0)});
  EXPECT_EQ(rec(2).suprs_cnt, 2u);
}

TEST_F(EventReceive, PrintsNothingAndAllocatesNothing) {
  Console console;
  const FailingMalloc failing(1, 1000000);
  kernel_.feed({arrives(datagram(1, 2, 0)), receive_fails(), arrives("x"), {-1, false, "", false}});
  EXPECT_EQ(failing.seen(), 0);
  EXPECT_EQ(console.take(), "");
  take_journal();
}

// ---- With a real socket ---------------------------------------------------------------------------------------------

namespace {

constexpr int kDatagrams = 100;
std::vector<std::string> g_arrived;
std::promise<void> g_all_arrived;

int note_arrival(uint16_t device_id, uint32_t type, void *data, uint32_t len, uint64_t) {
  g_arrived.push_back(line("%u %u ", device_id, type) + std::string(static_cast<char *>(data), len));
  if (g_arrived.size() == kDatagrams) g_all_arrived.set_value();
  return 0;
}

// Datagrams through the system, with its own select and recvfrom. A pair of local sockets is in place of the netlink
// socket; the event thread's end has the number `sock`.
void expect_datagrams_through(int sock) {
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, pair), 0);
  ASSERT_EQ(dup2(pair[0], sock), sock);
  const timeval limit = {60, 0};  // of a send to a thread that does not receive
  setsockopt(pair[1], SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  const VirtualClock clock;
  const Sandbox sandbox;  // without the device
  Console console;
  const Replace socket(libc::socket, [sock](int, int, int) { return sock; });
  const Replace bind(libc::bind, [](int, const sockaddr *, socklen_t) { return 0; });
  EXPECT_EQ(mu_event_init(20, nullptr, nullptr), 0);
  mu_event_register(0, 3, note_arrival);
  std::thread(remote_event_process).detach();
  std::vector<std::string> expected;
  for (int i = 0; i < kDatagrams; i++) {
    const std::string text(static_cast<size_t>(i), static_cast<char>('a' + i % 26));
    expected.push_back(line("%d 3 ", i) + text);
    const std::string bytes = datagram(static_cast<uint16_t>(i), 3, static_cast<uint16_t>(i), text);
    ASSERT_EQ(::send(pair[1], bytes.data(), 23, 0), 23);
    ASSERT_EQ(::send(pair[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
  ASSERT_EQ(g_all_arrived.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
  mu_mutex_lock(glb_evt.lock);  // the event thread has left the subscriber
  EXPECT_EQ(g_arrived, expected);
  EXPECT_EQ(rec(3).count, 100u) << "counted under the lock under which the subscriber ran";
  mu_mutex_unlock(glb_evt.lock);
}

}  // namespace

TEST(EventSocket, BringsDatagramsToSubscribersInOrder) { expect_datagrams_through(100); }

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
  expect_datagrams_through(kHigh);
}
