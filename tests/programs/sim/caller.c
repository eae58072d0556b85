// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A daemon that does not know of the shim. It reads calls, one per line, from the UNIX socket that its first argument
// names, makes them, and answers each with "RESULT ERRNO HEX". The class Daemon of fixture.py sends them.

#define _GNU_SOURCE
#undef _FORTIFY_SOURCE

#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hammer.h"

// The functions that a fortified build calls instead.
int __open_2(const char *path, int flags);
int __open64_2(const char *path, int flags);
int __openat_2(int folder, const char *path, int flags);
int __openat64_2(int folder, const char *path, int flags);

enum { kMaxWords = 12, kMaxLine = 20000, kMaxBytes = 8192 };

static int talk = -1;
static volatile sig_atomic_t signals_seen;

static void answer(long result, const uint8_t *bytes, size_t length) {
  static const char digits[] = "0123456789abcdef";
  char line[kMaxLine];
  size_t end = (size_t)snprintf(line, sizeof line, "%ld %d ", result, result < 0 ? errno : 0);
  for (size_t i = 0; i < length; i++) {
    line[end++] = digits[bytes[i] >> 4];
    line[end++] = digits[bytes[i] & 15];
  }
  line[end++] = '\n';
  if (write(talk, line, end) != (ssize_t)end) _exit(99);
}

static size_t unhex(const char *text, uint8_t *bytes) {
  size_t count = 0;
  for (unsigned value; sscanf(text + 2 * count, "%2x", &value) == 1; count++) bytes[count] = (uint8_t)value;
  return count;
}

static int number(const char *word) { return word == NULL ? 0 : (int)strtol(word, NULL, 0); }

static int is(const char *word, const char *name) { return strcmp(word, name) == 0; }

// ---- Files ----------------------------------------------------------------------------------------------------------

static int open_as(const char *variant, const char *path, int flags, mode_t mode) {
  if (is(variant, "open")) return open(path, flags, mode);
  if (is(variant, "open64")) return open64(path, flags, mode);
  if (is(variant, "openat")) return openat(AT_FDCWD, path, flags, mode);
  if (is(variant, "openat64")) return openat64(AT_FDCWD, path, flags, mode);
  if (is(variant, "__open_2")) return __open_2(path, flags);
  if (is(variant, "__open64_2")) return __open64_2(path, flags);
  if (is(variant, "__openat_2")) return __openat_2(AT_FDCWD, path, flags);
  if (is(variant, "__openat64_2")) return __openat64_2(AT_FDCWD, path, flags);
  if (is(variant, "creat")) return creat(path, mode);
  if (is(variant, "creat64")) return creat64(path, mode);
  _exit(98);
}

static int fopen_as(const char *variant, const char *path, const char *mode) {
  FILE *file = is(variant, "fopen64") ? fopen64(path, mode) : fopen(path, mode);
  return file == NULL ? -1 : fileno(file);
}

// Reads the first line with a stream.
static void read_first_line(const char *variant, const char *path) {
  char line[kMaxBytes] = "";
  FILE *file = is(variant, "fopen64") ? fopen64(path, "re") : fopen(path, "r");
  const int result = file == NULL || fgets(line, sizeof line, file) == NULL ? -1 : 0;
  answer(result, (const uint8_t *)line, strlen(line));
  if (file != NULL) fclose(file);
}

// ---- Devices --------------------------------------------------------------------------------------------------------

