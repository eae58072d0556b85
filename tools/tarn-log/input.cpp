// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "input.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>

#include "common/report.h"

namespace tarn_tools::log {

namespace {

constexpr int kReadsMax = 8;
constexpr int kRestMs = 50;     // longer than a daemon needs to write a file
constexpr int kLooksMax = 100;  // five seconds
constexpr std::int64_t kNsPerMs = 1000000;
constexpr std::int64_t kMsPerS = 1000;

// A file that the destructor closes; standard input stays open.
class Input {
 public:
  explicit Input(const std::string &path)
      : is_ours_(path != kStandardInput), fd_(is_ours_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO) {}
  ~Input() {
    if (is_ours_ && fd_ >= 0) (void)close(fd_);  // read only: nothing left to lose
  }
  Input(const Input &) = delete;
  Input &operator=(const Input &) = delete;

  int fd() const { return fd_; }

 private:
  bool is_ours_;
  int fd_;
};

Content read_once(const std::string &path) {
  const Input input(path);
  if (input.fd() < 0) return {Reading::kFailed, "", strerror(errno)};
  Content content;
  std::array<char, 65536> piece;
  for (;;) {
    const ssize_t got = read(input.fd(), piece.data(), piece.size());
    if (got == 0) return content;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {Reading::kFailed, "", strerror(errno)};
    if (content.bytes.size() + static_cast<std::size_t>(got) > kContentMax) {
      return {Reading::kTooLarge, "", "not a log file: larger than " + counted(kContentMax, "byte")};
    }
    content.bytes.append(piece.data(), static_cast<std::size_t>(got));
  }
}

std::optional<struct stat> regular_file(const std::string &path) {
  struct stat status;
  if (path == kStandardInput || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return status;
}

// A time in the future does not show when the file was written: the clock was set, or the file is on another machine.
bool has_rested(const struct stat &status) {
  timespec now = {};
  (void)clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t age_ms = (std::int64_t{now.tv_sec} - status.st_mtim.tv_sec) * kMsPerS +
                              (std::int64_t{now.tv_nsec} - status.st_mtim.tv_nsec) / kNsPerMs;
  return age_ms >= kRestMs;
}

bool is_unchanged(const struct stat &before, const std::optional<struct stat> &after) {
  return after && before.st_ino == after->st_ino && before.st_size == after->st_size &&
         before.st_mtim.tv_sec == after->st_mtim.tv_sec && before.st_mtim.tv_nsec == after->st_mtim.tv_nsec;
}

}  // namespace

std::string shown_name(const std::string &path) { return path == kStandardInput ? "(standard input)" : path; }

Content read_settled(const std::string &path) {
  Content last = read_once(path);
  for (int reads = 1; last.reading == Reading::kDone && reads < kReadsMax; reads++) {
    Content again = read_once(path);
    if (again.reading == Reading::kDone && again.bytes == last.bytes) return last;
    last = std::move(again);
  }
  if (last.reading != Reading::kDone) return last;
  return {Reading::kChanging, "", "it is written without a pause, and cannot be read"};
}

Content read_at_rest(const std::string &path) {
  std::optional<Content> last;
  for (int looks = 0; looks < kLooksMax; looks++) {
    const std::optional<struct stat> before = regular_file(path);
    if (!before) return read_once(path);
    Content content = read_settled(path);
    if (content.reading != Reading::kDone && content.reading != Reading::kChanging) return content;
    if (content.reading == Reading::kDone) {
      if (has_rested(*before) && is_unchanged(*before, regular_file(path))) return content;
      if (last && last->reading == Reading::kDone && last->bytes == content.bytes)
        return content;  // the file did not change between the two reads
    }
    last = std::move(content);
    (void)poll(nullptr, 0, kRestMs);
  }
  return {Reading::kChanging, "", "it is written without a pause, and cannot be read"};
}

}  // namespace tarn_tools::log
