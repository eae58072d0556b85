// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Log files read back into the rings.
//
// A file streams through one buffer of two chunks: the rest of the previous chunk, always less than a chunk, followed
// by the next chunk.

#include <unistd.h>

#include <cstring>

#include "time_stamp.h"

namespace tarn::log {

namespace {

constexpr size_t kChunkSize = 512;
constexpr size_t kBufferSize = 2 * kChunkSize;
constexpr size_t kLeastSize = 9;  // of a file with content
constexpr size_t kNameMax = 16;   // of a level's or a module's name

class Parser {
 public:
  Parser(FILE *file, const Ring &ring, char *buffer) : file_(file), ring_(ring), buffer_(buffer) {}

  // Loads the records after the marker. Returns their number.
  u32 run(std::string_view marker, const char *path) {
    const size_t first = read_chunk();
    if (first < kLeastSize || !drop_through(marker)) return 0;
    // A first read of less than a chunk is the whole file, and the first round loads it. Deliberate: a file of exactly
    // one chunk is not recognised as whole, and nothing of it is loaded. Held by
    // LogStoreLoad.TakesNothingFromAFileOf512Bytes.
    bool is_read = first < kChunkSize;
    while (is_read || read_chunk() > 0) {
      is_read = false;
      if (!take_lines()) break;
      if (held_ > kChunkSize) {
        mu_printf("Log file:%s Parse fail\n", path);
        break;
      }
    }
    return count_;
  }

 private:
  size_t read_chunk() {
    const size_t got = fread(buffer_ + held_, 1, kChunkSize, file_);
    held_ += got;
    return got;
  }

  void drop(size_t size) {
    held_ -= size;
    memmove(buffer_, buffer_ + size, held_);
  }

  // Deliberate: a marker at the very end of the first chunk is not found. Held by
  // LogStoreLoad.MissesAMarkerThatEndsWithTheFirstChunk.
  bool drop_through(std::string_view marker) {
    const size_t at = std::string_view(buffer_, held_ - 1).find(marker);
    if (at == std::string_view::npos) return false;
    drop(at + marker.size());
    return true;
  }

  // Loads every complete line. False when one of them ends the load.
  bool take_lines() {
    size_t begin = 0;
    while (char *end = static_cast<char *>(memchr(buffer_ + begin, '\n', held_ - begin))) {
      *end = '\0';
      if (!take_line(buffer_ + begin)) return false;  // NUL-terminated; a NUL in the line ends it earlier
      begin = static_cast<size_t>(end + 1 - buffer_);
    }
    drop(begin);
    return true;
  }

  bool take_line(std::string_view line) {
    if (count_ == ring_.size || !has_dashes(line)) return false;
    mup_log_rec &slot = ring_.slots[count_];
    slot.text[0] = '\0';
    if (!stamps_.read(line, &slot.time)) return false;
    std::string_view rest = slice(slice(line, line.find('[')), 1);
    const int level = find_level(take_name(&rest, ']'));
    const int module = find_module(take_name(&rest, ':'));
    if (module < 0 || level < 0) return false;
    slot.module = static_cast<u8>(module);
    slot.level = static_cast<u8>(level);
    slot.line = 0;
    rest = slice(rest, 0, sizeof slot.text - 1);
    copy_text(slot.text, rest);
    memset(slot.text + rest.size(), 0, sizeof slot.text - rest.size());
    if (!rest.empty()) count_++;  // the next line reuses the slot of an empty text
    return true;
  }

  // Returns the name before `closing` and removes both. Without a `closing`, the name has at most kNameMax characters.
  static std::string_view take_name(std::string_view *rest, char closing) {
    const std::string_view reach = slice(*rest, 0, kNameMax);
    const std::string_view name = slice(reach, 0, reach.find(closing));
    *rest = slice(*rest, name.size() + 1);
    return name;
  }

  FILE *file_;
  const Ring ring_;
  char *buffer_;
  size_t held_ = 0;
  u32 count_ = 0;
  StampReader stamps_;
};

// `fresh` is the content of a new file.
void load_file(const char *path, std::string_view marker, std::string_view fresh, const Ring &ring, char *buffer) {
  if (const File file{access(path, F_OK) == 0 ? fopen(path, "r") : nullptr}) {
    *ring.next = Parser(file.get(), ring, buffer).run(marker, path) & (ring.size - 1);
    return;
  }
  if (const File file{fopen(path, "w")}) (void)fwrite(fresh.data(), 1, fresh.size(), file.get());
  mu_printf("Log file:%s init\n", path);
}

}  // namespace

bool load_files() {
  const Owned<char> buffer = allocate<char>(kBufferSize);
  if (!buffer) return false;
  ScopedLock lock(control.mutex);
  // Deliberate: a new system file ends in a NUL, which the first save does not write. Held by
  // LogStore.MakesMissingFiles.
  constexpr std::string_view kFreshSystemFile("SysLog:\n", sizeof "SysLog:\n");
  load_file(control.sys_path, kSysMarker, kFreshSystemFile, system_ring(), buffer.get());
  load_file(control.usr_path, kUsrMarker, "", user_ring(), buffer.get());
  store_relaxed(control.dirty, u8{0});
  return true;
}

}  // namespace tarn::log
