// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The interposed functions. Built without sanitizers and without FORTIFY: this code is between them and libc.

#include "support/libc.h"

#include <dlfcn.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "sim/shim/shim.h"
#include "support/heap.h"
#include "support/library.h"

extern "C" {

// A sanitizer's allocator if there is one, else glibc's. Not found with dlsym, which itself allocates.
void *__interceptor_malloc(size_t size) __attribute__((weak));
void __interceptor_free(void *block) __attribute__((weak));
void *__libc_malloc(size_t size);
void __libc_free(void *block);

}  // extern "C"

namespace tarn_test {

namespace {

void *real_malloc(size_t size) {
  return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

void real_free(void *block) {
  if (__interceptor_free != nullptr) {
    __interceptor_free(block);
  } else {
    __libc_free(block);
  }
}

// The next definition of `name` after the test program's: a sanitizer's or libc's.
template <typename Function>
Function next(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int real_clock_gettime(clockid_t clock, timespec *now) {
  static const auto function = next<int (*)(clockid_t, timespec *)>("clock_gettime");
  return function(clock, now);
}

int real_gettimeofday(timeval *now, void *zone) {
  static const auto function = next<int (*)(timeval *, void *)>("gettimeofday");
  return function(now, zone);
}

time_t real_time(time_t *now) {
  static const auto function = next<time_t (*)(time_t *)>("time");
  return function(now);
}

int real_setstacksize(pthread_attr_t *attributes, size_t size) {
  static const auto function = next<int (*)(pthread_attr_t *, size_t)>("pthread_attr_setstacksize");
  return function(attributes, size);
}

int real_sem_timedwait(sem_t *sem, const timespec *deadline) {
  static const auto function = next<decltype(&::sem_timedwait)>("sem_timedwait");
  return function(sem, deadline);
}

mqd_t real_mq_open(const char *name, int flags, mode_t mode, mq_attr *attributes) {
  static const auto function = next<mqd_t (*)(const char *, int, ...)>("mq_open");
  return function(name, flags, mode, attributes);
}

ssize_t real_read(int file, void *data, size_t size) {
  static const auto function = next<ssize_t (*)(int, void *, size_t)>("read");
  return function(file, data, size);
}

// The shim's own functions; read before the test's trampolines replace them.
const auto g_shim_calls = tarn_sim::calls;

int real_access(const char *path, int mode) { return g_shim_calls.access(path, mode); }

FILE *real_fopen(const char *path, const char *mode) { return g_shim_calls.fopen(path, mode); }

int real_open(const char *path, int flags, mode_t mode) { return g_shim_calls.open(path, flags, mode); }

int real_socket(int domain, int type, int protocol) { return g_shim_calls.socket(domain, type, protocol); }

int real_bind(int sock, const sockaddr *address, socklen_t size) { return g_shim_calls.bind(sock, address, size); }

int real_ioctl(int file, unsigned long request, void *argument) { return g_shim_calls.ioctl(file, request, argument); }

int real_select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
  return g_shim_calls.select(count, read, write, except, timeout);
}

int real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) {
  return g_shim_calls.pthread_create(thread, attributes, entry, arg);
}

ssize_t real_recvfrom(int sock, void *data, size_t size, int flags, sockaddr *from, socklen_t *from_size) {
  static const auto function = next<ssize_t (*)(int, void *, size_t, int, sockaddr *, socklen_t *)>("recvfrom");
  return function(sock, data, size, flags, from, from_size);
}

int real_close(int file) {
  static const auto function = next<int (*)(int)>("close");
  return function(file);
}

pid_t real_getppid() {
  static const auto function = next<pid_t (*)()>("getppid");
  return function();
}

ssize_t real_sendto(int sock, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size) {
  return g_shim_calls.sendto(sock, data, size, flags, to, to_size);
}

}  // namespace

namespace libc {

constinit Call<void *(size_t)> malloc{real_malloc};
constinit Call<int(int, fd_set *, fd_set *, fd_set *, timeval *)> select{real_select};
constinit Call<int(clockid_t, timespec *)> clock_gettime{real_clock_gettime};
constinit Call<int(timeval *, void *)> gettimeofday{real_gettimeofday};
constinit Call<time_t(time_t *)> time{real_time};
constinit Call<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)> pthread_create{real_pthread_create};
constinit Call<int(pthread_attr_t *, size_t)> pthread_attr_setstacksize{real_setstacksize};
constinit Call<int(sem_t *, const timespec *)> sem_timedwait{real_sem_timedwait};
constinit Call<mqd_t(const char *, int, mode_t, mq_attr *)> mq_open{real_mq_open};
constinit Call<int(int, unsigned long, void *)> ioctl{real_ioctl};
constinit Call<ssize_t(int, void *, size_t)> read{real_read};
constinit Call<int(const char *, int)> access{real_access};
constinit Call<FILE *(const char *, const char *)> fopen{real_fopen};
constinit Call<int(const char *, int, mode_t)> open{real_open};
constinit Call<int(int, int, int)> socket{real_socket};
constinit Call<int(int, const sockaddr *, socklen_t)> bind{real_bind};
constinit Call<ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t)> sendto{real_sendto};
constinit Call<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)> recvfrom{real_recvfrom};
constinit Call<int(int)> close{real_close};
constinit Call<pid_t()> getppid{real_getppid};

}  // namespace libc

