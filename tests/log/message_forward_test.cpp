// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Forwarding to the log collector: when a datagram is sent, where to, and the effect of a failure.

#include <netinet/in.h>

#include "log/fixture.h"

using namespace tarn_test;

namespace {

using LogForward = InitedLog;

struct Datagram {
  int sock;
  std::string text;
  int flags;
  sockaddr_in to;
  socklen_t to_size;
};

// Records what the library sends, in place of libc; a nonzero `error` makes the call fail.
class Sends {
 public:
  explicit Sends(int error = 0)
      : sendto_(libc::sendto, [this, error](int sock, const void *data, size_t size, int flags, const sockaddr *to,
                                            socklen_t to_size) {
          Datagram datagram = {sock, std::string(static_cast<const char *>(data), size), flags, {}, to_size};
          if (to != nullptr && to_size == sizeof datagram.to) memcpy(&datagram.to, to, to_size);
          seen.push_back(datagram);
          if (error == 0) return static_cast<ssize_t>(size);
          errno = error;
          return ssize_t{-1};
        }) {}

  std::vector<Datagram> seen;

 private:
  Replace<SendTo> sendto_;
};

}  // namespace

TEST_F(LogForward, IsOffUntilACallerTurnsItOn) {
  Collector collector;
  Sends sends;
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
  EXPECT_TRUE(sends.seen.empty());
  EXPECT_EQ(collector.next(), std::nullopt);
}

TEST_F(LogForward, SendsTheBareTextInOneDatagramToPort514) {
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  const struct {
    uint32_t server_ip;
    uint8_t octets[4];
  } rows[] = {
      {ctrl->server_ip, {192, 168, 1, 254}},
      {0x01020304, {1, 2, 3, 4}},
      {0x0A000001, {10, 0, 0, 1}},
      {0xFFFFFFFF, {255, 255, 255, 255}},
  };
  Console console;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.server_ip);
    ctrl->server_ip = row.server_ip;
    Sends sends;
    mup_log_msg(0, 2, MUP_LOG_ALERT, 12, "%s-%d", "text", 5);
    ASSERT_EQ(sends.seen.size(), 1u);
    const Datagram &datagram = sends.seen[0];
    EXPECT_EQ(datagram.sock, ctrl->sock);
    EXPECT_EQ(datagram.text, "text-5");  // no module, no level, no line end, no NUL
    EXPECT_EQ(datagram.flags, 0);
    ASSERT_EQ(datagram.to_size, sizeof(sockaddr_in));
    EXPECT_EQ(datagram.to.sin_family, AF_INET);
    EXPECT_EQ(ntohs(datagram.to.sin_port), 514);
    EXPECT_EQ(memcmp(&datagram.to.sin_addr, row.octets, sizeof row.octets), 0);
  }
}

TEST_F(LogForward, DatagramsArriveAtTheCollectorInOrder) {
  Collector collector;
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  Console console;
  mup_log_msg(0, 0, MUP_LOG_ERROR, 1, "first\n");
  mup_log_msg(0, 16, MUP_LOG_OFF, MUP_LOG_NOPRINT, "second %d%%", 2);
  mup_log_msg(0, 20, MUP_LOG_ERROR, 0, "%s", "");
  mup_log_msg(0, 0, MUP_LOG_WARNING, 0, "above the threshold");
  mup_log_msg(0, 15, MUP_LOG_ERROR, 0, "last");
  EXPECT_EQ(collector.next(), "first\n");
  EXPECT_EQ(collector.next(), "second 2%");
  EXPECT_EQ(collector.next(), "");  // an empty text is a datagram of no bytes
  EXPECT_EQ(collector.next(), "last");
  EXPECT_EQ(collector.next(), std::nullopt);
  EXPECT_THAT(console.take(), testing::Not(testing::HasSubstr("Error writing buffer")));
}

TEST_F(LogForward, SendsUpTo511Characters) {
  Collector collector;
  ctrl->remote_mode = MUP_LOG_REMOTE_ONLY;
  constexpr size_t kLengths[] = {0, 1, 254, 255, 256, 257, 510, 511, 512, 513, 600};
  for (const size_t length : kLengths) {
    SCOPED_TRACE(length);
    std::string text;
    for (size_t i = 0; i < length; i++) text += static_cast<char>('!' + i % 89);
    mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "%s", text.c_str());
    EXPECT_EQ(collector.next(), text.substr(0, 511));
  }
}

