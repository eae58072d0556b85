// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Many threads at once. Each message depends only on its thread and its number, so a message that is torn between two
// threads is detected wherever it is found.

#include "log/threads.h"

#include "log/fixture.h"

using namespace tarn_test;

namespace {

// All thresholds are open.
class LogThreads : public InitedLog {
 protected:
  LogThreads() { set_thresholds(MUP_LOG_DEBUG, MUP_LOG_DEBUG); }
};

// The message of a thread: its text, and the module, level and line under which it is logged.
struct Message {
  unsigned thread;
  unsigned number;

  uint8_t module() const { return static_cast<uint8_t>(thread % 2 == 0 ? thread : 16 + thread / 2); }
  uint8_t level() const { return static_cast<uint8_t>(number % 9); }
  int32_t line() const { return static_cast<int32_t>(number % 3 == 0 ? 0 : number); }
  std::string text() const {
    return std::to_string(thread) + '#' + std::to_string(number) + '#' +
           std::string(number * 13 % 200, static_cast<char>('a' + thread));
  }

  void log() const { mup_log_msg(0, module(), level(), line(), "%s", text().c_str()); }

  std::string console_line() const {
    if (line() == 0) return text() + "\r\n";
    return "[m" + std::to_string(module()) + "-" + mup_log_level_str_get(level()) + ": " + std::to_string(line()) +
           "]: " + text() + "\r\n";
  }

  // The text names its thread and its number.
  static Message of(const std::string &text) {
    Message message = {~0u, ~0u};
    if (sscanf(text.c_str(), "%u#%u#", &message.thread, &message.number) != 2) return {~0u, ~0u};
    return message;
  }
};

// Whether a slot holds one message whole.
void expect_whole(const mup_log_rec &record) {
  SCOPED_TRACE(std::string(record.text, strnlen(record.text, sizeof record.text)));
  const Message message = Message::of(record.text);
  ASSERT_LT(message.thread, kThreads);
  std::string text = message.text();
  text.resize(MUP_LOG_TEXT_SIZE);
  ASSERT_EQ(std::string(record.text, MUP_LOG_TEXT_SIZE), text);
  ASSERT_EQ(record.module, message.module());
  ASSERT_EQ(record.level, message.level());
  ASSERT_EQ(record.line, static_cast<uint32_t>(message.line()));
}

// The parts of `text` that end in "\r\n"; what follows the last is a part too.
std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < text.size();) {
    size_t end = text.find("\r\n", begin);
    end = end == std::string::npos ? text.size() : end + 2;
    lines.push_back(text.substr(begin, end - begin));
    begin = end;
  }
  return lines;
}

// The record that a line of mup_log_show or of a message is about: it begins with the thread's number.
Message message_of_line(const std::string &line) {
  const size_t bracket = line.front() == '[' ? line.rfind(": ") : std::string::npos;
  return Message::of(line.substr(bracket == std::string::npos ? 0 : bracket + 2));
}

// The line that mup_log_show prints for a message, from the level on: the time differs.
std::string shown_after_time(const Message &message) {
  return std::string("]-[") + mup_log_level_str_get(message.level()) +
         (message.line() == 0 ? "" : ' ' + std::to_string(message.line())) + "]m" + std::to_string(message.module()) +
         ": " + message.text() + "\r\n";
}

}  // namespace

TEST_F(LogThreads, EveryMessageIsStoredWholeAndCounted) {
  constexpr unsigned kEach = 120;  // neither ring wraps: half of the threads log to each
  {
    Console console;
    run_threads([](unsigned thread) {
      for (unsigned i = 0; i < kEach; i++) Message{thread, i}.log();
    });
    console.take();
  }
  ASSERT_EQ(ctrl->sys_idx, kThreads / 2 * kEach);
  ASSERT_EQ(ctrl->usr_idx, kThreads / 2 * kEach);
  EXPECT_EQ(ctrl->dirty, 3);
  std::vector<unsigned> next(kThreads, 0);
  for (unsigned i = 0; i < kThreads / 2 * kEach; i++) {
    for (const mup_log_rec *ring : {ctrl->sys_ring, ctrl->usr_ring}) {
      ASSERT_NO_FATAL_FAILURE(expect_whole(ring[i]));
      const Message message = Message::of(ring[i].text);
      ASSERT_EQ(message.number, next[message.thread]++);  // a thread's messages stay in order
    }
  }
  EXPECT_EQ(next, std::vector<unsigned>(kThreads, kEach));
}

TEST_F(LogThreads, BothRingsWrapWhileEightThreadsLog) {
  constexpr unsigned kEach = 900;
  set_thresholds(MUP_LOG_OFF, MUP_LOG_DEBUG);
  {
    Console console;
    run_threads([](unsigned thread) {
      for (unsigned i = 0; i < kEach; i++) Message{thread, i}.log();
    });
    console.take();
  }
  EXPECT_EQ(ctrl->sys_idx, kThreads / 2 * kEach % MUP_LOG_SYS_NUM);
  EXPECT_EQ(ctrl->usr_idx, kThreads / 2 * kEach % MUP_LOG_USR_NUM);
  for (const mup_log_rec &record : ctrl->sys_ring) ASSERT_NO_FATAL_FAILURE(expect_whole(record));
  for (const mup_log_rec &record : ctrl->usr_ring) ASSERT_NO_FATAL_FAILURE(expect_whole(record));
}

