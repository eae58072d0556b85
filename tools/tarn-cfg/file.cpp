// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Files that have their old or their new content after a loss of power.
//
// New bytes are written to a temporary file in the same folder, and to the disk. A rename, which is atomic, replaces
// the file. Then the folder, which has the name, is written to the disk. A killed run may leave the temporary file,
// which the next run removes.

#include "file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/report.h"

namespace tarn_tools::cfg {

namespace {

Bytes read_all(const std::string &path, int file) {
  Bytes bytes;
  uint8_t block[65536];
  for (;;) {
    const ssize_t got = read(file, block, sizeof block);
    if (got == 0) return bytes;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail_with_errno("%s: at 0x%zx: cannot be read", path.c_str(), bytes.size());
    bytes.insert(bytes.end(), block, block + got);
    if (bytes.size() > kMaxFileSize) fail("%s: larger than %s", path.c_str(), counted(kMaxFileSize, "byte").c_str());
  }
}

// Returns 0, or the error number.
int write_all(int file, View bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return errno;
    if (written > 0) bytes = bytes.subspan(static_cast<size_t>(written));
  }
  return 0;
}

// Gives a new file the owner and the mode of another; the owner first, because its change clears bits of the mode.
int take_after(int file, const struct stat &like) {
  struct stat now;
  if (fstat(file, &now) != 0) return errno;
  const bool same_owner = now.st_uid == like.st_uid && now.st_gid == like.st_gid;
  if (!same_owner && fchown(file, like.st_uid, like.st_gid) != 0) return errno;
  return fchmod(file, like.st_mode & ALLPERMS) == 0 ? 0 : errno;
}

// The file that `path` refers to through symbolic links; `path` itself if there is no such file.
std::string resolved(const std::string &path) {
  char *real = realpath(path.c_str(), nullptr);
  if (real == nullptr) return path;
  std::string found = real;
  free(real);
  return found;
}

}  // namespace

Bytes read_file(const std::string &path) {
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // does not wait at a pipe
  if (file < 0) fail_with_errno("%s: cannot be opened", path.c_str());
  struct stat status;
  if (fstat(file, &status) != 0) fail_with_errno("%s: cannot be read", path.c_str());
  if (!S_ISREG(status.st_mode)) fail("%s: is not a regular file", path.c_str());
  Bytes bytes = read_all(path, file);
  (void)close(file);  // read only: nothing to lose
  return bytes;
}

Bytes read_input(const std::string &path) {
  return path == "-" ? read_all("standard input", STDIN_FILENO) : read_file(path);
}

Place::Place(std::string path) : path_(std::move(path)) {
  const std::string real = resolved(path_);
  const size_t slash = real.rfind('/');
  folder_path_ = slash == std::string::npos ? "" : real.substr(0, slash + 1);
  name_ = slash == std::string::npos ? real : real.substr(slash + 1);
  if (name_.empty()) fail("%s: does not name a file", path_.c_str());
  temporary_ = name_ + ".tarn-cfg";
  const char *folder = folder_path_.empty() ? "." : folder_path_.c_str();
  folder_ = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder_ < 0) fail_with_errno("%s: folder %s", path_.c_str(), folder);
  while (flock(folder_, LOCK_EX) != 0) {
    if (errno != EINTR) fail_with_errno("%s: folder %s cannot be locked", path_.c_str(), folder);
  }
}

Place::~Place() { (void)close(folder_); }  // this also releases the lock

bool Place::exists() const { return has_beside(""); }

void Place::give_up(const char *what) const {
  const int error = errno;
  (void)unlinkat(folder_, temporary_.c_str(), 0);
  errno = error;
  fail_with_errno("%s: not written: %s", path_.c_str(), what);
}

void Place::write_temporary(View bytes, Like like) const {
  (void)unlinkat(folder_, temporary_.c_str(), 0);  // a file that a killed run left
  const int file = openat(folder_, temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) fail_with_errno("%s: not written: the temporary file %s", path_.c_str(), temporary_.c_str());
  int error = like == nullptr ? 0 : take_after(file, *like);
  if (error != 0) {
    errno = error;
    give_up("the new file cannot have its mode and owner");
  }
  error = write_all(file, bytes);
  if (error == 0 && fsync(file) != 0) error = errno;
  if (close(file) != 0 && error == 0) error = errno;  // some file systems report only here that a write failed
  if (error != 0) {
    errno = error;
    give_up("the temporary file");
  }
}

struct stat Place::status() const {
  struct stat status;
  if (fstatat(folder_, name_.c_str(), &status, 0) != 0) fail_with_errno("%s: cannot be read", path_.c_str());
  return status;
}

void Place::replace(View bytes) const {
  const struct stat like = status();
  if (!S_ISREG(like.st_mode)) fail("%s: is not a regular file", path_.c_str());  // a device would be lost
  // A rename needs permission only for the folder.
  if (faccessat(folder_, name_.c_str(), W_OK, AT_EACCESS) != 0) fail_with_errno("%s: not written", path_.c_str());
  write_temporary(bytes, &like);
  if (renameat(folder_, temporary_.c_str(), folder_, name_.c_str()) != 0) give_up("rename");
  sync_folder();
}

bool Place::make_as(View bytes, const std::string &name, Like like) const {
  write_temporary(bytes, like);
  if (renameat2(folder_, temporary_.c_str(), folder_, name.c_str(), RENAME_NOREPLACE) != 0) {
    if (errno != EEXIST) give_up("rename");
    (void)unlinkat(folder_, temporary_.c_str(), 0);
    return false;
  }
  sync_folder();
  return true;
}

bool Place::make(View bytes) const { return make_as(bytes, name_, nullptr); }

bool Place::has_beside(const std::string &suffix) const {
  return faccessat(folder_, (name_ + suffix).c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

std::string Place::keep(View bytes, const std::string &suffix) const {
  const struct stat like = status();
  if (!make_as(bytes, name_ + suffix, &like)) fail("%s%s: is there", path_.c_str(), suffix.c_str());
  return folder_path_ + name_ + suffix;
}

void Place::sync_folder() const {
  // EINVAL: the file system does not need this call for folders.
  if (fsync(folder_) != 0 && errno != EINVAL)
    fail_with_errno("%s: written, but a loss of power may undo it", path_.c_str());
}

}  // namespace tarn_tools::cfg
