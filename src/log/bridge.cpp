// The kernel bridge: framed messages picked out of the kernel's stream and logged under their modules.
//
//   <jxlog-MM?L?TEXT<jxlog>     MM: module, two digits; L: level, one digit; ?: any character
//
// What may still become a frame is held for the next read: a frame whose end has not come, or the last bytes, in which
// a start marker may begin. A marker counts once a byte stands behind it.

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

// What cannot be told apart is logged as the fourth module's.
constexpr u8 kOverflowModule = 3;

// Deliberate: a character that is no digit counts all the same, modulo 256. Held by
// LogBridge.TakesAnyCharacterForADigit.
u8 digit(char c) { return static_cast<u8>(c - '0'); }

class Stream {
 public:
  // A read that gave nothing, or failed, takes nothing in.
  bool take_in(int file) {
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
  // Logs the frames that are complete and returns where what must be held begins.
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

  // The first place of a marker from `from` on that a byte stands behind; npos for none.
  size_t find(std::string_view marker, size_t from) const {
    return std::string_view(buffer_, held_ - 1).find(marker, from);
  }

  // Deliberate: of a frame that ends before its text begins, what stands behind its end is logged. Held by
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

  // Everything behind what is held stays zero: it ends the texts.
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
    if (stream.take_in(file)) stream.log_frames();
    mu_sleep(kPauseMs);
  }
}
