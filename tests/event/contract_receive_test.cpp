// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The event thread: how it sets the channel up, and its receive loop.

#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "event/channel.h"
#include "event/fixture.h"
#include "support/console.h"
#include "support/libc.h"
#include "support/sandbox.h"

using namespace event_test;
using namespace tarn_test;

namespace {

using Calls = std::vector<std::string>;

// What the netlink address and the device's argument hold for a port, in hexadecimal digits.
std::string digits(const void *data, size_t size) {
  std::string text;
  for (size_t i = 0; i < size; i++) text += line("%02x", static_cast<const unsigned char *>(data)[i]);
  return text;
}

std::string bound_address(uint32_t port) {
  char bytes[12] = {};
  const uint16_t family = 16;  // AF_NETLINK
  memcpy(bytes, &family, 2);
  memcpy(bytes + 4, &port, 4);
  return digits(bytes, sizeof bytes);
}

std::string destination(uint32_t port) {
  char bytes[24] = {};
  memcpy(bytes + 20, &port, 4);
  return digits(bytes, sizeof bytes);
}

// A registry of 20 types and the event thread, which waits.
class EventReceiveContract : public testing::Test {
 protected:
  explicit EventReceiveContract(int sock = 77) : channel_(sock) {
    EXPECT_EQ(mu_event_init(20, hook, nullptr), 0);
    channel_.start();
    take_journal();
  }

  // The line of an occurrence whose data is in the receive buffer.
  std::string seen(uint16_t device_id, uint32_t type, uint32_t length) const {
    return hook_line(device_id, type, static_cast<char *>(channel_.buffer()) + 24, length);
  }
  std::string buffered(size_t offset, size_t size) const {
    return std::string(static_cast<char *>(channel_.buffer()) + offset, size);
  }

