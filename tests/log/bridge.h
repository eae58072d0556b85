// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The kernel bridge on a scripted stream. Its thread sleeps on the virtual clock between its reads: each read is one
// step of the test.
#ifndef TARN_TESTS_LOG_BRIDGE_H
#define TARN_TESTS_LOG_BRIDGE_H

#include <semaphore.h>

#include <deque>

#include "log/fixture.h"

namespace tarn_test {

inline const std::string kStart = "<jxlog-";
inline const std::string kEnd = "<jxlog>";

// A message that was logged: its text as it is forwarded, cut to 511 characters.
struct Message {
  unsigned module = 0;
  unsigned level = 0;
  std::string text;

  bool operator==(const Message &) const = default;
};

inline void PrintTo(const Message &message, std::ostream *out) {
  *out << message.module << "," << message.level << ": " << message.text;
}

using Messages = std::vector<Message>;

// The message of a frame whose text has less than 511 characters.
inline Message message(unsigned module, unsigned level, const std::string &text) {
  return {module, level, text + "\n"};
}

inline std::string frame(const std::string &head, const std::string &text) { return kStart + head + text + kEnd; }

// Starts the bridge and waits until it has posted its semaphore.
inline void start_bridge() {
  sem_t started;
  sem_init(&started, 0, 0);
  pthread_t thread;
  ASSERT_EQ(mu_thread_create(&thread, "klog", log_msg_process, &started, 1 << 20, 0, 0), 0);
  timespec limit;
  clock_gettime(CLOCK_REALTIME, &limit);
  limit.tv_sec += 60;
  ASSERT_EQ(sem_timedwait(&started, &limit), 0) << "the bridge has not posted its semaphore";
  sem_destroy(&started);
}

// The bridge runs and has found nothing in its first read. Every module records and shows all levels.
class Bridge : public InitedLog {
 protected:
  Bridge() {
    write_file(sandbox_.root() + "/proc/kmsg", "");
    ctrl->remote_mode = MUP_LOG_REMOTE_AND_STORE;
    set_thresholds(MUP_LOG_DEBUG, MUP_LOG_DEBUG);
    start_bridge();
    clock.settle();
  }

  // Gives the bytes to the next read; without bytes it finds nothing. Returns the messages that follow.
  Messages feed(const std::string &bytes) {
    EXPECT_LE(bytes.size(), 512u);
    return step({bytes, 0});
  }
  Messages fail(int error) { return step({"", error}); }

  // Feeds the parts in this order.
  Messages feed_all(const std::vector<std::string> &parts) {
    Messages all;
    for (const std::string &part : parts) {
      for (Message &each : feed(part)) all.push_back(each);
    }
    return all;
  }

  // Lets the held bytes overflow: nothing is held afterwards.
  void reset() {
    feed(kEnd + kEnd);
    feed(kStart + std::string(505, 'r'));
    feed("r");
  }

  std::string printed;              // on the console in the last step
  std::vector<size_t> asked;        // for each read, the number of bytes that it asked for
  std::vector<int64_t> read_at_ms;  // and its time
  std::vector<int> open_flags;      // of each opening of the stream
  int file = -1;                    // the stream
  VirtualClock clock;

 private:
  struct Read {
    std::string bytes;
    int error;
  };
  struct Sent {
    std::string text;
    uint32_t sys_idx;
    uint32_t usr_idx;
  };

  Messages step(const Read &read) {
    script_.push_back(read);
    sent_.clear();
    {
      Console console;
      clock.scan();
      printed = console.take();
    }
    EXPECT_TRUE(script_.empty());
    sent_.push_back({"", ctrl->sys_idx, ctrl->usr_idx});
    Messages messages;
    for (size_t i = 0; i + 1 < sent_.size(); i++) {
      const mup_log_rec *slot = sent_[i].sys_idx != sent_[i + 1].sys_idx ? &ctrl->sys_ring[sent_[i].sys_idx]
                                                                         : &ctrl->usr_ring[sent_[i].usr_idx];
      EXPECT_EQ(slot->line, 0u);
      EXPECT_EQ(text_of(*slot), sent_[i].text.substr(0, 255));
      messages.push_back({slot->module, slot->level, sent_[i].text});
    }
    return messages;
  }

  const Sandbox sandbox_;
  std::deque<Read> script_;
  std::vector<Sent> sent_;
  Replace<int(const char *, int, mode_t)> open_{libc::open, [this](const char *path, int flags, mode_t mode) {
                                                  const int opened = libc::open.real(path, flags, mode);
                                                  if (strcmp(path, "/proc/kmsg") == 0) {
                                                    open_flags.push_back(flags);
                                                    file = opened;
                                                  }
                                                  return opened;
                                                }};
  Replace<ssize_t(int, void *, size_t)> read_{libc::read, [this](int from, void *data, size_t size) {
                                                if (from != file) return libc::read.real(from, data, size);
                                                asked.push_back(size);
                                                read_at_ms.push_back(clock.now_ms());
                                                if (script_.empty()) return ssize_t{0};
                                                const Read read = script_.front();
                                                script_.pop_front();
                                                if (read.error != 0) {
                                                  errno = read.error;
                                                  return ssize_t{-1};
                                                }
                                                EXPECT_LE(read.bytes.size(), size);
                                                memcpy(data, read.bytes.data(), read.bytes.size());
                                                return static_cast<ssize_t>(read.bytes.size());
                                              }};
  Replace<SendTo> send_{
      libc::sendto, [this](int, const void *data, size_t size, int, const sockaddr *, socklen_t) {
        sent_.push_back({std::string(static_cast<const char *>(data), size), ctrl->sys_idx, ctrl->usr_idx});
        return static_cast<ssize_t>(size);
      }};
};

}  // namespace tarn_test

#endif
