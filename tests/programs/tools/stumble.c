// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Preloaded into a program that writes a file. Counts its calls for files, writes one byte per call, and stops at the
// call with the number TARN_STUMBLE_AT. If TARN_STUMBLE is "kill", the program ends before the call; if it is "fail",
// the call fails with EIO. Without these, the names of the calls are written to TARN_STUMBLE_LOG, one per line.
//
// In a program that reads a file: when the file TARN_STUMBLE_REWRITE was read to its end, it is overwritten with the
// file TARN_STUMBLE_REWRITE_AS, as by another program. Both are in the program's folder.
#define _GNU_SOURCE

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static int calls;

static void note(const char *name) {
  const char *path = getenv("TARN_STUMBLE_LOG");
  if (path == NULL) return;
  const long file = syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (file < 0) abort();
  char line[32];
  const int length = snprintf(line, sizeof line, "%s\n", name);
  if (syscall(SYS_write, file, line, (size_t)length) != length || syscall(SYS_close, file) != 0) abort();
}

// Whether the call must fail.
static int stumbles(const char *name) {
  note(name);
  const char *at = getenv("TARN_STUMBLE_AT");
  calls++;
  if (at == NULL || atoi(at) != calls) return 0;
  if (strcmp(getenv("TARN_STUMBLE"), "kill") == 0) (void)raise(SIGKILL);
  errno = EIO;
  return 1;
}

static void *next(const char *name) {
  void *found = dlsym(RTLD_NEXT, name);
  if (found == NULL) abort();
  return found;
}

int openat(int folder, const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return stumbles("openat") ? -1 : (int)syscall(SYS_openat, folder, path, flags, mode);
}

ssize_t write(int file, const void *bytes, size_t size) {
  if (file <= STDERR_FILENO) return syscall(SYS_write, file, bytes, size);
  return stumbles("write") ? -1 : syscall(SYS_write, file, bytes, size != 0 ? 1 : size);
}

// Writes the bytes of one file to another, in place.
static void rewrite(const char *path, const char *source) {
  static char bytes[1 << 20];
  const long from = syscall(SYS_openat, AT_FDCWD, source, O_RDONLY);
  const long to = syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_TRUNC);
  const long size = syscall(SYS_read, from, bytes, sizeof bytes);
  if (from < 0 || to < 0 || size < 0 || syscall(SYS_write, to, bytes, size) != size) abort();
  if (syscall(SYS_close, from) != 0 || syscall(SYS_close, to) != 0) abort();
}

static int is_same_file(int file, const char *path) {
  struct stat one;
  struct stat other;
  return fstat(file, &one) == 0 && stat(path, &other) == 0 && one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

ssize_t read(int file, void *bytes, size_t size) {
  static int is_rewritten;
  const char *path = getenv("TARN_STUMBLE_REWRITE");
  const ssize_t got = syscall(SYS_read, file, bytes, size);
  if (path != NULL && got == 0 && !is_rewritten && is_same_file(file, path)) {
    is_rewritten = 1;
    rewrite(path, getenv("TARN_STUMBLE_REWRITE_AS"));
  }
  return got;
}

int fsync(int file) { return stumbles("fsync") ? -1 : (int)syscall(SYS_fsync, file); }

int fchmod(int file, mode_t mode) { return stumbles("fchmod") ? -1 : (int)syscall(SYS_fchmod, file, mode); }

int fchown(int file, uid_t owner, gid_t group) {
  return stumbles("fchown") ? -1 : (int)syscall(SYS_fchown, file, owner, group);
}

int renameat(int from_folder, const char *from, int to_folder, const char *to) {
  int (*call)(int, const char *, int, const char *) = NULL;
  *(void **)&call = next("renameat");
  return stumbles("renameat") ? -1 : call(from_folder, from, to_folder, to);
}

int renameat2(int from_folder, const char *from, int to_folder, const char *to, unsigned flags) {
  return stumbles("renameat2") ? -1 : (int)syscall(SYS_renameat2, from_folder, from, to_folder, to, flags);
}

int unlinkat(int folder, const char *path, int flags) {
  return stumbles("unlinkat") ? -1 : (int)syscall(SYS_unlinkat, folder, path, flags);
}
