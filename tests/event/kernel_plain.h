// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The platform driver's part in the channel, in the test's hands: the device, the netlink socket, and what a loop that
// never ends is given to receive.
#ifndef TARN_TESTS_EVENT_KERNEL_PLAIN_H
#define TARN_TESTS_EVENT_KERNEL_PLAIN_H

#include <fcntl.h>
#include <linux/netlink.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/libc.h"
#include "tarn/event.h"

namespace event_plain {

using tarn_test::Replace;
namespace libc = tarn_test::libc;

using Bytes = std::vector<uint8_t>;

constexpr int kDevice = 9001;  // descriptors of this kernel: never real ones
constexpr int kSocket = 1000;
constexpr pid_t kParent = 4711;

// A datagram of the kernel: the header's three fields, then `data`. Numbers stand in the machine's byte order.
inline Bytes datagram(uint16_t type, uint16_t device_id, uint16_t length, size_t size = 24) {
  Bytes bytes(std::max<size_t>(size, 24));
  for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<uint8_t>(0xA0 + i);
  memcpy(&bytes[2], &length, 2);
  memcpy(&bytes[6], &type, 2);
  memcpy(&bytes[10], &device_id, 2);
  bytes.resize(size);
  return bytes;
}

// One round of the receive loop.
struct Round {
  int ready = 1;          // select's result
  bool is_in_set = true;  // whether the socket stays in the set
  ssize_t received = -1;  // recvfrom's result, and what it writes into the buffer
  Bytes bytes = {};

  static Round of(const Bytes &bytes) { return {1, true, static_cast<ssize_t>(bytes.size()), bytes}; }
};

// Every call of the channel to the system, in place of libc's, for the whole process: the event thread never ends, so
// neither does this. Make it with kernel(), which keeps it.
class Kernel {
 public:
  Kernel();

  struct Ioctl {
    int file;
    unsigned long request;
    std::array<uint8_t, 1024> argument;  // as much as the library's own buffers hold
  };

  struct Receive {
    int sock;
    size_t size;
    int flags;
    bool has_sender;
    socklen_t sender_size;
    uintptr_t buffer;
  };

  // What is answered.
  int socket_result = kSocket;
  int bind_errno = 0;
  int open_errno = 0;
  int ioctl_errno = 0;
  pid_t parent = kParent;
  std::function<void(void *argument)> answer;  // what the ioctl writes

  // What was called, in order, each call a word.
  std::vector<std::string> calls;
  std::string take_calls();

  // Arguments.
  std::array<int, 3> socket_arguments{};
  sockaddr_nl address{};
  socklen_t address_size = 0;
  int bind_sock = 0;
  std::string open_path;
  int open_flags = 0;
  std::vector<Ioctl> ioctls;
  std::vector<int> closed;
  int select_count = 0;
  bool select_had_other_arguments = false;
  bool select_set_was_exact = false;  // the socket and nothing else
  std::vector<Receive> receives;

  // Lets the loop, which runs on another thread, take one round; returns when it waits again.
  void run(const Round &round);

  // Waits until the loop waits in select for the first time.
  void settle();

 private:
  void note(const char *call) { calls.emplace_back(call); }
  bool is_set_exact(const fd_set *set) const;
  int wait_for_round(fd_set *read);

  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<Round> round_;
  bool waits_ = false;

  Replace<int(int, int, int)> socket_;
  Replace<int(int, const sockaddr *, socklen_t)> bind_;
  Replace<int(const char *, int, mode_t)> open_;
  Replace<int(int, unsigned long, void *)> ioctl_;
  Replace<int(int)> close_;
  Replace<pid_t()> getppid_;
  Replace<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select_;
  Replace<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)> recvfrom_;
};

inline Kernel &kernel() {
  static Kernel &only = *new Kernel;
  return only;
}

