// What the sources of the log core share.
#ifndef TARN_LOG_INTERNAL_H
#define TARN_LOG_INTERNAL_H

#include "platform/support.h"
#include "tarn/log.h"

namespace tarn::log {

constexpr u8 kLevelMax = MUP_LOG_DEBUG;
constexpr u8 kDefaultLevel = MUP_LOG_ERROR;

// Bits of mup_log_ctrl::dirty.
constexpr u8 kSysDirty = 1 << 0;
constexpr u8 kUsrDirty = 1 << 1;

// The one state of the log.
extern mup_log_ctrl control;

inline bool is_inited() { return load_acquire(control.inited) != 0; }

// Reports a null argument, with the function and the line that checked it.
bool is_missing(const void *argument, const char *function = __builtin_FUNCTION(), int line = __builtin_LINE());

// The name of a module; "" for one that is not registered.
const char *module_name(u8 module);

// A ring of the control record: its slots, how many, and the index of the next slot to be written.
struct Ring {
  mup_log_rec *slots;
  u32 size;
  u32 *next;

  mup_log_rec &oldest(u32 age) const { return slots[(*next + age) & (size - 1)]; }
};

inline Ring system_ring() { return {control.sys_ring, MUP_LOG_SYS_NUM, &control.sys_idx}; }
inline Ring user_ring() { return {control.usr_ring, MUP_LOG_USR_NUM, &control.usr_idx}; }

static_assert((MUP_LOG_SYS_NUM & (MUP_LOG_SYS_NUM - 1)) == 0 && (MUP_LOG_USR_NUM & (MUP_LOG_USR_NUM - 1)) == 0,
              "ring indices are masked");

}  // namespace tarn::log

#endif
