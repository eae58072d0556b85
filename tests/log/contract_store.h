// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The log with its files in a private overlay, and an independent reading of what the files say.
#ifndef TARN_TESTS_LOG_CONTRACT_STORE_H
#define TARN_TESTS_LOG_CONTRACT_STORE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "support/console.h"
#include "support/sandbox.h"
#include "support/virtual_clock.h"
#include "tarn/log.h"
#include "tarn/platform.h"

namespace tarn_test {

using Names = std::vector<std::string>;

inline constexpr const char *kLevelNames[] = {"Off",     "Emergency", "Alert", "Critical", "Error",
                                              "Warning", "Notice",    "Info",  "Debug"};
inline constexpr const char *kSysMarker = "SysLog:\n";
inline constexpr const char *kUsrMarker = "\n\n";
inline constexpr const char *kSysInitLine = "Log file:/overlay/mu_log.txt init\n";
inline constexpr const char *kUsrInitLine = "Log file:/overlay/user_log.txt init\n";
inline constexpr const char *kEmptyHeader =
    "Manufacturer:;\nProductClass:;\nSerialNumber:;\nIP:;\nHWVer:;\nSWVer:;\n\n";

inline std::string start_line(unsigned modules) {
  return "mu-log: init usr log OK (module_num " + std::to_string(modules) +
         ", max_log_num 1024, save_log_timer 3 seconds)\n";
}

// "m0", "m1", ...
inline Names numbered_names(unsigned count = 21) {
  Names names;
  for (unsigned i = 0; i < count; i++) names.push_back("m" + std::to_string(i));
  return names;
}

inline std::string module_table(const Names &names) {
  std::string table;
  for (std::string field : names) {
    field.resize(MUP_LOG_NAME_SIZE);
    table += field;
  }
  return table;
}

// A record without its line number.
struct Record {
  unsigned module = 0;
  unsigned level = 0;
  time_t time = 0;
  std::string text;

  bool operator==(const Record &) const = default;
};

inline void PrintTo(const Record &record, std::ostream *out) {
  *out << record.time << " [" << record.level << "]" << record.module << ":" << record.text;
}

inline std::string text_of(const mup_log_rec &slot) { return {slot.text, strnlen(slot.text, sizeof slot.text)}; }

// Whether a ring that was loaded holds exactly these records, from its first slot on, and every other slot is empty.
inline void expect_loaded(const mup_log_rec *ring, size_t size, uint32_t index, const std::vector<Record> &expected) {
  EXPECT_EQ(index, expected.size() % size);
  for (size_t i = 0; i < size; i++) {
    if (i >= expected.size()) {
      ASSERT_EQ(ring[i].text[0], '\0') << "slot " << i << " holds " << text_of(ring[i]);
    } else {
      const Record record = {ring[i].module, ring[i].level, ring[i].time, text_of(ring[i])};
      ASSERT_EQ(record, expected[i]) << "slot " << i;
      ASSERT_EQ(ring[i].line, 0u) << "slot " << i;
    }
  }
}

// ---- What a file says, read as naively as possible -----------------------------------------------------------------

struct Loaded {
  std::vector<Record> records;
  bool parse_failed = false;
};

enum class Line { kEnd, kEmpty, kRecord };

// The characters from `begin` up to `closing`, 16 at most; `begin` moves behind them.
inline std::string name_up_to(const std::string &line, size_t &begin, char closing) {
  std::string name;
  while (begin < line.size() && line[begin] != closing && name.size() < 16) name += line[begin++];
  if (begin < line.size() && line[begin] == closing) begin++;
  return name;
}

inline Line parse_line(const std::string &raw, const Names &names, Record &record) {
  const std::string line = raw.substr(0, raw.find('\0'));
  if (line.size() < 8 || line[4] != '-' || line[7] != '-') return Line::kEnd;
  tm fields = {};
  if (sscanf(line.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &fields.tm_year, &fields.tm_mon, &fields.tm_mday, &fields.tm_hour,
             &fields.tm_min, &fields.tm_sec) != 6) {
    return Line::kEnd;
  }
  fields.tm_year -= 1900;
  fields.tm_mon -= 1;
  fields.tm_isdst = 0;
  record.time = mktime(&fields);
  std::string level;
  std::string module;
  record.text.clear();
  size_t at = line.find('[');
  if (at != std::string::npos) {
    at++;
    level = name_up_to(line, at, ']');
    module = name_up_to(line, at, ':');
    record.text = line.substr(at, 255);
  }
  record.module = 0;
  while (record.module < names.size() && names[record.module] != module) record.module++;
  if (record.module == names.size()) return Line::kEnd;
  record.level = 0;
  while (record.level < std::size(kLevelNames) && kLevelNames[record.level] != level) record.level++;
  if (record.level == std::size(kLevelNames)) return Line::kEnd;
  return record.text.empty() ? Line::kEmpty : Line::kRecord;
}

inline Loaded load_model(const std::string &file, const std::string &marker, const Names &names, size_t ring_size) {
  Loaded loaded;
  const std::string first = file.substr(0, 512);
  if (first.size() < 9) return loaded;
  const size_t begin = first.find(marker);
  if (begin == std::string::npos || begin + marker.size() >= first.size()) return loaded;
  std::string held = first.substr(begin + marker.size());
  size_t next = first.size();
  for (bool first_round = true;; first_round = false) {
    if (!first_round || first.size() == 512) {
      const std::string chunk = file.substr(next, 512);
      if (chunk.empty()) return loaded;
      next += chunk.size();
      held += chunk;
    }
    for (size_t end; (end = held.find('\n')) != std::string::npos; held.erase(0, end + 1)) {
      if (loaded.records.size() == ring_size) return loaded;
      Record record;
      const Line line = parse_line(held.substr(0, end), names, record);
      if (line == Line::kEnd) return loaded;
      if (line == Line::kRecord) loaded.records.push_back(record);
    }
    if (held.size() > 512) {
      loaded.parse_failed = true;
      return loaded;
    }
  }
}

// A record as the files hold it. The text has no line ends any more.
inline std::string file_line(const Record &record, const Names &names) {
  tm fields = {};
  gmtime_r(&record.time, &fields);
  char stamp[64];
  snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d", fields.tm_year + 1900, fields.tm_mon + 1,
           fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
  return std::string(stamp) + "[" + (record.level <= 8 ? kLevelNames[record.level] : "") + "]" +
         (record.module < names.size() ? names[record.module] : "") + ":" + record.text + "\n";
}

inline std::string file_lines(const std::vector<Record> &records, const Names &names) {
  std::string lines;
  for (const Record &record : records) lines += file_line(record, names);
  return lines;
}

// ---- What a copy holds ---------------------------------------------------------------------------------------------

// Whether the piece of a line is a record's, and then with its stamp in local time.
inline bool to_local(std::string &piece) {
  if (piece.size() < 8 || piece[4] != '-' || piece[7] != '-') return false;
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (sscanf(piece.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &year, &month, &day, &hour, &minute, &second) != 6) return false;
  if (piece.find('\n') < 19 || piece.size() < 19) return false;
  if (month - 2 < 1) {
    month += 10;
    year -= 1;
  } else {
    month -= 2;
  }
  const int64_t days = int64_t{367} * month / 12 - year / 100 + year / 400 + year / 4 + day + int64_t{365} * year;
  const time_t time = ((days * 24 + hour) * 60 + minute) * 60 + second - 62164713600;
  tm local = {};
  localtime_r(&time, &local);
  char stamp[128];
  snprintf(stamp, sizeof stamp, "%04u-%02u-%02u %02u:%02u:%02u", static_cast<unsigned>(local.tm_year + 1900),
           static_cast<unsigned>(local.tm_mon + 1), static_cast<unsigned>(local.tm_mday),
           static_cast<unsigned>(local.tm_hour), static_cast<unsigned>(local.tm_min),
           static_cast<unsigned>(local.tm_sec));
  piece.replace(0, 19, stamp, 19);
  return true;
}

// The copy of a file without NULs. `module` null: no filter.
inline std::string copy_model(const std::string &file, const char *module, unsigned level_count) {
  std::string copy;
  for (size_t begin = 0; begin < file.size();) {
    size_t end = file.find('\n', begin);
    end = std::min({end == std::string::npos ? file.size() : end + 1, begin + 319, file.size()});
    std::string piece = file.substr(begin, end - begin);
    begin = end;
    const bool is_record = to_local(piece);
    bool wanted = !is_record || module == nullptr;
    if (!wanted && piece.find("]" + std::string(module) + ":") != std::string::npos) {
      for (unsigned level = 0; level < std::min<unsigned>(level_count, 9); level++) {
        wanted = wanted || piece.find(kLevelNames[level]) != std::string::npos;
      }
    }
    if (wanted) copy += piece;
  }
  return copy;
}

// ---- The log and its files -----------------------------------------------------------------------------------------

class Store {
 public:
  Store() { set_zone("UTC0"); }
  ~Store() {
    release();
    unsetenv("TZ");
    tzset();
  }