  Channel channel_;
};

class EventReceiveHighDescriptorContract : public EventReceiveContract, public testing::WithParamInterface<int> {
 protected:
  EventReceiveHighDescriptorContract() : EventReceiveContract(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Descriptors, EventReceiveHighDescriptorContract,
                         testing::Values(0, 1, 63, 64, 1023, 1024, 1500, 65535));

}  // namespace

namespace {

const std::string kOpened = "socket 16 " + std::to_string(SOCK_RAW | SOCK_CLOEXEC) + " 19";

}  // namespace

// ---- Set-up ---------------------------------------------------------------------------------------------------------

TEST(EventChannelContract, OpensTellsItsPortAndBinds) {
  Channel channel(77, 4321);
  Console console;
  channel.start();
  EXPECT_EQ(channel.take_calls(), (Calls{kOpened, "getppid", "ioctl 88 4302 " + destination(4321) + " evt_dest 4321",
                                         "close 88", "bind 77 " + bound_address(4321)}));
  EXPECT_EQ(evt_dest, 4321);
  EXPECT_EQ(console.take(), "");
}

TEST(EventChannelContract, TakesThePortFromItsParentWhateverThatIs) {
  Channel channel(77, 0);
  evt_dest = 5;
  channel.start();
  EXPECT_EQ(evt_dest, 0);
  EXPECT_EQ(channel.take_calls().back(), "bind 77 " + bound_address(0));
}

TEST(EventChannelContract, EndsWithoutASocket) {
  Channel channel;
  channel.fail_socket(EPROTONOSUPPORT);
  evt_dest = 5;
  Console console;
  testing::internal::CaptureStderr();
  EXPECT_EQ(remote_event_process(), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            std::string("!Create pkt_evt channel failed::\n: ") + strerror(EPROTONOSUPPORT) + "\n");
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(channel.take_calls(), Calls{kOpened});
  EXPECT_EQ(evt_dest, 5);
}

TEST(EventChannelContract, EndsWhenItCannotBind) {
  Channel channel(77, 4321);
  channel.fail_bind(EADDRINUSE);
  Console console;
  testing::internal::CaptureStderr();
  EXPECT_EQ(remote_event_process(), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(console.take(), "bind socket failed(" + std::to_string(EADDRINUSE) + ").\n") << "errno of the bind";
  const Calls calls = channel.take_calls();
  ASSERT_EQ(calls.size(), 6u);
  EXPECT_EQ(calls[4], "bind 77 " + bound_address(4321));
  EXPECT_EQ(calls[5], "close 77");
  EXPECT_EQ(channel.selected().size(), 0u);
  EXPECT_EQ(evt_dest, 4321);
}

TEST(EventChannelContract, PrintsTheBindFailureBeforeItCloses) {
  Channel channel;
  channel.fail_bind(EACCES);
  Console console;
  std::string printed;
  const Replace close(libc::close, [&](int file) {
    if (file == 77) printed = console.take();
    return 0;
  });
  EXPECT_EQ(remote_event_process(), nullptr);
  EXPECT_EQ(printed, "bind socket failed(" + std::to_string(EACCES) + ").\n");
}

TEST(EventChannelContract, GoesOnWithoutTheDevice) {
  Channel channel;
  const Replace no_device(libc::open, [](const char *, int, mode_t) { return -1; });
  Console console;
  channel.start();
  EXPECT_EQ(channel.take_calls(), (Calls{kOpened, "getppid", "bind 77 " + bound_address(4321)}));
  EXPECT_EQ(console.take(), "Device open failure /dev/mu_pal_ioctl\n");
  EXPECT_EQ(channel.selected().size(), 1u);
}

// ---- The wait -------------------------------------------------------------------------------------------------------

TEST_F(EventReceiveContract, WaitsForTheSocketAloneAndForEver) {
  EXPECT_EQ(channel_.selected(), (std::vector<Selected>{{78, {77}, false}}));
  EXPECT_EQ(channel_.received().size(), 0u);
}

TEST_F(EventReceiveContract, WaitsAgainWhenSelectGivesNothing) {
  channel_.feed({{0, false, "", false}, {-1, true, "", false}, {0, true, "", false}, {-1, false, "", false}});
  EXPECT_EQ(channel_.received().size(), 0u);
  EXPECT_EQ(channel_.selected(), std::vector<Selected>(5, {78, {77}, false})) << "the set is made anew each time";
  EXPECT_EQ(take_journal(), Journal{});
}

TEST_F(EventReceiveContract, WaitsAgainWhenTheSocketIsNotInTheSet) {
  channel_.feed({{1, false, datagram(1, 2, 3), false}, {2, false, datagram(1, 2, 3), false}});
  EXPECT_EQ(channel_.received().size(), 0u);
  EXPECT_EQ(channel_.selected(), std::vector<Selected>(3, {78, {77}, false}));
}

TEST_F(EventReceiveContract, ReceivesWhateverNumberAboveZeroSelectGives) {
  channel_.feed({{5, true, datagram(1, 2, 3), false}});
  EXPECT_EQ(take_journal(), Journal{seen(1, 2, 3)});
}

TEST_P(EventReceiveHighDescriptorContract, WaitsAndReceives) {
  channel_.feed({arrives(datagram(1, 2, 3)), {0, false, "", false}, arrives(datagram(4, 5, 6))});
  EXPECT_EQ(channel_.selected(), std::vector<Selected>(4, {GetParam() + 1, {GetParam()}, false}));
  EXPECT_EQ(take_journal(), (Journal{seen(1, 2, 3), seen(4, 5, 6)}));
}

// ---- The receive ----------------------------------------------------------------------------------------------------

// The length variable is set once: from the second receive on it holds what the first left there.
TEST_F(EventReceiveContract, Receives2048BytesAndSetsTheAddressLengthOnce) {
  channel_.feed({arrives(datagram(0, 1, 0)), receive_fails(), arrives("")});
  EXPECT_EQ(channel_.received(),
            (std::vector<Received>{{77, 2048, 0, true, 0}, {77, 2048, 0, true, 12}, {77, 2048, 0, true, 12}}));
}

TEST_F(EventReceiveContract, SendsADatagramToTheRegistry) {
  mu_event_register(0, 7, subscriber<1>);
  channel_.feed({arrives(datagram(0x1234, 7, 5, "hello"))});
  EXPECT_EQ(take_journal(), (Journal{seen(0x1234, 7, 5),
                                     subscriber_line(1, 0x1234, 7, static_cast<char *>(channel_.buffer()) + 24, 5)}));
  EXPECT_EQ(buffered(24, 5), "hello");
  EXPECT_EQ(rec(7).count, 1u);
}

TEST_F(EventReceiveContract, LooksAtNoReservedByte) {
  std::string bytes = datagram(3, 4, 0);
  for (const unsigned at : {0u, 1u, 4u, 5u, 8u, 9u}) bytes[at] = '\xff';
  bytes.replace(12, 12, 12, '\xff');
  channel_.feed({arrives(bytes)});
  EXPECT_EQ(take_journal(), Journal{seen(3, 4, 0)});
}

TEST_F(EventReceiveContract, IgnoresADatagramOfLessThanAHeader) {
  const std::string whole = datagram(1, 2, 3);
  channel_.feed({arrives(""), arrives(whole.substr(0, 1)), arrives(whole.substr(0, 12)), arrives(whole.substr(0, 23))});
  EXPECT_EQ(take_journal(), Journal{});
  EXPECT_EQ(channel_.received().size(), 4u);
  channel_.feed({arrives(whole)});
  EXPECT_EQ(take_journal(), Journal{seen(1, 2, 3)});
}

TEST_F(EventReceiveContract, PassesTheLengthFieldAsItIs) {
  channel_.feed({arrives(datagram(0, 1, 100)), arrives(datagram(0, 1, 0, "data")), arrives(datagram(0, 1, 65535)),
                 arrives(datagram(0, 1, 2, "data"))});
  EXPECT_EQ(take_journal(), (Journal{seen(0, 1, 100), seen(0, 1, 0), seen(0, 1, 65535), seen(0, 1, 2)}));
}

TEST_F(EventReceiveContract, TakesADatagramThatFillsTheBuffer) {
  std::string data;
  for (int i = 0; i < 2024; i++) data += static_cast<char>(i * 7);
  channel_.feed({arrives(datagram(9, 19, 2024, data))});
  EXPECT_EQ(take_journal(), Journal{seen(9, 19, 2024)});
  EXPECT_EQ(buffered(24, 2024), data);
  channel_.feed({arrives(datagram(9, 19, 3000, data + "what does not fit"))});
  EXPECT_EQ(take_journal(), Journal{seen(9, 19, 3000)});
}

TEST_F(EventReceiveContract, ReadsTheFieldsUnsigned) {
  channel_.feed({arrives(datagram(0xffff, 19, 0x8000))});
  EXPECT_EQ(take_journal(), Journal{seen(0xffff, 19, 0x8000)});
  const RecordsBeforeTheTable records(4);  // where a type of -1 would be counted
  channel_.feed({arrives(datagram(0, 0xffff, 0)), arrives(datagram(0, 0x8000, 0)), arrives(datagram(0, 20, 0))});
  EXPECT_EQ(take_journal(), Journal{}) << "beyond the table";
  EXPECT_EQ(rec(-1).count, 0u);
}

TEST_F(EventReceiveContract, GoesOnAfterATypeThatThereIsNot) {
  channel_.feed({arrives(datagram(1, 20, 0)), arrives(datagram(1, 19, 0))});
  EXPECT_EQ(take_journal(), Journal{seen(1, 19, 0)});
}

TEST_F(EventReceiveContract, SendsAZeroHeaderWhenTheVeryFirstReceiveFails) {
  channel_.feed({receive_fails()});
  EXPECT_EQ(take_journal(), Journal{seen(0, 0, 0)});
  EXPECT_EQ(buffered(0, 2048), std::string(2048, '\0'));
}

TEST_F(EventReceiveContract, SendsWhatTheBufferHoldsWhenAReceiveFails) {
  channel_.feed({arrives(datagram(1, 2, 5, "hello")), receive_fails(), receive_fails()});
  EXPECT_EQ(take_journal(), (Journal{seen(1, 2, 5), seen(1, 2, 5), seen(1, 2, 5)}));
  EXPECT_EQ(buffered(24, 6), std::string("hello\0", 6));
  EXPECT_EQ(rec(2).count, 3u);
}

// An ignored datagram stays in the buffer: its 8 bytes changed the type that a failed receive then sends.
TEST_F(EventReceiveContract, KeepsWhatAShortDatagramLeftInTheBuffer) {
  channel_.feed({arrives(datagram(1, 2, 5, "hello")), arrives(datagram(9, 3, 4).substr(0, 8)), receive_fails()});
  EXPECT_EQ(take_journal(), (Journal{seen(1, 2, 5), seen(1, 3, 4)}));
  EXPECT_EQ(buffered(24, 5), "hello");
}

TEST_F(EventReceiveContract, ClearsNothingBetweenDatagrams) {
  channel_.feed({arrives(datagram(1, 2, 5, "hello")), arrives(datagram(1, 2, 5, "J"))});
  EXPECT_EQ(buffered(24, 5), "Jello");
  take_journal();
}

TEST_F(EventReceiveContract, IsSubjectToSuppression) {
  configure(2, 1, 1, 1000);
  channel_.feed({arrives(datagram(1, 2, 0)), arrives(datagram(1, 2, 0)), arrives(datagram(1, 2, 0))});
  EXPECT_EQ(take_journal(), Journal{seen(1, 2, 0)});
  EXPECT_EQ(rec(2).suprs_cnt, 2u);
}

TEST_F(EventReceiveContract, PrintsNothingAndAllocatesNothing) {
  Console console;
  const FailingMalloc failing(1, 1000000);
  channel_.feed({arrives(datagram(1, 2, 0)), receive_fails(), arrives("x"), {-1, false, "", false}});
  EXPECT_EQ(failing.seen(), 0);
  EXPECT_EQ(console.take(), "");
  take_journal();
}

TEST(EventChannelContract, DropsWhatArrivesBeforeTheRegistryIsReady) {
  Channel channel;
  channel.start();
  channel.feed({arrives(datagram(1, 2, 0)), receive_fails()});
  EXPECT_EQ(mu_event_init(20, hook, nullptr), 0);
  EXPECT_EQ(rec(2).count, 0u);
  channel.feed({arrives(datagram(1, 2, 0))});
  EXPECT_EQ(rec(2).count, 1u);
  take_journal();
}

// ---- With a real socket ---------------------------------------------------------------------------------------------

// Datagrams through the kernel, with its own select and recvfrom.
TEST(EventRealSocketContract, BringsDatagramsToSubscribersInOrder) {
  const VirtualClock clock;
  static int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, pair), 0);
  const Sandbox sandbox;  // no device
  const Replace socket(libc::socket, [](int, int, int) { return pair[0]; });
  const Replace bind(libc::bind, [](int, const sockaddr *, socklen_t) { return 0; });
  static std::vector<std::string> seen;
  static sem_t arrived;
  sem_init(&arrived, 0, 0);
  Console console;
  EXPECT_EQ(mu_event_init(20, nullptr, nullptr), 0);
  mu_event_register(0, 3, [](uint16_t device_id, uint32_t type, void *data, uint32_t len, uint64_t) {
    seen.push_back(line("%u %u ", device_id, type) + std::string(static_cast<char *>(data), len));
    sem_post(&arrived);
    return 0;
  });
  std::thread(remote_event_process).detach();
  for (int i = 0; i < 100; i++) {
    const std::string text(static_cast<size_t>(i), static_cast<char>('a' + i % 26));
    const std::string bytes = datagram(static_cast<uint16_t>(i), 3, static_cast<uint16_t>(i), text);
    ASSERT_EQ(::send(pair[1], bytes.data(), 23, 0), 23);
    ASSERT_EQ(::send(pair[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
  for (int i = 0; i < 100; i++) sem_wait(&arrived);
  ASSERT_EQ(seen.size(), 100u);
  for (int i = 0; i < 100; i++) {
    EXPECT_EQ(seen[static_cast<size_t>(i)],
              line("%d 3 ", i) + std::string(static_cast<size_t>(i), static_cast<char>('a' + i % 26)));
  }
  mu_mutex_lock(glb_evt.lock);  // the thread has left its subscribers
  EXPECT_EQ(glb_evt.events[3].count >= 99, true);
  mu_mutex_unlock(glb_evt.lock);
}
