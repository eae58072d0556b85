// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the sources of the log core share.
#ifndef TARN_LOG_INTERNAL_H
#define TARN_LOG_INTERNAL_H

#include <cstdio>
#include <string_view>

#include "platform/support.h"
#include "tarn/log.h"

namespace tarn::log {

constexpr u8 kLevelMax = MUP_LOG_DEBUG;
constexpr u8 kDefaultLevel = MUP_LOG_ERROR;

// Statuses other than 0, as the header lists them. For a log that was not started, the functions of the files return
// kNotStarted and those of the levels kNotInited.
constexpr mu_status_t kNoMutex = -1;
constexpr mu_status_t kNotStarted = 1;
constexpr mu_status_t kBadArgument = 2;
constexpr mu_status_t kNoMemory = 10;
constexpr mu_status_t kNotInited = 19;

// Bits of mup_log_ctrl::dirty.
constexpr u8 kSysDirty = 1 << 0;
constexpr u8 kUsrDirty = 1 << 1;

constexpr char kSysPath[] = "/overlay/mu_log.txt";
constexpr char kUsrPath[] = "/overlay/user_log.txt";

// The text before the first record of a file. The user file's marker ends the device's description.
constexpr std::string_view kSysMarker = "SysLog:\n";
constexpr std::string_view kUsrMarker = "\n\n";

// The one state of the log.
extern mup_log_ctrl control;

inline bool is_inited() { return load_acquire(control.inited) != 0; }

// Reports an argument that is null, with the function and the line that checked it. True if it was.
bool report_null(const void *argument, const char *function = __builtin_FUNCTION(), int line = __builtin_LINE());

// The name of a module; "" for one that is not registered.
const char *module_name(u8 module);

// The result of the next two functions if nothing is found. No id or level is negative.
constexpr int kNotFound = -1;

// The id of the first module of that name, or kNotFound.
int find_module(std::string_view name);

// The level of that name, or kNotFound.
int find_level(std::string_view name);

// A ring of the control record: its slots, their number, and the index of the next slot to be written.
struct Ring {
  mup_log_rec *slots;
  u32 size;
  u32 *next;

  mup_log_rec &oldest(u32 age) const { return slots[(*next + age) & (size - 1)]; }
};

// Zeroes every text. The next record goes into the first slot.
void clear_ring(const Ring &ring);

// Marks a file that differs from its ring, for the next save. Called with the mutex held; a save first reads it without
// the mutex.
inline void mark_dirty(u8 bit) { store_relaxed(control.dirty, static_cast<u8>(control.dirty | bit)); }

inline Ring system_ring() { return {control.sys_ring, MUP_LOG_SYS_NUM, &control.sys_idx}; }
inline Ring user_ring() { return {control.usr_ring, MUP_LOG_USR_NUM, &control.usr_idx}; }

static_assert((MUP_LOG_SYS_NUM & (MUP_LOG_SYS_NUM - 1)) == 0 && (MUP_LOG_USR_NUM & (MUP_LOG_USR_NUM - 1)) == 0,
              "ring indices are masked");

struct CloseFile {
  void operator()(FILE *file) const noexcept { (void)fclose(file); }  // a failure could not be reported
};
using File = std::unique_ptr<FILE, CloseFile>;

// Reads both log files back into the rings and makes those that cannot be opened. False when memory runs out.
bool load_files();

}  // namespace tarn::log

#endif
