// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The kernel bridge: finds framed messages in the kernel's stream and logs them under their modules.
//
//   <jxlog-MM?L?TEXT<jxlog>     MM: module, two digits; L: level, one digit; ?: any character
//
// Bytes that may still become a frame are held for the next read: a frame whose end has not arrived, or the last bytes,
// in which a start marker may begin. A marker counts only when a byte follows it.

#include <fcntl.h>
#include <semaphore.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "internal.h"

using namespace tarn;
using namespace tarn::log;

namespace {

constexpr size_t kReadSize = 512;
constexpr size_t kHeldMax = 512;
constexpr u32 kPauseMs = 100;

constexpr std::string_view kStart = "<jxlog-";
constexpr std::string_view kEnd = "<jxlog>";
constexpr size_t kMarkerSize = kStart.size();
static_assert(kEnd.size() == kMarkerSize);

// Positions in a frame.
constexpr size_t kModuleAt = 7;
constexpr size_t kLevelAt = 10;
constexpr size_t kTextAt = 12;

// Bytes that are not a frame are logged under the fourth module if they fill the buffer.
constexpr u8 kOverflowModule = 3;

// Deliberate: a character that is not a digit counts too, modulo 256. Held by LogBridge.TakesAnyCharacterForADigit.
u8 digit(char c) { return static_cast<u8>(c - '0'); }

class Stream {
 public:
  // False when nothing was read or the read failed.
  bool read_more(int file) {
    const ssize_t got = read(file, buffer_ + held_, kReadSize);
    if (got <= 0) return false;
    held_ += static_cast<size_t>(got);
    return true;
  }

  void log_frames() {
    drop(held_ <= kMarkerSize ? 0 : log_complete_frames());
    if (held_ > kHeldMax) log_overflow();
  }

 private:
  // Logs the complete frames. Returns the position of the first byte to hold.
  size_t log_complete_frames() {
    const size_t reach = held_ - kMarkerSize;
    size_t next = 0;
    for (;;) {
      const size_t start = find(kStart, next);
      if (start >= reach) return reach;
      const size_t end = find(kEnd, start);
      if (end >= reach) return start;
      log_frame(start, end);
      next = end + kMarkerSize;
    }
  }

  // The first position of a marker, from `from` on, that a byte follows; npos if there is none.
  size_t find(std::string_view marker, size_t from) const {
    return std::string_view(buffer_, held_ - 1).find(marker, from);
  }

  // Deliberate: for a frame that ends before its text begins, the bytes after its end are logged. Held by
  // LogBridge.LogsWhatFollowsAFrameTooShortForAText.
  void log_frame(size_t start, size_t end) {
    const char *frame = buffer_ + start;
    const auto module = static_cast<u8>(10 * digit(frame[kModuleAt]) + digit(frame[kModuleAt + 1]));
    const u8 level = digit(frame[kLevelAt]);  // may be the end marker's first byte
    buffer_[end] = '\0';
    mup_log_msg(0, module, level, MUP_LOG_NOPRINT, "%s\n", frame + kTextAt);
  }

  void log_overflow() {
    buffer_[held_ - 1] = '\0';
    mup_log_msg(0, kOverflowModule, MUP_LOG_INFO, MUP_LOG_NOPRINT, "%s\n", buffer_);
    drop(held_);
  }

  // All bytes after the held ones stay zero: they end the texts.
  void drop(size_t size) {
    memmove(buffer_, buffer_ + size, held_ - size);
    memset(buffer_ + held_ - size, 0, size);
    held_ -= size;
  }

  size_t held_ = 0;
  char buffer_[kHeldMax + kReadSize + 1] = {};
};

}  // namespace

void *log_msg_process(void *started) {
  if (started != nullptr) (void)sem_post(static_cast<sem_t *>(started));
  if (access("/overlay/klogd", F_OK) == 0) {
    mu_printf("Klogd enable!!\n");
    return nullptr;
  }
  const int file = open("/proc/kmsg", O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    mu_printf("Open kmsg fail! \n");
    return nullptr;
  }
  for (Stream stream;;) {
    if (stream.read_more(file)) stream.log_frames();
    mu_sleep(kPauseMs);
  }
}
