// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The kernel's side of the event channel, in the hands of a test: the device, the socket, and a script of what arrives.
#ifndef TARN_TESTS_EVENT_KERNEL_H
#define TARN_TESTS_EVENT_KERNEL_H

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "event/fixture.h"
#include "support/libc.h"

namespace event_test {

// A datagram's header, and `data` after it.
inline std::string datagram(uint16_t device_id, uint16_t type, uint16_t length, const std::string &data = "") {
  std::string bytes(24, '\0');
  memcpy(&bytes[2], &length, 2);
  memcpy(&bytes[6], &type, 2);
  memcpy(&bytes[10], &device_id, 2);
  return bytes + data;
}

inline std::string hex(const std::string &bytes) {
  std::string digits;
  for (const char byte : bytes) digits += line("%02x", static_cast<unsigned char>(byte));
  return digits;
}

// One round of the receive loop.
struct Round {
  int selected = 1;        // the result of select
  bool in_set = true;      // whether select leaves the socket in the set
  std::string bytes = {};  // what arrives
  bool fails = false;      // recvfrom returns -1
};

inline Round arrives(std::string bytes) { return {1, true, std::move(bytes), false}; }
inline Round receive_fails() { return {1, true, "", true}; }

// The arguments of a call of select.
struct Selected {
  int count;
  std::vector<int> files;  // in the read set
  bool others;             // a write set, an error set or a timeout
  bool operator==(const Selected &) const = default;
};

// The arguments of a call of recvfrom.
struct Received {
  int sock;
  size_t size;
  int flags;
  bool has_from;
  socklen_t from_size;
  bool operator==(const Received &) const = default;
};

inline void PrintTo(const Selected &selected, std::ostream *out) {
  *out << "{count " << selected.count << (selected.others ? " others" : "") << " files";
  for (const int file : selected.files) *out << ' ' << file;
  *out << '}';
}

inline void PrintTo(const Received &received, std::ostream *out) {
  *out << "{sock " << received.sock << " size " << received.size << " flags " << received.flags << " from "
       << received.has_from << " from_size " << received.from_size << '}';
}

// The results of the calls.
struct Answers {
  int sock;
  pid_t parent = 4321;
  int device = 88;       // of open; negative: there is no device
  int socket_error = 0;  // other than 0: the call fails with this errno
  int bind_error = 0;
  int ioctl_result = 0;
  size_t argument_size = 24;                       // how many bytes of an argument of the device are read
  std::function<void(std::string &)> answer = {};  // changes them; the changed bytes are written back
};

// Every call to the system that the channel makes, in place of libc's. The event thread never ends: it waits in select
// for more rounds. A thread that sleeps does so on the clock that was there before, or for good. One in a process.
class Kernel {
 public:
  explicit Kernel(int sock = 77) : state_(*new State(sock)) {}

  Answers &answers() const { return state_.answers; }

  // The calls since the last time, except select and recvfrom, such as "socket 16 524291 19" and "ioctl 88 4302".
  std::vector<std::string> take_calls() const {
    std::lock_guard lock(state_.mutex);
    return std::exchange(state_.calls, {});
  }
  // The arguments of the device since the last time, and the latest one's address.
  std::vector<std::string> take_arguments() const { return std::exchange(state_.arguments, {}); }
  const void *argument() const { return state_.argument; }

  std::vector<Selected> selected() const {
    std::lock_guard lock(state_.mutex);
    return state_.selected;
  }
  std::vector<Received> received() const {
    std::lock_guard lock(state_.mutex);
    return state_.received;
  }
  char *buffer() const { return state_.buffer; }

  // Runs remote_event_process on a thread of its own, until it waits.
  void start() const {
    std::thread(remote_event_process).detach();
    settle();
  }

  // Returns after the last of the rounds, when the event thread waits again.
  void feed(const std::vector<Round> &rounds) const {
    {
      std::lock_guard lock(state_.mutex);
      state_.rounds.insert(state_.rounds.end(), rounds.begin(), rounds.end());
      state_.idle = false;
      state_.changed.notify_all();
    }
    settle();
  }

  // Waits for the event thread to wait.
  void settle() const {
    std::unique_lock lock(state_.mutex);
    const bool waits = state_.changed.wait_for(lock, std::chrono::seconds(60), [this] { return state_.idle; });
    ASSERT_TRUE(waits) << "the event thread does not wait in select";
  }

 private:
  using Select = int(int, fd_set *, fd_set *, fd_set *, timeval *);
  using Receive = ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *);

  // Outlives the test: threads wait in it until the process ends.
  struct State {
    explicit State(int sock) : answers{.sock = sock} { latest = this; }

    int sleep(timeval *timeout) {
      if (clock != nullptr) return (*clock)(0, nullptr, nullptr, nullptr, timeout);
      std::unique_lock lock(mutex);
      changed.wait(lock, [] { return false; });
      return 0;
    }

    int select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
      if (read == nullptr) return sleep(timeout);
      std::unique_lock lock(mutex);
      selected.push_back({count, files_in(count, read), write != nullptr || except != nullptr || timeout != nullptr});
      if (rounds.empty()) {
        idle = true;
        changed.notify_all();
        changed.wait(lock, [this] { return !rounds.empty(); });
      }
      round = rounds.front();
      rounds.pop_front();
      // As the kernel does: an error does not change the set.
      if (round.selected >= 0 && !round.in_set) clear(count, read);
      errno = round.selected < 0 ? EINTR : 0;
      return round.selected;
    }

