// libc's names, each handed to `calls`, and the calls as they are redirected. Built without FORTIFY, whose headers
// define some of these names themselves.

#include "shim.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>

#include "redirect.h"

namespace {

using tarn_sim::RedirectedPath;

// The definition of `name` behind this one: libc's, or a sanitizer's.
template <typename Function>
Function next(Function *cache, const char *name) {
  Function found = __atomic_load_n(cache, __ATOMIC_RELAXED);
  if (found == nullptr) {
    found = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
    __atomic_store_n(cache, found, __ATOMIC_RELAXED);
  }
  return found;
}

// Only libc's own signature can be named here: the wrapper below carries the same name.
#define NEXT(name, signature)              \
  [] {                                     \
    static signature cache;                \
    return next<signature>(&cache, #name); \
  }()

int redirected_open(const char *path, int flags, mode_t mode) {
  using Open = int (*)(const char *, int, ...);
  return NEXT(open, Open)(RedirectedPath(path).c_str(), flags, mode);
}

int redirected_openat(int folder, const char *path, int flags, mode_t mode) {
  using Openat = int (*)(int, const char *, int, ...);
  return NEXT(openat, Openat)(folder, RedirectedPath(path).c_str(), flags, mode);
}

FILE *redirected_fopen(const char *path, const char *mode) {
  using Fopen = FILE *(*)(const char *, const char *);
  return NEXT(fopen, Fopen)(RedirectedPath(path).c_str(), mode);
}

int redirected_access(const char *path, int mode) {
  using Access = int (*)(const char *, int);
  return NEXT(access, Access)(RedirectedPath(path).c_str(), mode);
}

int redirected_unlink(const char *path) {
  using Unlink = int (*)(const char *);
  return NEXT(unlink, Unlink)(RedirectedPath(path).c_str());
}

int next_socket(int domain, int type, int protocol) {
  using Socket = int (*)(int, int, int);
  return NEXT(socket, Socket)(domain, type, protocol);
}

bool is_datagram_socket(int sock) {
  int type = 0;
  socklen_t size = sizeof type;
  return getsockopt(sock, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM;
}

int redirected_bind(int sock, const sockaddr *address, socklen_t size) {
  using Bind = int (*)(int, const sockaddr *, socklen_t);
  const Bind bind_next = NEXT(bind, Bind);
  if (!tarn_sim::is_collector(address, size) || !is_datagram_socket(sock)) return bind_next(sock, address, size);
  const sockaddr_in stand_in = tarn_sim::loopback(tarn_sim::collector_port());
  return bind_next(sock, reinterpret_cast<const sockaddr *>(&stand_in), sizeof stand_in);
}

ssize_t redirected_sendto(int sock, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size) {
  using Sendto = ssize_t (*)(int, const void *, size_t, int, const sockaddr *, socklen_t);
  const Sendto send_next = NEXT(sendto, Sendto);
  if (!tarn_sim::is_collector(to, to_size) || !is_datagram_socket(sock)) {
    return send_next(sock, data, size, flags, to, to_size);
  }
  const in_port_t port = tarn_sim::collector_port();
  if (port == 0) return static_cast<ssize_t>(size);  // no collector: swallowed, as a network would
  const sockaddr_in stand_in = tarn_sim::loopback(port);
  return send_next(sock, data, size, flags, reinterpret_cast<const sockaddr *>(&stand_in), sizeof stand_in);
}

bool takes_mode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

}  // namespace

namespace tarn_sim {

Calls calls = {redirected_open,   redirected_openat, redirected_fopen, redirected_access,
               redirected_unlink, next_socket,       redirected_bind,  redirected_sendto};

}  // namespace tarn_sim

using tarn_sim::calls;

// ---- libc's names --------------------------------------------------------------------------------------------------
//
// On 64-bit Linux the large-file names are the same calls. The names with a 2 are what FORTIFY makes of an open without
// a mode.

extern "C" {

int open(const char *path, int flags, ...) {
  mode_t mode = 0;
  if (takes_mode(flags)) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  return calls.open(path, flags, mode);
}

int openat(int folder, const char *path, int flags, ...) {
  mode_t mode = 0;
  if (takes_mode(flags)) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  return calls.openat(folder, path, flags, mode);
}

int __open_2(const char *path, int flags);
int __open_2(const char *path, int flags) { return calls.open(path, flags, 0); }

int __openat_2(int folder, const char *path, int flags);
int __openat_2(int folder, const char *path, int flags) { return calls.openat(folder, path, flags, 0); }

FILE *fopen(const char *path, const char *mode) { return calls.fopen(path, mode); }

int access(const char *path, int mode) noexcept { return calls.access(path, mode); }

int unlink(const char *path) noexcept { return calls.unlink(path); }

int socket(int domain, int type, int protocol) noexcept { return calls.socket(domain, type, protocol); }

int bind(int sock, const sockaddr *address, socklen_t size) noexcept { return calls.bind(sock, address, size); }

ssize_t sendto(int sock, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size) {
  return calls.sendto(sock, data, size, flags, to, to_size);
}

int open64(const char *path, int flags, ...) __attribute__((alias("open")));
int openat64(int folder, const char *path, int flags, ...) __attribute__((alias("openat")));
int __open64_2(const char *path, int flags) __attribute__((alias("__open_2")));
int __openat64_2(int folder, const char *path, int flags) __attribute__((alias("__openat_2")));
FILE *fopen64(const char *path, const char *mode) __attribute__((alias("fopen")));

}  // extern "C"
