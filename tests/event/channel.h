// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The kernel's side of the event channel, in the hands of a test: the socket, and a script of what arrives on it.
#ifndef TARN_TESTS_EVENT_CHANNEL_H
#define TARN_TESTS_EVENT_CHANNEL_H

#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "event/fixture.h"
#include "support/libc.h"

namespace event_test {

// A datagram's header, and `data` behind it.
inline std::string datagram(uint16_t device_id, uint16_t type, uint16_t length, const std::string &data = "") {
  std::string bytes(24, '\0');
  memcpy(&bytes[2], &length, 2);
  memcpy(&bytes[6], &type, 2);
  memcpy(&bytes[10], &device_id, 2);
  return bytes + data;
}

// One round of the receive loop.
struct Round {
  int selected = 1;        // what select returns
  bool in_set = true;      // whether it leaves the socket in the set
  std::string bytes = {};  // what arrives
  bool fails = false;      // recvfrom returns -1
};

inline Round arrives(std::string bytes) { return {1, true, std::move(bytes), false}; }
inline Round receive_fails() { return {1, true, "", true}; }

// What the calls were given.
struct Selected {
  int count;
  std::vector<int> files;  // in the read set
  bool others;             // a write set, an error set or a timeout
  bool operator==(const Selected &) const = default;
};

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

// Runs remote_event_process on a thread of its own, which never ends: it waits in select for more rounds. So does, for
// ever, the timer thread, were it sleeps. One a process.
class Channel {
 public:
  explicit Channel(int sock = 77, int port = 4321) : state_(*new State(sock, port)) {}

  std::vector<Selected> selected() const {
    std::lock_guard lock(state_.mutex);
    return state_.selected;
  }
  std::vector<Received> received() const {
    std::lock_guard lock(state_.mutex);
    return state_.received;
  }
  // The socket's set-up, call by call.
  std::vector<std::string> take_calls() {
    std::lock_guard lock(state_.mutex);
    return std::exchange(state_.calls, {});
  }
  void *buffer() const { return state_.buffer; }
  int sock() const { return state_.sock; }

  // Has socket or bind fail.
  void fail_socket(int error) { state_.socket_error = error; }
  void fail_bind(int error) { state_.bind_error = error; }

  void start() {
    std::thread(remote_event_process).detach();
    settle();
  }

  // Returns when all rounds are worked off.
  void feed(std::vector<Round> rounds) {
    {
      std::lock_guard lock(state_.mutex);
      state_.rounds.insert(state_.rounds.end(), rounds.begin(), rounds.end());
      state_.idle = false;
      state_.changed.notify_all();
    }
    settle();
  }

  // Waits for the event thread to wait.
  void settle() {
    std::unique_lock lock(state_.mutex);
    state_.changed.wait(lock, [&] { return state_.idle; });
  }

 private:
  // Outlives the test: threads wait in it until the process ends.
  struct State {
    State(int sock_, int port_) : sock(sock_), port(port_) { latest = this; }

    int select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
      std::unique_lock lock(mutex);
      if (read == nullptr) changed.wait(lock, [] { return false; });
      selected.push_back({count, files_in(count, read), write != nullptr || except != nullptr || timeout != nullptr});
      if (rounds.empty()) {
        idle = true;
        changed.notify_all();
        changed.wait(lock, [this] { return !rounds.empty(); });
      }
      round = rounds.front();
      rounds.pop_front();
      // As the kernel does: the set is left alone after an error.
      if (round.selected >= 0 && !(round.selected > 0 && round.in_set)) clear(count, read);
      errno = round.selected < 0 ? EINTR : 0;
      return round.selected;
    }

    ssize_t recvfrom(int from_sock, void *data, size_t size, int flags, sockaddr *from, socklen_t *from_size) {
      std::unique_lock lock(mutex);
      buffer = data;
      received.push_back({from_sock, size, flags, from != nullptr, from_size == nullptr ? 99 : *from_size});
      if (from != nullptr && from_size != nullptr) {
        memset(from, 0, std::min<size_t>(*from_size, kAddressSize));
        *from_size = kAddressSize;
      }
      if (round.fails) {
        errno = ENOBUFS;
        return -1;
      }
      const size_t got = std::min(size, round.bytes.size());
      memcpy(data, round.bytes.data(), got);
      return static_cast<ssize_t>(got);
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

    void note(std::string call) {
      std::lock_guard lock(mutex);
      calls.push_back(std::move(call));
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Round> rounds;
    Round round;
    bool idle = false;
    std::vector<std::string> calls;
    std::vector<Selected> selected;
    std::vector<Received> received;
    void *buffer = nullptr;
    const int sock;
    const int port;
    int socket_error = 0;
    int bind_error = 0;
    static inline State *latest;  // keeps it reachable: no leak
  };

  static std::string hex(const void *data, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; i++) text += line("%02x", static_cast<const unsigned char *>(data)[i]);
    return text;
  }

  using Select = int(int, fd_set *, fd_set *, fd_set *, timeval *);
  using Receive = ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *);

  State &state_;
  tarn_test::Replace<Select> select_{tarn_test::libc::select, [&state = state_](int count, fd_set *read, fd_set *write,
                                                                                fd_set *except, timeval *timeout) {
                                       return state.select(count, read, write, except, timeout);
                                     }};
  tarn_test::Replace<Receive> recvfrom_{
      tarn_test::libc::recvfrom,
      [&state = state_](int from_sock, void *data, size_t size, int flags, sockaddr *from, socklen_t *from_size) {
        return state.recvfrom(from_sock, data, size, flags, from, from_size);
      }};
  tarn_test::Replace<int(int, int, int)> socket_{tarn_test::libc::socket,
                                                 [&state = state_](int domain, int type, int protocol) {
                                                   state.note(line("socket %d %d %d", domain, type, protocol));
                                                   errno = state.socket_error;
                                                   return state.socket_error != 0 ? -1 : state.sock;
                                                 }};
  tarn_test::Replace<int(int, const sockaddr *, socklen_t)> bind_{
      tarn_test::libc::bind, [&state = state_](int bound, const sockaddr *address, socklen_t size) {
        state.note(line("bind %d ", bound) + hex(address, size));
        errno = state.bind_error;
        return state.bind_error != 0 ? -1 : 0;
      }};
  tarn_test::Replace<pid_t()> getppid_{tarn_test::libc::getppid, [&state = state_] {
                                         state.note("getppid");
                                         return static_cast<pid_t>(state.port);
                                       }};
  tarn_test::Replace<int(const char *, int, mode_t)> open_{tarn_test::libc::open, [](const char *, int, mode_t) {
                                                             return 88;  // the device
                                                           }};
  tarn_test::Replace<int(int, unsigned long, void *)> ioctl_{
      tarn_test::libc::ioctl, [&state = state_](int file, unsigned long request, void *arg) {
        state.note(line("ioctl %d %lx ", file, request) + hex(arg, 24) + line(" evt_dest %d", evt_dest));
        return 0;
      }};
  tarn_test::Replace<int(int)> close_{tarn_test::libc::close, [&state = state_](int file) {
                                        state.note(line("close %d", file));
                                        errno = EIO;
                                        return -1;
                                      }};
};

}  // namespace event_test

#endif
