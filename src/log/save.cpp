// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Writes the rings to their files: each file whole and in place, in blocks of lines.

#include <algorithm>
#include <cstring>

#include "time_stamp.h"

using namespace tarn;
using namespace tarn::log;

namespace {

constexpr size_t kLineMax = 511;

// Guarded by the log mutex, which every save holds. Too large for the timer thread's stack.
char block[16384];

// A file that is written in blocks of lines.
class LineFile {
 public:
  explicit LineFile(const char *path) : file_(fopen(path, "w")) {
    if (file_) (void)setvbuf(file_.get(), nullptr, _IONBF, 0);  // the block is the buffer
  }
  ~LineFile() { flush(); }
  LineFile(const LineFile &) = delete;
  LineFile &operator=(const LineFile &) = delete;

  bool is_open() const { return file_ != nullptr; }

  // The block always has room for one more line.
  void put(std::string_view text) {
    copy_text(block + used_, text);
    used_ += text.size();
  }
  void end_line() {
    put("\n");
    if (used_ > sizeof block - kLineMax) flush();
  }

 private:
  // After a short write nothing more is written, even if there is room again: a later block would continue the broken
  // line, and a load would read the two as one record. The file is therefore always a prefix of the full content.
  void flush() {
    if (file_ && !is_cut_) is_cut_ = fwrite(block, 1, used_, file_.get()) != used_;
    used_ = 0;
  }

  File file_;
  size_t used_ = 0;
  bool is_cut_ = false;
};

// A stored text is one line of a file.
void blank_line_ends(char (&text)[MUP_LOG_TEXT_SIZE]) {
  std::transform(text, std::end(text), text, [](char c) { return c == '\r' || c == '\n' ? ' ' : c; });
}

static_assert(kStampSize + sizeof "[Emergency]" + MUP_LOG_NAME_SIZE + sizeof ":" + MUP_LOG_TEXT_SIZE <= kLineMax);

void put_records(LineFile &file, const Ring &ring) {
  StampWriter stamps;
  for (u32 age = 0; age < ring.size; age++) {
    mup_log_rec &record = ring.oldest(age);
    if (record.text[0] == '\0') continue;
    blank_line_ends(record.text);
    file.put(stamps.of(record.time));
    file.put("[");
    file.put(mup_log_level_str_get(record.level));
    file.put("]");
    file.put(module_name(record.module));
    file.put(":");
    file.put({record.text, strnlen(record.text, sizeof record.text)});
    file.end_line();
  }
}

void put_field(LineFile &file, std::string_view name, const char (&value)[32]) {
  file.put(name);
  file.put(":");
  file.put({value, strnlen(value, sizeof value)});
  file.put(";");
  file.end_line();
}

void put_header(LineFile &file, const mup_log_usr_header &header) {
  put_field(file, "Manufacturer", header.manufacturer);
  put_field(file, "ProductClass", header.product_class);
  put_field(file, "SerialNumber", header.serial_number);
  put_field(file, "IP", header.ip);
  put_field(file, "HWVer", header.hw_ver);
  put_field(file, "SWVer", header.sw_ver);
  file.end_line();
}

void save_system_ring() {
  LineFile file(control.sys_path);
  if (!file.is_open()) return;
  file.put(kSysMarker);
  put_records(file, system_ring());
}

void save_user_ring() {
  LineFile file(control.usr_path);
  if (!file.is_open()) return;
  put_header(file, control.usr_header);  // its empty last line makes the marker
  put_records(file, user_ring());
}

}  // namespace

mu_status_t mup_log_usr_savefile() {
  if (load_relaxed(control.dirty) == 0) return 0;
  ScopedLock lock(control.mutex);
  if ((control.dirty & kSysDirty) != 0) save_system_ring();
  if ((control.dirty & kUsrDirty) != 0) save_user_ring();
  // Deliberate: cleared even if a file could not be opened. Held by LogStoreSave.DoesNotTryAFileAgainThatDidNotOpen.
  store_relaxed(control.dirty, u8{0});
  return 0;
}
