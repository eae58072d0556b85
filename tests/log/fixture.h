// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the tests of the log: module tables, records, and the log started with or without its files.
#ifndef TARN_TESTS_LOG_FIXTURE_H
#define TARN_TESTS_LOG_FIXTURE_H

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "support/console.h"
#include "support/libc.h"
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
inline constexpr const char *kNotInitedLine = "log system was not init \n";
inline constexpr const char *kEmptyHeader =
    "Manufacturer:;\nProductClass:;\nSerialNumber:;\nIP:;\nHWVer:;\nSWVer:;\n\n";
inline const std::string kFreshSysFile("SysLog:\n\0", 9);

inline constexpr time_t kTen = 1767348000;  // 2026-01-02 10:00:00 UTC
inline const std::string kTenStamp = "2026-01-02 10:00:00";

inline std::string start_line(unsigned modules) {
  return "mu-log: init usr log OK (module_num " + std::to_string(modules) +
         ", max_log_num 1024, save_log_timer 3 seconds)\n";
}

// "m0", "m1", ...
inline Names numbered_names(unsigned count = 21) {
  Names names;
  for (unsigned i = 0; i < count; i++) names.push_back('m' + std::to_string(i));
  return names;
}

// The names as mup_log_init takes them.
inline std::string module_table(const Names &names = numbered_names()) {
  std::string table;
  for (std::string field : names) {
    field.resize(MUP_LOG_NAME_SIZE);
    table += field;
  }
  return table;
}

// Matches the assertion message of a function.
inline auto assertion_of(const std::string &function) {
  return testing::MatchesRegex(function + "\\(\\) _[1-9][0-9]*_: assert fail\n");
}

inline void set_zone(const char *zone) {
  setenv("TZ", zone, 1);
  tzset();
}

// ---- Files ----------------------------------------------------------------------------------------------------------

inline std::string bytes_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Creates a new file: a rewrite in place can wait for the disk.
inline void write_file(const std::string &path, const std::string &bytes) {
  unlink(path.c_str());
  std::ofstream(path, std::ios::binary) << bytes;
}

inline bool exists(const std::string &path) { return ::access(path.c_str(), F_OK) == 0; }

inline int lowest_free_descriptor() {
  const int descriptor = dup(STDIN_FILENO);
  close(descriptor);
  return descriptor;
}

// A record line at ten o'clock.
inline std::string line_of(const std::string &level, const std::string &module, const std::string &text) {
  return kTenStamp + "[" + level + "]" + module + ":" + text + "\n";
}

inline std::string good(const std::string &text) { return line_of("Error", "m0", text); }

// A line of `size` bytes, including its line feed.
inline std::string line_of_size(size_t size, char fill = 'x', const std::string &module = "m0") {
  std::string line = line_of("Error", module, "");
  return line.insert(line.size() - 1, size - line.size(), fill);
}

// ---- Records --------------------------------------------------------------------------------------------------------

// A record without its line number.
struct Record {
  unsigned module = 0;
  unsigned level = 0;
  time_t time = 0;
  std::string text;

  bool operator==(const Record &) const = default;
};

using Records = std::vector<Record>;

inline void PrintTo(const Record &record, std::ostream *out) {
  *out << record.time << " [" << record.level << "]" << record.module << ":" << record.text;
}

inline Record good_record(const std::string &text) { return {0, MUP_LOG_ERROR, kTen, text}; }

inline std::string text_of(const mup_log_rec &slot) { return {slot.text, strnlen(slot.text, sizeof slot.text)}; }

// Puts a record into a slot as a message would.
inline void put(mup_log_rec *slot, const Record &record) {
  *slot = {};
  slot->module = static_cast<uint8_t>(record.module);
  slot->level = static_cast<uint8_t>(record.level);
  slot->time = record.time;
  record.text.copy(slot->text, sizeof slot->text - 1);
}

// Checks that a ring that was loaded holds exactly these records, from its first slot on, and has no other text.
inline void expect_loaded(const mup_log_rec *ring, size_t size, uint32_t index, const Records &expected) {
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

// Logs without a console line.
inline void log_text(unsigned module, unsigned level, const std::string &text) {
  mup_log_msg(0, static_cast<uint8_t>(module), static_cast<uint8_t>(level), MUP_LOG_NOPRINT, "%s", text.c_str());
}

// Logs the messages "N first", ..., "N last - 1" without showing them.
inline void log_numbers(uint8_t module, int first, int last) {
  for (int i = first; i < last; i++) mup_log_msg(0, module, MUP_LOG_ERROR, MUP_LOG_NOPRINT, "N %d", i);
}

// The function under a type for which the compiler does not check formats: the tests pass null formats.
inline void (*const log_unchecked)(uint64_t, uint8_t, uint8_t, int32_t, const char *, ...) = mup_log_msg;

// ---- Fixtures -------------------------------------------------------------------------------------------------------

using SendTo = ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t);

