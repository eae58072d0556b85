// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Levels: their names, and the settings of each module.
//
// Settings are read without the lock by every message, so they are stored and loaded as atomics.

#include "internal.h"

using namespace tarn;
using namespace tarn::log;

namespace {

constexpr std::string_view kLevelNames[] = {"Off",     "Emergency", "Alert", "Critical", "Error",
                                            "Warning", "Notice",    "Info",  "Debug"};
static_assert(std::size(kLevelNames) == kLevelMax + 1);

constexpr u8 kLastModuleOfSet = 20;
constexpr u8 kFirstUserModule = 16;
constexpr u8 kLastUserModule = 19;

// 0, or the status of a call that is refused: the name is null, or the log was not started.
mu_status_t refusal(const char *module_name, const char *function, int line) {
  if (report_null(module_name, function, line)) return kBadArgument;
  if (is_inited()) return 0;
  mu_printf("log system was not init \n");
  return kNotInited;
}

// The setting of that type, or null if there is none.
u8 *setting_of(mup_log_module &module, u8 type) {
  switch (type) {
    case MUP_LOG_SET_PRINT:
      return &module.print_level;
    case MUP_LOG_SET_RECORD:
      return &module.record_level;
    case MUP_LOG_SET_ENABLE:
      return &module.enable;
    default:
      return nullptr;
  }
}

bool in_range(u8 type, u8 value) {
  switch (type) {
    case MUP_LOG_SET_PRINT:
    case MUP_LOG_SET_RECORD:
      return value <= kLevelMax;
    case MUP_LOG_SET_ENABLE:
      return value <= 1;
    default:
      return true;
  }
}

void enable_modules(u8 first, u8 last, bool on) {
  if (!is_inited()) return;
  ScopedLock lock(control.mutex);
  for (u8 id = first; id <= last && id < control.module_num; id++) {
    // Set through mup_log_level_set, by the name, so that the level hook is called. Of two modules with the same name
    // the first is changed.
    (void)mup_log_level_set(0, control.modules[id].name, MUP_LOG_SET_ENABLE, on);
  }
}

}  // namespace

int tarn::log::find_level(std::string_view name) {
  for (int level = 0; level <= kLevelMax; level++) {
    if (kLevelNames[level] == name) return level;
  }
  return kNotFound;
}

const char *mup_log_level_str_get(uint8_t level) { return level <= kLevelMax ? kLevelNames[level].data() : ""; }

mu_status_t mup_log_level_set([[maybe_unused]] uint64_t reserved, const char *module_name, uint8_t type,
                              uint8_t value) {
  if (const mu_status_t status = refusal(module_name, __func__, __LINE__)) return status;
  if (!in_range(type, value)) return kBadArgument;
  const int id = find_module(module_name);
  if (id < 0) return kBadArgument;
  if (u8 *setting = setting_of(control.modules[id], type)) store_relaxed(*setting, value);
  // Deliberate: an unknown type changes nothing, but the hook is called and the call succeeds. Held by
  // LogLevelSet.CallsTheHookForAnUnknownType.
  if (mup_log_level_hook hook = load_relaxed(control.level_hook)) hook(static_cast<u8>(id), type, value);
  return 0;
}

mu_status_t mup_log_level_get([[maybe_unused]] uint64_t reserved, const char *module_name, uint8_t type,
                              uint8_t *value) {
  if (const mu_status_t status = refusal(module_name, __func__, __LINE__)) return status;
  if (value == nullptr) return kBadArgument;
  const int id = find_module(module_name);
  if (id < 0) return kBadArgument;
  const u8 *setting = setting_of(control.modules[id], type);
  if (setting == nullptr) return kBadArgument;
  *value = load_relaxed(*setting);
  return 0;
}

mu_status_t mup_log_set(int32_t on) {
  enable_modules(0, kLastModuleOfSet, on != 0);
  return 0;
}

mu_status_t mup_log_usr_set(int32_t on) {
  enable_modules(kFirstUserModule, kLastUserModule, on != 0);
  return 0;
}