TEST_F(LogThreads, ConsoleDatagramsAndRingShareOneOrder) {
  constexpr unsigned kEach = 100;
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  std::vector<std::string> datagrams;  // without a lock of its own: the log's covers the send
  Replace<SendTo> sendto(libc::sendto,
                         [&datagrams](int, const void *data, size_t size, int, const sockaddr *, socklen_t) {
                           datagrams.emplace_back(static_cast<const char *>(data), size);
                           return static_cast<ssize_t>(size);
                         });
  std::string printed;
  {
    Console console;
    run_threads([](unsigned thread) {
      for (unsigned i = 0; i < kEach; i++) Message{thread, i}.log();
    });
    printed = console.take();
  }
  ASSERT_EQ(datagrams.size(), kThreads * kEach);
  std::string expected;
  uint32_t system = 0;
  uint32_t user = 0;
  for (const std::string &datagram : datagrams) {
    const Message message = Message::of(datagram);
    ASSERT_LT(message.thread, kThreads);
    ASSERT_EQ(datagram, message.text());
    expected += message.console_line();
    const mup_log_rec &record = message.module() <= 15 ? ctrl->sys_ring[system++] : ctrl->usr_ring[user++];
    ASSERT_EQ(datagram, record.text);
  }
  EXPECT_EQ(ctrl->sys_idx, system);
  EXPECT_EQ(ctrl->usr_idx, user);
  EXPECT_EQ(printed, expected);
}

TEST_F(LogThreads, LevelsChangeAndTheRingIsShownAndClearedMeanwhile) {
  constexpr unsigned kEach = 200;
  ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
  ctrl->level_hook = [](uint8_t, uint8_t, uint8_t) {};
  Replace<SendTo> sendto(libc::sendto, [](int, const void *, size_t size, int, const sockaddr *, socklen_t) {
    return static_cast<ssize_t>(size);
  });
  std::string printed;
  {
    Console console;
    run_threads([](unsigned thread) {
      for (unsigned i = 0; i < kEach; i++) {
        Message{thread, i}.log();
        const std::string name = "m" + std::to_string(i % 21);
        uint8_t value = 0;
        switch ((i + thread * 3) % 20) {
          case 0:
            EXPECT_EQ(mup_log_level_set(0, name.c_str(), MUP_LOG_SET_PRINT, static_cast<uint8_t>(i % 9)), 0);
            break;
          case 4:
            EXPECT_EQ(mup_log_level_set(0, name.c_str(), MUP_LOG_SET_RECORD, static_cast<uint8_t>(i % 9)), 0);
            break;
          case 6:
            EXPECT_EQ(mup_log_level_set(0, name.c_str(), MUP_LOG_SET_ENABLE, static_cast<uint8_t>(i % 2)), 0);
            break;
          case 8:
            EXPECT_EQ(mup_log_level_get(0, name.c_str(), static_cast<uint8_t>(i % 3), &value), 0);
            EXPECT_LE(value, 8);
            break;
          case 10:
            EXPECT_EQ(mup_log_set(1), 0);
            break;
          case 12:
            EXPECT_EQ(mup_log_usr_set(static_cast<int>(i % 2)), 0);
            break;
          case 14:
            EXPECT_EQ(mup_log_show(0, 0), 0);
            break;
          case 16:
            EXPECT_EQ(mup_log_show(0, i % 4 == 0 ? 1 : 0), 0);
            break;
          default:
            break;
        }
      }
    });
    printed = console.take();
  }
  for (const std::string &line : lines_of(printed)) {
    SCOPED_TRACE(line);
    const Message message = message_of_line(line);
    ASSERT_LT(message.thread, kThreads);
    const std::string after_time = shown_after_time(message);
    const size_t time_size = strlen("[MM/DD-hh:mm:ss");
    ASSERT_TRUE(line == message.console_line() ||
                (line.size() == time_size + after_time.size() && line.substr(time_size) == after_time));
  }
  for (const mup_log_rec &record : ctrl->sys_ring) {
    if (record.text[0] == '\0') continue;
    ASSERT_NO_FATAL_FAILURE(expect_whole(record));
  }
  for (const mup_log_rec &record : ctrl->usr_ring) {
    if (record.text[0] == '\0') continue;
    ASSERT_NO_FATAL_FAILURE(expect_whole(record));
  }
}

TEST_F(LogThreads, MessagesAndTheRingArePrintedUnderTheLock) {
  struct Tries {
    const mup_log_ctrl *ctrl;
    int total = 0;
    int busy = 0;
  };
  static Tries tries;
  tries.ctrl = ctrl;
  // An unbuffered standard output that tries to take the log mutex in each write.
  const cookie_io_functions_t functions = {nullptr,
                                           [](void *, const char *, size_t size) {
                                             tries.total++;
                                             if (mu_mutex_trylock(tries.ctrl->mutex) == EBUSY) {
                                               tries.busy++;
                                             } else {
                                               mu_mutex_unlock(tries.ctrl->mutex);
                                             }
                                             return static_cast<ssize_t>(size);
                                           },
                                           nullptr, nullptr};
  FILE *const own = stdout;
  FILE *const watched = fopencookie(nullptr, "w", functions);
  ASSERT_NE(watched, nullptr);
  setvbuf(watched, nullptr, _IONBF, 0);

  stdout = watched;
  Message{0, 1}.log();
  stdout = own;
  EXPECT_GT(tries.total, 0);
  EXPECT_EQ(tries.busy, tries.total);

  tries.total = tries.busy = 0;
  stdout = watched;
  mup_log_show(0, 0);
  stdout = own;
  fclose(watched);
  EXPECT_GT(tries.total, 0);
  EXPECT_EQ(tries.busy, tries.total);
}
