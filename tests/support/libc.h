// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The calls that libtarn.so makes to libc, under the control of the test.
//
// A test program defines these functions itself. Calls from the library go to the test's replacement while there is
// one; all other calls go to libc:
//
//   Replace no_memory(libc::malloc, [](size_t) -> void * { return nullptr; });
//
// A replacement may call `libc::malloc.real(size)`. It may run on a thread of the library: install it before the
// library starts one, or while that thread sleeps on a VirtualClock.
//
// access, bind, fopen, open, socket and sendto belong to the desktop shim, which redirects them for the whole process;
// their replacements see the calls of the test too.
#ifndef TARN_TESTS_SUPPORT_LIBC_H
#define TARN_TESTS_SUPPORT_LIBC_H

#include <mqueue.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <functional>
#include <utility>

namespace tarn_test {

template <typename Signature>
class Call;

template <typename Result, typename... Args>
class Call<Result(Args...)> {
 public:
  using Function = Result (*)(Args...);
  using Replacement = std::function<Result(Args...)>;

  explicit constexpr Call(Function own) : real_(own) {}

  // libc's own.
  Result real(Args... args) const { return real_(args...); }

  // Called by the interposed function for a call from the library.
  Result operator()(Args... args) const {
    const Replacement *replacement = replacement_.load(std::memory_order_acquire);
    return replacement == nullptr ? real_(args...) : (*replacement)(args...);
  }

  // The current replacement, for a new one that calls it; null when it is libc's own function.
  const Replacement *replacement() const { return replacement_.load(std::memory_order_acquire); }

  // Returns the previous replacement.
  const Replacement *exchange(const Replacement *replacement) { return replacement_.exchange(replacement); }

 private:
  Function real_;
  std::atomic<const Replacement *> replacement_{nullptr};
};

// Puts a replacement in place for a scope; scopes nest. The function object lives until the process ends: a thread of
// the library may be about to call it when the scope ends.
template <typename Signature>
class Replace {
 public:
  template <typename F>
  Replace(Call<Signature> &call, F replacement)
      : call_(call), before_(call.exchange(&(new Kept(std::move(replacement)))->function)) {}
  ~Replace() { call_.exchange(before_); }
  Replace(const Replace &) = delete;
  Replace &operator=(const Replace &) = delete;

 private:
  // Every function is reachable from the latest: none of them is a leak.
  struct Kept {
    template <typename F>
    explicit Kept(F replacement) : function(std::move(replacement)), before(latest.exchange(this)) {}

    const typename Call<Signature>::Replacement function;
    const Kept *const before;
    static inline std::atomic<const Kept *> latest{nullptr};
  };

  Call<Signature> &call_;
  const typename Call<Signature>::Replacement *const before_;
};

template <typename Signature, typename F>
Replace(Call<Signature> &, F) -> Replace<Signature>;

namespace libc {

extern Call<void *(size_t)> malloc;
extern Call<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select;
extern Call<int(clockid_t, timespec *)> clock_gettime;
extern Call<int(timeval *, void *)> gettimeofday;
extern Call<time_t(time_t *)> time;
extern Call<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> pthread_create;
extern Call<int(pthread_attr_t *, size_t)> pthread_attr_setstacksize;
extern Call<int(sem_t *, const timespec *)> sem_timedwait;
// mq_open with the library's arguments, including a mode and attributes.
extern Call<mqd_t(const char *, int, mode_t, mq_attr *)> mq_open;
// The argument of an ioctl of the library is always a pointer.
extern Call<int(int, unsigned long, void *)> ioctl;
extern Call<ssize_t(int, void *, size_t)> read;
extern Call<int(const char *, int)> access;
extern Call<FILE *(const char *, const char *)> fopen;
extern Call<int(const char *, int, mode_t)> open;
extern Call<int(int, int, int)> socket;
extern Call<int(int, const sockaddr *, socklen_t)> bind;
extern Call<ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t)> sendto;
extern Call<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)> recvfrom;
extern Call<int(int)> close;
extern Call<pid_t()> getppid;

}  // namespace libc

// Makes `count` successive allocations of the library fail, from the `nth` on, counted from 1.
class FailingMalloc {
 public:
  explicit FailingMalloc(int nth, int count = 1);
  // Allocations seen, including failed ones.
  int seen() const { return seen_; }

 private:
  bool fails();

  const int first_;
  const int last_;
  std::atomic<int> seen_{0};
  Replace<void *(size_t)> malloc_;
};

}  // namespace tarn_test

#endif