// The log, not started.
class Log : public testing::Test {
 protected:
  // Initialises the log, again if need be: memory and descriptors of the previous start are released.
  void init(const Names &names = numbered_names()) {
    release();
    ASSERT_EQ(mup_log_init(0, static_cast<uint16_t>(names.size()), module_table(names).c_str()), 0);
  }
  void init(unsigned modules) { init(numbered_names(modules)); }

  // Releases what another initialisation would abandon.
  void release() const {
    if (ctrl->inited == 0) return;
    mu_free(ctrl->modules);
    mu_mutex_destroy(ctrl->mutex);
    close(ctrl->sock);
    ctrl->modules = nullptr;
    ctrl->mutex = nullptr;
    ctrl->inited = 0;
  }

  void set_thresholds(uint8_t print, uint8_t record) const {
    for (unsigned i = 0; i < ctrl->module_num; i++) {
      ctrl->modules[i].print_level = print;
      ctrl->modules[i].record_level = record;
    }
  }

  bool lock_is_free() const {
    if (mu_mutex_trylock(ctrl->mutex) != 0) return false;
    mu_mutex_unlock(ctrl->mutex);
    return true;
  }

  // Whether the call ends while the test holds the log mutex. It runs on another thread, so a call that waits for the
  // mutex is a failure and not a hang.
  bool ends_under_the_lock(std::function<void()> call) const {
    mu_mutex_lock(ctrl->mutex);
    std::future<void> done = std::async(std::launch::async, std::move(call));
    const bool ended = done.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    mu_mutex_unlock(ctrl->mutex);
    return ended;
  }

  // Whether the call waits while the test holds the log mutex, and ends when it is released.
  bool waits_for_the_lock(const std::function<void()> &call) const {
    std::atomic<bool> done = false;
    mu_mutex_lock(ctrl->mutex);
    std::thread caller([&] {
      call();
      done = true;
    });
    for (int i = 0; i < 2000; i++) std::this_thread::yield();
    const bool waited = !done;
    mu_mutex_unlock(ctrl->mutex);
    caller.join();
    return waited;
  }

  mup_log_ctrl *const ctrl = mup_log_ctrl_get();
};

// The log with the modules "m0" to "m20", without files.
class InitedLog : public Log {
 protected:
  InitedLog() { init(); }
};

// The log with its files in a private overlay, not started. The timer thread sleeps on the clock: nothing is saved
// unless a test lets time pass.
class LogFiles : public Log {
 protected:
  LogFiles() { set_zone("UTC0"); }

  // Starts the log, again if need be; it then has only what the files hold. All levels are recorded, and only "Off" is
  // shown. Returns the text that was printed.
  std::string start(const Names &names = numbered_names()) {
    release();
    Console console;
    EXPECT_EQ(mup_log_usr_init(static_cast<uint16_t>(names.size()), module_table(names).c_str()), 0);
    std::string printed = console.take();
    set_thresholds(MUP_LOG_OFF, MUP_LOG_DEBUG);
    return printed;
  }

  static void save() { EXPECT_EQ(mup_log_usr_savefile(), 0); }
  std::string save_system() const {
    ctrl->dirty = 1;
    save();
    return bytes_of(sys());
  }
  std::string save_user() const {
    ctrl->dirty = 2;
    save();
    return bytes_of(usr());
  }

  // A copy of a log file. `which` 0: the system log.
  std::string copied(int which = 0, const char *module = nullptr, unsigned levels = 0) const {
    unlink(out().c_str());
    EXPECT_EQ(mup_log_file_get(out().c_str(), static_cast<int8_t>(which), module, static_cast<uint8_t>(levels)), 0);
    return bytes_of(out());
  }
  // A copy of this text in place of the system log.
  std::string copy_of(const std::string &file, const char *module = nullptr, unsigned levels = 0) const {
    write_file(sys(), file);
    return copied(0, module, levels);
  }

  const std::string &root() const { return sandbox_.root(); }
  std::string path(const std::string &name) const { return root() + "/overlay/" + name; }
  std::string sys() const { return path("mu_log.txt"); }
  std::string usr() const { return path("user_log.txt"); }
  std::string out() const { return root() + "/copy.txt"; }

  void expect_system(const Records &expected) const {
    expect_loaded(ctrl->sys_ring, MUP_LOG_SYS_NUM, ctrl->sys_idx, expected);
  }
  void expect_user(const Records &expected) const {
    expect_loaded(ctrl->usr_ring, MUP_LOG_USR_NUM, ctrl->usr_idx, expected);
  }

 private:
  const Sandbox sandbox_;

 protected:
  VirtualClock clock;
};

// Started on an empty overlay.
class StartedLogFiles : public LogFiles {
 protected:
  StartedLogFiles() { start(); }
};

}  // namespace tarn_test

#endif