// The argument's bytes. The page after them (with `at_start`, before them) is inaccessible. The rest of their own pages
// is filled, and checked afterwards.
static void guarded_ioctl(int file, unsigned long request, const char *hex, int at_start) {
  const size_t page = (size_t)sysconf(_SC_PAGESIZE);
  const size_t room = (kMaxBytes / page + 1) * page;
  uint8_t bytes[kMaxBytes];
  const size_t length = unhex(hex, bytes);
  uint8_t *map = mmap(NULL, room + 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  uint8_t *const first = map + page;
  uint8_t *const argument = at_start ? first : first + room - length;
  memset(first, 0xA5, room);
  memcpy(argument, bytes, length);
  mprotect(map, page, PROT_NONE);
  mprotect(first + room, page, PROT_NONE);
  const int result = ioctl(file, request, argument);
  const int error = errno;
  for (uint8_t *at = first; at < first + room; at++) {
    if ((at < argument || at >= argument + length) && *at != 0xA5) _exit(97);
  }
  errno = error;
  answer(result, argument, length);
  munmap(map, room + 2 * page);
}

// ---- Sockets --------------------------------------------------------------------------------------------------------

static int bind_netlink(int sock, int port, int length, int family) {
  struct sockaddr_nl to[4] = {{0}};
  to[0].nl_family = (sa_family_t)family;
  to[0].nl_pid = (uint32_t)port;
  return bind(sock, (const struct sockaddr *)to, (socklen_t)length);
}

static int bind_inet(int sock, const char *address, int port) {
  struct sockaddr_in to = {.sin_family = AF_INET, .sin_port = htons((uint16_t)port)};
  to.sin_addr.s_addr = htonl((uint32_t)strtoul(address, NULL, 16));
  return bind(sock, (const struct sockaddr *)&to, sizeof to);
}

static long send_inet(int sock, const char *address, int port, const char *hex) {
  uint8_t bytes[kMaxBytes];
  const size_t length = unhex(hex, bytes);
  struct sockaddr_in to = {.sin_family = AF_INET, .sin_port = htons((uint16_t)port)};
  to.sin_addr.s_addr = htonl((uint32_t)strtoul(address, NULL, 16));
  return sendto(sock, bytes, length, 0, (const struct sockaddr *)&to, sizeof to);
}

// The length of the sender's address, as the kernel reports it. A netlink socket has room for 12 bytes of it.
static long sender_size(int sock) {
  uint8_t bytes[kMaxBytes];
  struct sockaddr_nl from;
  socklen_t length = 0;
  const ssize_t got = recvfrom(sock, bytes, sizeof bytes, 0, (struct sockaddr *)&from, &length);
  return got < 0 ? got : (long)length;
}

// Waits for one or two descriptors; for ever if the limit is negative. Answers 1 for the first plus 2 for the second.
static void wait_readable(int first, int second, int limit_ms) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(first, &set);
  if (second >= 0) FD_SET(second, &set);
  struct timeval limit = {limit_ms / 1000, limit_ms % 1000 * 1000L};
  const int most = first > second ? first : second;
  const int ready = select(most + 1, &set, NULL, NULL, limit_ms < 0 ? NULL : &limit);
  uint8_t which = 0;
  if (ready > 0) which = (uint8_t)(FD_ISSET(first, &set) | (second >= 0 && FD_ISSET(second, &set) ? 2 : 0));
  answer(ready, &which, 1);
}

// ---- Threads, children, signals -------------------------------------------------------------------------------------

static int perform(char **word, int words);

static void *perform_in_thread(void *line) {
  char **const word = line;
  int words = 0;
  while (word[words] != NULL) words++;
  perform(word, words);
  return NULL;
}

struct thread_state {
  size_t stack, guard;
  int policy;
};

static void *report_thread(void *context) {
  struct thread_state *const state = context;
  pthread_attr_t self;
  pthread_getattr_np(pthread_self(), &self);
  pthread_attr_getstacksize(&self, &state->stack);
  pthread_attr_getguardsize(&self, &state->guard);
  pthread_attr_destroy(&self);
  state->policy = sched_getscheduler(0);
  return NULL;
}

// Creates a thread like the event channel's. Answers the result of pthread_create, its stack, guard and policy.
static void realtime_thread(int stack, int policy, int inherit) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, (size_t)stack);
  pthread_attr_setguardsize(&attributes, 8192);
  pthread_attr_setschedpolicy(&attributes, policy);
  const struct sched_param priority = {.sched_priority = policy == SCHED_OTHER ? 0 : 80};
  pthread_attr_setschedparam(&attributes, &priority);
  pthread_attr_setinheritsched(&attributes, inherit ? PTHREAD_INHERIT_SCHED : PTHREAD_EXPLICIT_SCHED);
  pthread_t id;
  struct thread_state state = {0, 0, 0};
  const int result = pthread_create(&id, &attributes, report_thread, &state);
  if (result == 0) pthread_join(id, NULL);
  pthread_attr_destroy(&attributes);
  char text[64];
  snprintf(text, sizeof text, "%zu %zu %d", state.stack, state.guard, state.policy);
  answer(result, (const uint8_t *)text, strlen(text));
}