inline Kernel::Kernel()
    : socket_(libc::socket,
              [this](int domain, int type, int protocol) {
                note("socket");
                socket_arguments = {domain, type, protocol};
                if (socket_result < 0) errno = EPROTONOSUPPORT;
                return socket_result;
              }),
      bind_(libc::bind,
            [this](int sock, const sockaddr *to, socklen_t size) {
              note("bind");
              bind_sock = sock;
              memcpy(&address, to, std::min<size_t>(size, sizeof address));
              address_size = size;
              if (bind_errno == 0) return 0;
              errno = bind_errno;
              return -1;
            }),
      open_(libc::open,
            [this](const char *path, int flags, mode_t mode) {
              if (strncmp(path, "/dev/mu", 7) != 0) return libc::open.real(path, flags, mode);  // a sanitizer's
              note("open");
              open_path = path;
              open_flags = flags;
              if (open_errno == 0) return kDevice;
              errno = open_errno;
              return -1;
            }),
      ioctl_(libc::ioctl,
             [this](int file, unsigned long request, void *argument) {
               note("ioctl");
               Ioctl &call = ioctls.emplace_back(Ioctl{file, request, {}});
               mu_pal_hdr_t header;
               memcpy(&header, argument, sizeof header);
               memcpy(call.argument.data(), argument, std::min<size_t>(24u + header.length, 1024));
               if (answer) answer(argument);
               if (ioctl_errno == 0) return 0;
               errno = ioctl_errno;
               return -1;
             }),
      close_(libc::close,
             [this](int file) {
               note("close");
               closed.push_back(file);
               return 0;
             }),
      getppid_(libc::getppid,
               [this] {
                 note("getppid");
                 return parent;
               }),
      select_(libc::select,
              [this, clock = libc::select.replacement()](int count, fd_set *read, fd_set *write, fd_set *except,
                                                         timeval *timeout) {
                if (read == nullptr) {  // a sleep: the virtual clock's
                  return clock != nullptr ? (*clock)(count, read, write, except, timeout)
                                          : libc::select.real(count, read, write, except, timeout);
                }
                select_count = count;
                select_had_other_arguments = write != nullptr || except != nullptr || timeout != nullptr;
                select_set_was_exact = is_set_exact(read);
                return wait_for_round(read);
              }),
      recvfrom_(
          libc::recvfrom, [this](int sock, void *data, size_t size, int flags, sockaddr *from, socklen_t *from_size) {
            receives.push_back({sock, size, flags, from != nullptr, *from_size, reinterpret_cast<uintptr_t>(data)});
            if (from != nullptr) memset(from, 0x5A, sizeof(sockaddr_nl));  // there must be room for it
            if (round_->received < 0) errno = ENOBUFS;
            if (!round_->bytes.empty()) memcpy(data, round_->bytes.data(), round_->bytes.size());
            return round_->received;
          }) {}

inline std::string Kernel::take_calls() {
  std::string words;
  for (const std::string &call : calls) words += (words.empty() ? "" : " ") + call;
  calls.clear();
  return words;
}

inline bool Kernel::is_set_exact(const fd_set *set) const {
  const auto *words = reinterpret_cast<const unsigned long *>(set);
  for (int fd = 0; fd < select_count; fd++) {
    const bool is_in = ((words[fd / 64] >> (fd % 64)) & 1) != 0;
    if (is_in != (fd == socket_result)) return false;
  }
  return true;
}

// Called when the loop begins to wait: the round before is over.
inline int Kernel::wait_for_round(fd_set *read) {
  std::unique_lock lock(mutex_);
  round_.reset();
  waits_ = true;
  changed_.notify_all();
  changed_.wait(lock, [this] { return round_.has_value(); });
  waits_ = false;
  auto *words = reinterpret_cast<unsigned long *>(read);
  if (!round_->is_in_set) words[socket_result / 64] = 0;
  if (round_->ready < 0) errno = EINTR;
  return round_->ready;
}

inline void Kernel::run(const Round &round) {
  settle();
  std::unique_lock lock(mutex_);
  round_ = round;
  changed_.notify_all();
  changed_.wait(lock, [this] { return !round_.has_value(); });
}

inline void Kernel::settle() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return waits_; });
}

}  // namespace event_plain

#endif
