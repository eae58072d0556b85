// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "root.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "console.h"
#include "listener.h"
#include "sim/wire.h"

namespace tarn_sim {

namespace fs = std::filesystem;

Root::Root(const std::string &path) {
  if (make(path) && take()) return;
  lock_.reset();
}

Root::~Root() {
  if (!is_temporary_) return;
  std::error_code error;
  fs::remove_all(path_, error);
  if (error) report(path_ + ": " + error.message());
}

bool Root::make(const std::string &path) {
  std::error_code error;
  if (path.empty()) {
    std::string pattern = "/tmp/tarn-sim-XXXXXX";
    is_temporary_ = mkdtemp(pattern.data()) != nullptr;
    if (!is_temporary_) report(pattern + ": " + strerror(errno));
    path_ = pattern;
    if (!is_temporary_) return false;
  } else {
    fs::create_directories(path, error);
    if (!error) path_ = fs::canonical(path, error).string();
  }
  for (const char *folder : {"/overlay", "/dev", "/proc"}) {
    if (!error) fs::create_directories(below(folder), error);
  }
  if (error) report((path_.empty() ? path : path_) + ": " + error.message());
  return !error;
}

// The lock is on the folder itself, and ends with the process.
bool Root::take() {
  if (!fits_socket_address(below(kLogDevice))) {
    report(path_ + ": too long for the addresses of sockets below it: at most " +
           std::to_string(kLongestSocketPath - strlen(kLogDevice)) + " bytes");
    return false;
  }
  lock_ = Descriptor(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return true;
  report(path_ + ": " + (errno == EWOULDBLOCK ? "another tarn-sim runs there" : strerror(errno)));
  return false;
}

}  // namespace tarn_sim