TEST_F(LogForward, EachModeSendsAndStoresAsItSays) {
  enum { kSends, kFails, kNoSocket };
  struct Row {
    uint8_t mode;
    int socket;
    size_t attempts;
    bool stored;
    const char *printed;
  };
  const Row rows[] = {
      {0, kSends, 0, true, "text\r\n"},
      {0, kFails, 0, true, "text\r\n"},
      {0, kNoSocket, 0, true, "text\r\n"},
      {1, kSends, 1, false, "text\r\n"},
      {1, kFails, 1, false, "text\r\nError writing buffer"},
      {1, kNoSocket, 0, false, "text\r\n"},  // dropped, not stored
      {2, kSends, 1, true, "text\r\n"},
      {2, kFails, 1, true, "text\r\nError writing buffer"},
      {2, kNoSocket, 0, true, "text\r\n"},
      {3, kSends, 1, true, "text\r\n"},
      {3, kFails, 1, true, "text\r\nError writing buffer"},
      {128, kSends, 1, true, "text\r\n"},
      {255, kSends, 1, true, "text\r\n"},
      {255, kFails, 1, true, "text\r\nError writing buffer"},
      {255, kNoSocket, 0, true, "text\r\n"},
  };
  const int32_t sock = ctrl->sock;
  constexpr uint8_t kModules[] = {15, 16};  // one of each ring
  for (const uint8_t module : kModules) {
    for (const Row &row : rows) {
      SCOPED_TRACE(testing::Message() << "module " << int{module} << " mode " << int{row.mode} << " socket "
                                      << row.socket);
      const uint32_t &index = module == 15 ? ctrl->sys_idx : ctrl->usr_idx;
      const mup_log_rec *ring = module == 15 ? ctrl->sys_ring : ctrl->usr_ring;
      const uint32_t before = index;
      ctrl->dirty = 0;
      ctrl->remote_mode = row.mode;
      ctrl->sock = row.socket == kNoSocket ? -1 : sock;
      Sends sends(row.socket == kFails ? ENETUNREACH : 0);
      Console console;
      mup_log_msg(0, module, MUP_LOG_ERROR, 0, "text");
      EXPECT_EQ(console.take(), row.printed);
      EXPECT_EQ(sends.seen.size(), row.attempts);
      EXPECT_EQ(index, row.stored ? before + 1 : before);
      EXPECT_STREQ(ring[before].text, row.stored ? "text" : "");
      EXPECT_EQ(ctrl->dirty, row.stored ? (module == 15 ? 1 : 2) : 0);
    }
  }
}

TEST_F(LogForward, ASocketThatCouldNotBeMadeIsNeverTriedAgain) {
  int sockets = 0;
  Replace<int(int, int, int)> socket(libc::socket, [&sockets](int, int, int) {
    sockets++;
    errno = EACCES;
    return -1;
  });
  Console console;
  init();
  console.take();
  Sends sends;
  constexpr uint8_t kModes[] = {1, 2, 1, 2};
  for (const uint8_t mode : kModes) {
    ctrl->remote_mode = mode;
    mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "text");
    ASSERT_EQ(console.take(), "text\r\n");  // nothing about the socket
  }
  EXPECT_EQ(sockets, 1);
  EXPECT_TRUE(sends.seen.empty());
  EXPECT_LT(ctrl->sock, 0);
  EXPECT_EQ(ctrl->sys_idx, 2u);
}

TEST_F(LogForward, DescriptorZeroIsASocket) {
  ctrl->remote_mode = MUP_LOG_REMOTE_ONLY;
  ctrl->sock = 0;
  Sends sends;
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
  ASSERT_EQ(sends.seen.size(), 1u);
  EXPECT_EQ(sends.seen[0].sock, 0);
}

TEST_F(LogForward, AFailedSendIsNotRepeated) {
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  for (const int error : {EINTR, EAGAIN, EMSGSIZE, ENOBUFS}) {
    SCOPED_TRACE(error);
    Sends sends(error);
    Console console;
    mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
    EXPECT_EQ(sends.seen.size(), 1u);
    EXPECT_EQ(console.take(), "Error writing buffer");
  }
  // The next message is tried again.
  Sends sends;
  mup_log_msg(0, 0, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "text");
  EXPECT_EQ(sends.seen.size(), 1u);
}

TEST_F(LogForward, PrintsThenSendsThenStoresUnderTheLock) {
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  Console console;
  int sends = 0;
  Replace<SendTo> sendto(libc::sendto, [&](int, const void *, size_t size, int, const sockaddr *, socklen_t) {
    sends++;
    EXPECT_EQ(console.take(), "text\r\n");
    EXPECT_EQ(ctrl->sys_idx, 0u);
    EXPECT_STREQ(ctrl->sys_ring[0].text, "");
    EXPECT_EQ(ctrl->dirty, 0);
    EXPECT_FALSE(lock_is_free());
    return static_cast<ssize_t>(size);
  });
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "text");
  EXPECT_EQ(sends, 1);
  EXPECT_STREQ(ctrl->sys_ring[0].text, "text");
}

TEST_F(LogForward, ADisabledModuleSendsNothing) {
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  ASSERT_EQ(mup_log_level_set(0, "m4", MUP_LOG_SET_ENABLE, 0), 0);
  Sends sends;
  mup_log_msg(0, 4, MUP_LOG_OFF, 0, "text");
  EXPECT_TRUE(sends.seen.empty());
}