static void seen(int signal_number) {
  (void)signal_number;
  signals_seen++;
}

// ---- Calls ----------------------------------------------------------------------------------------------------------

static int perform_file(char **word) {
  uint8_t bytes[kMaxBytes];
  if (is(word[0], "open")) return answer(open_as(word[1], word[2], number(word[3]), 0640), NULL, 0), 1;
  if (is(word[0], "fopen")) return answer(fopen_as(word[1], word[2], word[3]), NULL, 0), 1;
  if (is(word[0], "first-line")) return read_first_line(word[1], word[2]), 1;
  if (is(word[0], "access")) return answer(access(word[1], number(word[2])), NULL, 0), 1;
  if (is(word[0], "faccessat")) return answer(faccessat(AT_FDCWD, word[1], number(word[2]), 0), NULL, 0), 1;
  if (is(word[0], "unlink")) return answer(unlink(word[1]), NULL, 0), 1;
  if (is(word[0], "unlinkat")) return answer(unlinkat(AT_FDCWD, word[1], 0), NULL, 0), 1;
  if (is(word[0], "close")) return answer(close(number(word[1])), NULL, 0), 1;
  if (is(word[0], "dup")) return answer(dup(number(word[1])), NULL, 0), 1;
  if (is(word[0], "dup2")) return answer(dup2(number(word[1]), number(word[2])), NULL, 0), 1;
  if (is(word[0], "cloexec")) return answer(fcntl(number(word[1]), F_GETFD) & FD_CLOEXEC, NULL, 0), 1;
  if (is(word[0], "write")) {
    const size_t length = unhex(word[2], bytes);
    return answer(write(number(word[1]), bytes, length), NULL, 0), 1;
  }
  if (is(word[0], "read")) {
    const ssize_t got = read(number(word[1]), bytes, (size_t)number(word[2]));
    return answer(got, bytes, got < 0 ? 0 : (size_t)got), 1;
  }
  return 0;
}

static int perform_device(char **word) {
  if (is(word[0], "ioctl")) {
    const unsigned long request = strtoul(word[2], NULL, 0);
    return guarded_ioctl(number(word[1]), request, word[3] == NULL ? "" : word[3], word[4] != NULL), 1;
  }
  if (is(word[0], "ioctl-none")) return answer(ioctl(number(word[1]), strtoul(word[2], NULL, 0)), NULL, 0), 1;
  if (is(word[0], "ioctl-null")) return answer(ioctl(number(word[1]), strtoul(word[2], NULL, 0), NULL), NULL, 0), 1;
  if (is(word[0], "fionread")) {
    int count = -1;
    const int result = ioctl(number(word[1]), FIONREAD, &count);
    return answer(result < 0 ? result : count, NULL, 0), 1;
  }
  if (is(word[0], "hammer"))
    return answer(hammer_in_threads(number(word[1]), number(word[2]), number(word[3])), NULL, 0), 1;
  return 0;
}

static int perform_socket(char **word) {
  uint8_t bytes[kMaxBytes];
  if (is(word[0], "socket")) return answer(socket(number(word[1]), number(word[2]), number(word[3])), NULL, 0), 1;
  if (is(word[0], "bind-netlink"))
    return answer(bind_netlink(number(word[1]), number(word[2]), number(word[3]), number(word[4])), NULL, 0), 1;
  if (is(word[0], "bind-inet")) return answer(bind_inet(number(word[1]), word[2], number(word[3])), NULL, 0), 1;
  if (is(word[0], "send")) return answer(send(number(word[1]), bytes, unhex(word[2], bytes), 0), NULL, 0), 1;
  if (is(word[0], "sender-size")) return answer(sender_size(number(word[1])), NULL, 0), 1;
  if (is(word[0], "sendto")) return answer(send_inet(number(word[1]), word[2], number(word[3]), word[4]), NULL, 0), 1;
  if (is(word[0], "select")) return wait_readable(number(word[1]), number(word[2]), number(word[3])), 1;
  if (is(word[0], "recvfrom")) {
    struct sockaddr_nl from;
    socklen_t length = 0;
    const ssize_t got =
        recvfrom(number(word[1]), bytes, (size_t)number(word[2]), number(word[3]), (struct sockaddr *)&from, &length);
    return answer(got, bytes, got < 0 ? 0 : (size_t)got), 1;
  }
  return 0;
}