    ssize_t recvfrom(int from_sock, void *data, size_t size, int flags, sockaddr *from, socklen_t *from_size) {
      std::unique_lock lock(mutex);
      buffer = static_cast<char *>(data);
      received.push_back({from_sock, size, flags, from != nullptr, from_size == nullptr ? 99 : *from_size});
      if (from != nullptr) memset(static_cast<void *>(from), 0x5A, kAddressSize);  // there must be room for it
      if (from_size != nullptr) *from_size = kAddressSize;
      if (round.fails) {
        errno = ENOBUFS;
        return -1;
      }
      const size_t got = std::min(size, round.bytes.size());
      memcpy(data, round.bytes.data(), got);
      return static_cast<ssize_t>(got);
    }

    int open(const char *path, int flags, mode_t mode) {
      if (strncmp(path, "/dev/mu", 7) != 0) return tarn_test::libc::open.real(path, flags, mode);  // a sanitizer's
      EXPECT_EQ(flags, O_RDWR | O_CLOEXEC);
      note(std::string("open ") + path);
      if (answers.device < 0) errno = ENOENT;
      return answers.device;
    }

    int ioctl(int file, unsigned long request, void *data) {
      note(line("ioctl %d %lx", file, request));
      argument = data;
      std::string bytes(static_cast<const char *>(data), answers.argument_size);
      arguments.push_back(bytes);
      if (answers.answer) {
        answers.answer(bytes);
        memcpy(data, bytes.data(), bytes.size());
      }
      return answers.ioctl_result;
    }

    // Notes a call. Returns 0, or -1 when there is an error.
    int call(std::string text, int error) {
      note(std::move(text));
      errno = error;
      return error != 0 ? -1 : 0;
    }

    void note(std::string text) {
      std::lock_guard lock(mutex);
      calls.push_back(std::move(text));
    }

    static constexpr socklen_t kAddressSize = 12;  // of netlink

    // The set is a row of longs, with the lowest file in the lowest bit of the first.
    static constexpr int kBits = 8 * sizeof(long);
    static std::vector<int> files_in(int count, const fd_set *set) {
      std::vector<int> files;
      for (int i = 0; i < count; i++) {
        unsigned long word;
        memcpy(&word, reinterpret_cast<const char *>(set) + sizeof word * static_cast<size_t>(i / kBits), sizeof word);
        if ((word >> (i % kBits) & 1) != 0) files.push_back(i);
      }
      return files;
    }
    static void clear(int count, fd_set *set) {
      memset(static_cast<void *>(set), 0, sizeof(long) * static_cast<size_t>((count + kBits - 1) / kBits));
    }

    const std::function<Select> *const clock = tarn_test::libc::select.replacement();
    std::mutex mutex;
    std::condition_variable changed;
    Answers answers;
    std::deque<Round> rounds;
    Round round;
    bool idle = false;
    std::vector<std::string> calls;
    std::vector<std::string> arguments;
    const void *argument = nullptr;
    std::vector<Selected> selected;
    std::vector<Received> received;
    char *buffer = nullptr;
    static inline State *latest;  // keeps it reachable: not a leak
  };

  State &state_;
  tarn_test::Replace<int(int, int, int)> socket_{
      tarn_test::libc::socket, [&state = state_](int domain, int type, int protocol) {
        const int result = state.call(line("socket %d %d %d", domain, type, protocol), state.answers.socket_error);
        return result == 0 ? state.answers.sock : -1;
      }};
  tarn_test::Replace<int(int, const sockaddr *, socklen_t)> bind_{
      tarn_test::libc::bind, [&state = state_](int sock, const sockaddr *address, socklen_t size) {
        const std::string bytes(reinterpret_cast<const char *>(address), size);
        return state.call(line("bind %d ", sock) + hex(bytes), state.answers.bind_error);
      }};
  tarn_test::Replace<pid_t()> getppid_{tarn_test::libc::getppid, [&state = state_] {
                                         state.note("getppid");
                                         return state.answers.parent;
                                       }};
  tarn_test::Replace<int(const char *, int, mode_t)> open_{
      tarn_test::libc::open,
      [&state = state_](const char *path, int flags, mode_t mode) { return state.open(path, flags, mode); }};
  tarn_test::Replace<int(int, unsigned long, void *)> ioctl_{
      tarn_test::libc::ioctl,
      [&state = state_](int file, unsigned long request, void *data) { return state.ioctl(file, request, data); }};
  // Fails: its result is ignored, and its errno is not that of another call.
  tarn_test::Replace<int(int)> close_{tarn_test::libc::close,
                                      [&state = state_](int file) { return state.call(line("close %d", file), EIO); }};
  tarn_test::Replace<Select> select_{tarn_test::libc::select, [&state = state_](int count, fd_set *read, fd_set *write,
                                                                                fd_set *except, timeval *timeout) {
                                       return state.select(count, read, write, except, timeout);
                                     }};
  tarn_test::Replace<Receive> recvfrom_{
      tarn_test::libc::recvfrom,
      [&state = state_](int sock, void *data, size_t size, int flags, sockaddr *from, socklen_t *from_size) {
        return state.recvfrom(sock, data, size, flags, from, from_size);
      }};
};

}  // namespace event_test

#endif
