// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The event thread when its wait fails, as every wait does after the socket was closed.

#include <gtest/gtest.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "support/console.h"
#include "support/libc.h"
#include "support/sandbox.h"
#include "tarn/event.h"

using namespace tarn_test;

namespace {

// The loop's calls of select, a word each: how a wait ended, or how long a pause was.
struct Rounds {
  std::vector<int> errors;  // of one wait after another; then a wait that does not end
  std::string calls;
  std::promise<void> waits_for_good;
  sem_t never;

  int wait(int count, fd_set *read) {
    const size_t number = waited++;
    if (number == errors.size()) {
      waits_for_good.set_value();
      for (;;) sem_wait(&never);
    }
    // The descriptor is closed: the system's own answer.
    if (errors[number] == EBADF) return libc::select.real(count, read, nullptr, nullptr, nullptr);
    errno = errors[number];
    return -1;
  }

  int select(int count, fd_set *read, const timeval *timeout) {
    if (read == nullptr) {
      calls += std::to_string(timeout->tv_sec * 1000 + timeout->tv_usec / 1000) + "ms ";
      return 0;
    }
    const int result = wait(count, read);
    calls += result < 0 ? std::string(strerrorname_np(errno)) + ' ' : "? ";
    return result;
  }

  size_t waited = 0;
};

// Runs the thread's body on a socket that is closed.
std::string calls_with(std::vector<int> errors) {
  static auto &rounds = *new Rounds;  // the thread waits on it until the process ends
  rounds.errors = std::move(errors);
  sem_init(&rounds.never, 0, 0);
  Sandbox sandbox;
  Console console;
  Replace socket(libc::socket, [](int, int, int) {
    const int sock = dup(STDIN_FILENO);
    close(sock);
    return sock;
  });
  Replace bind(libc::bind, [](int, const sockaddr *, socklen_t) { return 0; });
  Replace select(libc::select, [](int count, fd_set *read, fd_set *, fd_set *, timeval *timeout) {
    return rounds.select(count, read, timeout);
  });
  std::thread([] { remote_event_process(); }).detach();
  const auto waited = rounds.waits_for_good.get_future().wait_for(std::chrono::seconds(60));
  EXPECT_EQ(waited, std::future_status::ready) << "the thread does not come to its last wait";
  return rounds.calls;
}

}  // namespace

TEST(EventWait, PausesAfterEachFailure) {
  EXPECT_EQ(calls_with({EBADF, EBADF, ENOMEM}), "EBADF 100ms EBADF 100ms ENOMEM 100ms ");
}

TEST(EventWait, GoesOnAtOnceAfterASignal) { EXPECT_EQ(calls_with({EINTR, EBADF, EINTR}), "EINTR EBADF 100ms EINTR "); }