static int serve(void);

static int perform_process(char **word, int words) {
  if (is(word[0], "thread")) {
    pthread_t id;
    if (pthread_create(&id, NULL, perform_in_thread, word + 1) != 0) _exit(96);
    pthread_join(id, NULL);
    return 1;
  }
  if (is(word[0], "realtime")) return realtime_thread(number(word[1]), number(word[2]), number(word[3])), 1;
  if (is(word[0], "fork")) {  // the child continues; after its end, the parent continues
    const pid_t child = fork();
    if (child == 0) return answer(0, NULL, 0), 1;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    return answer(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), NULL, 0), 1;
  }
  if (is(word[0], "in-child")) {  // the child makes one call, and answers it
    const pid_t child = fork();
    if (child == 0) {
      perform(word + 1, words - 1);
      _exit(0);
    }
    while (waitpid(child, NULL, 0) < 0 && errno == EINTR) continue;
    return 1;
  }
  if (is(word[0], "exec")) {
    char descriptor[16];
    snprintf(descriptor, sizeof descriptor, "=%d", talk);
    execl("/proc/self/exe", "caller", descriptor, (char *)NULL);
    return answer(-1, NULL, 0), 1;
  }
  if (is(word[0], "ignore")) return answer(signal(number(word[1]), SIG_IGN) == SIG_ERR ? -1 : 0, NULL, 0), 1;
  if (is(word[0], "catch")) {
    struct sigaction action = {0};
    action.sa_handler = seen;
    action.sa_flags = SA_RESTART;
    return answer(sigaction(number(word[1]), &action, NULL), NULL, 0), 1;
  }
  if (is(word[0], "signals")) return answer(signals_seen, NULL, 0), 1;
  if (is(word[0], "env")) {
    const char *value = getenv(word[1]);
    return answer(value == NULL ? -1 : 0, (const uint8_t *)value, value == NULL ? 0 : strlen(value)), 1;
  }
  if (is(word[0], "getpid")) return answer(getpid(), NULL, 0), 1;
  if (is(word[0], "getppid")) return answer(getppid(), NULL, 0), 1;
  if (is(word[0], "exit")) exit(number(word[1]));
  return 0;
}

static int perform(char **word, int words) {
  if (perform_file(word) || perform_device(word) || perform_socket(word) || perform_process(word, words)) return 1;
  _exit(95);
}

// One byte at a time: the bytes after a line are for the next process that serves.
static int read_line(char *line) {
  size_t length = 0;
  while (length < kMaxLine - 1) {
    const ssize_t got = read(talk, line + length, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return 0;
    if (line[length] == '\n') break;
    length++;
  }
  line[length] = '\0';
  return 1;
}

static int serve(void) {
  char line[kMaxLine];
  while (read_line(line)) {
    char *word[kMaxWords + 1] = {NULL};
    int words = 0;
    for (char *at = strtok(line, " "); at != NULL && words < kMaxWords; at = strtok(NULL, " ")) word[words++] = at;
    perform(word, words);
  }
  return 0;
}

int main(int count, char **args) {
  if (count != 2) return 94;
  if (args[1][0] == '=') {
    talk = number(args[1] + 1);
  } else {
    struct sockaddr_un to = {.sun_family = AF_UNIX};
    snprintf(to.sun_path, sizeof to.sun_path, "%s", args[1]);
    talk = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(talk, (const struct sockaddr *)&to, sizeof to) != 0) return 93;
  }
  return serve();
}