namespace {

[[maybe_unused]] const bool g_shim_trampolines = [] {
  tarn_sim::calls.access = [](const char *path, int mode) { return libc::access(path, mode); };
  tarn_sim::calls.fopen = [](const char *path, const char *mode) { return libc::fopen(path, mode); };
  tarn_sim::calls.open = [](const char *path, int flags, mode_t mode) { return libc::open(path, flags, mode); };
  tarn_sim::calls.socket = [](int domain, int type, int protocol) { return libc::socket(domain, type, protocol); };
  tarn_sim::calls.bind = [](int sock, const sockaddr *address, socklen_t size) {
    return libc::bind(sock, address, size);
  };
  tarn_sim::calls.sendto = [](int sock, const void *data, size_t size, int flags, const sockaddr *to,
                              socklen_t to_size) { return libc::sendto(sock, data, size, flags, to, to_size); };
  return true;
}();

}  // namespace

FailingMalloc::FailingMalloc(int nth, int count)
    : first_(nth),
      last_(nth + count - 1),
      malloc_(libc::malloc, [this](size_t size) { return fails() ? nullptr : libc::malloc.real(size); }) {}

bool FailingMalloc::fails() {
  const int number = ++seen_;
  if (number < first_ || number > last_) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace tarn_test

// ---- libc's names --------------------------------------------------------------------------------------------------

#define FROM_LIBRARY tarn_test::is_in_library(__builtin_return_address(0))

extern "C" {

void *malloc(size_t size) {
  if (!FROM_LIBRARY) return tarn_test::libc::malloc.real(size);
  void *block = tarn_test::libc::malloc(size);
  tarn_test::note_allocated(block);
  return block;
}

void free(void *block) {
  tarn_test::note_freed(block);  // recognised by the block: the library frees in tail position
  tarn_test::real_free(block);
}

int select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout) {
  const auto &call = tarn_test::libc::select;
  return FROM_LIBRARY ? call(count, read, write, except, timeout) : call.real(count, read, write, except, timeout);
}

int clock_gettime(clockid_t clock, timespec *now) noexcept {
  const auto &call = tarn_test::libc::clock_gettime;
  return FROM_LIBRARY ? call(clock, now) : call.real(clock, now);
}

int gettimeofday(timeval *now, void *zone) noexcept {
  const auto &call = tarn_test::libc::gettimeofday;
  return FROM_LIBRARY ? call(now, zone) : call.real(now, zone);
}

time_t time(time_t *now) noexcept {
  const auto &call = tarn_test::libc::time;
  return FROM_LIBRARY ? call(now) : call.real(now);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) noexcept {
  const auto &call = tarn_test::libc::pthread_create;
  return FROM_LIBRARY ? call(thread, attributes, entry, arg) : call.real(thread, attributes, entry, arg);
}

int pthread_attr_setstacksize(pthread_attr_t *attributes, size_t size) noexcept {
  const auto &call = tarn_test::libc::pthread_attr_setstacksize;
  return FROM_LIBRARY ? call(attributes, size) : call.real(attributes, size);
}

int ioctl(int file, unsigned long request, ...) noexcept {
  va_list args;
  va_start(args, request);
  void *argument = va_arg(args, void *);
  va_end(args);
  const auto &call = tarn_test::libc::ioctl;
  return FROM_LIBRARY ? call(file, request, argument) : call.real(file, request, argument);
}

ssize_t read(int file, void *data, size_t size) {
  const auto &call = tarn_test::libc::read;
  return FROM_LIBRARY ? call(file, data, size) : call.real(file, data, size);
}

int sem_timedwait(sem_t *sem, const timespec *deadline) {
  const auto &call = tarn_test::libc::sem_timedwait;
  return FROM_LIBRARY ? call(sem, deadline) : call.real(sem, deadline);
}

ssize_t recvfrom(int sock, void *data, size_t size, int flags, sockaddr *from, socklen_t *from_size) {
  const auto &call = tarn_test::libc::recvfrom;
  return FROM_LIBRARY ? call(sock, data, size, flags, from, from_size)
                      : call.real(sock, data, size, flags, from, from_size);
}

int close(int file) {
  const auto &call = tarn_test::libc::close;
  return FROM_LIBRARY ? call(file) : call.real(file);
}

pid_t getppid() noexcept {
  const auto &call = tarn_test::libc::getppid;
  return FROM_LIBRARY ? call() : call.real();
}

mqd_t mq_open(const char *name, int flags, ...) noexcept {
  mode_t mode = 0;
  mq_attr *attributes = nullptr;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    attributes = va_arg(args, mq_attr *);
    va_end(args);
  }
  const auto &call = tarn_test::libc::mq_open;
  return FROM_LIBRARY ? call(name, flags, mode, attributes) : call.real(name, flags, mode, attributes);
}

}  // extern "C"