  static void set_zone(const char *zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

  std::string path(const std::string &name) const { return sandbox.root() + "/overlay/" + name; }
  std::string sys() const { return path("mu_log.txt"); }
  std::string usr() const { return path("user_log.txt"); }
  std::string out() const { return sandbox.root() + "/copy.txt"; }

  static std::string bytes_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Makes the file anew: to rewrite one in place can wait for the disk.
  static void write(const std::string &path, const std::string &bytes) {
    unlink(path.c_str());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static bool exists(const std::string &path) { return ::access(path.c_str(), F_OK) == 0; }

  // Starts the log, again if need be: what the log before holds outside the files is gone. Returns what was printed.
  std::string start(const Names &names = numbered_names()) {
    release();
    Console console;
    EXPECT_EQ(mup_log_usr_init(static_cast<uint16_t>(names.size()), module_table(names).c_str()), 0);
    std::string printed = console.take();
    open_thresholds();
    return printed;
  }

  // Every level of every module is kept, and none shown but "Off".
  void open_thresholds() const {
    for (unsigned i = 0; i < ctrl->module_num; i++) {
      ctrl->modules[i].record_level = 8;
      ctrl->modules[i].print_level = 0;
    }
  }

  void expect_system(const std::vector<Record> &expected) const {
    expect_loaded(ctrl->sys_ring, MUP_LOG_SYS_NUM, ctrl->sys_idx, expected);
  }
  void expect_user(const std::vector<Record> &expected) const {
    expect_loaded(ctrl->usr_ring, MUP_LOG_USR_NUM, ctrl->usr_idx, expected);
  }

  const Sandbox sandbox;
  VirtualClock clock;  // the timer thread sleeps on it: nothing is saved behind the test's back
  mup_log_ctrl *const ctrl = mup_log_ctrl_get();

 private:
  // What another initialisation would abandon.
  void release() {
    if (ctrl->inited == 0) return;
    mu_free(ctrl->modules);
    mu_mutex_destroy(ctrl->mutex);
    close(ctrl->sock);
    ctrl->modules = nullptr;
    ctrl->mutex = nullptr;
    ctrl->inited = 0;
  }
};

inline void log_text(unsigned module, unsigned level, const std::string &text) {
  mup_log_msg(0, static_cast<uint8_t>(module), static_cast<uint8_t>(level), MUP_LOG_NOPRINT, "%s", text.c_str());
}

}  // namespace tarn_test

#endif
